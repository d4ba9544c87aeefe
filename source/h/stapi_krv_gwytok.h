/* Gateway tokens and the Gateway Token List (GTL), the process-wide list of open connections. */
#ifndef STAPI_KRV_GWYTOK_H
#define STAPI_KRV_GWYTOK_H

#include "stapi_krv_calls.h"
#include "stapi_krv_lock.h"
#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the list's own functions; the API never returns them. */
#define GTL_EMPTY 1001
#define GTL_NULL_TARGET 1002
#define GTL_TOKEN_NOT_FOUND 1003
#define GTL_TOKEN_FOUND 1004
#define GTL_RUNAWAY 1005
#define GTL_NOTHING_TO_DO 1006

/* A walk of the list never takes more steps than this. */
#define GTL_RUNAWAY_LIMIT 256

/* Size of the text buffers for formatGatewayToken. */
#define FORMATTED_TOKEN_SIZE 512

/* lockRequired of deleteGatewayToken. */
enum { GTL_LOCK_HELD = 0, GTL_LOCK_REQUIRED = 1 };

extern stapilock gtlLock; /* guards the two pointers and every nextGwyTokPtr */
extern Internal_GatewayToken_t* gtListHeadPtr;
extern Internal_GatewayToken_t* gtListTailPtr; /* stale while the head is NULL */

/* Initialises gtlLock: 0, 1 if it was initialised already, -2. */
int initGTL(void);

/* Makes a token, puts it on the list, connects it and asks for the protocol version. 0 and *gwTokPtr; or a negative API
 * code with nothing left behind. */
int createGatewayToken(KRV_GatewayToken_t* gwTokPtr, char* hostname, int port);

/* Connects the token. 0, -132, -134, -135, -136, -118. */
int openStatsSocket(Internal_GatewayToken_t* gwTokPtr, char* hostname, int port);

/* 0 if the token is on the list and belongs to the calling thread; -101, -123, -124. */
int verifyGatewayToken(Internal_GatewayToken_t* gwTokPtr);

/* Unlinks the token, closes its connection and frees it. With GTL_LOCK_REQUIRED the lock is held while the token is
 * looked up and unlinked, not while the gateway is talked to; a token that is busy is unlinked and interrupted, and its
 * call does the rest. With GTL_LOCK_HELD the caller holds gtlLock and the token is the head of the list.
 * 0, -108, -100, -101, or -122 if the call's deadline came before the lock. */
int deleteGatewayToken(KRV_GatewayToken_t* gwTokPtr, int lockRequired);

/* Deletes all tokens, GTL_RUNAWAY_LIMIT at most, as deleteGatewayToken with GTL_LOCK_REQUIRED does. 0, GTL_RUNAWAY,
 * GTL_NOTHING_TO_DO. */
int deleteGatewayTokens(void);

/* Describes the token, or NULL, in at most FORMATTED_TOKEN_SIZE bytes. 0, -103. */
int formatGatewayToken(Internal_GatewayToken_t* gwTokPtr, char* formattedToken);

/* Writes the list with its result sets to the trace destination, whatever the level. 0, GTL_RUNAWAY,
 * GTL_NOTHING_TO_DO. */
int dumpGatewayTokens(void);

/* Appends the token to the list. 0, -108, -115. */
int chainGatewayToken(Internal_GatewayToken_t* newToken);

/* Looks for the token; the caller holds gtlLock. GTL_TOKEN_FOUND, with the token before it (NULL for the head) in
 * *parentTokenPtrPtr where that pointer is not NULL; or another GTL_ code. */
int findGatewayToken(Internal_GatewayToken_t* targetToken, Internal_GatewayToken_t** parentTokenPtrPtr);

extern const char version4stapi_krv_gwytok[];

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

/* createGatewayToken and verifyGatewayToken, which on success leave the token marked busy by the calling thread, until
 * leaveUndisturbed or removeAfterCall. verifyForCall gives -122 if the deadline came before gtlLock, and has condemned
 * the token. */
int createForCall(KRV_GatewayToken_t* gwTokPtr, char* hostname, int port, CallSlot** slotPtr);
int verifyForCall(Internal_GatewayToken_t* gwTokPtr, CallSlot** slotPtr);

/* Ends the call on a token that is not to be used again, and deletes the token, as deleteGatewayToken does. Between the
 * two nobody else can close it, and put another connection in its place. */
void removeAfterCall(KRV_GatewayToken_t* gwTokPtr, CallSlot* slot);

/* In a forked child: makes gtlLock free, whoever of the parent's threads holds it, and the list whole. What a thread of
 * the parent was in the middle of is left alone from then on. */
void forgetListHolders(void);

/* Interrupts the call on the token, or the next one. 0 or -101. */
int interruptGatewayToken(Internal_GatewayToken_t* token);

#ifdef __cplusplus
}
#endif

#endif
