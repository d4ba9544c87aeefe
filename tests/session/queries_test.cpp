// The six queries: checks in their order, what is sent, what the result set becomes, and what ends a connection.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

#include "failing_calls.h"
#include "gateway_process.h"
#include "krvstats.h"
#include "scripted_peer.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_capture.h"

using namespace krvtest;

namespace krvtest {

// One of the six calls; those without ids are given none.
struct QueryCall {
    const char* name;
    bool takesIds;
    bool statistics;
    const char* operation;
    const char* getting; // words of its event line, behind its name
    int entry, exc, removal, exit, event;
    int (*call)(KRV_GatewayToken_t token, char* ids, KRV_ResultSetToken_t* set);
};

void PrintTo(const QueryCall& query, std::ostream* out)
{
    *out << query.name;
}

class Queries : public ::testing::TestWithParam<QueryCall> {
};

} // namespace krvtest

namespace {

// Whether the claim is true in a forked child. The child's good end is a signal: at an exit, a leak checker would blame it
// for what the threads of the parent left behind.
template <typename Claim>
bool holdsInAFork(Claim claim)
{
    pid_t child = fork();
    if (child == 0) {
        if (claim()) kill(getpid(), SIGKILL);
        _exit(1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

int withoutIds(int (*call)(KRV_GatewayToken_t, KRV_ResultSetToken_t*), KRV_GatewayToken_t token, KRV_ResultSetToken_t* set)
{
    return call(token, set);
}

const QueryCall calls[] = {
    {"getResourceGroupIds", false, false, "RESOURCE_GROUPS", "Getting Resource Group Ids", 1009, 1012, 1013, 1014, 1128,
        [](KRV_GatewayToken_t token, char*, KRV_ResultSetToken_t* set) { return withoutIds(getResourceGroupIds, token, set); }},
    {"getStatIdsByStatGroupId", true, false, "STAT_IDS", "Getting Stat Ids for Stat Group Ids ", 1015, 1017, 1018, 1019, 1129, getStatIdsByStatGroupId},
    {"getStatIds", false, false, "STAT_IDS", "Getting Stat Ids from the Gateway", 1020, 1022, 1023, 1024, 1130,
        [](KRV_GatewayToken_t token, char*, KRV_ResultSetToken_t* set) { return withoutIds(getStatIds, token, set); }},
    {"getStats", false, true, "GET_STATS", "Getting all Stats from the Gateway Daemon", 1025, 1027, 1028, 1029, 1130,
        [](KRV_GatewayToken_t token, char*, KRV_ResultSetToken_t* set) { return withoutIds(getStats, token, set); }},
    {"getStatsByStatId", true, true, "GET_STATS", "Getting Stats for Stat Ids ", 1030, 1032, 1033, 1034, 1131, getStatsByStatId},
    {"getStatsByStatGroupId", true, true, "GET_STATS", "Getting Stats for Stat Group Ids ", 1035, 1037, 1038, 1039, 1132, getStatsByStatGroupId},
};

char localHost[] = "127.0.0.1";
char someIds[] = "alpha:beta";
KRV_ResultSetToken_t const notWritten = reinterpret_cast<KRV_ResultSetToken_t>(localHost);

KRV_GatewayToken_t openTo(int port)
{
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    EXPECT_EQ(KRVSTAT_OK, openRemoteGatewayConnection(localHost, port, &token, &version));
    return token;
}

Bytes replyData(const QueryCall& query, const std::string& id)
{
    if (query.statistics) return statsData("q", 0, {{id, "value of " + id}});
    return idsData("q", 0, {id});
}

// The first element's id, as the application reads it.
std::string firstOf(KRV_ResultSetToken_t set, bool statistics)
{
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    if (!statistics) return getFirstId(set, &id) == 0 ? std::string(id.idPtr, static_cast<std::size_t>(id.idLen)) : "";
    return getFirstStat(set, &stat) == 0 ? std::string(stat.statIdPtr, static_cast<std::size_t>(stat.statIdLen)) : "";
}

std::vector<std::string> briefOf(const TraceFile& trace, int number)
{
    return brief(linesNumbered(trace.lines(), number));
}

// What the peer got behind the opening.
Bytes receivedBehindOpening(const ScriptedPeer& peer)
{
    const std::size_t opening = 51 + 37 + 53 + 38 + getProtocolRequest(zeros(4)).size();
    Bytes all = peer.received();
    return slice(all, opening, all.size() - opening);
}

} // namespace

// ---- Arguments ----------------------------------------------------------------------------------------------------

TEST_P(Queries, ArgumentsAreCheckedInOrder)
{
    const QueryCall& query = GetParam();
    Internal_GatewayToken_t stranger = {};
    for (int bad = 0; bad < 8; bad++) {
        if ((bad & 2) && !query.takesIds) continue;
        KRV_ResultSetToken_t set = notWritten;
        int expected = bad & 4 ? KRVSTAT_NULL_GATEWAY_TOKEN : bad & 2 ? KRVSTAT_NULL_QUERY_ARGUMENT : bad & 1 ? KRVSTAT_NULL_RESULT_SET_POINTER : KRVSTAT_GATEWAY_TOKEN_NOT_FOUND;
        TraceFile trace(3);
        EXPECT_EQ(expected, query.call(bad & 4 ? nullptr : &stranger, bad & 2 ? nullptr : someIds, bad & 1 ? nullptr : &set));
        EXPECT_EQ(notWritten, set);
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ(query.entry, lines.front().number);
        EXPECT_EQ("ENTRY", lines.front().kind);
        EXPECT_EQ(query.exit, lines.back().number);
        EXPECT_EQ("EXIT", lines.back().kind);
        EXPECT_TRUE(lines.back().message.ends_with("rc=" + std::to_string(expected))) << lines.back().message;
        std::vector<TraceLine> refused = linesNumbered(lines, query.exc);
        ASSERT_EQ(bad == 0 ? 0u : 1u, refused.size()) << "one exception for the first failure; the token's check has its own";
        for (const TraceLine& line : refused) EXPECT_EQ("*EXC*", line.kind);
    }
    EXPECT_EQ(-100, KRVSTAT_NULL_GATEWAY_TOKEN);
    EXPECT_EQ(-126, KRVSTAT_NULL_QUERY_ARGUMENT);
    EXPECT_EQ(-125, KRVSTAT_NULL_RESULT_SET_POINTER);
    EXPECT_EQ(-101, KRVSTAT_GATEWAY_TOKEN_NOT_FOUND);
}

TEST_P(Queries, AnotherThreadAndAForkedChildAreRefusedAndNothingIsSent)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({opening() + farewell()});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = notWritten;
    int result = 0;
    std::thread other([&] { result = query.call(token, someIds, &set); });
    other.join();
    EXPECT_EQ(KRVSTAT_TID_MISMATCH, result);
    EXPECT_TRUE(holdsInAFork([&] {
        return query.call(token, someIds, &set) == KRVSTAT_PID_MISMATCH && set == notWritten;
    }));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, query.call(token, someIds, nullptr));
    EXPECT_EQ(notWritten, set);
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(closeRequest(), receivedBehindOpening(peer)));
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, query.call(token, someIds, &set)) << "a closed handle";
}

