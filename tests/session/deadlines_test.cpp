// Deadlines: every call that talks to a gateway is back in time, whatever the gateway does or does not do.
#include <algorithm>
#include <set>
#include <tuple>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "interruptions.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "stapi_krv_types.h"
#include "trace_capture.h"

using namespace krvtest;

namespace krvtest {

// Where a gateway goes silent. One that drips its reply does not listen meanwhile.
struct Stage {
    const char* name;
    const char* misbehaviour;
    bool query; // else the open
    bool hearsGoodbye = true;
};

void PrintTo(const Stage& stage, std::ostream* out)
{
    *out << stage.misbehaviour;
}

class SilentStage : public testing::TestWithParam<std::tuple<Stage, int>> {
};

} // namespace krvtest

namespace {

const Stage stages[] = {
    {"Handshake", "no-answer@handshake", false},
    {"FirstAuthorisation", "no-answer@auth1", false},
    {"SecondAuthorisation", "no-answer@auth2", false},
    {"InitOfTheOpen", "no-answer@init#1", false},
    {"Attribute", "no-answer@attribute", false},
    {"HalfAHeader", "stall-at=11@auth1", false},
    {"HalfABody", "stall-at=-3@attribute", false},
    {"InitOfTheQuery", "no-answer@init#2", true},
    {"Query", "no-answer@get-stats", true},
    {"HalfAHeaderOfTheQuery", "stall-at=11@get-stats", true},
    {"HalfABodyOfTheQuery", "stall-at=-3@get-stats", true},
    {"DrippingOpen", "byte-by-byte=1000000@handshake", false, false},
    {"DrippingQuery", "byte-by-byte=1000000@get-stats", true, false},
};

std::string nameOfStage(const testing::TestParamInfo<std::tuple<Stage, int>>& each)
{
    return std::string(std::get<0>(each.param).name) + std::to_string(std::get<1>(each.param));
}

// The numbers of the lines, in their order.
std::vector<int> numbers(const std::vector<TraceLine>& lines)
{
    std::vector<int> all;
    for (const TraceLine& line : lines)
        if (line.number != 0) all.push_back(line.number);
    return all;
}

} // namespace

// ---- The call that sets it ----------------------------------------------------------------------------------------

TEST(SettingADeadline, TakesZeroAndMoreAndRefusesNegativeNumbers)
{
    for (int good : {1, 50, 2000, 0x7fffffff, 0}) EXPECT_EQ(KRVSTAT_OK, setCallDeadline(good));
    for (int bad : {-1, -50, -0x7fffffff - 1}) EXPECT_EQ(-104, setCallDeadline(bad));
}

TEST(SettingADeadline, ThatIsRefusedLeavesTheOneBefore)
{
    SilentListener silent;
    const CallDeadline deadline(150);
    EXPECT_EQ(-104, setCallDeadline(-1));
    Connection connection;
    const Timed open = timed([&] { return connection.open(silent.port()); });
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
    expectAtDeadline("after a refused deadline", 150, open);
}

TEST(SettingADeadline, HoldsForTheCallingThreadAlone)
{
    Caller other;
    GatewayProcess gateway({"delay=600@get-stats"});
    Connection mine, others;
    EXPECT_EQ(0, resultOf(other.start([&] { return others.open(gateway.port()); })).rc);
    EXPECT_EQ(0, mine.open(gateway.port()));
    const CallDeadline deadline(100);
    auto query = other.start([&] { return others.query(); });
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, mine.query());
    const Timed slow = resultOf(std::move(query));
    EXPECT_EQ(0, slow.rc);
    EXPECT_GE(slow.ms, 600);
    EXPECT_EQ(0, resultOf(other.start([&] { return others.close(); })).rc);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST(SettingADeadline, ToZeroGivesCallsWithoutALimitBack)
{
    GatewayProcess gateway({"delay=500@get-stats"});
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    EXPECT_EQ(0, setCallDeadline(50));
    EXPECT_EQ(0, setCallDeadline(0));
    const Timed query = timed([&] { return connection.query(); });
    EXPECT_EQ(0, query.rc);
    EXPECT_GE(query.ms, 500);
    EXPECT_EQ(0, connection.close());
}

