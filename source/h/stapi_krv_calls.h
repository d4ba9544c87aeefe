/* Calls in progress: which connections are busy, which were interrupted, and which were closed meanwhile.
 *
 * A call that uses a connection marks it busy, so that other threads leave what it changes alone. A thread that wants a
 * busy connection gone shuts its socket down, which ends every wait on it, and leaves the rest to the call: that is the
 * one place that knows when nothing uses the connection any more.
 *
 * Threads: everything is done under gtlLock, except that a call ends undisturbed, or gives up on the lock, without it.
 */
#ifndef STAPI_KRV_CALLS_H
#define STAPI_KRV_CALLS_H

#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

typedef struct _CallSlot CallSlot;

/* What became of a call's connection while the call went on. */
typedef enum _CallOutcome {
    CALL_UNDISTURBED,
    CALL_INTERRUPTED, /* the connection is still on the list */
    CALL_ABANDONED    /* another thread closed it: it is off the list, and the call's to destroy */
} CallOutcome;

/* Marks the token busy by the calling thread. NULL if there are too many calls in progress. */
CallSlot* enterCall(Internal_GatewayToken_t* token);

/* Ends the call if nobody disturbed it: 1, and the token is not touched after that. Takes no lock. */
int leaveUndisturbed(CallSlot* slot);

/* Ends the call, whatever became of it. The caller holds gtlLock, and takes the token off the list before it lets go of
 * the lock, unless it was abandoned. */
CallOutcome leaveCall(CallSlot* slot);

/* For a call that could not get gtlLock in time, and whose connection must not be used again: ends the call and leaves
 * the token to the next holder of gtlLock. 1; or 0 if it was abandoned, and is the call's to destroy. */
int condemnCall(CallSlot* slot);

/* The same before the token could even be looked up: the pointer is only compared, with the calling thread's tokens. */
void condemnToken(Internal_GatewayToken_t* token);

/* Hands out what one call condemned: 1, the pointer and the thread that it must belong to. 0 if there is nothing left.
 * The caller holds gtlLock. */
int takeCondemned(Internal_GatewayToken_t** tokenPtr, ThreadId* ownerPtr);

/* In a forked child, where no call is in progress: those of the parent's threads are not its own. */
void forgetCalls(void);

/* 1 if somebody interrupted the calling thread's call. */
int callIsInterrupted(void);

/* 1 if a call is in progress on the token. */
int isBusy(Internal_GatewayToken_t* token);

/* Ends the wait of the call in progress on the token, or else of the next one. */
void interruptToken(Internal_GatewayToken_t* token);

/* Interrupts the call in progress on the token and makes it destroy the token when it ends: 1. Or 0 if there is none,
 * and the token is the caller's to destroy. The caller takes it off the list in either case. */
int abandonToken(Internal_GatewayToken_t* token);

#ifdef __cplusplus
}
#endif

#endif