// ---- The answer ---------------------------------------------------------------------------------------------------

TEST_P(Queries, SendsItsOperationAndHandsOutTheConnectionsResultSet)
{
    const QueryCall& query = GetParam();
    GatewayAnswers answers;
    ScriptedPeer peer({opening(answers) + krvtest::query(replyData(query, "an.id"), answers) + farewell()});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = notWritten;
    TraceFile trace(4);
    EXPECT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    ASSERT_EQ(token->connRSPtr, set);
    EXPECT_EQ(token->resultSetBuf, set->rsBuffPtr);
    EXPECT_EQ(token->resultSetBufLen, set->rsBuffLen);
    EXPECT_EQ(set->rsBuffPtr, set->cursor);
    EXPECT_EQ(0, set->queryIndex);
    EXPECT_EQ(0x8888, set->owner);
    EXPECT_EQ(0, std::memcmp(query.statistics ? "KRVSTSET" : "KRVIDSET", set->rsBuffPtr, 8));

    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ(query.entry, lines.front().number);
    EXPECT_EQ(query.exit, lines.back().number);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0"));
    const std::string words = std::string("API.") + query.name + " " + query.getting + (query.takesIds ? someIds : "");
    EXPECT_EQ((std::vector<std::string>{std::to_string(query.event) + " EVENT " + words}), briefOf(trace, query.event));
    const std::string shown = std::to_string(query.entry + 1) + " DEBUG API." + query.name + "() result set pointer (" + pointerText(set) + ")";
    EXPECT_EQ((std::vector<std::string>{shown}), briefOf(trace, query.entry + 1));
    EXPECT_EQ("an.id", firstOf(set, query.statistics));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(adminInitRequest() + invokeRequest(answers.adminServerVersion, query.operation, query.takesIds ? someIds : "") + closeRequest(),
        receivedBehindOpening(peer)));
}

