// The mutex wrapper: its codes, its marker, and the lines that it writes about failures.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "failing_calls.h"
#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_lock.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr std::int32_t initializedMarker = -1122868; // 0xFFEEDDCC
constexpr std::int32_t destroyedMarker = static_cast<std::int32_t>(0xCCDDEEFFu);

stapilock zeroLock()
{
    stapilock lock;
    std::memset(&lock, 0, sizeof lock);
    return lock;
}

// A lock that is given back at the end of its test.
struct ReadyLock {
    ReadyLock() : lock(zeroLock()) { EXPECT_EQ(0, initializeLock(&lock)); }
    ~ReadyLock()
    {
        if (lock.initialized == initializedMarker) destroyLock(&lock);
    }
    stapilock lock;
};

bool heldByAnother(stapilock* lock)
{
    int result = 0;
    std::thread other([&] {
        result = pthread_mutex_trylock(&lock->lock);
        if (result == 0) pthread_mutex_unlock(&lock->lock);
    });
    other.join();
    return result == EBUSY;
}

std::string line(const char* operation, const stapilock* lock, const std::string& rest)
{
    return std::string("stapi_krv_lock.") + operation + "(lockPtr=" + pointerText(lock) + ") " + rest;
}

// The only line that was written, checked for its kind.
TraceLine onlyException(const TraceFile& trace)
{
    std::vector<TraceLine> lines = trace.lines();
    if (lines.size() != 1) {
        ADD_FAILURE() << "expected one line, got " << ::testing::PrintToString(brief(lines));
        return TraceLine();
    }
    EXPECT_EQ("*EXC*", lines[0].kind);
    return lines[0];
}

template <typename Work> void expectFailing(int expected, FailingCall& call, int error, Work work)
{
    Injected injected = withFailing(call, error, work);
    EXPECT_EQ(expected, injected.result);
    EXPECT_EQ(1, injected.hits);
}

} // namespace

TEST(Locks, MarkersHaveTheirValues)
{
    EXPECT_EQ(-1122868, STAPILOCK_INITIALIZED);
    EXPECT_EQ(static_cast<std::int32_t>(0xCCDDEEFFu), STAPILOCK_DESTROYED);
}

TEST(Locks, InitialisingSetsTheMarkerAndTheMutexIsUsable)
{
    ReadyLock ready;
    EXPECT_EQ(initializedMarker, ready.lock.initialized);
    EXPECT_EQ(initializedMarker, isLockInitialized(&ready.lock));
    EXPECT_EQ(0, requestLock(&ready.lock));
    EXPECT_TRUE(heldByAnother(&ready.lock));
    EXPECT_EQ(0, releaseLock(&ready.lock));
    EXPECT_FALSE(heldByAnother(&ready.lock));
}

TEST(Locks, InitialisingAgainGivesOneAndLeavesTheMutexHeld)
{
    ReadyLock ready;
    ASSERT_EQ(0, requestLock(&ready.lock));
    stapilock before = ready.lock;
    EXPECT_EQ(1, initializeLock(&ready.lock));
    EXPECT_EQ(0, std::memcmp(&before, &ready.lock, sizeof before));
    EXPECT_TRUE(heldByAnother(&ready.lock));
    EXPECT_EQ(0, releaseLock(&ready.lock));
    EXPECT_EQ(1, initializeLock(&ready.lock));
    EXPECT_FALSE(heldByAnother(&ready.lock));
}

TEST(Locks, AMutexThatCannotBeInitialisedGivesMinusTwoAndKeepsTheMarker)
{
    TraceFile trace(1);
    for (std::int32_t marker : {0, 7, destroyedMarker}) {
        stapilock lock = zeroLock();
        lock.initialized = marker;
        trace.forget();
        expectFailing(-2, failingMutexInit, EAGAIN, [&] { return initializeLock(&lock); });
        EXPECT_EQ(marker, lock.initialized);
        TraceLine written = onlyException(trace);
        EXPECT_EQ(3101, written.number);
        EXPECT_EQ(line("initializeLock", &lock, "Lock initialization failed errno=" + std::to_string(EAGAIN)), written.message);
    }
}