TEST(SettingADeadline, DoesNotOutliveItsThread)
{
    GatewayProcess gateway({"delay=400@get-stats"});
    std::thread([] { EXPECT_EQ(0, setCallDeadline(50)); }).join();
    int rc = neverBack;
    std::thread([&] {
        Connection connection;
        EXPECT_EQ(0, connection.open(gateway.port()));
        rc = connection.query();
        EXPECT_EQ(0, connection.close());
    }).join();
    EXPECT_EQ(0, rc);
}

// ---- Gateways that go silent --------------------------------------------------------------------------------------

TEST_P(SilentStage, EndsTheCallAtItsDeadline)
{
    const Stage& stage = std::get<0>(GetParam());
    const int deadlineMs = std::get<1>(GetParam());
    GatewayProcess gateway({stage.misbehaviour});
    EXPECT_EQ(0, setCallDeadline(0)); // and the library is set up before descriptors are counted
    const std::size_t descriptors = openDescriptors();

    Connection connection;
    if (stage.query) {
        ASSERT_EQ(0, connection.open(gateway.port()));
    }
    const CallDeadline deadline(deadlineMs);
    const Timed call = timed([&] { return stage.query ? connection.query() : connection.open(gateway.port()); });
    EXPECT_EQ(stage.query ? KRVSTAT_GATEWAY_PROTOCOL_ERROR : KRVSTAT_CONNECT_TIMEOUT, call.rc);
    expectAtDeadline(stage.name, deadlineMs, call);

    EXPECT_EQ(nullptr, gtListHeadPtr) << "nothing stays on the list";
    EXPECT_EQ(descriptors, openDescriptors());
    if (stage.query) {
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.query());
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.close());
    } else {
        EXPECT_TRUE(connection.untouched());
    }
    EXPECT_TRUE(!stage.hearsGoodbye || gateway.awaitTranscript("C>G close ")) << "the goodbye is sent all the same";
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
}

INSTANTIATE_TEST_SUITE_P(Of, SilentStage, testing::Combine(testing::ValuesIn(stages), testing::Values(50, 300)), nameOfStage);
INSTANTIATE_TEST_SUITE_P(Long, SilentStage, testing::Combine(testing::Values(stages[0], stages[8], stages[12]), testing::Values(2000)), nameOfStage);

TEST(SilentClose, ClosesAtItsDeadline)
{
    for (int deadlineMs : {50, 300, 2000}) {
        GatewayProcess gateway({"no-answer@close"});
        const std::size_t descriptors = openDescriptors();
        Connection connection;
        ASSERT_EQ(0, connection.open(gateway.port()));
        const CallDeadline deadline(deadlineMs);
        const Timed close = timed([&] { return connection.close(); });
        EXPECT_EQ(KRVSTAT_OK, close.rc);
        expectAtDeadline("Close", deadlineMs, close);
        EXPECT_EQ(descriptors, openDescriptors());
        EXPECT_EQ(nullptr, gtListHeadPtr);
        EXPECT_TRUE(gateway.awaitTranscript("C>G close "));
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.close());
    }
}

TEST(SilentClose, OfManyConnectionsTakesOneDeadlineAndSaysGoodbyeToEach)
{
    GatewayProcess gateway({"no-answer@close"});
    const std::size_t descriptors = openDescriptors();
    Connection connections[12];
    for (Connection& each : connections) ASSERT_EQ(0, each.open(gateway.port()));
    const CallDeadline deadline(300);
    const Timed close = timed([] { return closeAllGatewayConnections(); });
    EXPECT_EQ(KRVSTAT_OK, close.rc);
    expectAtDeadline("Close of twelve", 300, close);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_TRUE(soon([&] {
        const std::vector<std::string> lines = gateway.transcript();
        return std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.find("C>G close ") != std::string::npos; }) == 12;
    }));
}

