// An application that forks in the middle of its conversations. The child has copies of the parent's connections and must
// not be heard on them; it may close them, which frees its copies, and have connections of its own, whatever the parent's
// threads were doing at the fork.
#include "forked_child.h"

#include <fcntl.h>

#include <atomic>

#include "gateway_process.h"
#include "stapi_krv_diag.h"
#include "trace_capture.h"
#include "watched_allocator.h"

using namespace krvtest;

namespace {

bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

int goodbyes(const GatewayProcess& gateway)
{
    int count = 0;
    for (const std::string& line : gateway.transcript()) count += line.find(" C>G close ") != std::string::npos;
    return count;
}

// Blocks of the first requests that were watched.
int blocksLeftOf(int requests)
{
    int left = 0;
    for (int i = 0; i < requests; i++) left += watchedAllocations.blocks[i] != nullptr;
    return left;
}

// The child's own conversation: what a connection that it opens by itself must be able to do. The number of the first
// claim that does not hold, from `first` on.
int failedClaimOfAConversation(int port, int first)
{
    Connection own;
    if (own.open(port) != KRVSTAT_OK) return first;
    if (own.query() != KRVSTAT_OK) return first + 1;
    if (own.close() != KRVSTAT_OK) return first + 2;
    return allHold;
}

// traceLock held by another thread while it lives.
class HeldTrace {
public:
    HeldTrace()
    {
        std::promise<void> held;
        thread = std::thread([this, &held] {
            requestLock(&traceLock);
            held.set_value();
            released.get_future().wait();
            releaseLock(&traceLock);
        });
        held.get_future().wait();
    }
    ~HeldTrace()
    {
        released.set_value();
        thread.join();
    }
    HeldTrace(const HeldTrace&) = delete;
    HeldTrace& operator=(const HeldTrace&) = delete;

private:
    std::promise<void> released;
    std::thread thread;
};

} // namespace

TEST(ForkedChild, ThatClosesFreesTokenAndDescriptorAndSaysNothing)
{
    GatewayProcess gateway;
    {
        Connection first; // what the C library keeps for itself is allocated here
        ASSERT_EQ(0, first.open(gateway.port()));
        ASSERT_EQ(0, first.close());
    }
    Connection connection;
    AllocationWatch watch(1, SIZE_MAX / 2);
    ASSERT_EQ(0, connection.open(gateway.port()));
    ASSERT_EQ(0, connection.query());
    const int requests = watch.requests(); // the fork itself may add some of a sanitizer's
    const int blocks = blocksLeftOf(requests);
    EXPECT_GT(blocks, 0);
    const int descriptor = connection.token->socketDescriptor;

    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        if (connection.close() != KRVSTAT_OK) return 1;
        if (gtListHeadPtr) return 2;
        if (isOpen(descriptor)) return 3;
        if (blocksLeftOf(requests) != 0) return 4;
        if (connection.close() != KRVSTAT_GATEWAY_TOKEN_NOT_FOUND) return 5;
        return allHold;
    }));

    EXPECT_EQ(blocks, blocksLeftOf(requests));
    EXPECT_EQ(0, connection.query());
    EXPECT_EQ(1, goodbyes(gateway)) << "that of the first connection";
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(2, goodbyes(gateway));
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST(ForkedChild, ThatClosesAllSaysNothingOnAnyConnection)
{
    Caller other;
    GatewayProcess gateway;
    Connection own[3];
    Connection others;
    for (Connection& each : own) ASSERT_EQ(0, each.open(gateway.port()));
    ASSERT_EQ(0, resultOf(other.start([&] { return others.open(gateway.port()); })).rc);

    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        if (closeAllGatewayConnections() != KRVSTAT_OK) return 1;
        if (gtListHeadPtr) return 2;
        return allHold;
    }));

    EXPECT_EQ(0, goodbyes(gateway));
    for (Connection& each : own) EXPECT_EQ(0, each.query());
    EXPECT_EQ(0, resultOf(other.start([&] { return others.query(); })).rc);
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST(ForkedChild, ThatClosesDoesNotDisturbACallOfItsParent)
{
    Caller caller;
    GatewayProcess silent({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, resultOf(caller.start([&] { return connection.open(silent.port()); })).rc);
    std::future<Timed> waiting = caller.start([&] { return connection.query(); });
    ASSERT_TRUE(silent.awaitTranscript("1 *** get-stats"));
    const int descriptor = connection.token->socketDescriptor;

    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        KRV_GatewayToken_t token = connection.token;
        if (closeGatewayConnection(&token) != KRVSTAT_OK) return 1;
        if (gtListHeadPtr) return 2;
        if (isOpen(descriptor)) return 3;
        return allHold;
    }));

    EXPECT_FALSE(isBack(waiting));
    EXPECT_EQ(0, goodbyes(silent));
    EXPECT_EQ(0, interruptGatewayConnection(connection.token));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(waiting)).rc);
    EXPECT_EQ(nullptr, firstOnTheList());
}

