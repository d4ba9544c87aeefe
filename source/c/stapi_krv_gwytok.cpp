// Gateway tokens and the Gateway Token List (GTL), the process-wide list of open connections.
//
// A handle from the application is never looked into before it was found on this list. The list is singly linked, tokens
// are appended at the tail, and no walk takes more than GTL_RUNAWAY_LIMIT steps, so that a damaged list cannot hang it.
// Threads: gtlLock guards the two ends and every link, and is never held while the gateway is talked to. The other fields
// of a token belong to the thread that made it; those that a dump or an interruption by another thread looks at are read
// and written as atomics.

#include "stapi_krv_gwytok.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "stapi_krv_caller.h"
#include "stapi_krv_deadline.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwycon.h"
#include "stapi_krv_pipesignal.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_statquery.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_gwytok[] = KRVSTATS_VERSION_BANNER;

stapilock gtlLock = {};
Internal_GatewayToken_t* gtListHeadPtr = nullptr;
Internal_GatewayToken_t* gtListTailPtr = nullptr;

namespace {

constexpr int TOKEN_SIZE = static_cast<int>(sizeof(Internal_GatewayToken_t));

void setStatus(Internal_GatewayToken_t* token, int32_t connStatus)
{
    __atomic_store_n(&token->connStatus, connStatus, __ATOMIC_RELAXED);
}

// More than a process has descriptors for: a walk that is longer goes round in a damaged list.
constexpr int MOST_TOKENS = 1 << 20;

// A token that has just been opened is described without gtlLock, while others change its link.
void setNext(Internal_GatewayToken_t* token, Internal_GatewayToken_t* next)
{
    __atomic_store_n(&token->nextGwyTokPtr, next, __ATOMIC_RELAXED);
}

// Gives back a token that is not on the list and has no socket.
void discardToken(Internal_GatewayToken_t* token)
{
    if (token->connRSPtr) deleteResultSet(&token->connRSPtr);
    free(token->resultSetBuf);
    free(token->protocolVersion);
    free(token);
}

// Allocates a token with its result set and buffers, bound to the calling thread. 0 and *tokenPtr, or a code with
// nothing left behind. A version buffer that could not be had is missed later, when the version text arrives.
int makeToken(Internal_GatewayToken_t** tokenPtr, int port)
{
    auto* token = static_cast<Internal_GatewayToken_t*>(malloc(sizeof(Internal_GatewayToken_t)));
    traceDebug(2038, ".createGatewayToken Called malloc for %d bytes. rc=%p\n", TOKEN_SIZE, static_cast<void*>(token));
    if (!token) {
        traceExc(2039, ".createGatewayToken Failed to allocate %d bytes\n", TOKEN_SIZE);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    memset(token, 0, sizeof *token);
    memcpy(token->eyecatcher, "KRVGWTOK", sizeof token->eyecatcher);
    token->connStatus = CONNECTION_CREATED;
    token->portNumber = static_cast<uint32_t>(port);
    token->socketDescriptor = -1;

    char eyecatcher[] = GATEWAY_RESULT_SET_EYECATCHER;
    const int resultSetRc = createResultSet(&token->connRSPtr, eyecatcher, RESULT_SET_OWNER_API);
    if (resultSetRc != KRVSTAT_OK) {
        traceExc(2036, ".createGatewayToken Creation of resultset failed rc=%d\n", resultSetRc);
        discardToken(token);
        return resultSetRc;
    }

    getPidTid(&token->owningPid, &token->owningTid);
    token->protocolVersion = static_cast<char*>(malloc(PROTOCOL_VERSION_SIZE));
    token->resultSetBuf = static_cast<char*>(malloc(INITIAL_RESULT_SET_SIZE + RESULT_SET_ROOM));
    traceDebug(2040, ".createGatewayToken Called malloc for %d bytes. rc=%p\n", INITIAL_RESULT_SET_SIZE,
        static_cast<void*>(token->resultSetBuf));
    if (!token->resultSetBuf) {
        traceExc(2041, ".createGatewayToken Failed to allocate %d bytes.\n", INITIAL_RESULT_SET_SIZE);
        discardToken(token);
        return KRVSTAT_OUT_OF_MEMORY;
    }

    token->resultSetBufLen = INITIAL_RESULT_SET_SIZE;
    memset(token->resultSetBuf, 0, INITIAL_RESULT_SET_SIZE + RESULT_SET_ROOM);
    addTerminator(token->resultSetBuf);
    token->connRSPtr->rsBuffPtr = token->resultSetBuf;
    token->connRSPtr->rsBuffLen = token->resultSetBufLen;
    *tokenPtr = token;
    return KRVSTAT_OK;
}

// The API's code for a failed connect.
int mapConnectResult(int connectRc)
{
    switch (connectRc) {
    case 0: return KRVSTAT_OK;
    case CONNECT_HOST_NOT_RESOLVED: return KRVSTAT_HOST_NOT_RESOLVED;
    case CONNECT_TIMED_OUT: return KRVSTAT_CONNECT_TIMEOUT;
    case CONNECT_REFUSED: return KRVSTAT_CONNECTION_REFUSED;
    case CONNECT_NETWORK_UNREACHABLE: return KRVSTAT_NETWORK_UNREACHABLE;
    default: return KRVSTAT_CONNECT_FAILED;
    }
}

// Closes what the token holds open and frees what it owns; the record itself stays.
void emptyToken(Internal_GatewayToken_t* token)
{
    if (token->socketDescriptor >= 0) {
        // A forked child lets go of its descriptor and says nothing: the conversation is its parent's.
        const int closeRc = token->owningPid == currentProcess() ? closeConnection(&token->socketDescriptor)
                                                         : close(token->socketDescriptor);
        setStatus(token, closeRc == 0 ? CONNECTION_CLOSED : CONNECTION_CLOSE_FAILED);
    }
    const int resultSetRc = deleteResultSet(&token->connRSPtr);
    if (resultSetRc != KRVSTAT_OK) {
        traceExc(2037, ".deleteGatewayToken Unable to delete ResultSet. rc=%d\n", resultSetRc);
    }
    traceDebug(
        2043, ".deleteGatewayToken About to free resultSetBuffer (%p)\n", static_cast<void*>(token->resultSetBuf));
    free(token->resultSetBuf);
    token->resultSetBuf = nullptr;
    traceDebug(2044, ".deleteGatewayToken About to free protocolVersion String (%p)\n",
        static_cast<void*>(token->protocolVersion));
    free(token->protocolVersion);
    token->protocolVersion = nullptr;
}

// Takes the token off the list; without a parent it is the head. The caller holds gtlLock.
void unlinkToken(Internal_GatewayToken_t* token, Internal_GatewayToken_t* parent)
{
    if (!parent) {
        gtListHeadPtr = token->nextGwyTokPtr;
        return;
    }
    setNext(parent, token->nextGwyTokPtr);
    if (!parent->nextGwyTokPtr) gtListTailPtr = parent;
}

// Ends a token that is off the list and that no call uses.
void destroyToken(const KRV_GatewayToken_t* gwTokPtr, Internal_GatewayToken_t* token)
{
    emptyToken(token);
    traceDebug(2010, ".deleteGatewayToken(&gwTokPtr=%p) Free gateway token(%p) \n", static_cast<const void*>(gwTokPtr),
        static_cast<void*>(token));
    const volatile uintptr_t freed = reinterpret_cast<uintptr_t>(token); // volatile: only a number from here on
    free(token);
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): nothing is read through the number
    traceDebug(2011, ".deleteGatewayToken(&gwTokPtr=%p) Freed gateway token(%p) \n", static_cast<const void*>(gwTokPtr),
        reinterpret_cast<void*>(freed));
}

// Takes the token off the list. True if it is the caller's to destroy; false if a call in progress will do it. The
// caller holds gtlLock.
bool removeToken(Internal_GatewayToken_t* token, Internal_GatewayToken_t* parent)
{
    unlinkToken(token, parent);
    return !abandonToken(token);
}

// Condemned tokens on their way from the list to their end; guarded by gtlLock.
Internal_GatewayToken_t* lateTokens = nullptr;

// Finds a token of ours, wherever it stands: applications may open more than findGatewayToken looks at. The token if it
// is on the list, else NULL, or a token in a damaged list, that the walk ended at. *parentPtr receives the one before it.
// The caller holds gtlLock.
Internal_GatewayToken_t* walkTo(const Internal_GatewayToken_t* wanted, Internal_GatewayToken_t** parentPtr)
{
    *parentPtr = nullptr;
    Internal_GatewayToken_t* token = gtListHeadPtr;
    for (int steps = 0; token && token != wanted && steps < MOST_TOKENS; ++steps) {
        *parentPtr = token;
        token = token->nextGwyTokPtr;
    }
    return token;
}

// Takes the token off the list for unlockList to destroy, if it is there and belongs to that thread.
void removeCondemned(const Internal_GatewayToken_t* condemned, ThreadId owner)
{
    Internal_GatewayToken_t* parent;
    Internal_GatewayToken_t* token = walkTo(condemned, &parent);
    ProcessId currentPid;
    getPidTid(&currentPid, nullptr);
    if (token != condemned || token->owningPid != currentPid || !compareTids(token->owningTid, owner)) return;
    if (!removeToken(token, parent)) return;
    token->nextGwyTokPtr = lateTokens;
    lateTokens = token;
}

// Takes gtlLock, and off the list what calls had to leave there that could not get the lock in time. False if this call
// cannot either.
bool lockList()
{
    if (!requestLockInTime(&gtlLock)) return false;
    Internal_GatewayToken_t* condemned = nullptr;
    ThreadId owner = {};
    while (takeCondemned(&condemned, &owner)) {
        if (condemned) removeCondemned(condemned, owner);
    }
    return true;
}

void unlockList()
{
    Internal_GatewayToken_t* late = lateTokens;
    lateTokens = nullptr;
    releaseLock(&gtlLock);
    while (late) {
        Internal_GatewayToken_t* const next = late->nextGwyTokPtr;
        setHurry(1);
        destroyToken(&late, late);
        setHurry(0);
        late = next;
    }
}

// The body of deleteGatewayToken for a token that is not NULL; with the slot of the caller's own call on it, or NULL.
int deleteToken(
    const KRV_GatewayToken_t* gwTokPtr, Internal_GatewayToken_t* token, int lockRequired, CallSlot* slot)
{
    if (lockRequired != GTL_LOCK_REQUIRED) {
        if (removeToken(token, nullptr)) destroyToken(gwTokPtr, token);
        return KRVSTAT_OK;
    }
    if (!lockList()) {
        if (slot && !condemnCall(slot)) destroyToken(gwTokPtr, token);
        return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    Internal_GatewayToken_t* parent = nullptr;
    bool ours = slot && leaveCall(slot) == CALL_ABANDONED;
    const bool found = ours || findGatewayToken(token, &parent) == GTL_TOKEN_FOUND
        || (slot && walkTo(token, &parent) == token);
    if (found && !ours) ours = removeToken(token, parent);
    unlockList();
    if (!found) return KRVSTAT_GATEWAY_TOKEN_NOT_FOUND;
    if (ours) destroyToken(gwTokPtr, token);
    return KRVSTAT_OK;
}

// Appends the token, marked busy if slotPtr is not NULL. The caller holds gtlLock.
int appendToken(Internal_GatewayToken_t* newToken, CallSlot** slotPtr)
{
    if (gtListHeadPtr && !gtListTailPtr) {
        traceExc(2020, ".chainGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n",
            static_cast<void*>(gtListHeadPtr), static_cast<void*>(gtListTailPtr));
        return KRVSTAT_GTL_CORRUPT;
    }
    if (slotPtr) {
        *slotPtr = enterCall(newToken);
        if (!*slotPtr) return KRVSTAT_OUT_OF_MEMORY;
    }
    if (gtListHeadPtr) {
        setNext(gtListTailPtr, newToken);
    } else {
        gtListHeadPtr = newToken;
    }
    gtListTailPtr = newToken;
    return KRVSTAT_OK;
}

int chainToken(Internal_GatewayToken_t* newToken, CallSlot** slotPtr)
{
    traceEntry(2019, ".chainGatewayToken(newToken=%p)\n", static_cast<void*>(newToken));
    int gwyTokRc = KRVSTAT_OK;
    if (!newToken) {
        gwyTokRc = KRVSTAT_NULL_GATEWAY_TOKEN_POINTER;
        traceExc(2021, ".chainGatewayToken() Chain request was for a null token\n");
    } else if (!lockList()) {
        gwyTokRc = KRVSTAT_CONNECT_TIMEOUT;
    } else {
        gwyTokRc = appendToken(newToken, slotPtr);
        unlockList();
    }
    traceExit(2022, ".chainGatewayToken(newToken=%p) rc=%d\n", static_cast<void*>(newToken), gwyTokRc);
    return gwyTokRc;
}

// The body of verifyGatewayToken; a token that passes is marked busy if slotPtr is not NULL. The caller holds gtlLock.
int checkToken(Internal_GatewayToken_t* gwTokPtr, CallSlot** slotPtr)
{
    ProcessId currentPid;
    ThreadId currentTid;
    getPidTid(&currentPid, &currentTid);
    const int findRc = findGatewayToken(gwTokPtr, nullptr);
    if (findRc != GTL_TOKEN_FOUND) {
        traceExc(2007, ".verifyGatewayToken(&gwTokPtr=%p) Gateway token not found - findRc=%d\n",
            static_cast<void*>(gwTokPtr), findRc);
        return KRVSTAT_GATEWAY_TOKEN_NOT_FOUND;
    }
    if (currentPid != gwTokPtr->owningPid) {
        traceExc(2032, ".verifyGatewayToken PID mismatch: currentPid=%d, owningPid=%d\n", static_cast<int>(currentPid),
            static_cast<int>(gwTokPtr->owningPid));
        return KRVSTAT_PID_MISMATCH;
    }
    if (!compareTids(currentTid, gwTokPtr->owningTid)) {
        traceExc(2033, ".verifyGatewayToken TID mismatch: currentTid=%d, owningTid=%d\n", static_cast<int>(currentTid),
            static_cast<int>(gwTokPtr->owningTid));
        return KRVSTAT_TID_MISMATCH;
    }
    if (slotPtr) {
        *slotPtr = enterCall(gwTokPtr);
        if (!*slotPtr) return KRVSTAT_OUT_OF_MEMORY;
    }
    return KRVSTAT_OK;
}

int verifyToken(Internal_GatewayToken_t* gwTokPtr, CallSlot** slotPtr)
{
    traceEntry(2006, ".verifyGatewayToken(&gwTokPtr=%p)\n", static_cast<void*>(gwTokPtr));
    int gwyTokRc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    if (lockList()) {
        gwyTokRc = checkToken(gwTokPtr, slotPtr);
        unlockList();
    } else if (slotPtr) {
        condemnToken(gwTokPtr);
    }
    traceExit(2008, ".verifyGatewayToken(&gwTokPtr=%p) rc=%d\n", static_cast<void*>(gwTokPtr), gwyTokRc);
    return gwyTokRc;
}

// Deletes the head of the list, the deleted'th in a row. False if there is none, or the deadline came first. The lines are
// those of deleteGatewayToken for a caller that holds the lock, but the lock is given back before the gateway is talked
// to.
bool deleteHead(int deleted)
{
    if (!lockList()) return false;
    Internal_GatewayToken_t* indexToken = gtListHeadPtr;
    bool ours = false;
    if (indexToken) {
        char text[FORMATTED_TOKEN_SIZE];
        formatGatewayToken(indexToken, text);
        traceEvent(2034, ".deleteGatewayTokens(indexToken=%p) GTL entry %4.4d: %s\n", static_cast<void*>(indexToken),
            deleted, text);
        traceEntry(2009, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d)\n", static_cast<void*>(&indexToken),
            GTL_LOCK_HELD);
        ours = removeToken(indexToken, nullptr);
    }
    unlockList();
    if (!indexToken) return false;
    if (ours) destroyToken(&indexToken, indexToken);
    traceExit(2012, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d) rc=%d\n", static_cast<void*>(&indexToken),
        GTL_LOCK_HELD, KRVSTAT_OK);
    return true;
}

