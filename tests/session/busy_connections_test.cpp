// Connections in other hands: closed, closed with all and dumped by other threads while their owner is in a call; and
// what hangs in one thread stops no other.
#include <algorithm>
#include <atomic>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "scripted_peer.h"
#include "stapi_krv_types.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

// A call that waits for no gateway.
void expectQuick(int expected, const Timed& call)
{
    EXPECT_EQ(expected, call.rc);
    EXPECT_LT(call.ms, generousMs);
}

// The list's entries in a state dump: each entry's line, and what follows it up to the next.
struct DumpedEntry {
    std::string line;
    std::vector<std::string> storage;
};

std::vector<DumpedEntry> dumpedEntries(const std::string& text)
{
    std::vector<DumpedEntry> entries;
    for (const std::string& line : splitLines(text)) {
        if (line.starts_with("Gateway Token List entry -")) {
            entries.push_back({line, {}});
        } else if (!entries.empty() && (line.starts_with("Dump of ResultSet(") || isDumpLine(line))) {
            entries.back().storage.push_back(line);
        }
    }
    return entries;
}

} // namespace

// ---- Closing ------------------------------------------------------------------------------------------------------

TEST(BusyConnection, IsClosedByAnotherThread)
{
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    for (const char* misbehaviour : {"no-answer@init#2", "no-answer@get-stats", "stall-at=-3@get-stats", "byte-by-byte=1000000@get-stats"}) {
        SCOPED_TRACE(misbehaviour);
        Caller owner;
        GatewayProcess gateway({misbehaviour});
        Connection connection;
        ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
        auto query = owner.start([&] { return connection.query(); });
        ASSERT_TRUE(gateway.awaitTranscript(std::string(misbehaviour).find("init") == std::string::npos ? "*** get-stats" : "*** init"));
        KRV_GatewayToken_t handle = connection.token;
        expectQuick(KRVSTAT_OK, timed([&] { return closeGatewayConnection(&handle); }));
        EXPECT_EQ(nullptr, firstOnTheList()) << "off the list at once";
        expectQuick(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, timed([&] { return closeGatewayConnection(&handle); }));
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(handle));
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, resultOf(owner.start([&] { return connection.query(); })).rc);
        EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; })) << "the owner's call closes the socket";
    }
}

TEST(BusyConnection, IsClosedWithAllByAnotherThread)
{
    const std::size_t descriptors = openDescriptors();
    Caller owners[4];
    GatewayProcess silent({"no-answer@get-stats%1", "no-answer@get-stats%2", "no-answer@get-stats%3"});
    Connection connections[4];
    for (int i = 0; i < 4; ++i) ASSERT_EQ(0, resultOf(owners[i].start([&, i] { return connections[i].open(silent.port()); })).rc);
    std::future<Timed> queries[3];
    for (int i = 0; i < 3; ++i) {
        queries[i] = owners[i].start([&, i] { return connections[i].query(); });
        ASSERT_TRUE(silent.awaitTranscript(std::to_string(i + 1) + " *** get-stats"));
    }
    expectQuick(KRVSTAT_OK, timed([] { return closeAllGatewayConnections(); }));
    EXPECT_EQ(nullptr, firstOnTheList());
    for (auto& query : queries) EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, resultOf(owners[3].start([&] { return connections[3].query(); })).rc);
    EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; }));
    EXPECT_TRUE(silent.awaitTranscript("4 C>G close ")) << "the idle one had its goodbye";
}

TEST(BusyConnection, IsClosedWithAllWhileItIsOpened)
{
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    for (const char* stage : {"handshake", "auth1", "auth2", "init", "attribute"}) {
        SCOPED_TRACE(stage);
        Caller owner;
        GatewayProcess gateway({std::string("no-answer@") + stage});
        Connection connection;
        auto open = owner.start([&] { return connection.open(gateway.port()); });
        ASSERT_TRUE(gateway.awaitTranscript(std::string("*** ") + stage));
        expectQuick(KRVSTAT_OK, timed([] { return closeAllGatewayConnections(); }));
        EXPECT_EQ(nullptr, firstOnTheList());
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(open)).rc);
        EXPECT_TRUE(connection.untouched());
        EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; }));
    }
}

TEST(BusyConnection, IsClosedWithAllWhileItIsConnecting)
{
    Caller owner;
    const Unanswering port;
    const std::size_t descriptors = openDescriptors();
    Connection connection;
    auto open = owner.start([&] { return connection.open(port.port()); });
    ASSERT_TRUE(soon([&] { return openDescriptors() > descriptors; }));
    expectQuick(KRVSTAT_OK, timed([] { return closeAllGatewayConnections(); }));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(open)).rc);
    EXPECT_TRUE(connection.untouched());
    EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; }));
    EXPECT_EQ(nullptr, firstOnTheList());
}