TEST_P(Queries, EachQueryOverwritesTheAnswerBeforeInTheSameResultSet)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({wholeConversation({replyData(query, "first"), replyData(query, "second")})});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t first = nullptr, second = nullptr, copy = nullptr;
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &first));
    EXPECT_EQ("first", firstOf(first, query.statistics));
    EXPECT_NE(0, first->queryIndex);
    ASSERT_EQ(KRVSTAT_OK, copyResultSet(first, &copy));
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &second));
    EXPECT_EQ(first, second);
    EXPECT_EQ(0, second->queryIndex) << "ready for a walk from the start";
    EXPECT_EQ(second->rsBuffPtr, second->cursor);
    EXPECT_EQ("second", firstOf(first, query.statistics));
    EXPECT_EQ("first", firstOf(copy, query.statistics)) << "a copy keeps its answer";
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    EXPECT_EQ("first", firstOf(copy, query.statistics)) << "beyond its connection too";
    EXPECT_EQ(KRVSTAT_OK, freeResultSet(&copy));
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST_P(Queries, OnlyTheGroupQueryLeavesTheOwnerAsItStands)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({wholeConversation({replyData(query, "id")})});
    KRV_GatewayToken_t token = openTo(peer.port());
    token->connRSPtr->owner = 0x9999;
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    EXPECT_EQ(std::string("getResourceGroupIds") == query.name ? 0x9999 : 0x8888, set->owner);
    set->owner = 0x8888;
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
}

TEST_P(Queries, TheQueryTextIsACopyOfTheIdsOrStaysAsItWas)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({wholeConversation({idsData("q", 0, {"a"}), replyData(query, "b")})});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = nullptr;
    char earlier[] = "earlier";
    ASSERT_EQ(KRVSTAT_OK, getStatIdsByStatGroupId(token, earlier, &set));
    ASSERT_STREQ("earlier", set->queryString);
    EXPECT_NE(earlier, set->queryString);
    char* before = set->queryString;
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    EXPECT_STREQ(query.takesIds ? someIds : "earlier", set->queryString);
    EXPECT_EQ(!query.takesIds, before == set->queryString && std::strcmp(set->queryString, "earlier") == 0);
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST_P(Queries, AnAnswerThatOutgrowsTheBufferIsRecordedInTokenAndResultSet)
{
    const QueryCall& query = GetParam();
    std::vector<std::string> ids;
    std::vector<Statistic> statistics;
    for (int i = 0; i < 40; i++) {
        ids.push_back(std::to_string(i) + std::string(1000, 'i'));
        statistics.push_back({ids.back(), "1"});
    }
    ScriptedPeer peer({wholeConversation({query.statistics ? statsData("q", 0, statistics) : idsData("q", 0, ids), replyData(query, "small")})});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    EXPECT_EQ(65536, token->resultSetBufLen);
    EXPECT_EQ(65536, set->rsBuffLen);
    EXPECT_EQ(token->resultSetBuf, set->rsBuffPtr);
    EXPECT_EQ(ids[0], firstOf(set, query.statistics));
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    EXPECT_EQ(65536, set->rsBuffLen) << "it stays as large as it grew";
    EXPECT_EQ("small", firstOf(set, query.statistics));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
}