// Ends the call of an open that failed with the code, and the token with it. Returns the code to go on with.
int endFailedOpen(KRV_GatewayToken_t* tokenPtr, CallSlot* slot, int gwyTokRc)
{
    if (callIsInterrupted()) gwyTokRc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    removeAfterCall(tokenPtr, slot);
    return gwyTokRc;
}

void dumpToken(int entryNumber, Internal_GatewayToken_t* token)
{
    char text[FORMATTED_TOKEN_SIZE];
    formatGatewayToken(token, text);
    fprintf(traceStream(), "Gateway Token List entry -%4.4d- : %s\n", entryNumber, text);
    const Internal_ResultSetToken_t* resultSet = token->connRSPtr;
    if (!resultSet || isBusy(token)) return;
    fprintf(traceStream(), "Dump of ResultSet(%p) owner(%s) buffer(%p) cursor(%p)\n",
        static_cast<const void*>(resultSet), resultSet->owner == RESULT_SET_OWNER_API ? "API" : "USR",
        static_cast<void*>(resultSet->rsBuffPtr),
        static_cast<void*>(__atomic_load_n(&resultSet->cursor, __ATOMIC_RELAXED)));
    writeTraceRule();
    traceOutStorage(resultSet->rsBuffPtr, 0, RESULT_SET_TERMINATOR, TRACE_DUMP_WIDTH, 0);
    writeTraceRule();
}

