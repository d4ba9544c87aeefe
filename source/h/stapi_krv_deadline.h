/* The calling thread's deadline, and the waits that keep it.
 *
 * A call of the API that talks to a gateway stands between beginCall and endCall. While it does, and the thread has set a
 * limit, every wait of it ends at the deadline; without a limit the waits are without end.
 */
#ifndef STAPI_KRV_DEADLINE_H
#define STAPI_KRV_DEADLINE_H

#include <sys/time.h>

#include "stapi_krv_lock.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

/* The limit of the calling thread's calls in milliseconds, 0 for none. */
void setCallLimit(int milliseconds);

/* Calls nest (one API call may use another): the outermost pair counts. */
void beginCall(void);
void endCall(void);

/* 1 if the call in progress has a deadline. */
int callIsLimited(void);

/* 1 if a wait of the call in progress was ended by its deadline, or the deadline has passed. */
int callHasExpired(void);

/* While on, everything counts as late: nothing waits. For what a call does on behalf of another. */
void setHurry(int on);

/* Cuts *wait down to what is left before the deadline. */
void limitWait(struct timeval* wait);

/* Waits until the socket can be read (or written), or the deadline: 1 or more, 0 at the deadline, or select's negative
 * result with its errno (-111 if there was no memory). */
int waitUntilReadable(int socketDesc);
int waitUntilWritable(int socketDesc);

/* As requestLock, but 0 (false) if the deadline came first: the lock is not held then. A lock that is refused for
 * another reason counts as taken, as everywhere in the library. */
int requestLockInTime(stapilock* lockPtr);

#ifdef __cplusplus
}
#endif

#endif