TEST_P(Queries, TheResultSetBelongsToTheThreadThatOpenedTheConnection)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({wholeConversation({replyData(query, "id")})});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(KRVSTAT_OK, query.call(token, someIds, &set));
    auto every = [&] {
        KRV_IdData_t id = {};
        KRV_StatData_t stat = {};
        char* text = nullptr;
        KRV_ResultSetToken_t copy = nullptr;
        return std::vector<int>{query.statistics ? getFirstStat(set, &stat) : getFirstId(set, &id),
            query.statistics ? getNextStat(set, &stat) : getNextId(set, &id), getIdQuery(set, &text), copyResultSet(set, &copy), dumpResultSet(set)};
    };
    std::vector<int> results;
    std::thread other([&] { results = every(); });
    other.join();
    EXPECT_EQ(std::vector<int>(5, KRVSTAT_TID_MISMATCH), results);
    EXPECT_TRUE(holdsInAFork([&] { return every() == std::vector<int>(5, KRVSTAT_PID_MISMATCH); }));
    KRV_ResultSetToken_t handle = set;
    EXPECT_EQ(KRVSTAT_RESULT_SET_NOT_USER_OWNED, freeResultSet(&handle));
    EXPECT_EQ(set, handle);
    EXPECT_EQ("id", firstOf(set, query.statistics)) << "intact";
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
}

// ---- Failures -----------------------------------------------------------------------------------------------------

TEST_P(Queries, ALostBufferIsRefusedAndNothingIsSent)
{
    const QueryCall& query = GetParam();
    ScriptedPeer peer({opening() + farewell()});
    KRV_GatewayToken_t token = openTo(peer.port());
    char* buffer = token->resultSetBuf;
    token->resultSetBuf = nullptr;
    KRV_ResultSetToken_t set = notWritten;
    TraceFile trace(1);
    for (int i = 0; i < 2; i++) EXPECT_EQ(KRVSTAT_NO_RESULT_BUFFER, query.call(token, someIds, &set));
    EXPECT_EQ(-110, KRVSTAT_NO_RESULT_BUFFER);
    EXPECT_EQ(notWritten, set);
    EXPECT_EQ(nullptr, token->connRSPtr->queryString) << "not even the ids are copied";
    const std::string line = std::to_string(query.exc) + " *EXC* API." + query.name + "(gwTok=" + pointerText(token)
        + ") resultSetBuf is NULL. Connection may have gone.";
    EXPECT_EQ((std::vector<std::string>{line, line}), brief(trace.lines()));
    token->resultSetBuf = buffer;
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    peer.finish();
    EXPECT_TRUE(sameBytes(closeRequest(), receivedBehindOpening(peer)));
}

TEST_P(Queries, ACommunicationFailureRemovesTheConnectionAndNoOther)
{
    const QueryCall& query = GetParam();
    struct Case {
        std::string misbehaviour;
        int expected;
    };
    std::string message = query.operation;
    message = message == "RESOURCE_GROUPS" ? "@resource-groups" : message == "STAT_IDS" ? "@stat-ids" : "@get-stats";
    for (const Case& each : {Case{"close-before" + message, -122}, Case{"reset-before" + message, -122}, Case{"bad-eyecatcher" + message, -122},
             Case{"exception" + message, -122}, Case{"refuse-admin=7" + message, -122}, Case{"header-rc=3" + message, -122},
             Case{"header-rc=61444" + message, -122}, Case{"header-rc==-4" + message, -122}, Case{"header-rc==-3" + message, -122},
             Case{"header-rc==-1" + message, -102}, Case{"short-body=40" + message, -122}, Case{"close-before@init#2", -122}, Case{"header-rc==-1@init#2", -102}}) {
        GatewayProcess gateway({each.misbehaviour + "%1"});
        KRV_GatewayToken_t token = openTo(gateway.port());
        KRV_GatewayToken_t other = openTo(gateway.port());
        ASSERT_TRUE(token && other);
        KRV_ResultSetToken_t set = notWritten;
        TraceFile trace(2);
        EXPECT_EQ(each.expected, query.call(token, someIds, &set)) << each.misbehaviour;
        EXPECT_EQ(notWritten, set);
        EXPECT_EQ((std::vector<std::string>{std::to_string(query.removal) + " EVENT API." + query.name + " Removing GatewayToken "
                      + pointerText(token) + " due to comms failure " + std::to_string(each.expected)}),
            briefOf(trace, query.removal))
            << each.misbehaviour;
        EXPECT_EQ(other, gtListHeadPtr);
        EXPECT_EQ(other, gtListTailPtr);
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, query.call(token, someIds, &set)) << "the handle is dead";
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&token));
        EXPECT_EQ(KRVSTAT_OK, query.call(other, someIds, &set)) << "others go on";
        EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&other));
        EXPECT_EQ(0, gateway.stop());
    }
}