// In a forked child, for a token that a thread of the parent was using: an answer may be half written, without its
// terminator, and what the token points to freed already. Nobody looks at that any more, and it stays allocated.
void disownCall(Internal_GatewayToken_t* token)
{
    token->protocolVersion = nullptr;
    token->resultSetBuf = nullptr;
    Internal_ResultSetToken_t* resultSet = token->connRSPtr;
    if (!resultSet) return;
    resultSet->rsBuffPtr = nullptr;
    resultSet->cursor = nullptr;
}

} // namespace

int initGTL()
{
    traceEntry(2030, ".initGTL()\n");
    const int initLockRc = initializeLock(&gtlLock);
    traceExit(2031, ".initGTL() initLockRc=%d, rc=%d\n", initLockRc,
        initLockRc == 0 || initLockRc == 1 ? KRVSTAT_OK : KRVSTAT_LOCK_INIT_FAILED);
    return initLockRc;
}

void forgetListHolders()
{
    if (isLockInitialized(&gtlLock) == STAPILOCK_INITIALIZED) pthread_mutex_init(&gtlLock.lock, nullptr);
    lateTokens = nullptr;
    Internal_GatewayToken_t* token = gtListHeadPtr;
    for (int steps = 0; token && steps < MOST_TOKENS; ++steps) {
        if (isBusy(token)) disownCall(token);
        gtListTailPtr = token;
        token = token->nextGwyTokPtr;
    }
    forgetCalls();
}