// However the two fall together, the open and the closing of all agree on who has the connection.
TEST(BusyConnection, IsNeverLostBetweenAnOpenAndAClosingOfAll)
{
    GatewayProcess gateway;
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    std::atomic<bool> ended{false};
    std::thread closer([&] {
        while (!ended) EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    });
    int opened = 0;
    for (int i = 0; i < 300; ++i) {
        Connection connection;
        const int rc = connection.open(gateway.port());
        EXPECT_TRUE(rc == KRVSTAT_OK || rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR) << rc;
        EXPECT_EQ(rc != KRVSTAT_OK, connection.untouched());
        if (rc != KRVSTAT_OK) continue;
        ++opened;
        const int query = connection.query();
        EXPECT_TRUE(query == KRVSTAT_OK || query == KRVSTAT_GATEWAY_PROTOCOL_ERROR || query == KRVSTAT_GATEWAY_TOKEN_NOT_FOUND) << query;
    }
    ended = true;
    closer.join();
    std::printf("    %d of 300 opens got through\n", opened);
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST(BusyConnection, IsClosedOnceHoweverManyThreadsClose)
{
    Caller owner;
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    auto query = owner.start([&] { return connection.query(); });
    ASSERT_TRUE(gateway.awaitTranscript("*** get-stats"));
    std::atomic<int> closed{0}, notFound{0};
    std::vector<std::thread> closers;
    for (int i = 0; i < 8; ++i) {
        closers.emplace_back([&, handle = connection.token]() mutable {
            const int rc = closeGatewayConnection(&handle);
            closed += rc == KRVSTAT_OK;
            notFound += rc == KRVSTAT_GATEWAY_TOKEN_NOT_FOUND;
        });
    }
    for (std::thread& each : closers) each.join();
    EXPECT_EQ(1, closed);
    EXPECT_EQ(7, notFound);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
}

// ---- Dumping ------------------------------------------------------------------------------------------------------

TEST(BusyConnection, IsDumpedWithoutItsStorage)
{
    Caller owner;
    GatewayProcess silent({"no-answer@get-stats#2"});
    GatewayProcess gateway;
    Connection busy, idle;
    ASSERT_EQ(0, resultOf(owner.start([&] { return busy.open(silent.port()); })).rc);
    ASSERT_EQ(0, resultOf(owner.start([&] { return busy.query(); })).rc);
    ASSERT_EQ(0, idle.open(gateway.port()));
    ASSERT_EQ(0, idle.query());
    TraceFile trace(0);
    expectQuick(KRVSTAT_OK, timed([] { return dumpState(); }));
    const std::vector<DumpedEntry> before = dumpedEntries(trace.text());
    ASSERT_EQ(2u, before.size());
    EXPECT_FALSE(before[0].storage.empty()) << "not in a call: with its storage";
    EXPECT_FALSE(before[1].storage.empty());

    auto query = owner.start([&] { return busy.query(); });
    ASSERT_TRUE(soon([&] {
        const std::vector<std::string> lines = silent.transcript();
        return std::any_of(lines.begin(), lines.end(), [](const auto& line) { return line.find("*** get-stats") != std::string::npos; });
    }));
    trace.forget();
    expectQuick(KRVSTAT_OK, timed([] { return dumpState(); }));
    const std::string text = trace.text();
    const std::vector<DumpedEntry> during = dumpedEntries(text);
    ASSERT_EQ(2u, during.size());
    EXPECT_EQ(before[0].line, during[0].line);
    EXPECT_TRUE(during[0].storage.empty()) << during[0].storage[0];
    EXPECT_EQ(before[1].line, during[1].line);
    EXPECT_EQ(before[1].storage, during[1].storage);
    EXPECT_NE(std::string::npos, text.find("Total number of Gateway Token List entries=2\n"));

    EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(busy.token));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
    EXPECT_EQ(0, idle.close());
    EXPECT_EQ(0, gateway.stop());
}

TEST(BusyConnection, IsDumpedWhileItIsOpened)
{
    Caller owner;
    GatewayProcess gateway({"no-answer@auth2"});
    Connection connection;
    auto open = owner.start([&] { return connection.open(gateway.port()); });
    ASSERT_TRUE(gateway.awaitTranscript("*** auth2"));
    TraceFile trace(0);
    expectQuick(KRVSTAT_OK, timed([] { return dumpState(); }));
    const std::vector<DumpedEntry> entries = dumpedEntries(trace.text());
    ASSERT_EQ(1u, entries.size());
    EXPECT_NE(std::string::npos, entries[0].line.find(" port(" + std::to_string(gateway.port()) + ") connStatus(0) "));
    EXPECT_TRUE(entries[0].storage.empty());
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(open)).rc);
}

TEST(BusyConnection, IsDumpedWithItsStorageOnceTheCallIsOver)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, connection.query());
        TraceFile trace(0);
        std::thread([] { EXPECT_EQ(KRVSTAT_OK, dumpState()); }).join();
        const std::vector<DumpedEntry> entries = dumpedEntries(trace.text());
        ASSERT_EQ(1u, entries.size());
        EXPECT_GT(entries[0].storage.size(), 100u) << "3000 characters of alpha.long";
    }
    EXPECT_EQ(0, connection.close());
}