TEST(UnansweredConnect, IsGivenUpAtTheDeadline)
{
    const Unanswering port;
    const std::size_t descriptors = openDescriptors();
    for (int deadlineMs : {50, 300, 1500}) {
        const CallDeadline deadline(deadlineMs);
        Connection connection;
        const Timed open = timed([&] { return connection.open(port.port()); });
        EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
        expectAtDeadline("Connect", deadlineMs, open);
        EXPECT_TRUE(connection.untouched());
    }
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST(SilentBacklog, EndsTheOpenAtItsDeadlineAndStillHearsTheGoodbye)
{
    SilentListener silent;
    for (int deadlineMs : {50, 300}) {
        const CallDeadline deadline(deadlineMs);
        Connection connection;
        const Timed open = timed([&] { return connection.open(silent.port()); });
        EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
        expectAtDeadline("Backlog", deadlineMs, open);

        const int peer = silent.accept();
        const Bytes sent = handshakeRequest() + closeRequest();
        Bytes received(sent.size() + 1);
        EXPECT_EQ(static_cast<ssize_t>(sent.size()), recv(peer, received.data(), received.size(), MSG_WAITALL));
        received.resize(sent.size());
        EXPECT_TRUE(sameBytes(sent, received));
        ::close(peer);
    }
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

// ---- Gateways that do not read ------------------------------------------------------------------------------------

TEST(DeafGateway, EndsAQueryAtItsDeadline)
{
    ScriptedPeer peer({opening() + Script{waitUntilTold()}});
    const std::size_t descriptors = openDescriptors();
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    fillUp(connection.token->socketDescriptor);
    std::string ids(32000, 'i');
    KRV_ResultSetToken_t set = nullptr;
    const CallDeadline deadline(200);
    const Timed query = timed([&] { return getStatsByStatId(connection.token, ids.data(), &set); });
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query.rc) << "and not -102, which a request that cannot be sent gives";
    expectAtDeadline("Deaf to a query", 200, query);
    EXPECT_EQ(nullptr, set);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_LE(openDescriptors(), descriptors + 1) << "the peer's end may still be open";
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, getStatsByStatId(connection.token, ids.data(), &set));
    peer.tell();
}

TEST(DeafGateway, ThatNeverTakesAByteEndsAQueryWithTheCodeOfADeadline)
{
    ScriptedPeer peer({opening() + Script{expectClose()}});
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int, const void*, std::size_t, int) -> ssize_t {
        ++sends;
        errno = EAGAIN;
        return -1;
    };
    const Hooked hooked(calls);
    const CallDeadline deadline(50);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query()) << "and not -102, which a request that cannot be sent gives";
    EXPECT_GT(sends, 1);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST(DeafGateway, ThatListensInTimeGetsTheWholeQuery)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int socket, const void* bytes, std::size_t count, int flags) -> ssize_t {
        if (sends++ % 2 == 1) return send(socket, bytes, count, flags);
        errno = EAGAIN;
        return -1;
    };
    {
        const Hooked hooked(calls);
        const CallDeadline deadline(60000);
        EXPECT_EQ(KRVSTAT_OK, connection.query());
        EXPECT_EQ(4, sends) << "each of two requests once more";
    }
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(0, gateway.stop());
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
}

TEST(DeafGateway, EndsACloseAtItsDeadline)
{
    ScriptedPeer peer({opening() + Script{waitUntilTold()}});
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    fillUp(connection.token->socketDescriptor);
    const CallDeadline deadline(200);
    const Timed close = timed([&] { return connection.close(); });
    EXPECT_EQ(KRVSTAT_OK, close.rc);
    expectAtDeadline("Deaf to a close", 200, close);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    peer.tell();
}

// ---- Gateways that never stop -------------------------------------------------------------------------------------