int createForCall(KRV_GatewayToken_t* gwTokPtr, char* hostname, int port, CallSlot** slotPtr)
{
    traceEntry(2000, ".createGatewayToken(&gwTokPtr=%p, hostname=%s, port=%d)\n", static_cast<void*>(gwTokPtr),
        orNull(hostname), port);

    Internal_GatewayToken_t* token = nullptr;
    CallSlot* slot = nullptr;
    int gwyTokRc = makeToken(&token, port);
    if (gwyTokRc == KRVSTAT_OK) {
        gwyTokRc = chainToken(token, &slot);
        if (gwyTokRc != KRVSTAT_OK) discardToken(token);
    }
    if (gwyTokRc == KRVSTAT_OK) {
        gwyTokRc = openStatsSocket(token, hostname, port);
        if (gwyTokRc != KRVSTAT_OK) gwyTokRc = endFailedOpen(&token, slot, gwyTokRc);
    }
    if (gwyTokRc == KRVSTAT_OK) {
        ReasonCodes reasons = {};
        gwyTokRc = mapCommsResult(statProtocolVer(token, &reasons), &reasons);
        if (gwyTokRc != KRVSTAT_OK) {
            traceEvent(2042, ".createGatewayToken Removing GatewayToken %p due to comms failure %d\n",
                static_cast<void*>(token), gwyTokRc);
            gwyTokRc = endFailedOpen(&token, slot, gwyTokRc);
        }
    }
    if (gwyTokRc == KRVSTAT_OK) {
        char text[FORMATTED_TOKEN_SIZE];
        formatGatewayToken(token, text);
        traceEvent(2033, ".createGatewayToken(&gwTokPtr=%p) %s\n", static_cast<void*>(gwTokPtr), text);
        *gwTokPtr = token;
        *slotPtr = slot;
    }

    traceExit(2001, ".createGatewayToken(&gwTokPtr=%p, hostname=%s, port=%d) rc=%d\n", static_cast<void*>(gwTokPtr),
        orNull(hostname), port, gwyTokRc);
    return gwyTokRc;
}