// ---- The list is free ---------------------------------------------------------------------------------------------

TEST(List, IsFreeWhileAConnectionIsClosedOnASilentGateway)
{
    Caller closer, other;
    GatewayProcess silent({"no-answer@close"});
    GatewayProcess gateway;
    Connection closing, older;
    ASSERT_EQ(0, older.open(gateway.port()));
    ASSERT_EQ(0, resultOf(closer.start([&] { return closing.open(silent.port()); })).rc);
    auto close = closer.start([&] { return closing.close(); });
    ASSERT_TRUE(silent.awaitTranscript("*** close"));

    Connection fresh;
    expectQuick(KRVSTAT_OK, timed([&] { return fresh.open(gateway.port()); }));
    expectQuick(KRVSTAT_OK, timed([&] { return older.query(); }));
    expectQuick(KRVSTAT_OK, timed([] { TraceFile trace(0); return dumpState(); }));
    expectQuick(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, timed([&] { return interruptGatewayConnection(closing.token); }));
    expectQuick(KRVSTAT_OK, timed([&] { return fresh.close(); }));
    expectQuick(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, resultOf(other.start([&] { return closeGatewayConnection(&closing.token); })));
    expectQuick(KRVSTAT_OK, timed([] { return closeAllGatewayConnections(); }));
    EXPECT_FALSE(isBack(close)) << "without a deadline it still waits";
    silent.stop();
    EXPECT_EQ(KRVSTAT_OK, resultOf(std::move(close)).rc);
    EXPECT_EQ(0, gateway.stop());
}

TEST(List, IsFreeWhileAllConnectionsAreClosedOnASilentGateway)
{
    Caller closer;
    GatewayProcess silent({"no-answer@close"});
    GatewayProcess gateway;
    Connection closing, fresh;
    ASSERT_EQ(0, resultOf(closer.start([&] { return closing.open(silent.port()); })).rc);
    auto close = closer.start([] { return closeAllGatewayConnections(); });
    ASSERT_TRUE(silent.awaitTranscript("*** close"));
    expectQuick(KRVSTAT_OK, timed([&] { return fresh.open(gateway.port()); }));
    expectQuick(KRVSTAT_OK, timed([&] { return fresh.query(); }));
    expectQuick(KRVSTAT_OK, timed([] { TraceFile trace(0); return dumpState(); }));
    expectQuick(KRVSTAT_OK, timed([&] { return fresh.close(); }));
    EXPECT_FALSE(isBack(close));
    silent.stop();
    EXPECT_EQ(KRVSTAT_OK, resultOf(std::move(close)).rc);
}

TEST(List, IsFreeWhileOpensAndQueriesHang)
{
    Caller opener, asker, connector;
    const Unanswering unanswering;
    GatewayProcess deaf({"no-answer@auth1"});
    GatewayProcess silent({"no-answer@get-stats"});
    GatewayProcess gateway;
    Connection opening, asking, connecting, fresh;
    ASSERT_EQ(0, resultOf(asker.start([&] { return asking.open(silent.port()); })).rc);
    auto open = opener.start([&] { return opening.open(deaf.port()); });
    auto query = asker.start([&] { return asking.query(); });
    auto connect = connector.start([&] { return connecting.open(unanswering.port()); });
    ASSERT_TRUE(deaf.awaitTranscript("*** auth1"));
    ASSERT_TRUE(silent.awaitTranscript("*** get-stats"));
    for (int i = 0; i < 10; ++i) {
        expectQuick(KRVSTAT_OK, timed([&] { return fresh.open(gateway.port()); }));
        expectQuick(KRVSTAT_OK, timed([&] { return fresh.query(); }));
        expectQuick(KRVSTAT_OK, timed([] { TraceFile trace(0); return dumpState(); }));
        expectQuick(KRVSTAT_OK, timed([&] { return fresh.close(); }));
    }
    EXPECT_FALSE(isBack(open) || isBack(query) || isBack(connect));
    expectQuick(KRVSTAT_OK, timed([] { return closeAllGatewayConnections(); }));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(open)).rc);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(connect)).rc);
}

// The one that takes it off the list holds the list on, until the call's deadline.
TEST(BusyConnection, IsDestroyedByItsCallEvenWhenThatCannotGetTheList)
{
    const std::size_t descriptors = openDescriptors();
    Caller owner;
    GatewayProcess gateway({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    auto query = owner.start([&] {
        const CallDeadline deadline(3000);
        return connection.query();
    });
    ASSERT_TRUE(gateway.awaitTranscript("*** get-stats"));
    requestLock(&gtlLock);
    KRV_GatewayToken_t head = gtListHeadPtr;
    EXPECT_EQ(connection.token, head) << "or this machine is too slow by seconds";
    if (head) {
        EXPECT_EQ(KRVSTAT_OK, deleteGatewayToken(&head, GTL_LOCK_HELD));
    }
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(query)).rc);
    EXPECT_TRUE(soon([&] { return openDescriptors() == descriptors; })) << "the call closes the socket";
    releaseLock(&gtlLock);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(connection.token));
}