// Nothing of this call ever waits: there is always something to read, and reading takes its time.
TEST(FloodingGateway, EndsAQueryAtItsDeadlineToo)
{
    ScriptedPeer peer({opening() + query(statsData("", 0, {}) + zeros(6000)) + Script{expectClose()}});
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    int received = 0;
    SocketCalls calls;
    calls.recv = [&received](int socket, void* bytes, std::size_t, int flags) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++received;
        return recv(socket, bytes, 1, flags);
    };
    const Hooked hooked(calls);
    const CallDeadline deadline(1500);
    const Timed query = timed([&] { return connection.query(); });
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query.rc);
    EXPECT_GT(received, 40) << "more than the first reply was read";
    expectAtDeadline("Flood", 1500, query);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

// ---- The whole call -----------------------------------------------------------------------------------------------

TEST(Deadline, CountsTheWholeCallAndNotEachWait)
{
    GatewayProcess gateway({"delay=120"});
    Connection connection;
    const CallDeadline deadline(300);
    const Timed open = timed([&] { return connection.open(gateway.port()); });
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc) << "five exchanges of 120 ms are more than 300 ms";
    expectAtDeadline("Five slow replies", 300, open);
    EXPECT_TRUE(connection.untouched());
}

TEST(Deadline, StartsAnewWithEachCall)
{
    GatewayProcess gateway({"delay=150@get-stats"});
    Connection connection;
    const CallDeadline deadline(1000);
    ASSERT_EQ(0, connection.open(gateway.port()));
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(0, connection.query()) << i;
    EXPECT_GT(millisecondsSince(start), 1000) << "together they took longer than one may";
    EXPECT_EQ(0, connection.close());
}

TEST(Deadline, IsKeptWhileSignalsArrive)
{
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    Interruptions interruptions;
    std::promise<bool> interrupted;
    std::thread other([&] { interrupted.set_value(gateway.awaitTranscript("*** get-stats") && interruptions.interruptSleep(20)); });
    const CallDeadline deadline(1500);
    const Timed query = timed([&] { return connection.query(); });
    EXPECT_TRUE(interrupted.get_future().get());
    other.join();
    EXPECT_GE(interruptions.count(), 20);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query.rc);
    expectAtDeadline("Twenty signals", 1500, query);
}

TEST(Deadline, OfAConnectIsKeptWhileSignalsArrive)
{
    const Unanswering port;
    Interruptions interruptions;
    std::promise<bool> interrupted;
    std::thread other([&] { interrupted.set_value(soon([] { return firstOnTheList() != nullptr; }) && interruptions.interruptSleep(20)); });
    const CallDeadline deadline(1500);
    Connection connection;
    const Timed open = timed([&] { return connection.open(port.port()); });
    EXPECT_TRUE(interrupted.get_future().get());
    other.join();
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
    expectAtDeadline("Twenty signals in a connect", 1500, open);
}

TEST(Deadline, CoversARemoteOpenToo)
{
    SilentListener silent;
    const CallDeadline deadline(100);
    char host[] = "127.0.0.1";
    Connection connection;
    const Timed open = timed([&] { return openRemoteGatewayConnection(host, silent.port(), &connection.token, &connection.version); });
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
    expectAtDeadline("Remote open", 100, open);
}

TEST(Deadline, ThatPassedDoesNotTouchOtherConnections)
{
    GatewayProcess silent({"no-answer@get-stats"});
    GatewayProcess gateway;
    Connection hanging, healthy;
    ASSERT_EQ(0, hanging.open(silent.port()));
    ASSERT_EQ(0, healthy.open(gateway.port()));
    const CallDeadline deadline(100);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, hanging.query());
    EXPECT_EQ(0, healthy.query());
    EXPECT_EQ(0, healthy.close());
    EXPECT_EQ(0, gateway.stop());
}

// ---- The list, held by another thread -----------------------------------------------------------------------------