int createGatewayToken(KRV_GatewayToken_t* gwTokPtr, char* hostname, int port)
{
    CallSlot* slot = nullptr;
    const KRV_GatewayToken_t before = *gwTokPtr;
    const int gwyTokRc = createForCall(gwTokPtr, hostname, port, &slot);
    if (gwyTokRc == KRVSTAT_OK && !leaveUndisturbed(slot)) {
        removeAfterCall(gwTokPtr, slot);
        *gwTokPtr = before;
        return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    return gwyTokRc;
}

void removeAfterCall(KRV_GatewayToken_t* gwTokPtr, CallSlot* slot)
{
    traceEntry(
        2009, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d)\n", static_cast<void*>(gwTokPtr), GTL_LOCK_REQUIRED);
    const int gwyTokRc = deleteToken(gwTokPtr, *gwTokPtr, GTL_LOCK_REQUIRED, slot);
    traceExit(2012, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d) rc=%d\n", static_cast<void*>(gwTokPtr),
        GTL_LOCK_REQUIRED, gwyTokRc);
}

int openStatsSocket(Internal_GatewayToken_t* gwTokPtr, char* hostname, int port)
{
    traceEntry(2002, ".openStatsSocket(gwTokPtr=%p) Attempting to connect to %s:%d\n", static_cast<void*>(gwTokPtr),
        orNull(hostname), port);
    const int connectRc = connectToGateway(port, hostname, &gwTokPtr->socketDescriptor);
    if (connectRc == 0) {
        setStatus(gwTokPtr, CONNECTION_CONNECTED);
        traceEvent(2003, ".openStatsSocket() Connected to Gateway %s:%u - socketDescriptor(%d)\n", orNull(hostname),
            static_cast<unsigned int>(port), gwTokPtr->socketDescriptor);
    } else {
        setStatus(gwTokPtr, CONNECTION_CONNECT_FAILED);
        traceExc(2004, ".openStatsSocket() Failed to connect to Gateway %s:%u, connect rc = %d\n", orNull(hostname),
            static_cast<unsigned int>(port), connectRc);
    }
    const int gwyTokRc = mapConnectResult(connectRc);
    traceExit(2005, ".openStatsSocket(gwTokPtr=%p, hostname=%s, port=%d) rc=%d\n", static_cast<void*>(gwTokPtr),
        orNull(hostname), port, gwyTokRc);
    return gwyTokRc;
}

