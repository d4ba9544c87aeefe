// Interrupting a connection from another thread: whatever its call waits for, the wait ends.
#include <functional>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "scripted_peer.h"
#include "stapi_krv_types.h"

using namespace krvtest;

namespace krvtest {

struct Wait {
    const char* name;
    const char* misbehaviour;
    const char* sign; // in the transcript, once the wait has begun or is about to
};

void PrintTo(const Wait& wait, std::ostream* out)
{
    *out << wait.misbehaviour;
}

class WaitOfAQuery : public testing::TestWithParam<Wait> {
};

class WaitOfAnOpen : public testing::TestWithParam<Wait> {
};

} // namespace krvtest

namespace {

std::string nameOfWait(const testing::TestParamInfo<Wait>& each)
{
    return each.param.name;
}

void expectInterrupted(const Timed& call)
{
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, call.rc);
}

} // namespace

// ---- Handles ------------------------------------------------------------------------------------------------------

TEST(Interruption, OfNothingIsRefused)
{
    EXPECT_EQ(KRVSTAT_NULL_GATEWAY_TOKEN, interruptGatewayConnection(nullptr));
    Internal_GatewayToken_t stranger = {};
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(&stranger));
}

TEST(Interruption, OfAClosedConnectionIsRefused)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(connection.token));
    EXPECT_EQ(0, gateway.stop());
}

TEST(Interruption, OfAConnectionThatAQueryRemovedIsRefused)
{
    GatewayProcess gateway({"close-before@get-stats"});
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query());
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(connection.token));
}

// ---- Waits --------------------------------------------------------------------------------------------------------

TEST_P(WaitOfAQuery, IsEndedByAnotherThread)
{
    const std::size_t descriptors = openDescriptors();
    Caller owner;
    GatewayProcess gateway({GetParam().misbehaviour});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    auto query = owner.start([&] { return connection.query(); });
    ASSERT_TRUE(gateway.awaitTranscript(GetParam().sign));
    EXPECT_FALSE(isBack(query));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
    expectInterrupted(resultOf(std::move(query)));
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; }));
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, resultOf(owner.start([&] { return connection.query(); })).rc);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(connection.token));
}

INSTANTIATE_TEST_SUITE_P(Of, WaitOfAQuery,
    testing::Values(Wait{"InitReply", "no-answer@init#2", "*** init"}, Wait{"Reply", "no-answer@get-stats", "*** get-stats"},
        Wait{"RestOfAHeader", "stall-at=11@get-stats", "*** get-stats"}, Wait{"RestOfABody", "stall-at=-3@get-stats", "*** get-stats"},
        Wait{"DrippingReply", "byte-by-byte=1000000@get-stats", "*** get-stats"}),
    nameOfWait);

// An application has no handle of a connection that is being opened; the library's own list has.
TEST_P(WaitOfAnOpen, IsEndedByAnotherThread)
{
    const std::size_t descriptors = openDescriptors();
    Caller owner;
    GatewayProcess gateway({GetParam().misbehaviour});
    Connection connection;
    auto open = owner.start([&] { return connection.open(gateway.port()); });
    ASSERT_TRUE(gateway.awaitTranscript(GetParam().sign));
    EXPECT_FALSE(isBack(open));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(firstOnTheList()));
    expectInterrupted(resultOf(std::move(open)));
    EXPECT_TRUE(connection.untouched());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; }));
}

INSTANTIATE_TEST_SUITE_P(Of, WaitOfAnOpen,
    testing::Values(Wait{"Handshake", "no-answer@handshake", "*** handshake"}, Wait{"FirstAuthorisation", "no-answer@auth1", "*** auth1"},
        Wait{"SecondAuthorisation", "no-answer@auth2", "*** auth2"}, Wait{"Init", "no-answer@init", "*** init"},
        Wait{"Attribute", "no-answer@attribute", "*** attribute"}),
    nameOfWait);

TEST(Interruption, EndsAConnectThatIsNotAnswered)
{
    Caller owner;
    const Unanswering port;
    const std::size_t descriptors = openDescriptors();
    Connection connection;
    auto open = owner.start([&] { return connection.open(port.port()); });
    ASSERT_TRUE(soon([&] { return openDescriptors() > descriptors; }));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(firstOnTheList()));
    expectInterrupted(resultOf(std::move(open)));
    EXPECT_TRUE(connection.untouched());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST(Interruption, EndsASendToAGatewayThatDoesNotRead)
{
    Caller owner;
    ScriptedPeer peer({opening() + Script{waitUntilTold()}});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(peer.port()); })).rc);
    fillUp(connection.token->socketDescriptor);
    std::string ids(32000, 'i');
    KRV_ResultSetToken_t set = nullptr;
    auto query = owner.start([&] { return getStatsByStatId(connection.token, ids.data(), &set); });
    EXPECT_EQ(std::future_status::timeout, query.wait_for(std::chrono::milliseconds(300)));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
    expectInterrupted(resultOf(std::move(query)));
    EXPECT_EQ(nullptr, set);
    EXPECT_EQ(nullptr, firstOnTheList());
    peer.tell();
}

TEST(Interruption, EndsACallWithADeadlineBeforeIt)
{
    Caller owner;
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    EXPECT_EQ(0, resultOf(owner.start([] { return setCallDeadline(60000); })).rc);
    auto query = owner.start([&] { return connection.query(); });
    ASSERT_TRUE(gateway.awaitTranscript("*** get-stats"));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
    expectInterrupted(resultOf(std::move(query)));
    EXPECT_EQ(nullptr, firstOnTheList());
}