TEST(HeldUpList, EndsAnOpenAtItsDeadline)
{
    GatewayProcess gateway;
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    {
        const HeldList held;
        const CallDeadline deadline(150);
        Connection connection;
        const Timed open = timed([&] { return connection.open(gateway.port()); });
        EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, open.rc);
        expectAtDeadline("Open, list held", 150, open);
        EXPECT_TRUE(connection.untouched());
        EXPECT_EQ(descriptors, openDescriptors());
    }
    TraceFile trace(3);
    const HeldList held;
    const CallDeadline deadline(1);
    Connection connection;
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, connection.open(gateway.port()));
    for (int exit : {2022, 2001, 1002}) {
        const std::vector<TraceLine> lines = linesNumbered(trace.lines(), exit);
        ASSERT_EQ(1u, lines.size()) << trace.text();
        EXPECT_TRUE(lines[0].message.ends_with(" rc=-134")) << lines[0].message;
    }
}

TEST(HeldUpList, EndsAQueryAtItsDeadlineAndTheConnectionWithIt)
{
    GatewayProcess gateway;
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    Connection connection, other;
    ASSERT_EQ(0, connection.open(gateway.port()));
    ASSERT_EQ(0, other.open(gateway.port()));
    HeldList held;
    {
        const CallDeadline deadline(150);
        const Timed query = timed([&] { return connection.query(); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query.rc);
        expectAtDeadline("Query, list held", 150, query);
    }
    held.release();
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.query());
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.close());
    EXPECT_EQ(0, other.query());
    EXPECT_EQ(other.token, gtListHeadPtr);
    EXPECT_EQ(0, other.close());
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(0, gateway.stop());
}

// The reply comes too late, and the connection cannot be taken off the list at that moment: its next query would read
// the late reply.
TEST(HeldUpList, DoesNotLeaveAConnectionBehindWhoseReplyIsLate)
{
    ScriptedPeer peer({opening() + Script{expectMessage(), waitUntilTold(), sendWhole(adminInitReply(hex("B1 B2 B3 B4"))), expectClose()}});
    EXPECT_EQ(0, setCallDeadline(0));
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    const std::size_t before = peer.received().size();
    std::unique_ptr<HeldList> held;
    std::thread holder([&] {
        EXPECT_TRUE(peer.waitUntilReceived(before + adminInitRequest().size()));
        held = std::make_unique<HeldList>();
    });
    {
        const CallDeadline deadline(400);
        const Timed query = timed([&] { return connection.query(); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query.rc);
        expectAtDeadline("Query, list held at its end", 400, query);
    }
    holder.join();
    peer.tell();
    held.reset();
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.query());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

// A call without a deadline ends the connection that a late one had to leave on the list.
TEST(HeldUpList, LetsTheNextCallWaitForNoAnswerToTheGoodbyeOfALateOne)
{
    Caller caller;
    ScriptedPeer peer({opening() + Script{expectMessage(), expectClose()}});
    EXPECT_EQ(0, setCallDeadline(0));
    Connection connection;
    ASSERT_EQ(0, connection.open(peer.port()));
    HeldList held;
    {
        const CallDeadline deadline(50);
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query());
    }
    held.release();
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, resultOf(caller.start([&] { return connection.query(); })).rc);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    peer.finish();
    EXPECT_EQ("", peer.problem()) << "the goodbye was said";
}

TEST(HeldUpList, EndsACloseAtItsDeadlineThatCanBeRepeated)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    HeldList held;
    {
        const CallDeadline deadline(150);
        const Timed close = timed([&] { return connection.close(); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, close.rc);
        expectAtDeadline("Close, list held", 150, close);
        const Timed all = timed([] { return closeAllGatewayConnections(); });
        EXPECT_EQ(KRVSTAT_OK, all.rc);
        expectAtDeadline("Close of all, list held", 150, all);
    }
    held.release();
    EXPECT_EQ(KRVSTAT_OK, connection.close());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(0, gateway.stop());
}

// ---- What stays as it is ------------------------------------------------------------------------------------------

