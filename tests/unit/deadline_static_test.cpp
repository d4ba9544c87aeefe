// The calling thread's deadline against a clock that stands still: the library's reads of the clock, and its waits for locks
// with a limit, are wrapped at link time.
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "stapi_krv_deadline.h"

namespace {

// Monotonic time as the library reads it, and the time of day.
timespec standing = {};
timespec wallStanding = {};

// When the last wait for a lock was to end, on the clock that it named.
timespec lockUntil = {};
clockid_t lockClock = -1;

timespec at(std::time_t seconds, long nanoseconds)
{
    timespec time = {};
    time.tv_sec = seconds;
    time.tv_nsec = nanoseconds;
    return time;
}

timeval waitOf(long seconds, long microseconds)
{
    timeval wait = {};
    wait.tv_sec = seconds;
    wait.tv_usec = microseconds;
    return wait;
}

// Seconds and microseconds of a long wait, once it has been cut down to the deadline.
std::pair<long, long> leftAt(const timespec& now)
{
    standing = now;
    timeval wait = waitOf(1000000, 0);
    limitWait(&wait);
    return {static_cast<long>(wait.tv_sec), static_cast<long>(wait.tv_usec)};
}

using Left = std::pair<long, long>;

// A call with a deadline, begun at a time of its own.
class LimitedCall {
public:
    LimitedCall(int milliseconds, const timespec& begin)
    {
        standing = begin;
        setCallLimit(milliseconds);
        beginCall();
    }
    ~LimitedCall()
    {
        endCall();
        setCallLimit(0);
    }
    LimitedCall(const LimitedCall&) = delete;
    LimitedCall& operator=(const LimitedCall&) = delete;
};

class Pipe {
public:
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
    }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int ends[2];
};

} // namespace

// With 64-bit time on a 32-bit machine, the calls have other names at link time.
#ifdef __USE_TIME_BITS64
#define WRAP_CLOCK_GETTIME __wrap___clock_gettime64
#define REAL_CLOCKLOCK __real___pthread_mutex_clocklock64
#define WRAP_CLOCKLOCK __wrap___pthread_mutex_clocklock64
#define REAL_TIMEDLOCK __real___pthread_mutex_timedlock64
#define WRAP_TIMEDLOCK __wrap___pthread_mutex_timedlock64
#else
#define WRAP_CLOCK_GETTIME __wrap_clock_gettime
#define REAL_CLOCKLOCK __real_pthread_mutex_clocklock
#define WRAP_CLOCKLOCK __wrap_pthread_mutex_clocklock
#define REAL_TIMEDLOCK __real_pthread_mutex_timedlock
#define WRAP_TIMEDLOCK __wrap_pthread_mutex_timedlock
#endif

extern "C" {
int WRAP_CLOCK_GETTIME(clockid_t clock, timespec* now);
int REAL_CLOCKLOCK(pthread_mutex_t* mutex, clockid_t clock, const timespec* until);
int WRAP_CLOCKLOCK(pthread_mutex_t* mutex, clockid_t clock, const timespec* until);
int REAL_TIMEDLOCK(pthread_mutex_t* mutex, const timespec* until);
int WRAP_TIMEDLOCK(pthread_mutex_t* mutex, const timespec* until);

int WRAP_CLOCK_GETTIME(clockid_t clock, timespec* now)
{
    *now = clock == CLOCK_MONOTONIC ? standing : wallStanding;
    return 0;
}

int WRAP_CLOCKLOCK(pthread_mutex_t* mutex, clockid_t clock, const timespec* until)
{
    lockClock = clock;
    lockUntil = *until;
    return REAL_CLOCKLOCK(mutex, clock, until);
}

// What the thread sanitizer has in place of that.
int WRAP_TIMEDLOCK(pthread_mutex_t* mutex, const timespec* until)
{
    lockClock = CLOCK_REALTIME;
    lockUntil = *until;
    return REAL_TIMEDLOCK(mutex, until);
}
}

// ---- What is left -------------------------------------------------------------------------------------------------

