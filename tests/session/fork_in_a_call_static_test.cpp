// A fork while another thread is in a call that has half changed its connection. The calls that move and free memory are
// wrapped at link time, and the thread is stopped in them.
#include "forked_child.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "gateway_process.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

// Where a thread stops until it may go on.
struct Stop {
    std::atomic<bool> reached{false};
    std::atomic<bool> left{false};

    void wait()
    {
        reached = true;
        soon([&] { return left.load(); }); // a test that failed before that must not hang
    }
};

thread_local Stop* stopInGrowth = nullptr;        // when the new block is there and the old one gone
thread_local Stop* stopInFreeOfVersion = nullptr; // behind the free of a version text that a token on the list has
std::atomic<void*> freedVersion = nullptr;        // while a thread is stopped there

// Longer than a connection's first buffer.
std::string longScenario()
{
    std::string scenario = "protocol: \"1.1.0\"\ngroups:\n  - id: long\n    statistics:\n";
    for (int i = 0; i < 20; i++)
        scenario += "      - {id: long." + std::to_string(i) + ", text: {repeat: \"0123456789\", length: 3000}}\n";
    return scenario;
}

} // namespace

extern "C" {
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __real_free(void* block);
void __wrap_free(void* block);

void* __wrap_realloc(void* block, std::size_t size)
{
    if (!stopInGrowth) return __real_realloc(block, size);
    void* moved = std::malloc(size);
    const std::size_t held = malloc_usable_size(block);
    std::memcpy(moved, block, held < size ? held : size);
    std::memset(block, 'x', held); // the terminator is gone
    __real_free(block);
    std::exchange(stopInGrowth, nullptr)->wait();
    return moved;
}

void __wrap_free(void* block)
{
    if (block && block == freedVersion) std::abort(); // twice
    const bool isVersion = stopInFreeOfVersion && gtListHeadPtr && block && gtListHeadPtr->protocolVersion == block;
    __real_free(block);
    if (!isVersion) return;
    freedVersion = block;
    std::exchange(stopInFreeOfVersion, nullptr)->wait();
    freedVersion = nullptr;
}
}

TEST(ForkInACall, ThatMakesAnAnswersBufferLargerLeavesTheChildNothingOfIt)
{
    GatewayProcess gateway({}, longScenario());
    Stop growth;
    Caller owner;
    Connection connection;
    ASSERT_EQ(0, resultOf(owner.start([&] { return connection.open(gateway.port()); })).rc);
    std::future<Timed> querying = owner.start([&] {
        stopInGrowth = &growth;
        return connection.query();
    });
    ASSERT_TRUE(soon([&] { return growth.reached.load(); }));

    TraceFile trace(0);
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        if (dumpState() != 0) return 1;
        if (connection.close() != 0) return 2;
        if (firstOnTheList()) return 3;
        Connection own;
        if (own.open(gateway.port()) != 0) return 4;
        if (own.query() != 0) return 5;
        return own.close() == 0 ? allHold : 6;
    }));
    const std::string dump = trace.text();
    EXPECT_NE(std::string::npos, dump.find("Gateway Token List entry -0001- : ")) << dump;
    EXPECT_NE(std::string::npos, dump.find(" resultSetBuf((nil)) ")) << dump;
    EXPECT_NE(std::string::npos, dump.find(" buffer((nil)) cursor((nil))")) << dump;
    EXPECT_EQ(std::string::npos, dump.find("78787878")) << dump;

    growth.left = true;
    EXPECT_EQ(0, resultOf(std::move(querying)).rc) << "the parent's goes on";
    EXPECT_EQ(0, resultOf(owner.start([&] { return connection.query(); })).rc);
    EXPECT_EQ(0, resultOf(owner.start([&] { return connection.close(); })).rc);
}

TEST(ForkInACall, ThatReplacesAVersionTextLeavesTheChildNothingOfIt)
{
    GatewayProcess gateway;
    Stop replacement;
    Caller owner;
    Connection connection;
    std::future<Timed> opening = owner.start([&] {
        stopInFreeOfVersion = &replacement;
        return connection.open(gateway.port());
    });
    ASSERT_TRUE(soon([&] { return replacement.reached.load(); }));

    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        if (!gtListHeadPtr) return 1;
        if (closeAllGatewayConnections() != 0) return 2;
        return gtListHeadPtr ? 3 : allHold;
    }));

    replacement.left = true;
    EXPECT_EQ(0, resultOf(std::move(opening)).rc) << "the parent's goes on";
    EXPECT_STREQ("1.1.0", connection.version);
    EXPECT_EQ(0, resultOf(owner.start([&] { return connection.query(); })).rc);
    EXPECT_EQ(0, resultOf(owner.start([&] { return connection.close(); })).rc);
}
