// What the library does in the child of a fork, done without one: the handler that it registers for children is caught at
// link time, and called while all that a fork can leave behind is left behind.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include "krvstats.h"
#include "stapi_krv_calls.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

void (*childHandler)() = nullptr;
std::function<void()> whileRegistering;

// How often threads of this process gave their turn away.
std::atomic<int> yields = 0;

} // namespace

extern "C" {
int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)());

int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)())
{
    EXPECT_EQ(nullptr, prepare);
    EXPECT_EQ(nullptr, parent);
    childHandler = child;
    if (whileRegistering) whileRegistering();
    return 0;
}

int sched_yield() noexcept
{
    yields++;
    return static_cast<int>(syscall(SYS_sched_yield));
}
}

namespace {

class ForkHandler : public testing::Test {
protected:
    void SetUp() override
    {
        char* version = nullptr;
        ASSERT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
        ASSERT_NE(nullptr, childHandler);
        ASSERT_EQ(nullptr, gtListHeadPtr);
    }
    void TearDown() override
    {
        gtListHeadPtr = nullptr;
        gtListTailPtr = nullptr;
    }
};

// Tokens on the list, with a tail that was not moved yet.
std::vector<Internal_GatewayToken_t> listOf(std::size_t count)
{
    std::vector<Internal_GatewayToken_t> tokens(count);
    for (std::size_t i = 0; i + 1 < count; ++i) tokens[i].nextGwyTokPtr = &tokens[i + 1];
    gtListHeadPtr = &tokens[0];
    gtListTailPtr = &tokens[0];
    return tokens;
}

} // namespace

TEST_F(ForkHandler, FreesBothLocksWhoeverHeldThem)
{
    ASSERT_EQ(0, requestLock(&traceLock));
    ASSERT_EQ(0, requestLock(&gtlLock));
    childHandler();
    EXPECT_EQ(0, requestLock(&traceLock));
    EXPECT_EQ(0, requestLock(&gtlLock));
    EXPECT_EQ(0, releaseLock(&gtlLock));
    EXPECT_EQ(0, releaseLock(&traceLock));
}

TEST_F(ForkHandler, LeavesALockThatWasNeverSetUpAsItIs)
{
    const stapilock trace = traceLock;
    const stapilock list = gtlLock;
    std::memset(&traceLock, 0, sizeof traceLock);
    std::memset(&gtlLock, 0, sizeof gtlLock);
    childHandler();
    EXPECT_EQ(0, traceLock.initialized);
    EXPECT_EQ(-1, requestLock(&traceLock));
    EXPECT_EQ(-1, requestLock(&gtlLock));
    traceLock = trace;
    gtlLock = list;
}

TEST_F(ForkHandler, ForgetsWritersThatKeptTheDestination)
{
    const ScratchFolder scratch;
    std::string name = scratch.path("trace");
    pinTraceDestination();
    childHandler();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data())) << "nobody is waited for";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
}

TEST_F(ForkHandler, ForgetsTheCallsOfTheParent)
{
    Internal_GatewayToken_t token = {};
    ASSERT_NE(nullptr, enterCall(&token));
    childHandler();
    EXPECT_EQ(0, isBusy(&token));
    EXPECT_EQ(0, callIsInterrupted());
}

TEST_F(ForkHandler, MakesTheLastTokenTheTail)
{
    for (std::size_t count : {1u, 2u, 5u, 256u}) {
        std::vector<Internal_GatewayToken_t> tokens = listOf(count);
        childHandler();
        EXPECT_EQ(&tokens.front(), gtListHeadPtr);
        EXPECT_EQ(&tokens.back(), gtListTailPtr) << count;
    }
    gtListHeadPtr = nullptr;
    gtListTailPtr = nullptr;
    childHandler();
    EXPECT_EQ(nullptr, gtListTailPtr) << "an empty list stays one";
}

TEST_F(ForkHandler, WalksNoListFartherThan256)
{
    std::vector<Internal_GatewayToken_t> tokens = listOf(300);
    childHandler();
    EXPECT_EQ(&tokens[255], gtListTailPtr);
    tokens.back().nextGwyTokPtr = &tokens.front(); // round and round
    childHandler();
    EXPECT_EQ(&tokens[255], gtListTailPtr);
}

// A second first call comes while the first is about to succeed.
TEST(SecondFirstCall, FindsTheLibrarySetUp)
{
    ASSERT_EQ(0, stapiState) << "this case needs a process of its own: run it through ctest or with --gtest_filter";
    std::thread other;
    std::atomic<int> rc = 99;
    int registrations = 0;
    whileRegistering = [&] {
        if (registrations++ > 0) return;
        other = std::thread([&] { rc = closeAllGatewayConnections(); });
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (yields == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_GT(yields, 0) << "it waits";
        EXPECT_EQ(99, rc);
    };
    char* version = nullptr;
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
    other.join();
    EXPECT_EQ(KRVSTAT_OK, rc);
    EXPECT_EQ(1, registrations) << "set up once";
    whileRegistering = nullptr;
}
