/* A mutex that knows whether it was initialised, and the library's use of it.
 *
 * The library has exactly two locks, traceLock (stapi_krv_diag) and gtlLock (stapi_krv_gwytok), both in static storage.
 * Where both are held, gtlLock is taken first.
 */
#ifndef STAPI_KRV_LOCK_H
#define STAPI_KRV_LOCK_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Values of the marker; every other value counts as never initialised. */
#define STAPILOCK_INITIALIZED ((int32_t)0xFFEEDDCCu)
#define STAPILOCK_DESTROYED ((int32_t)0xCCDDEEFFu)

typedef struct _stapilock {
    pthread_mutex_t lock;
    int32_t initialized;
} stapilock;

/* 0 on success, 1 if the lock was initialised already, -2 if the mutex could not be initialised. */
int initializeLock(stapilock* lockPtr);

/* 0 on success, -1 if the lock is not initialised (nothing is locked), -4 if locking failed. */
int requestLock(stapilock* lockPtr);

/* 0 on success, -1 if the lock is not initialised, -5 if unlocking failed. */
int releaseLock(stapilock* lockPtr);

/* The marker itself, STAPILOCK_INITIALIZED for a usable lock. */
int isLockInitialized(stapilock* lockPtr);

/* 0 on success, -1 if the lock is not initialised, -4 if the mutex could not be destroyed. */
int destroyLock(stapilock* lockPtr);

extern const char version4stapi_krv_lock[];

#ifdef __cplusplus
}
#endif

#endif