TEST(Deadline, LeavesNoCallWithoutALimitAnyShorter)
{
    timeval wait = waitOf(60, 0);
    limitWait(&wait);
    EXPECT_EQ(60, wait.tv_sec);
    beginCall();
    limitWait(&wait);
    EXPECT_EQ(60, wait.tv_sec);
    EXPECT_EQ(0, callIsLimited());
    EXPECT_EQ(0, callHasExpired());
    endCall();
}

TEST(Deadline, IsCountedFromTheBeginOfTheCall)
{
    const LimitedCall call(2500, at(100, 700000000));
    EXPECT_EQ(1, callIsLimited());
    EXPECT_EQ((Left{2, 500000}), leftAt(at(100, 700000000)));
    EXPECT_EQ((Left{1, 900000}), leftAt(at(101, 300000000)));
    EXPECT_EQ((Left{0, 200000}), leftAt(at(103, 0)));
    EXPECT_EQ((Left{0, 1}), leftAt(at(103, 199999999)));
    EXPECT_EQ((Left{0, 0}), leftAt(at(103, 200000000)));
}

TEST(Deadline, IsRoundedUpToWholeMicroseconds)
{
    const LimitedCall call(1000, at(10, 0));
    EXPECT_EQ((Left{0, 1}), leftAt(at(10, 999999999))) << "a nanosecond is left";
    EXPECT_EQ((Left{0, 1}), leftAt(at(10, 999999000)));
    EXPECT_EQ((Left{0, 2}), leftAt(at(10, 999998999)));
    EXPECT_EQ((Left{1, 0}), leftAt(at(10, 1))) << "999999.999 microseconds";
}

TEST(Deadline, MayBeOneMillisecondAhead)
{
    const LimitedCall call(1, at(10, 0));
    EXPECT_EQ(1, callIsLimited());
    EXPECT_EQ((Left{0, 1000}), leftAt(at(10, 0)));
}

TEST(Deadline, LeavesAShorterWaitAlone)
{
    const LimitedCall call(1000, at(10, 0));
    timeval wait = waitOf(0, 400000);
    limitWait(&wait);
    EXPECT_EQ(0, wait.tv_sec);
    EXPECT_EQ(400000, wait.tv_usec);
}

TEST(Deadline, ThatHasPassedLeavesNothing)
{
    const LimitedCall call(1000, at(10, 0));
    EXPECT_EQ(0, callHasExpired());
    EXPECT_EQ((Left{0, 0}), leftAt(at(11, 1)));
    EXPECT_EQ((Left{0, 0}), leftAt(at(5000, 0)));
    EXPECT_EQ(1, callHasExpired());
    standing = at(10, 0);
    EXPECT_EQ(1, callHasExpired()) << "a call that was late stays late";
}

TEST(Deadline, BelongsToTheOutermostCall)
{
    standing = at(10, 0);
    setCallLimit(1000);
    beginCall();
    standing = at(10, 600000000);
    beginCall();
    EXPECT_EQ((Left{0, 400000}), leftAt(standing));
    standing = at(20, 0);
    EXPECT_EQ(1, callHasExpired());
    endCall();
    standing = at(10, 0);
    EXPECT_EQ(1, callHasExpired()) << "still inside the outer one";
    endCall();
    EXPECT_EQ(0, callIsLimited());
    EXPECT_EQ(0, callHasExpired());
    beginCall();
    EXPECT_EQ(0, callHasExpired()) << "the next call has all its time";
    endCall();
    setCallLimit(0);
}

TEST(Deadline, MakesEverythingLateWhileInAHurry)
{
    standing = at(10, 0);
    setHurry(1);
    EXPECT_EQ(1, callIsLimited());
    EXPECT_EQ(1, callHasExpired());
    setHurry(0);
    EXPECT_EQ(0, callIsLimited());
    EXPECT_EQ(0, callHasExpired());
}

// ---- Waits --------------------------------------------------------------------------------------------------------

TEST(WaitWithADeadline, EndsThereAndMakesTheCallLate)
{
    Pipe silent;
    const LimitedCall call(20, at(10, 0));
    EXPECT_EQ(0, waitUntilReadable(silent.ends[0]));
    EXPECT_EQ(1, callHasExpired()) << "whatever the clock says";
}