TEST_P(Queries, AConnectionThatWasResetGivesMinus102)
{
    const QueryCall& query = GetParam();
    GatewayProcess gateway({"reset-after@attribute"});
    KRV_GatewayToken_t token = openTo(gateway.port());
    ASSERT_TRUE(gateway.awaitTranscript("--- - reset"));
    KRV_ResultSetToken_t set = notWritten;
    EXPECT_EQ(KRVSTAT_GATEWAY_COMMS_FAILED, query.call(token, someIds, &set));
    EXPECT_EQ(notWritten, set);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&token));
}

TEST_P(Queries, ABufferThatCannotGrowEndsInMinus122AndRemovesTheConnection)
{
    const QueryCall& query = GetParam();
    std::vector<std::string> ids;
    std::vector<Statistic> statistics;
    for (int i = 0; i < 40; i++) {
        ids.push_back(std::string(1000, 'i'));
        statistics.push_back({ids.back(), "1"});
    }
    ScriptedPeer peer({wholeConversation({query.statistics ? statsData("q", 0, statistics) : idsData("q", 0, ids)})});
    KRV_GatewayToken_t token = openTo(peer.port());
    KRV_ResultSetToken_t set = notWritten;
    Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return query.call(token, someIds, &set); }, 0, 65536);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, injected.result);
    EXPECT_EQ(notWritten, set);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    peer.finish();
    EXPECT_EQ("", peer.problem()) << "the farewell is said";
}

INSTANTIATE_TEST_SUITE_P(Of, Queries, ::testing::ValuesIn(calls), [](const auto& each) { return each.param.name; });

// ---- Ids ----------------------------------------------------------------------------------------------------------

TEST(QueryIds, UpTo32765CharactersAreSentAndMoreAreRefusedWithoutHarm)
{
    for (const QueryCall& query : calls) {
        if (!query.takesIds) continue;
        GatewayAnswers answers;
        ScriptedPeer peer({opening(answers) + krvtest::query(replyData(query, "id"), answers) + farewell()});
        KRV_GatewayToken_t token = openTo(peer.port());
        KRV_ResultSetToken_t set = notWritten;
        std::string tooLong(32766, 'x'), longest(32765, 'x');
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, query.call(token, tooLong.data(), &set)) << query.name;
        EXPECT_EQ(notWritten, set);
        EXPECT_EQ(token, gtListHeadPtr) << "the connection stays";
        EXPECT_EQ(KRVSTAT_OK, query.call(token, longest.data(), &set));
        EXPECT_EQ(longest, set->queryString);
        EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_TRUE(sameBytes(adminInitRequest() + invokeRequest(answers.adminServerVersion, query.operation, longest) + closeRequest(),
            receivedBehindOpening(peer)));
    }
}

TEST(QueryIds, ACopyThatCannotBeMadeGivesMinus111AndNothingIsSent)
{
    for (const QueryCall& query : calls) {
        if (!query.takesIds) continue;
        ScriptedPeer peer({opening() + farewell()});
        KRV_GatewayToken_t token = openTo(peer.port());
        KRV_ResultSetToken_t set = notWritten;
        std::string ids(20000, 'x');
        Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return query.call(token, ids.data(), &set); }, 0, 20001);
        EXPECT_EQ(1, injected.hits);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, injected.result);
        EXPECT_EQ(notWritten, set);
        EXPECT_EQ(nullptr, token->connRSPtr->queryString);
        EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
        peer.finish();
        EXPECT_TRUE(sameBytes(closeRequest(), receivedBehindOpening(peer)));
    }
}

TEST(QueryIds, AreSentAsTheyAre)
{
    for (const char* text : {"", ":", "a", "::a:", "\x80\xFF\x01"}) {
        GatewayAnswers answers;
        ScriptedPeer peer({opening(answers) + krvtest::query(idsData("", 0, {"id"}), answers) + farewell()});
        KRV_GatewayToken_t token = openTo(peer.port());
        KRV_ResultSetToken_t set = nullptr;
        std::string ids = text;
        EXPECT_EQ(KRVSTAT_OK, getStatIdsByStatGroupId(token, ids.data(), &set));
        EXPECT_EQ(ids, set->queryString);
        EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
        peer.finish();
        EXPECT_TRUE(sameBytes(adminInitRequest() + invokeRequest(answers.adminServerVersion, "STAT_IDS", text) + closeRequest(), receivedBehindOpening(peer)));
    }
}