int verifyGatewayToken(Internal_GatewayToken_t* gwTokPtr)
{
    return verifyToken(gwTokPtr, nullptr);
}

int verifyForCall(Internal_GatewayToken_t* gwTokPtr, CallSlot** slotPtr)
{
    return verifyToken(gwTokPtr, slotPtr);
}

int interruptGatewayToken(Internal_GatewayToken_t* token)
{
    lockList(); // outside of a call that has a deadline, where this has none
    const bool found = findGatewayToken(token, nullptr) == GTL_TOKEN_FOUND;
    if (found) interruptToken(token);
    unlockList();
    return found ? KRVSTAT_OK : KRVSTAT_GATEWAY_TOKEN_NOT_FOUND;
}

int deleteGatewayToken(KRV_GatewayToken_t* gwTokPtr, int lockRequired)
{
    traceEntry(
        2009, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d)\n", static_cast<void*>(gwTokPtr), lockRequired);
    int gwyTokRc;
    if (!gwTokPtr) {
        gwyTokRc = KRVSTAT_NULL_GATEWAY_TOKEN_POINTER;
    } else if (!*gwTokPtr) {
        gwyTokRc = KRVSTAT_NULL_GATEWAY_TOKEN;
    } else {
        gwyTokRc = deleteToken(gwTokPtr, *gwTokPtr, lockRequired, nullptr);
    }
    traceExit(2012, ".deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d) rc=%d\n", static_cast<void*>(gwTokPtr),
        lockRequired, gwyTokRc);
    return gwyTokRc;
}

