// Every allocation of every call fails once, and everything from there on fails once: no crash, no leak, no connection
// left on the list, no wrong answer, and the code that the failed allocation has.
//
// Each scenario runs once to count its allocations and then once for each of them and each way; the count proves that
// every injection met its allocation. All of that under each of several conditions, in which the library goes other ways.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/select.h>

#include "krvstats.h"
#include "krvstats_ext.h"
#include "open_files.h"
#include "ready_gateway.h"
#include "reply_builder.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_capture.h"
#include "watched_allocator.h"

using namespace krvtest;

namespace krvtest {

namespace {

constexpr int untilTheEnd = 1000; // more than any scenario allocates

Bytes openingReplies()
{
    return handshakeReply() + authInitReply(hex("01 02 03 04 05 06 07 08"), hex("A1 A2 A3 A4"))
        + authConfirmReply(hex("11 12 13 14 15 16 17 18")) + adminInitReply(hex("B1 B2 B3 B4"))
        + adminCallReply(1, attributeData("1_0"));
}

Bytes queryReplies(const Bytes& data)
{
    return adminInitReply(hex("B1 B2 B3 B4")) + adminCallReply(5, data);
}

// ---- Answers ------------------------------------------------------------------------------------------------------

using Answer = std::vector<std::string>;

std::string part(const char* text, int length)
{
    return std::string(text, static_cast<std::size_t>(length));
}

Answer answerOf(KRV_ResultSetToken_t set, bool statistics)
{
    Answer answer;
    if (statistics) {
        KRV_StatData_t stat = {};
        for (int rc = getFirstStat(set, &stat); rc == 0; rc = getNextStat(set, &stat))
            answer.push_back(part(stat.statIdPtr, stat.statIdLen) + "=" + part(stat.statValuePtr, stat.statValueLen));
    } else {
        KRV_IdData_t id = {};
        for (int rc = getFirstId(set, &id); rc == 0; rc = getNextId(set, &id)) answer.push_back(part(id.idPtr, id.idLen));
    }
    return answer;
}

// ---- Conditions ---------------------------------------------------------------------------------------------------

enum class Condition { Plain, WithADeadline, Traced, WithManyOpenFiles };

const char* nameOf(Condition condition)
{
    switch (condition) {
    case Condition::WithADeadline: return "WithADeadline";
    case Condition::Traced: return "Traced";
    case Condition::WithManyOpenFiles: return "WithManyOpenFiles";
    default: return "Plain";
    }
}

// Holds as long as it lives. What is dumped goes where the trace goes.
class Surroundings {
public:
    explicit Surroundings(Condition condition) : trace(condition == Condition::Traced ? 5 : 0)
    {
        EXPECT_EQ(0, setCallDeadline(condition == Condition::WithADeadline ? 600000 : 0));
        if (condition == Condition::WithManyOpenFiles) files = std::make_unique<OpenFiles>(FD_SETSIZE);
    }
    ~Surroundings() { EXPECT_EQ(0, setCallDeadline(0)); }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    bool wroteSomething() const { return !trace.text().empty(); }

private:
    TraceFile trace;
    std::unique_ptr<OpenFiles> files;
};

// Each wait for a descriptor that no fd_set can hold has a set of its own.
std::size_t setsOf(Condition condition, std::size_t waits)
{
    return condition == Condition::WithManyOpenFiles ? waits : 0;
}

// ---- Scenarios ----------------------------------------------------------------------------------------------------

// An open connection, and what its calls gave.
struct Session {
    int port = 0;
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    KRV_ResultSetToken_t copy = nullptr;
    char* version = nullptr;
    char* query = nullptr;
};

int openSession(Session& session)
{
    char host[] = "127.0.0.1";
    return openRemoteGatewayConnection(host, session.port, &session.token, &session.version);
}

// A call whose allocations fail. codes: the one for each allocation, in their order, when it alone fails.
struct Scenario {
    const char* name;
    Bytes replies; // behind those to the opening, twice: for the call and for the one after it
    std::function<int(Session&)> prepare;
    std::function<int(Session&)> call;
    std::function<std::vector<int>(Condition condition, int count)> codes;
    std::function<void(Session&)> checkSuccess;
};

void PrintTo(const Scenario& scenario, std::ostream* out)
{
    *out << scenario.name;
}

std::vector<int> join(std::vector<int> left, const std::vector<int>& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::vector<int> times(std::size_t count, int code)
{
    return std::vector<int>(count, code);
}

// Two requests, each with its reply's header and body, and the data of the second.
const std::size_t allocationsOfAnAdminCall = 7;

// Three requests of the greeting, each with its reply's header, and the bodies of the replies to the authorisation.
const std::size_t allocationsOfAGreeting = 8;

// The sets of one for writing and one for errors, while connecting; and of one for each reply.
constexpr std::size_t waitsOfConnecting = 2;
constexpr std::size_t waitsOfAGreeting = 3;
constexpr std::size_t waitsOfAnAdminCall = 2;
constexpr std::size_t waitsOfAGoodbye = 1;

Scenario opening()
{
    auto codes = [](Condition condition, int count) {
        std::vector<int> before = {KRVSTAT_OUT_OF_MEMORY,           // the token
                                   KRVSTAT_OUT_OF_MEMORY,           // its result set
                                   KRVSTAT_OUT_OF_MEMORY,           // the result set's query text
                                   KRVSTAT_GATEWAY_PROTOCOL_ERROR,  // the version: missed only when it arrives
                                   KRVSTAT_OUT_OF_MEMORY};          // the result-set buffer
        const std::size_t greeting = allocationsOfAGreeting + setsOf(condition, waitsOfConnecting + waitsOfAGreeting);
        const std::size_t adminCall = allocationsOfAnAdminCall + setsOf(condition, waitsOfAnAdminCall);
        std::vector<int> after =
            join(times(greeting, KRVSTAT_CONNECT_FAILED), times(adminCall, KRVSTAT_GATEWAY_PROTOCOL_ERROR));
        after.push_back(KRVSTAT_OUT_OF_MEMORY); // the version as it is handed out
        std::size_t resolving = static_cast<std::size_t>(count) - before.size() - after.size();
        return join(join(before, times(resolving, KRVSTAT_HOST_NOT_RESOLVED)), after);
    };
    return {"openRemoteGatewayConnection", Bytes(), [](Session&) { return 0; }, openSession, codes,
            [](Session& session) { EXPECT_STREQ("1_0", session.version); }};
}

// How long an answer's first text is. The second does not fit a new connection's buffer any more behind a long one; behind
// a filling one, not even the terminator does.
enum FirstText { shortText = 1, longText = 30000, fillingText = 32732 };

Scenario query(const char* name, bool withIds, bool statistics, FirstText first,
               const std::function<int(KRV_GatewayToken_t, KRV_ResultSetToken_t*)>& call)
{
    const bool grows = first != shortText;
    std::string value = letters(first);
    std::string other = letters(grows ? 20000 : 3, 7);
    Answer expected = {value, other};
    Bytes data = idsData("q", 0, expected);
    if (statistics) {
        data = statsData("q", 0, {{"a", value}, {"b", other}});
        expected = {"a=" + value, "b=" + other};
    }
    auto codes = [withIds, grows](Condition condition, int) {
        const std::size_t adminCall = allocationsOfAnAdminCall + setsOf(condition, waitsOfAnAdminCall);
        return join(times(withIds ? 1 : 0, KRVSTAT_OUT_OF_MEMORY),
                    times(adminCall + (grows ? 1 : 0), KRVSTAT_GATEWAY_PROTOCOL_ERROR));
    };
    return {name, queryReplies(data), openSession, [call](Session& session) { return call(session.token, &session.set); }, codes,
            [expected, statistics](Session& session) { EXPECT_EQ(expected, answerOf(session.set, statistics)); }};
}

// On the answer to a query; with so many waits that may fail without a consequence.
Scenario reading(const char* name, const std::function<int(Session&)>& call, const std::vector<int>& codes,
                 const std::function<void(Session&)>& checkSuccess, std::size_t waits = 0)
{
    return {name, queryReplies(statsData("q", 0, {{"a", "1"}, {"b", "two"}})),
            [](Session& session) {
                int rc = openSession(session);
                return rc == 0 ? getStats(session.token, &session.set) : rc;
            },
            call, [codes, waits](Condition condition, int) { return join(codes, times(setsOf(condition, waits), 0)); },
            checkSuccess};
}

char someIds[] = "a:b";

std::vector<Scenario> scenarios()
{
    auto nothing = [](Session&) {};
    const std::vector<int> none;
    const std::vector<int> neverFails = times(2, 0); // request and header of a goodbye: it is said or not
    return {
        opening(),
        query("getStats", false, true, shortText, getStats),
        query("getStatIds", false, false, shortText, getStatIds),
        query("getResourceGroupIds", false, false, shortText, getResourceGroupIds),
        query("getStatsByStatId", true, true, shortText,
              [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatId(token, someIds, set); }),
        query("getStatsByStatGroupId", true, true, shortText,
              [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatGroupId(token, someIds, set); }),
        query("getStatIdsByStatGroupId", true, false, shortText,
              [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatIdsByStatGroupId(token, someIds, set); }),
        query("getStatsThatGrow", false, true, longText, getStats),
        query("getStatsThatFillTheBuffer", false, true, fillingText, getStats),
        query("getStatIdsThatGrow", false, false, longText, getStatIds),
        query("getStatIdsThatFillTheBuffer", false, false, fillingText, getStatIds),
        reading("getIdQuery", [](Session& session) { return getIdQuery(session.set, &session.query); },
                times(1, KRVSTAT_OUT_OF_MEMORY), [](Session& session) { EXPECT_STREQ("a:b", session.query); }),
        reading("copyResultSet", [](Session& session) { return copyResultSet(session.set, &session.copy); },
                times(3, KRVSTAT_OUT_OF_MEMORY),
                [](Session& session) { EXPECT_EQ((Answer{"a=1", "b=two"}), answerOf(session.copy, true)); }),
        reading("dumpResultSet", [](Session& session) { return dumpResultSet(session.set); }, none, nothing),
        reading("dumpState", [](Session&) { return dumpState(); }, none, nothing),
        reading("closeGatewayConnection", [](Session& session) { return closeGatewayConnection(&session.token); },
                neverFails, nothing, waitsOfAGoodbye),
        reading("closeAllGatewayConnections", [](Session&) { return closeAllGatewayConnections(); }, neverFails, nothing,
                waitsOfAGoodbye),
    };
}

// ---- Runs ---------------------------------------------------------------------------------------------------------

struct Outcome {
    int prepared = -1;
    int rc = 0;
    int requests = 0;
    int failures = 0;
    int again = 0; // the same call once more, with all the memory it wants
    int blocksLeft = -1;
    bool tokenLeft = true;
};

bool endsConnection(const Scenario& scenario)
{
    return std::string(scenario.name).rfind("close", 0) == 0;
}

void freeCopy(Session& session)
{
    if (!session.copy) return;
    EXPECT_EQ(0, freeResultSet(&session.copy));
}

// Nothing in here allocates for itself between the opening and the end, except the checks.
Outcome runOnce(const Scenario& scenario, ReadyGateway& gateway, int failFrom, int failFor)
{
    gateway.prepare(openingReplies() + scenario.replies + scenario.replies);
    Outcome run;
    Session session;
    session.port = gateway.port();
    AllocationWatch watch(1, SIZE_MAX / 2);
    run.prepared = scenario.prepare(session);
    const int before = watch.requests();
    if (failFrom >= 0) watch.fail(before + failFrom, failFor);
    run.rc = scenario.call(session);
    run.requests = watch.requests() - before;
    run.failures = watch.failures();
    watch.fail(-1, 0);

    if (run.rc == 0) scenario.checkSuccess(session);
    freeCopy(session);
    if (!endsConnection(scenario) && run.rc != 0) run.again = scenario.call(session);
    if (run.again == 0 && run.rc != 0) scenario.checkSuccess(session);
    freeCopy(session);
    if (gtListHeadPtr) closeAllGatewayConnections();
    run.tokenLeft = gtListHeadPtr != nullptr;
    run.blocksLeft = watch.blocksLeft();
    return run;
}

} // namespace

class EveryAllocation : public ::testing::TestWithParam<std::tuple<Scenario, Condition>> {
};

TEST_P(EveryAllocation, FailsOnceWithItsCodeAndLeavesNothing)
{
    const auto& [scenario, condition] = GetParam();
    const Surroundings surroundings(condition);
    ReadyGateway gateway;
    runOnce(scenario, gateway, -1, 0); // what the C library keeps for itself is allocated here
    const Outcome clean = runOnce(scenario, gateway, -1, 0);
    ASSERT_EQ(0, clean.prepared);
    ASSERT_EQ(0, clean.rc);
    EXPECT_EQ(0, clean.blocksLeft);
    EXPECT_LT(clean.requests, WatchedAllocations::most / 3) << "the watch counts so many only";

    const std::vector<int> codes = scenario.codes(condition, clean.requests);
    ASSERT_EQ(codes.size(), static_cast<std::size_t>(clean.requests));
    for (int number = 0; number < clean.requests; number++) {
        for (int failFor : {1, untilTheEnd}) {
            SCOPED_TRACE("allocation " + std::to_string(number) + (failFor == 1 ? " alone" : " and all from there"));
            const Outcome run = runOnce(scenario, gateway, number, failFor);
            ASSERT_EQ(0, run.prepared);
            EXPECT_GE(run.failures, 1) << "the injection was not met";
            EXPECT_TRUE(failFor != 1 || run.failures == 1) << run.failures << " failed";
            int expected = codes[static_cast<std::size_t>(number)];
            // An open that has no room for the version goes on to the next allocation, which fails too.
            const bool goesOn = expected == KRVSTAT_GATEWAY_PROTOCOL_ERROR && number == 3 && scenario.replies.empty();
            if (failFor != 1 && goesOn) expected = KRVSTAT_OUT_OF_MEMORY;
            EXPECT_EQ(expected, run.rc);
            if (run.rc != 0) {
                // A query that failed on its way has removed its connection; anything else is as good as before.
                const bool removed = expected == KRVSTAT_GATEWAY_PROTOCOL_ERROR && !scenario.replies.empty();
                EXPECT_EQ(removed ? KRVSTAT_GATEWAY_TOKEN_NOT_FOUND : 0, run.again);
            }
            EXPECT_EQ(0, run.blocksLeft);
            EXPECT_FALSE(run.tokenLeft);
        }
    }
    EXPECT_TRUE(condition != Condition::Traced || surroundings.wroteSomething());
}

std::string nameOfRun(const ::testing::TestParamInfo<std::tuple<Scenario, Condition>>& run)
{
    return std::string(std::get<Scenario>(run.param).name) + nameOf(std::get<Condition>(run.param));
}

INSTANTIATE_TEST_SUITE_P(Calls, EveryAllocation,
                         ::testing::Combine(::testing::ValuesIn(scenarios()),
                                            ::testing::Values(Condition::Plain, Condition::WithADeadline, Condition::Traced,
                                                              Condition::WithManyOpenFiles)),
                         nameOfRun);

// A stream is one allocation. Its buffer is another, once there is something to write; what gets none writes without.
TEST(TraceFileAllocations, FailOnceWithTheirCodeAndLeaveTheDestination)
{
    for (const int level : {0, 5}) {
        const std::vector<int> codes = join(times(1, KRVSTAT_TRACE_FILE_OPEN_FAILED), times(level > 0 ? 1 : 0, 0));
        for (int number = 0; number <= static_cast<int>(codes.size()); number++) { // the last run fails nowhere
            for (int failFor : {1, untilTheEnd}) {
                SCOPED_TRACE("level " + std::to_string(level) + ", allocation " + std::to_string(number));
                const bool fails = number < static_cast<int>(codes.size());
                const int expected = fails ? codes[static_cast<std::size_t>(number)] : 0;
                TraceFile trace(level);
                ScratchFolder scratch;
                std::string name = scratch.path("other");
                const std::string destination = expected == 0 ? name : trace.path();
                {
                    AllocationWatch watch(1, SIZE_MAX / 2);
                    watch.fail(number, failFor);
                    EXPECT_EQ(expected, setAPITraceFile(name.data()));
                    EXPECT_EQ(fails ? 1 : 0, watch.failures());
                    EXPECT_EQ(expected == 0 ? static_cast<int>(codes.size()) : 1, watch.requests());
                    watch.fail(-1, 0);
                    EXPECT_EQ(destination, statAPITraceFilename);
                    EXPECT_EQ(0, setAPITraceLevel(0));
                    EXPECT_EQ(0, setAPITraceFile(nullptr));
                    EXPECT_EQ(0, watch.blocksLeft());
                }
                EXPECT_EQ(level > 0 ? 1u : 0u, linesNumbered(parseTrace(readWholeFile(destination)), 1101).size());
            }
        }
    }
}

} // namespace krvtest