TEST(ForkedChild, ThatInterruptsDoesNotReachTheConnectionOfItsParent)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        interruptGatewayConnection(connection.token); // whatever it is told
        return connection.close() == KRVSTAT_OK ? allHold : 1;
    }));
    EXPECT_EQ(0, connection.query());
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(1, goodbyes(gateway));
}

TEST(ForkedChild, IsRefusedOnTheConnectionOfItsParentAndHasItsOwn)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        if (connection.query() != KRVSTAT_PID_MISMATCH) return 1;
        const int failed = failedClaimOfAConversation(gateway.port(), 2);
        if (failed != allHold) return failed;
        if (gtListHeadPtr != connection.token || connection.token->nextGwyTokPtr) return 5;
        if (connection.close() != KRVSTAT_OK) return 6;
        return failedClaimOfAConversation(gateway.port(), 7);
    }));
    EXPECT_EQ(0, connection.query());
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(3, goodbyes(gateway)) << "two of the child's own, and this one";
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST(ForkedChild, FindsBothLocksFreeWhoeverHeldThem)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    TraceFile trace(0);
    {
        HeldList list;
        HeldTrace tracing;
        EXPECT_EQ(allHold, failedClaimOfAFork([&] {
            if (setAPITraceLevel(4) != KRVSTAT_OK) return 1;
            if (connection.close() != KRVSTAT_OK) return 2;
            if (dumpState() != KRVSTAT_OK) return 3;
            return failedClaimOfAConversation(gateway.port(), 4);
        }));
    }
    EXPECT_NE(std::string::npos, trace.text().find("The Gateway Token List is EMPTY"));
    EXPECT_EQ(0, connection.query());
    EXPECT_EQ(0, connection.close());
}

TEST(ForkedChildren, OfAnAgentThatQueriesAndTracesAreAsGood)
{
    constexpr int children = 40;
    GatewayProcess gateway;
    ScratchFolder scratch;
    std::string names[] = {scratch.path("one"), scratch.path("two")};
    ASSERT_EQ(0, setAPITraceFile(names[0].data()));
    ASSERT_EQ(0, setAPITraceLevel(2));
    std::atomic<bool> ending{false};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++) {
        threads.emplace_back([&] {
            Connection connection; // opened before the forks: the C library's look-up of names is not made for them
            EXPECT_EQ(0, connection.open(gateway.port()));
            ready++;
            int rc = KRVSTAT_OK;
            while (!ending && rc == KRVSTAT_OK) rc = connection.query();
            EXPECT_EQ(0, rc);
            EXPECT_EQ(0, connection.close());
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; !ending; i++) EXPECT_EQ(0, setAPITraceFile(names[i % 2].data()));
    });
    EXPECT_TRUE(soon([&] { return ready == 3; }));

    int failed = allHold;
    for (int i = 0; i < children && failed == allHold; i++) {
        failed = failedClaimOfAFork([&] {
            if (setAPITraceFile(names[0].data()) != KRVSTAT_OK) return 1;
            if (dumpState() != KRVSTAT_OK) return 2;
            const int unheld = failedClaimOfAConversation(gateway.port(), 3);
            if (unheld != allHold) return unheld;
            if (closeAllGatewayConnections() != KRVSTAT_OK) return 6;
            if (gtListHeadPtr) return 7;
            return failedClaimOfAConversation(gateway.port(), 8);
        });
        EXPECT_EQ(allHold, failed) << "child " << i;
    }

    ending = true;
    for (std::thread& each : threads) each.join();
    ASSERT_EQ(0, setAPITraceLevel(0));
    ASSERT_EQ(0, setAPITraceFile(nullptr));
    EXPECT_EQ(2 * children + 3, goodbyes(gateway));
    EXPECT_TRUE(gateway.complaints().empty());
}