int deleteGatewayTokens()
{
    traceEntry(2013, ".deleteGatewayTokens()\n");
    int gwyTokRc = GTL_NOTHING_TO_DO;
    int deleted = 0;
    for (; deleted < GTL_RUNAWAY_LIMIT && deleteHead(deleted); ++deleted) gwyTokRc = KRVSTAT_OK;
    if (deleted == GTL_RUNAWAY_LIMIT) {
        gwyTokRc = GTL_RUNAWAY;
        traceExc(2014, ".deleteGatewayTokens() GTL iteration has hit RUNAWAY limit %d.....\n", GTL_RUNAWAY_LIMIT);
    }
    traceExit(2015, ".deleteGatewayTokens() Entries deleted=%d rc=%d\n", deleted, gwyTokRc);
    return gwyTokRc;
}

int formatGatewayToken(Internal_GatewayToken_t* gwTokPtr, char* formattedToken)
{
    if (!formattedToken) {
        traceExc(2035, ".formatGatewayToken(gwTokPtr=%p, formattedToken=%p) function received a null parameter\n",
            static_cast<void*>(gwTokPtr), static_cast<void*>(formattedToken));
        return KRVSTAT_NULL_BUFFER;
    }
    if (!gwTokPtr) {
        strcpy(formattedToken, "GatwayToken(NULL)");
        return KRVSTAT_OK;
    }
    snprintf(formattedToken, FORMATTED_TOKEN_SIZE,
        "GatwayToken(%p) eyecatcher(%8.8s) port(%d) connStatus(%d) socket(%d) connRSToken(%p) resultSetBuf(%p) "
        "owningPid(%8.8X) owningTid(%8.8X) nextGwyTokPtr(%p)",
        static_cast<void*>(gwTokPtr), gwTokPtr->eyecatcher, static_cast<int>(gwTokPtr->portNumber),
        __atomic_load_n(&gwTokPtr->connStatus, __ATOMIC_RELAXED),
        __atomic_load_n(&gwTokPtr->socketDescriptor, __ATOMIC_RELAXED), static_cast<void*>(gwTokPtr->connRSPtr),
        static_cast<void*>(__atomic_load_n(&gwTokPtr->resultSetBuf, __ATOMIC_RELAXED)), static_cast<unsigned int>(gwTokPtr->owningPid),
        static_cast<unsigned int>(gwTokPtr->owningTid),
        static_cast<void*>(__atomic_load_n(&gwTokPtr->nextGwyTokPtr, __ATOMIC_RELAXED)));
    return KRVSTAT_OK;
}