TEST(Interruption, TwiceOfOneCallEndsItOnce)
{
    Caller owner;
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection, next;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    auto query = owner.start([&] { return connection.query(); });
    ASSERT_TRUE(gateway.awaitTranscript("*** get-stats"));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
    const int second = interruptGatewayConnection(connection.token);
    EXPECT_TRUE(second == KRVSTAT_OK || second == KRVSTAT_GATEWAY_TOKEN_NOT_FOUND) << second << ": the call may be over by then";
    expectInterrupted(resultOf(std::move(query)));

    GatewayProcess healthy;
    EXPECT_EQ(0, resultOf(owner.start([&] { return next.open(healthy.port()); })).rc);
    EXPECT_EQ(0, resultOf(owner.start([&] { return next.query(); })).rc) << "nothing is left of the interruption";
    EXPECT_EQ(0, resultOf(owner.start([&] { return next.close(); })).rc);
    EXPECT_EQ(0, healthy.stop());
}

TEST(Interruption, LeavesOtherConnectionsOfTheThreadAlone)
{
    Caller owner;
    GatewayProcess silent({"no-answer@get-stats"});
    GatewayProcess gateway;
    Connection hanging, healthy;
    ASSERT_EQ(0, resultOf(owner.start([&] { return healthy.open(gateway.port()); })).rc);
    ASSERT_EQ(0, resultOf(owner.start([&] { return hanging.open(silent.port()); })).rc);
    auto query = owner.start([&] { return hanging.query(); });
    ASSERT_TRUE(silent.awaitTranscript("*** get-stats"));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(hanging.token));
    expectInterrupted(resultOf(std::move(query)));
    EXPECT_EQ(healthy.token, firstOnTheList());
    EXPECT_EQ(0, resultOf(owner.start([&] { return healthy.query(); })).rc);
    EXPECT_EQ(0, resultOf(owner.start([&] { return healthy.close(); })).rc);
    EXPECT_EQ(0, gateway.stop());
}

// ---- Without a call -----------------------------------------------------------------------------------------------

TEST(IdleInterruption, EndsTheNextQuery)
{
    GatewayProcess gateway;
    const std::size_t descriptors = openDescriptors();
    // One, two and three interruptions, by the owner and by another thread.
    for (int times = 1; times <= 3; ++times) {
        Connection connection;
        ASSERT_EQ(0, connection.open(gateway.port()));
        EXPECT_EQ(0, connection.query());
        for (int i = 0; i < times; ++i) {
            EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
            std::thread([&] { EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token)); }).join();
        }
        EXPECT_EQ(connection.token, firstOnTheList()) << "its own thread removes it";
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query());
        EXPECT_EQ(nullptr, firstOnTheList());
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, connection.query());
    }
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST(IdleInterruption, EndsTheNextQueryOfEachKind)
{
    GatewayProcess gateway;
    char ids[] = "alpha";
    KRV_ResultSetToken_t set = nullptr;
    const std::vector<std::function<int(KRV_GatewayToken_t)>> queries = {
        [&](KRV_GatewayToken_t token) { return getResourceGroupIds(token, &set); },
        [&](KRV_GatewayToken_t token) { return getStatIds(token, &set); },
        [&](KRV_GatewayToken_t token) { return getStatIdsByStatGroupId(token, ids, &set); },
        [&](KRV_GatewayToken_t token) { return getStats(token, &set); },
        [&](KRV_GatewayToken_t token) { return getStatsByStatId(token, ids, &set); },
        [&](KRV_GatewayToken_t token) { return getStatsByStatGroupId(token, ids, &set); }};
    for (const auto& query : queries) {
        Connection connection;
        ASSERT_EQ(0, connection.open(gateway.port()));
        EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, query(connection.token));
        EXPECT_EQ(nullptr, set);
        EXPECT_EQ(nullptr, firstOnTheList());
    }
}

TEST(IdleInterruption, DoesNotKeepTheConnectionFromBeingClosed)
{
    GatewayProcess gateway;
    const std::size_t descriptors = openDescriptors();
    Connection closed, closedWithAll;
    ASSERT_EQ(0, closed.open(gateway.port()));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(closed.token));
    EXPECT_EQ(KRVSTAT_OK, closed.close());
    ASSERT_EQ(0, closedWithAll.open(gateway.port()));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(closedWithAll.token));
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST(IdleInterruption, IsNotInheritedByALaterConnectionAtTheSameAddress)
{
    GatewayProcess gateway;
    // Allocators differ in how soon they use an address again: some within a few connections, some never.
    for (int i = 0; i < 50; ++i) {
        Connection connection;
        ASSERT_EQ(0, connection.open(gateway.port()));
        EXPECT_EQ(0, connection.query());
        EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
        EXPECT_EQ(KRVSTAT_OK, i % 2 == 0 ? connection.close() : closeAllGatewayConnections());
    }
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(0, gateway.stop());
}

TEST(IdleInterruption, OfManyConnectionsEndsTheNextQueryOfEach)
{
    GatewayProcess gateway;
    std::vector<Connection> connections(250);
    for (Connection& each : connections) ASSERT_EQ(0, each.open(gateway.port()));
    for (Connection& each : connections) EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(each.token));
    for (Connection& each : connections) EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, each.query());
    EXPECT_EQ(nullptr, firstOnTheList());
}

TEST(IdleInterruption, DoesNotReachCallsWithoutTheGateway)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(0, getStats(connection.token, &set));
    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(connection.token));
    KRV_StatData_t statistic = {};
    EXPECT_EQ(0, getFirstStat(set, &statistic));
    KRV_ResultSetToken_t copy = nullptr;
    EXPECT_EQ(0, copyResultSet(set, &copy));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query());
    EXPECT_EQ(0, getFirstStat(copy, &statistic)) << "a copy outlives the connection";
    EXPECT_EQ(0, freeResultSet(&copy));
}
