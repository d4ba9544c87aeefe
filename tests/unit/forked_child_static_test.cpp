// What the library does around a fork, done without one: the handlers that it registers are caught at link time, and
// called while all that a fork can leave behind is left behind.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "krvstats.h"
#include "stapi_krv_calls.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

void (*prepareHandler)() = nullptr;
void (*parentHandler)() = nullptr;
void (*childHandler)() = nullptr;
std::function<void()> whileRegistering;

// How often threads of this process gave their turn away.
std::atomic<int> yields = 0;

// What happens inside the C library's calendar.
std::function<void()> insideCalendar;

// Whether sleeps take no time, and are counted instead; and how long they would have been.
bool sleepsAreCounted = false;
int sleeps = 0;
long long nanosecondsAsleep = 0;

bool soonYields(int before)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (yields == before && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // a yield of its own would count
    return yields != before;
}

} // namespace

extern "C" {
int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)());

int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)())
{
    prepareHandler = prepare;
    parentHandler = parent;
    childHandler = child;
    if (whileRegistering) whileRegistering();
    return 0;
}

// The names depend on the width of time_t.
#if defined(__i386__)
#define CALENDAR(prefix) prefix##__localtime64_r
#define SLEEP(prefix) prefix##__nanosleep64
#else
#define CALENDAR(prefix) prefix##localtime_r
#define SLEEP(prefix) prefix##nanosleep
#endif
int SLEEP(__real_)(const timespec* time, timespec* left);
int SLEEP(__wrap_)(const timespec* time, timespec* left);

int SLEEP(__wrap_)(const timespec* time, timespec* left)
{
    if (!sleepsAreCounted) return SLEEP(__real_)(time, left);
    sleeps++;
    nanosecondsAsleep += time->tv_sec * 1000000000LL + time->tv_nsec;
    return 0;
}

std::tm* CALENDAR(__real_)(const std::time_t* time, std::tm* local);
std::tm* CALENDAR(__wrap_)(const std::time_t* time, std::tm* local);

std::tm* CALENDAR(__wrap_)(const std::time_t* time, std::tm* local)
{
    if (insideCalendar) insideCalendar();
    return CALENDAR(__real_)(time, local);
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
        ASSERT_NE(nullptr, prepareHandler);
        ASSERT_NE(nullptr, parentHandler);
        ASSERT_NE(nullptr, childHandler);
        ASSERT_EQ(nullptr, gtListHeadPtr);
        sleeps = 0;
        nanosecondsAsleep = 0;
    }
    void TearDown() override
    {
        gtListHeadPtr = nullptr;
        gtListTailPtr = nullptr;
        insideCalendar = nullptr;
    }

    // A second, and not all of it asleep.
    void expectWaitedForAWhile(const std::function<void()>& wait)
    {
        const int before = yields;
        sleepsAreCounted = true;
        wait();
        sleepsAreCounted = false;
        EXPECT_EQ(100, yields - before);
        EXPECT_EQ(1000, sleeps);
        EXPECT_EQ(1000000000, nanosecondsAsleep);
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

TEST_F(ForkHandler, ForgetsASwitchOfTheDestination)
{
    const ScratchFolder scratch;
    std::string name = scratch.path("trace");
    pinTraceDestination();
    const int before = yields;
    std::thread switching([&] { EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data())); });
    EXPECT_TRUE(soonYields(before)) << "it waits";

    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        childHandler();
        pinTraceDestination(); // nobody is there who would end the switch
        kill(getpid(), SIGKILL); // a good end: at an exit, a leak checker would look for what the parent's threads hold
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(SIGKILL, WTERMSIG(status));

    unpinTraceDestination();
    switching.join();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
}

TEST_F(ForkHandler, ForgetsWhoWasInTheCalendar)
{
    insideCalendar = [&] {
        childHandler();
        const int before = yields;
        prepareHandler(); // the child forks
        EXPECT_EQ(before, yields) << "nobody is waited for";
        parentHandler();
    };
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp);
    childHandler(); // whoever was in there, is forgotten once more
}

TEST_F(ForkHandler, LetsAForkWaitForNobodyWhoHasLeftTheCalendar)
{
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp);
    char date[TRACE_DATE_SIZE];
    getTraceDate(date);
    const int before = yields;
    prepareHandler();
    EXPECT_EQ(before, yields);
    parentHandler();
}