namespace {

// What a whole conversation shows to the outside.
struct Seen {
    std::vector<int> codes;
    std::vector<std::string> transcript;
    std::vector<int> trace;
};

Seen converse(const std::vector<std::string>& misbehaviours, int deadlineMs)
{
    Seen seen;
    GatewayProcess gateway(misbehaviours);
    const CallDeadline deadline(deadlineMs);
    TraceFile trace(5);
    Connection connection;
    seen.codes.push_back(connection.open(gateway.port()));
    if (seen.codes[0] == KRVSTAT_OK) {
        seen.codes.push_back(connection.query());
        KRV_ResultSetToken_t set = nullptr;
        char group[] = "alpha";
        seen.codes.push_back(getStatsByStatGroupId(connection.token, group, &set));
        seen.codes.push_back(getResourceGroupIds(connection.token, &set));
        seen.codes.push_back(connection.close());
    }
    seen.trace = numbers(trace.lines());
    EXPECT_TRUE(gateway.awaitTranscript("---"));
    gateway.stop();
    // Behind a bad eyecatcher the reply's body stays unread, and the reset that this makes of the client's close may overtake
    // its goodbye.
    const bool goodbyeMayBeLost = !misbehaviours.empty() && misbehaviours[0].starts_with("bad-eyecatcher");
    for (const std::string& line : gateway.transcript()) {
        if (line.find("C>G") == std::string::npos) continue;
        if (goodbyeMayBeLost && line.find(" close ") != std::string::npos) continue;
        seen.transcript.push_back(line);
    }
    return seen;
}

} // namespace

TEST(CallsInTime, HaveTheCodesBytesAndTracesOfCallsWithoutADeadline)
{
    const std::vector<std::vector<std::string>> gateways = {{}, {"close-before@handshake"}, {"close-before@auth2"}, {"refuse-auth@auth1"},
        {"header-rc=61444@init"}, {"header-rc==-1@init"}, {"close-before@attribute"}, {"close-before@get-stats"}, {"refuse-admin@init#2"}, {"bad-eyecatcher@get-stats"},
        {"exception@get-stats"}, {"no-body@get-stats"}, {"reset-before@get-stats"}, {"header-rc==-1@init#2"}, {"close-before@close"}};
    std::set<int> codes;
    for (const std::vector<std::string>& misbehaviours : gateways) {
        SCOPED_TRACE(misbehaviours.empty() ? "well-behaved" : misbehaviours[0]);
        const Seen without = converse(misbehaviours, 0);
        const Seen with = converse(misbehaviours, 10000);
        EXPECT_EQ(without.codes, with.codes);
        EXPECT_EQ(without.transcript, with.transcript);
        EXPECT_EQ(without.trace, with.trace);
        codes.insert(without.codes.begin(), without.codes.end());
    }
    EXPECT_EQ((std::set<int>{-122, -118, -102, -101, 0}), codes) << "failures of every kind were compared";
}

TEST(CallsInTime, OfClientsThatAreNotAcceptedHaveTheirOwnCodes)
{
    const CallDeadline deadline(10000);
    Connection connection;
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, connection.open(unusedPort()));
    EXPECT_EQ(KRVSTAT_INVALID_PORT, connection.open(0));
    char noSuchHost[] = "256.256.256.256.0xinvalid.........";
    EXPECT_EQ(KRVSTAT_HOST_NOT_RESOLVED, openRemoteGatewayConnection(noSuchHost, 1, &connection.token, &connection.version));
    EXPECT_TRUE(connection.untouched());
    KRV_GatewayToken_t none = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_GATEWAY_TOKEN, closeGatewayConnection(&none));
    EXPECT_EQ(KRVSTAT_NULL_GATEWAY_TOKEN, getStats(nullptr, &set));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST(CallsWithoutADeadline, WaitAsLongAsItTakes)
{
    Caller owner;
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    auto query = owner.start([&] { return connection.query(); });
    EXPECT_TRUE(gateway.awaitTranscript("*** get-stats"));
    EXPECT_EQ(std::future_status::timeout, query.wait_for(std::chrono::milliseconds(1200)));
    EXPECT_EQ(0, gateway.stop());
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc) << "once the gateway is gone";
}