// ---- Across queries -----------------------------------------------------------------------------------------------

TEST(QuerySequence, IdAndStatisticsQueriesShareOneResultSet)
{
    GatewayProcess gateway;
    KRV_GatewayToken_t token = openTo(gateway.port());
    KRV_ResultSetToken_t groups = nullptr, ids = nullptr, statistics = nullptr;
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    ASSERT_EQ(KRVSTAT_OK, getResourceGroupIds(token, &groups));
    EXPECT_EQ("alpha", firstOf(groups, false));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstStat(groups, &stat));
    ASSERT_EQ(KRVSTAT_OK, getStats(token, &statistics));
    EXPECT_EQ(groups, statistics);
    EXPECT_EQ("alpha.one", firstOf(statistics, true));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(statistics, &id));
    ASSERT_EQ(KRVSTAT_OK, getStatIds(token, &ids));
    EXPECT_EQ("alpha.one", firstOf(ids, false));

    // an answer's ids are the next question
    char* text = nullptr;
    ASSERT_EQ(KRVSTAT_OK, getIdQuery(ids, &text));
    EXPECT_STREQ("alpha.one:alpha.long:beta.one", text);
    ASSERT_EQ(KRVSTAT_OK, getStatsByStatId(token, text, &statistics));
    EXPECT_STREQ("alpha.one:alpha.long:beta.one", statistics->queryString);
    std::vector<std::string> values;
    for (int rc = getFirstStat(statistics, &stat); rc == KRVSTAT_OK && values.size() < 10; rc = getNextStat(statistics, &stat))
        values.push_back(std::string(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen)));
    ASSERT_EQ(3u, values.size());
    EXPECT_EQ("1", values[0]);
    EXPECT_EQ(3000u, values[1].size());
    EXPECT_EQ("two", values[2]);
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

TEST(QuerySequence, AnUnknownIdIsOneFailedElementAndNoFailedQuery)
{
    GatewayProcess gateway;
    KRV_GatewayToken_t token = openTo(gateway.port());
    KRV_ResultSetToken_t set = nullptr;
    char ids[] = "nosuch:beta";
    KRV_StatData_t stat = {};
    ASSERT_EQ(KRVSTAT_OK, getStatsByStatGroupId(token, ids, &set));
    ASSERT_EQ(KRVSTAT_OK, getFirstStat(set, &stat));
    EXPECT_LT(stat.queryElementRC, 0);
    EXPECT_EQ("nosuch", std::string(stat.queryElementPtr, static_cast<std::size_t>(stat.queryElementLen)));
    EXPECT_EQ(nullptr, stat.statIdPtr);
    ASSERT_EQ(KRVSTAT_OK, getNextStat(set, &stat));
    EXPECT_EQ("beta.one", std::string(stat.statIdPtr, static_cast<std::size_t>(stat.statIdLen)));
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextStat(set, &stat));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token));
    EXPECT_EQ(0, gateway.stop());
}

TEST(QuerySequence, ThreadsWithConnectionsOfTheirOwnDoNotDisturbEachOther)
{
    constexpr int threads = 6, rounds = 20;
    GatewayProcess gateway;
    std::vector<int> good(threads, 0);
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; i++)
        workers.emplace_back([&, i] {
            KRV_GatewayToken_t token = nullptr;
            char* version = nullptr;
            if (openGatewayConnection(gateway.port(), &token, &version) != KRVSTAT_OK) return;
            for (int round = 0; round < rounds; round++) {
                KRV_ResultSetToken_t set = nullptr;
                if (getStats(token, &set) == KRVSTAT_OK && firstOf(set, true) == "alpha.one" && getStatIds(token, &set) == KRVSTAT_OK
                    && firstOf(set, false) == "alpha.one")
                    good[static_cast<std::size_t>(i)]++;
            }
            if (closeGatewayConnection(&token) != KRVSTAT_OK) good[static_cast<std::size_t>(i)] = -1;
        });
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(std::vector<int>(threads, rounds), good);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}
