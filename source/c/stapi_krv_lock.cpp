// A mutex that knows whether it was initialised.
//
// Adds one thing to the bare mutex: a request on a lock that was never set up is refused with a code instead of touching
// an uninitialised mutex. Failures are written straight to the trace stream: the trace's own lock may be the one that
// failed.
// Threads: initialising a lock is not serialised here; stapiInit does that for both locks of the library.

#include "stapi_krv_lock.h"

#include <cerrno>

#include "stapi_krv_diag.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_lock[] = KRVSTATS_VERSION_BANNER;

namespace {

bool isUsable(const stapilock* lockPtr)
{
    return lockPtr->initialized == STAPILOCK_INITIALIZED;
}

} // namespace

int initializeLock(stapilock* lockPtr)
{
    if (isUsable(lockPtr)) return 1;
    if (pthread_mutex_init(&lockPtr->lock, nullptr) != 0) {
        traceExcUnlocked(3101, ".initializeLock(lockPtr=%p) Lock initialization failed errno=%d\n",
            static_cast<void*>(lockPtr), errno);
        return -2;
    }
    lockPtr->initialized = STAPILOCK_INITIALIZED;
    return 0;
}

int requestLock(stapilock* lockPtr)
{
    if (!isUsable(lockPtr)) {
        traceExcUnlocked(3104, ".requestLock(lockPtr=%p) Lock not initialized\n", static_cast<void*>(lockPtr));
        return -1;
    }
    if (pthread_mutex_lock(&lockPtr->lock) != 0) {
        traceExcUnlocked(
            3105, ".requestLock(lockPtr=%p) Lock request failed errno=%d\n", static_cast<void*>(lockPtr), errno);
        return -4;
    }
    return 0;
}

int releaseLock(stapilock* lockPtr)
{
    if (!isUsable(lockPtr)) {
        traceExcUnlocked(3108, ".releaseLock(lockPtr=%p) Lock not initialized\n", static_cast<void*>(lockPtr));
        return -1;
    }
    if (pthread_mutex_unlock(&lockPtr->lock) != 0) {
        traceExcUnlocked(
            3109, ".releaseLock(lockPtr=%p) Lock release failed errno=%d\n", static_cast<void*>(lockPtr), errno);
        return -5;
    }
    return 0;
}

int isLockInitialized(stapilock* lockPtr)
{
    return lockPtr->initialized;
}

int destroyLock(stapilock* lockPtr)
{
    if (!isUsable(lockPtr)) {
        traceExcUnlocked(3112, ".destroyLock(lockPtr=%p) Lock not initialized\n", static_cast<void*>(lockPtr));
        return -1;
    }
    if (pthread_mutex_destroy(&lockPtr->lock) != 0) {
        traceExcUnlocked(
            3113, ".destroyLock(lockPtr=%p) Lock destroy failed errno=%d\n", static_cast<void*>(lockPtr), errno);
        return -4;
    }
    lockPtr->initialized = STAPILOCK_DESTROYED;
    return 0;
}