TEST(Locks, EveryMarkerButOneCountsAsNotInitialised)
{
    TraceFile trace(1);
    for (std::int32_t marker : {0, 1, -1, destroyedMarker, initializedMarker + 1, initializedMarker - 1}) {
        stapilock lock = zeroLock();
        lock.initialized = marker;
        stapilock before = lock;
        trace.forget();
        const std::pair<int (*)(stapilock*), FailingCall*> operations[] = {
            {requestLock, &failingMutexLock}, {releaseLock, &failingMutexUnlock}, {destroyLock, &failingMutexDestroy}};
        for (const auto& operation : operations) {
            Injected counted = withFailing(*operation.second, EINVAL, [&] { return operation.first(&lock); }, 1000);
            EXPECT_EQ(-1, counted.result);
            EXPECT_EQ(0, counted.seen) << "neither this mutex nor traceLock is asked for";
        }
        EXPECT_EQ(marker, isLockInitialized(&lock));
        EXPECT_EQ(0, std::memcmp(&before, &lock, sizeof before)) << "the mutex was touched";
        EXPECT_EQ((std::vector<std::string>{
                      "3104 *EXC* " + line("requestLock", &lock, "Lock not initialized"),
                      "3108 *EXC* " + line("releaseLock", &lock, "Lock not initialized"),
                      "3112 *EXC* " + line("destroyLock", &lock, "Lock not initialized")}),
            brief(trace.lines()));
    }
}

TEST(Locks, AFailedLockGivesMinusFourWithItsErrno)
{
    ReadyLock ready;
    TraceFile trace(1);
    expectFailing(-4, failingMutexLock, EOWNERDEAD, [&] { return requestLock(&ready.lock); });
    TraceLine written = onlyException(trace);
    EXPECT_EQ(3105, written.number);
    EXPECT_EQ(line("requestLock", &ready.lock, "Lock request failed errno=" + std::to_string(EOWNERDEAD)), written.message);
    EXPECT_FALSE(heldByAnother(&ready.lock));
}

TEST(Locks, AFailedUnlockGivesMinusFiveWithItsErrno)
{
    ReadyLock ready;
    TraceFile trace(1);
    ASSERT_EQ(0, requestLock(&ready.lock));
    expectFailing(-5, failingMutexUnlock, EPERM, [&] { return releaseLock(&ready.lock); });
    TraceLine written = onlyException(trace);
    EXPECT_EQ(3109, written.number);
    EXPECT_EQ(line("releaseLock", &ready.lock, "Lock release failed errno=" + std::to_string(EPERM)), written.message);
    EXPECT_EQ(0, releaseLock(&ready.lock));
}

TEST(Locks, AFailedDestroyGivesMinusFourAndKeepsTheMarker)
{
    ReadyLock ready;
    TraceFile trace(1);
    expectFailing(-4, failingMutexDestroy, EBUSY, [&] { return destroyLock(&ready.lock); });
    EXPECT_EQ(initializedMarker, isLockInitialized(&ready.lock));
    TraceLine written = onlyException(trace);
    EXPECT_EQ(3113, written.number);
    EXPECT_EQ(line("destroyLock", &ready.lock, "Lock destroy failed errno=" + std::to_string(EBUSY)), written.message);
}

TEST(Locks, ADestroyedLockIsRefusedAndCanBeInitialisedAgain)
{
    ReadyLock ready;
    ASSERT_EQ(0, destroyLock(&ready.lock));
    EXPECT_EQ(destroyedMarker, isLockInitialized(&ready.lock));
    EXPECT_EQ(-1, requestLock(&ready.lock));
    EXPECT_EQ(-1, releaseLock(&ready.lock));
    EXPECT_EQ(-1, destroyLock(&ready.lock));
    EXPECT_EQ(0, initializeLock(&ready.lock));
    EXPECT_EQ(0, requestLock(&ready.lock));
    EXPECT_EQ(0, releaseLock(&ready.lock));
}

TEST(Locks, SuccessWritesNothingAtAnyLevel)
{
    for (int level = 1; level <= 5; level++) {
        TraceFile trace(level);
        stapilock lock = zeroLock();
        EXPECT_EQ(0, initializeLock(&lock));
        EXPECT_EQ(1, initializeLock(&lock));
        EXPECT_EQ(0, requestLock(&lock));
        EXPECT_EQ(0, releaseLock(&lock));
        EXPECT_EQ(initializedMarker, isLockInitialized(&lock));
        EXPECT_EQ(0, destroyLock(&lock));
        EXPECT_EQ("", trace.text());
    }
}

TEST(Locks, AtLevelZeroFailuresWriteNothingAndKeepTheirCodes)
{
    TraceFile trace(0);
    stapilock lock = zeroLock();
    expectFailing(-2, failingMutexInit, ENOMEM, [&] { return initializeLock(&lock); });
    EXPECT_EQ(-1, requestLock(&lock));
    EXPECT_EQ(-1, releaseLock(&lock));
    EXPECT_EQ(-1, destroyLock(&lock));
    ASSERT_EQ(0, initializeLock(&lock));
    expectFailing(-4, failingMutexLock, EINVAL, [&] { return requestLock(&lock); });
    expectFailing(-5, failingMutexUnlock, EINVAL, [&] { return releaseLock(&lock); });
    expectFailing(-4, failingMutexDestroy, EINVAL, [&] { return destroyLock(&lock); });
    EXPECT_EQ(0, destroyLock(&lock));
    EXPECT_EQ("", trace.text());
}