int dumpGatewayTokens()
{
    traceEntry(2016, ".dumpGatewayTokens()\n");
    int gwyTokRc = KRVSTAT_OK;
    int shown = 0;

    lockList();
    PipeSignal held;
    holdPipeSignal(&held);
    pinTraceDestination();
    fprintf(traceStream(), "Gateway Token List dump\n");
    writeTraceRule();
    if (!gtListHeadPtr) {
        fprintf(traceStream(), "The Gateway Token List is EMPTY\n");
        gwyTokRc = GTL_NOTHING_TO_DO;
    } else {
        for (Internal_GatewayToken_t* token = gtListHeadPtr; token && shown < GTL_RUNAWAY_LIMIT;
             token = token->nextGwyTokPtr) {
            dumpToken(++shown, token);
        }
        fprintf(traceStream(), "Total number of Gateway Token List entries=%d\n", shown);
    }
    writeTraceRule();
    fflush(traceStream());
    unpinTraceDestination();
    releasePipeSignal(&held);
    if (shown == GTL_RUNAWAY_LIMIT) {
        gwyTokRc = GTL_RUNAWAY;
        traceExc(2017, ".dumpGatewayTokens() Gateway Token List iteration has hit RUNAWAY limit %d.....\n",
            GTL_RUNAWAY_LIMIT);
    }
    unlockList();

    traceExit(2018, ".dumpGatewayTokens() rc=%d\n", gwyTokRc);
    return gwyTokRc;
}

int chainGatewayToken(Internal_GatewayToken_t* newToken)
{
    return chainToken(newToken, nullptr);
}

int findGatewayToken(Internal_GatewayToken_t* targetToken, Internal_GatewayToken_t** parentTokenPtrPtr)
{
    traceEntry(2023, ".findGatewayToken(targetToken=%p, &parentTokenPtr=%p)\n", static_cast<void*>(targetToken),
        static_cast<void*>(parentTokenPtrPtr));
    int findRc = GTL_TOKEN_NOT_FOUND;
    Internal_GatewayToken_t* parent = nullptr;

    if (!targetToken) {
        findRc = GTL_NULL_TARGET;
        traceExc(2028, ".findGatewayToken() Target was a null token\n");
    } else if (!gtListHeadPtr) {
        findRc = GTL_EMPTY;
        // The same words as for a damaged list.
        traceExc(2027, ".findGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n",
            static_cast<void*>(gtListHeadPtr), static_cast<void*>(gtListTailPtr));
    } else {
        int count = 0;
        Internal_GatewayToken_t* current = gtListHeadPtr;
        if (current == targetToken) findRc = GTL_TOKEN_FOUND;
        while (findRc != GTL_TOKEN_FOUND && current->nextGwyTokPtr && count < GTL_RUNAWAY_LIMIT) {
            if (current->nextGwyTokPtr == targetToken) {
                findRc = GTL_TOKEN_FOUND;
                parent = current;
            } else {
                current = current->nextGwyTokPtr;
                ++count;
            }
        }

        if (findRc == GTL_TOKEN_FOUND) {
            if (parentTokenPtrPtr) *parentTokenPtrPtr = parent;
            traceDebug(2026, ".findGatewayToken() Target token found at GTL Entry(%d)\n", count);
        } else if (count == GTL_RUNAWAY_LIMIT) {
            findRc = GTL_RUNAWAY;
            traceExc(2024, ".findGatewayToken() GTL iteration has hit RUNAWAY limit %d.....\n", GTL_RUNAWAY_LIMIT);
        } else {
            traceDebug(2025, ".findGatewayToken() Target token not found. GTL entries(%d) head(%p) last(%p)\n", count,
                static_cast<void*>(gtListHeadPtr), static_cast<void*>(current));
        }
    }
    traceExit(2029, ".findGatewayToken(targetToken=%p, &parentTokenPtr=%p) rc=%d\n", static_cast<void*>(targetToken),
        static_cast<void*>(parentTokenPtrPtr), findRc);
    return findRc;
}
