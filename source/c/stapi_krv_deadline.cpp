// The calling thread's deadline, and the waits that keep it.
//
// Threads: the state here is each thread's own.

#include "stapi_krv_deadline.h"

#include <cerrno>
#include <ctime>
#include <sys/select.h>

#include "krvstats.h"
#include "stapi_krv_descriptorset.h"

#if defined(__SANITIZE_THREAD__)
#define KRVSTATS_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KRVSTATS_THREAD_SANITIZER
#endif
#endif

namespace {

constexpr long MILLISECONDS_PER_SECOND = 1000;
constexpr long MICROSECONDS_PER_SECOND = 1000000;
constexpr long NANOSECONDS_PER_SECOND = 1000000000;
constexpr long NANOSECONDS_PER_MICROSECOND = 1000;
constexpr long NANOSECONDS_PER_MILLISECOND = 1000000;

// A call that is late already may still wait this long for the list, to take its connection off it.
constexpr long LATE_LOCK_NANOSECONDS = 20 * NANOSECONDS_PER_MILLISECOND;

struct CallLimit {
    int milliseconds; // 0: none
    int depth;        // of calls in progress
    bool expired;
    bool hurried;
    timespec end;
};

// initial-exec: the loader's library, which other models call at run time, is not to be needed.
__attribute__((tls_model("initial-exec"))) thread_local CallLimit limit = {};

timespec later(timespec time, long nanoseconds)
{
    time.tv_sec += nanoseconds / NANOSECONDS_PER_SECOND;
    time.tv_nsec += nanoseconds % NANOSECONDS_PER_SECOND;
    if (time.tv_nsec >= NANOSECONDS_PER_SECOND) {
        ++time.tv_sec;
        time.tv_nsec -= NANOSECONDS_PER_SECOND;
    }
    return time;
}

timespec now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

// What is left before the deadline, rounded up to whole microseconds; nothing once it has passed.
timeval remaining()
{
    const timespec time = now();
    timeval left = {};
    left.tv_sec = limit.end.tv_sec - time.tv_sec;
    long nanoseconds = limit.end.tv_nsec - time.tv_nsec;
    if (nanoseconds < 0) {
        --left.tv_sec;
        nanoseconds += NANOSECONDS_PER_SECOND;
    }
    if (left.tv_sec < 0) return timeval{};
    left.tv_usec = (nanoseconds + NANOSECONDS_PER_MICROSECOND - 1) / NANOSECONDS_PER_MICROSECOND;
    if (left.tv_usec == MICROSECONDS_PER_SECOND) {
        ++left.tv_sec;
        left.tv_usec = 0;
    }
    return left;
}

// As pthread_mutex_clocklock on the monotonic clock.
int lockUntil(pthread_mutex_t* mutex, const timespec& until)
{
#ifdef KRVSTATS_THREAD_SANITIZER
    // It does not know that call, and would take the lock for free.
    const timespec monotonic = now();
    timespec wall = {};
    clock_gettime(CLOCK_REALTIME, &wall);
    wall.tv_sec += until.tv_sec - monotonic.tv_sec;
    wall.tv_nsec += until.tv_nsec - monotonic.tv_nsec;
    if (wall.tv_nsec < 0) {
        --wall.tv_sec;
        wall.tv_nsec += NANOSECONDS_PER_SECOND;
    }
    const timespec wallUntil = later(wall, 0);
    return pthread_mutex_timedlock(mutex, &wallUntil);
#else
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &until);
#endif
}

bool isNothing(const timeval& wait)
{
    return wait.tv_sec == 0 && wait.tv_usec == 0;
}

int waitFor(int socketDesc, bool readable)
{
    DescriptorSet set;
    if (makeDescriptorSet(&set, socketDesc) != 0) return KRVSTAT_OUT_OF_MEMORY;
    fd_set* const bits = asFdSet(&set);
    int rc;
    do {
        timeval left = {};
        if (callIsLimited()) left = remaining();
        rc = select(socketDesc + 1, readable ? bits : nullptr, readable ? nullptr : bits, nullptr,
            callIsLimited() ? &left : nullptr);
    } while (rc == -1 && errno == EINTR);
    freeDescriptorSet(&set);
    if (rc == 0) limit.expired = true;
    return rc;
}

} // namespace

void setCallLimit(int milliseconds)
{
    limit.milliseconds = milliseconds;
}

void beginCall()
{
    if (limit.depth++ > 0 || limit.milliseconds == 0) return;
    limit.end = now();
    limit.end.tv_sec += limit.milliseconds / MILLISECONDS_PER_SECOND;
    limit.end = later(limit.end, limit.milliseconds % MILLISECONDS_PER_SECOND * NANOSECONDS_PER_MILLISECOND);
    limit.expired = false;
}

void endCall()
{
    if (--limit.depth == 0) limit.expired = false;
}

int callIsLimited()
{
    return limit.hurried || (limit.depth > 0 && limit.milliseconds > 0);
}

void setHurry(int on)
{
    limit.hurried = on != 0;
}

int callHasExpired()
{
    if (!callIsLimited()) return 0;
    if (limit.hurried) return 1;
    if (!limit.expired) limit.expired = isNothing(remaining());
    return limit.expired;
}

void limitWait(struct timeval* wait)
{
    if (!callIsLimited()) return;
    const timeval left = remaining();
    if (timercmp(&left, wait, <)) *wait = left;
}

int waitUntilReadable(int socketDesc)
{
    return waitFor(socketDesc, true);
}

int waitUntilWritable(int socketDesc)
{
    return waitFor(socketDesc, false);
}

int requestLockInTime(stapilock* lockPtr)
{
    if (!callIsLimited() || isLockInitialized(lockPtr) != STAPILOCK_INITIALIZED) {
        requestLock(lockPtr);
        return 1;
    }
    const timespec until = callHasExpired() ? later(now(), LATE_LOCK_NANOSECONDS) : limit.end;
    if (lockUntil(&lockPtr->lock, until) != ETIMEDOUT) return 1;
    limit.expired = true;
    return 0;
}