// The lock whose failure is reported may be traceLock itself: the line must come out while it is held.
TEST(Locks, FailureLinesAreWrittenWithoutTraceLock)
{
    TraceFile trace(1);
    stapilock lock = zeroLock();
    ASSERT_EQ(0, requestLock(&traceLock));
    EXPECT_EQ(-1, requestLock(&lock));
    ASSERT_EQ(0, releaseLock(&traceLock));
    EXPECT_EQ(3104, onlyException(trace).number);
}

// Each failure's line, with the calls counted that a taken traceLock would show.
TEST(Locks, NoFailureLineTakesTraceLock)
{
    struct Failure {
        int number;
        int (*operation)(stapilock*);
        bool isInitialized;
        FailingCall* fails; // NULL: it fails by the marker
        FailingCall* counted;
    };
    const Failure failures[] = {
        {3101, initializeLock, false, &failingMutexInit, &failingMutexLock},
        {3104, requestLock, false, nullptr, &failingMutexUnlock},
        {3105, requestLock, true, &failingMutexLock, &failingMutexUnlock},
        {3108, releaseLock, false, nullptr, &failingMutexLock},
        {3109, releaseLock, true, &failingMutexUnlock, &failingMutexLock},
        {3112, destroyLock, false, nullptr, &failingMutexLock},
        {3113, destroyLock, true, &failingMutexDestroy, &failingMutexLock},
    };
    TraceFile trace(1);
    for (const Failure& failure : failures) {
        stapilock lock = zeroLock();
        if (failure.isInitialized) {
            ASSERT_EQ(0, initializeLock(&lock));
        }
        trace.forget();
        if (failure.fails) *failure.fails = FailingCall{0, EINVAL, 0, 0, 0};
        const Injected counted = withFailing(*failure.counted, EINVAL, [&] { return failure.operation(&lock); }, 1000);
        if (failure.fails) *failure.fails = FailingCall{-1, 0, 0, 0, 0};
        EXPECT_GT(0, counted.result) << failure.number;
        EXPECT_EQ(0, counted.seen) << failure.number;
        EXPECT_EQ(failure.number, onlyException(trace).number);
        if (failure.isInitialized) {
            EXPECT_EQ(0, destroyLock(&lock));
        }
    }
}

TEST(Locks, AFailureOfTraceLockIsReportedAndTheLineItselfIsStillWritten)
{
    TraceFile trace(1);
    failingMutexLock = FailingCall{0, EINVAL, 0, 0, 0};
    failingMutexLock.isMade = true; // it is going to be released, whatever became of the request
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getAPITraceLevel(nullptr));
    EXPECT_EQ(1, failingMutexLock.met);
    failingMutexLock = FailingCall{-1, 0, 0, 0, 0};
    std::vector<TraceLine> lines = trace.lines();
    std::vector<TraceLine> request = linesNumbered(lines, 3105);
    ASSERT_EQ(1u, request.size());
    EXPECT_EQ(line("requestLock", &traceLock, "Lock request failed errno=" + std::to_string(EINVAL)), request[0].message);
    EXPECT_EQ(1u, linesNumbered(lines, 1092).size()) << "callers ignore what the lock says";
}

TEST(Locks, TheListLockIsSetUpOnceAndItsResultHandedOn)
{
    TraceFile trace(3);
    Internal_GatewayToken_t sentinel;
    gtListTailPtr = &sentinel;
    EXPECT_EQ(1, initGTL()) << "the first call of the process has initialised it";
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(&sentinel, gtListTailPtr);
    gtListTailPtr = nullptr;
    EXPECT_EQ((std::vector<std::string>{
                  "2030 ENTRY stapi_krv_gwytok.initGTL()", "2031 EXIT stapi_krv_gwytok.initGTL() initLockRc=1, rc=0"}),
        brief(trace.lines()));

    ASSERT_EQ(0, destroyLock(&gtlLock));
    trace.forget();
    EXPECT_EQ(0, initGTL());
    EXPECT_EQ((std::vector<std::string>{
                  "2030 ENTRY stapi_krv_gwytok.initGTL()", "2031 EXIT stapi_krv_gwytok.initGTL() initLockRc=0, rc=0"}),
        brief(trace.lines()));

    ASSERT_EQ(0, destroyLock(&gtlLock));
    trace.forget();
    expectFailing(-2, failingMutexInit, ENOMEM, [&] { return initGTL(); });
    EXPECT_EQ((std::vector<std::string>{
                  "2030 ENTRY stapi_krv_gwytok.initGTL()",
                  "3101 *EXC* " + line("initializeLock", &gtlLock, "Lock initialization failed errno=" + std::to_string(ENOMEM)),
                  "2031 EXIT stapi_krv_gwytok.initGTL() initLockRc=-2, rc=-121"}),
        brief(trace.lines()));
    EXPECT_EQ(0, initGTL());
}