TEST_F(ForkHandler, LetsAForkWaitForThreadsInTheCalendar)
{
    std::atomic<bool> inside = false;
    std::atomic<bool> mayLeave = false;
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp); // in and out once before
    insideCalendar = [&] {
        inside = true;
        while (!mayLeave) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    std::thread stamping([&] { getTimestamp(stamp); });
    while (!inside) std::this_thread::sleep_for(std::chrono::milliseconds(1));

    const int before = yields;
    std::atomic<bool> isPrepared = false;
    std::thread forking([&] {
        prepareHandler();
        isPrepared = true;
    });
    EXPECT_TRUE(soonYields(before)) << "it waits";
    EXPECT_FALSE(isPrepared);
    mayLeave = true;
    forking.join();
    stamping.join();
    parentHandler();
}

TEST_F(ForkHandler, KeepsThreadsOutOfTheCalendarDuringAFork)
{
    std::atomic<int> entered = 0;
    insideCalendar = [&] { ++entered; };
    prepareHandler();
    const int before = yields;
    char date[TRACE_DATE_SIZE];
    std::thread stamping([&] { getTraceDate(date); });
    EXPECT_TRUE(soonYields(before)) << "it waits";
    EXPECT_EQ(0, entered);
    parentHandler();
    stamping.join();
    EXPECT_EQ(1, entered);

    const int after = yields;
    prepareHandler();
    EXPECT_EQ(after, yields) << "the next fork waits for nobody";
    parentHandler();
}

TEST_F(ForkHandler, WaitsNotForEverForItsOwnThread)
{
    insideCalendar = [&] {
        expectWaitedForAWhile(prepareHandler); // as if a signal had come here, whose handler forks
        parentHandler();
    };
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp);
    EXPECT_EQ(std::size_t{21}, std::strlen(stamp));
}

TEST_F(ForkHandler, KeepsTheForkingThreadItselfOutForAWhileOnly)
{
    int entered = 0;
    insideCalendar = [&] { ++entered; };
    prepareHandler();
    char stamp[TRACE_TIMESTAMP_SIZE];
    expectWaitedForAWhile([&] { getTimestamp(stamp); }); // as an application's handler would, that runs behind this one
    EXPECT_EQ(1, entered);
    parentHandler();
}

TEST_F(ForkHandler, LeavesTheCalendarOpenInTheParent)
{
    prepareHandler();
    parentHandler();
    const int before = yields;
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp);
    EXPECT_EQ(before, yields);
}

TEST_F(ForkHandler, LeavesTheCalendarOpenInTheChild)
{
    prepareHandler();
    childHandler();
    const int before = yields;
    char stamp[TRACE_TIMESTAMP_SIZE];
    getTimestamp(stamp);
    EXPECT_EQ(before, yields);
}

TEST_F(ForkHandler, ForgetsTheCallsOfTheParent)
{
    Internal_GatewayToken_t token = {};
    ASSERT_NE(nullptr, enterCall(&token));
    childHandler();
    EXPECT_EQ(0, isBusy(&token));
    EXPECT_EQ(0, callIsInterrupted());
}

TEST_F(ForkHandler, LeavesNothingOfATokenInACallThatMayBeHalfDone)
{
    std::vector<Internal_GatewayToken_t> tokens = listOf(4); // the last one without a result set
    char buffer[4];
    char version[] = "1.1.0";
    Internal_ResultSetToken_t sets[3] = {};
    for (std::size_t i = 0; i < 3; ++i) {
        sets[i].rsBuffPtr = sets[i].cursor = tokens[i].resultSetBuf = buffer;
        tokens[i].protocolVersion = version;
        tokens[i].connRSPtr = &sets[i];
    }
    ASSERT_NE(nullptr, enterCall(&tokens[1]));
    ASSERT_NE(nullptr, enterCall(&tokens[3]));
    childHandler();
    for (std::size_t i : {0u, 2u}) {
        EXPECT_EQ(buffer, tokens[i].resultSetBuf) << i;
        EXPECT_EQ(buffer, sets[i].rsBuffPtr) << i;
        EXPECT_EQ(buffer, sets[i].cursor) << i;
        EXPECT_EQ(version, tokens[i].protocolVersion) << i;
    }
    EXPECT_EQ(nullptr, tokens[1].resultSetBuf);
    EXPECT_EQ(nullptr, sets[1].rsBuffPtr);
    EXPECT_EQ(nullptr, sets[1].cursor);
    EXPECT_EQ(nullptr, tokens[1].protocolVersion);
    EXPECT_EQ(&sets[1], tokens[1].connRSPtr);
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

TEST_F(ForkHandler, FindsTheEndOfALongListAndOfNoneThatGoesRound)
{
    std::vector<Internal_GatewayToken_t> tokens = listOf(300);
    gtListTailPtr = nullptr;
    childHandler();
    EXPECT_EQ(&tokens[299], gtListTailPtr);
    tokens.back().nextGwyTokPtr = &tokens.front();
    childHandler();
    EXPECT_TRUE(gtListTailPtr >= &tokens.front() && gtListTailPtr <= &tokens.back());
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