TEST(WaitWithADeadline, EndsBeforeItWhenThereIsSomethingToDo)
{
    Pipe written;
    ASSERT_EQ(1, write(written.ends[1], "x", 1));
    const LimitedCall call(60000, at(10, 0));
    EXPECT_EQ(1, waitUntilReadable(written.ends[0]));
    EXPECT_EQ(1, waitUntilWritable(written.ends[1]));
    EXPECT_EQ(0, callHasExpired());
}

TEST(WaitWithADeadline, ReportsADescriptorThatIsNone)
{
    int gone = -1;
    {
        const Pipe closed;
        gone = closed.ends[0];
    }
    const LimitedCall call(60000, at(10, 0));
    errno = 0;
    EXPECT_EQ(-1, waitUntilReadable(gone));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(0, callHasExpired());
}

TEST(WaitWithADeadline, ThatWasInAHurryLeavesTheNextCallItsTime)
{
    Pipe silent;
    standing = at(1000000, 0); // behind any deadline of an earlier case
    setHurry(1);
    EXPECT_EQ(0, waitUntilReadable(silent.ends[0]));
    setHurry(0);
    const LimitedCall call(1000, at(10, 0));
    EXPECT_EQ(0, callHasExpired());
}

// ---- Locks --------------------------------------------------------------------------------------------------------

TEST(LockWithADeadline, IsTakenWhenItIsFree)
{
    stapilock lock = {};
    ASSERT_EQ(0, initializeLock(&lock));
    const LimitedCall call(60000, at(10, 0));
    EXPECT_EQ(1, requestLockInTime(&lock));
    EXPECT_EQ(0, releaseLock(&lock));
    EXPECT_EQ(0, callHasExpired());
    EXPECT_EQ(0, destroyLock(&lock));
}

TEST(LockWithADeadline, ThatWasNeverSetUpIsRefusedAsEver)
{
    stapilock lock = {};
    const LimitedCall call(60000, at(10, 0));
    EXPECT_EQ(1, requestLockInTime(&lock)) << "the same as without a deadline";
    EXPECT_EQ(0, lock.initialized);
}

// The clock of the library stands near its start: by that of the mutex, both ends of the wait have long passed.
TEST(LockWithADeadline, IsGivenUpWhenAnotherThreadHoldsIt)
{
    for (long lateAt : {0L, 980000000L, 990000000L}) {
        stapilock lock = {};
        ASSERT_EQ(0, initializeLock(&lock));
        ASSERT_EQ(0, requestLock(&lock));
        int taken = -1;
        int late = -1;
        std::thread other([&] {
            const LimitedCall call(1000, at(0, 0));
            if (lateAt != 0) standing = at(5, lateAt);
            taken = requestLockInTime(&lock);
            late = callHasExpired();
        });
        other.join();
        EXPECT_EQ(0, taken);
        EXPECT_EQ(1, late);
        EXPECT_EQ(0, releaseLock(&lock));
        EXPECT_EQ(0, destroyLock(&lock));
    }
}

// A call that is late already still has 20 milliseconds.
TEST(LockWithADeadline, IsWaitedForUntilThenAndALittleWhenLate)
{
    stapilock lock = {};
    ASSERT_EQ(0, initializeLock(&lock));
    const LimitedCall call(1500, at(10, 0));
    const std::pair<timespec, timespec> cases[] = {
        {at(10, 0), at(11, 500000000)},
        {at(11, 499999999), at(11, 500000000)},
        {at(11, 500000000), at(11, 520000000)},
        {at(12, 979999999), at(12, 999999999)},
        {at(12, 980000000), at(13, 0)},
        {at(12, 999999999), at(13, 19999999)},
    };
    for (const auto& [now, end] : cases) {
        standing = now;
        wallStanding = at(now.tv_sec + 5000, now.tv_nsec);
        ASSERT_EQ(1, requestLockInTime(&lock));
        ASSERT_EQ(0, releaseLock(&lock));
        EXPECT_EQ(end.tv_sec, lockUntil.tv_sec - (lockClock == CLOCK_REALTIME ? 5000 : 0));
        EXPECT_EQ(end.tv_nsec, lockUntil.tv_nsec);
    }
    EXPECT_EQ(0, destroyLock(&lock));
}
