// The exported API: lazy set-up, argument checks in a fixed order, owner checks, return codes.
//
// Every call has the same frame: stapiInit, ENTRY line, checks in the documented order with one "*EXC*" line for the
// first that fails, work while the code is 0, EXIT line. The work itself is done in the modules below.
// Threads: a connection and its result set are used by the thread that opened it; the checks here see to it.

#include "stapi_krv_impl.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "stapi_krv_caller.h"
#include "stapi_krv_deadline.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_pipesignal.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statquery.h"
#include "stapi_krv_version.h"
#include "stapi_krv_wire.h"

const char version4stapi_krv_impl[] = KRVSTATS_VERSION_BANNER;

// Process-wide state of the API.
int32_t stapiState = 0;
char stapiVersion[API_VERSION_SIZE] = "";

namespace {

constexpr size_t COPY_SIZE_LIMIT = 32766; // of a copied text, terminator included
constexpr int LOWEST_PORT = 1;
constexpr int HIGHEST_PORT = 65535;

// ---- Set-up ----

inline bool isSetUp()
{
    return __atomic_load_n(&stapiState, __ATOMIC_ACQUIRE) != 0;
}

// The process that is setting the library up at the moment, 0 if none is. A claim left by a process that this one was
// forked from does not count.
ProcessId initClaim = 0;

void claimInit()
{
    const ProcessId self = getpid();
    ProcessId holder = 0;
    while (!__atomic_compare_exchange_n(&initClaim, &holder, self, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
        if (holder == self) {
            sched_yield();
            holder = 0;
        }
    }
}

void releaseInit()
{
    __atomic_store_n(&initClaim, 0, __ATOMIC_RELEASE);
}

void setLevel(int level)
{
    __atomic_store_n(&statAPITrace, level, __ATOMIC_RELAXED);
}

// The only thread of a forked child is this one: whatever others held is free.
void startInChild()
{
    forgetTraceWriters();
    forgetListHolders();
}

int runInitSteps()
{
    setUpCallerMemory();
    setLevel(1); // so that failures of the next steps are seen
    int rc = initTrace();
    if (rc != 0) {
        PipeSignal held;
        holdPipeSignal(&held);
        fprintf(stderr, "stapi_krv_impl.stapiInit() Initialization of krvstats API trace has failed. rc=%d\n", rc);
        releasePipeSignal(&held);
        return rc;
    }
    rc = initGTL();
    if (rc != 0) {
        traceExc(1124, ".stapiInit() Initialization of krvstats API Gateway Token List has failed. rc=%d\n", rc);
        return rc;
    }
    pthread_atfork(prepareTraceForFork, resumeTraceAfterFork, startInChild);
    strcpy(stapiVersion, API_VERSION);
    setLevel(0);
    __atomic_store_n(&stapiState, 1, __ATOMIC_RELEASE);
    return 0;
}

// ---- Trace destination ----

int currentLevel()
{
    return __atomic_load_n(&statAPITrace, __ATOMIC_RELAXED);
}

// Straight to the stream, not through the line template. The caller holds traceLock.
void writeTraceHeader()
{
    getTraceDate(dateBuf);
    PipeSignal held;
    holdPipeSignal(&held);
    fprintf(traceStream(), "*** %s QAL Korvane KRVSTATS DLL trace V%s API V%s Build Level %s ***\n", dateBuf,
        KRVSTATS_PRODUCT_VERSION, API_VERSION, KRVSTATS_BUILD_LEVEL);
    releasePipeSignal(&held);
}

void flushTrace()
{
    PipeSignal held;
    holdPipeSignal(&held);
    fflush(traceStream());
    releasePipeSignal(&held);
}

enum class Switch { Unchanged, Changed, OpenFailed, NoMemory };

// The caller holds traceLock.
Switch switchTraceDestination(const char* traceFile, int* openErrno)
{
    if (!statAPITraceFilename) {
        statAPITraceFilename = static_cast<char*>(malloc(TRACE_FILENAME_SIZE));
        if (!statAPITraceFilename) return Switch::NoMemory;
        strcpy(statAPITraceFilename, defaultTraceFilename);
    }
    if (!traceFile) {
        if (traceStream() == stderr) return Switch::Unchanged;
        changeTraceDestination(stderr, defaultTraceFilename);
        traceHeaderWrite = 0;
        return Switch::Changed;
    }
    FILE* stream = fopen(traceFile, "a");
    if (!stream) {
        *openErrno = errno;
        return Switch::OpenFailed;
    }
    changeTraceDestination(stream, traceFile);
    traceHeaderWrite = 0;
    return Switch::Changed;
}

// ---- Copied texts ----

// The two copying calls differ in their names, trace points, and in what becomes of the block that *out held before.
struct TextCopy {
    const char* function;
    bool replaces;
    int entry;
    int excArgument;
    int debugAllocate;
    int excAllocate;
    int debugCopy;
    int exit;
};

constexpr TextCopy asciiCopy = {"dup2ASCIIString", true, 1108, 1109, 1111, 1112, 1113, 1115};
constexpr TextCopy nativeCopy = {"dup2NativeString", false, 1116, 1117, 1119, 1120, 1121, 1123};

int copyText(const TextCopy& kind, char* in, char** out)
{
    traceEntry(kind.entry, ".%s(in=%p, &out=%p)\n", kind.function, static_cast<void*>(in), static_cast<void*>(out));
    int rc = 0;
    const size_t size = in ? strlen(in) + 1 : 0;
    if (!in || !out || size > COPY_SIZE_LIMIT) {
        rc = -2;
        traceExc(kind.excArgument, ".%s() supplied input data pointer was NULL or overlength\n", kind.function);
    } else {
        const int bytes = static_cast<int>(size);
        char* const previous = kind.replaces ? *out : nullptr;
        char* copy = static_cast<char*>(malloc(size));
        if (kind.replaces) {
            traceDebug(kind.debugAllocate, ".%s() called malloc for %d bytes. rc=%p\n", kind.function, bytes,
                static_cast<void*>(copy));
        } else {
            traceDebug(kind.debugAllocate, ".%s() called strdup for %d bytes. rc=0x%p\n", kind.function, bytes,
                static_cast<void*>(copy));
        }
        if (!copy) {
            rc = -1;
            traceExc(kind.excAllocate, ".%s() Failed to allocate %d bytes\n", kind.function, bytes);
        } else {
            if (kind.replaces) {
                traceDebug(kind.debugCopy, ".%s() using memcpy() on writePtr(%p) bytes(%d)\n", kind.function,
                    static_cast<void*>(copy), bytes);
            } else {
                traceDebug(kind.debugCopy, ".%s() about to memcpy for %d bytes. \n", kind.function, bytes);
            }
            memcpy(copy, in, size);
        }
        *out = copy;
        free(previous); // last, in case it is the text that was copied
    }
    traceExit(
        kind.exit, ".%s(in=%p, &out=%p) rc=%d\n", kind.function, static_cast<void*>(in), static_cast<void*>(out), rc);
    return rc;
}

// ---- Connections ----

int checkOpenArguments(char* hostname, int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr)
{
    if (port < LOWEST_PORT || port > HIGHEST_PORT) {
        traceExc(1142, "API.openRemoteGatewayConnection(port=%d) Port is invalid\n", port);
        return KRVSTAT_INVALID_PORT;
    }
    if (!gwTokPtr) {
        traceExc(1142, "API.openRemoteGatewayConnection(&gwTokPtr=%p) Null gateway token Pointer\n",
            static_cast<void*>(gwTokPtr));
        return KRVSTAT_NULL_GATEWAY_TOKEN_POINTER;
    }
    if (!protocolVersionPtr) {
        traceExc(1142, "API.openRemoteGatewayConnection(&protoColVersion=%p) Null protocol version pointer\n",
            static_cast<void*>(protocolVersionPtr));
        return KRVSTAT_NULL_PROTOCOL_VERSION_POINTER;
    }
    if (!hostname) {
        traceExc(1142, "API.openRemoteGatewayConnection(hostname=%p) Null host name\n", static_cast<void*>(hostname));
        return KRVSTAT_NULL_HOSTNAME;
    }
    return KRVSTAT_OK;
}

// Replaces the token's version buffer by a copy of exactly the text's size, which the application is shown and the
// token goes on owning.
int shareProtocolVersion(Internal_GatewayToken_t* token, char** protocolVersionPtr)
{
    char* version = nullptr;
    if (dup2NativeString(token->protocolVersion, &version) != 0) return KRVSTAT_OUT_OF_MEMORY;
    free(token->protocolVersion);
    token->protocolVersion = version;
    traceEvent(1142, "API.openRemoteGatewayConnection(&protoColVersion=0x%p) created String for proto@0x%p\n",
        static_cast<void*>(protocolVersionPtr), static_cast<void*>(version));
    return KRVSTAT_OK;
}

int openConnection(char* hostname, int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr)
{
    const KRV_GatewayToken_t before = *gwTokPtr;
    CallSlot* slot = nullptr;
    int krvStatRc = createForCall(gwTokPtr, hostname, port, &slot);
    if (krvStatRc != KRVSTAT_OK) return callHasExpired() ? KRVSTAT_CONNECT_TIMEOUT : krvStatRc;

    Internal_GatewayToken_t* token = *gwTokPtr;
    if (!token->protocolVersion) {
        traceExc(1142,
            "API.openRemoteGatewayConnection(gwTokPtr=0x%p) New gateway token has NULL protocolVersion pointer\n",
            static_cast<void*>(token));
    } else {
        krvStatRc = shareProtocolVersion(token, protocolVersionPtr);
    }
    char* const version = token->protocolVersion; // once the call is left, another thread may close the connection
    if (krvStatRc == KRVSTAT_OK && leaveUndisturbed(slot)) {
        *protocolVersionPtr = version;
        return KRVSTAT_OK;
    }
    if (krvStatRc == KRVSTAT_OK) krvStatRc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    removeAfterCall(gwTokPtr, slot);
    *gwTokPtr = before;
    return krvStatRc;
}

// ---- Queries ----

// The six queries differ in this alone. Exactly one of the two wrappers is set.
struct Query {
    const char* function;
    const char* idsName;
    const char* resultName;
    const char* getting;
    int (*runWithIds)(int, char**, int*, char*);
    int (*run)(int, char**, int*);
    bool setsOwner;
    int entry;
    int debugToken;
    int debugBuffer; // 0: no such line
    int exc;
    int removing;
    int exit;
    int event;
};

constexpr Query resourceGroupIdsQuery = {"getResourceGroupIds", nullptr, "resGrpIdRSPtr", "Getting Resource Group Ids",
    nullptr, commsResourceGroupsIds, false, 1009, 1010, 1011, 1012, 1013, 1014, 1128};
constexpr Query statIdsByGroupQuery = {"getStatIdsByStatGroupId", "providerIdsPtr", "statIdRSPtr",
    "Getting Stat Ids for Stat Group Ids", commsStatIdsByStatGroupId, nullptr, true, 1015, 1016, 0, 1017, 1018, 1019,
    1129};
constexpr Query statIdsQuery = {"getStatIds", nullptr, "statIdRSPtr", "Getting Stat Ids from the Gateway", nullptr,
    commsStatIds, true, 1020, 1021, 0, 1022, 1023, 1024, 1130};
constexpr Query statsQuery = {"getStats", nullptr, "statRSPtr", "Getting all Stats from the Gateway Daemon", nullptr,
    commsStats, true, 1025, 1026, 0, 1027, 1028, 1029, 1130};
constexpr Query statsByIdQuery = {"getStatsByStatId", "statIdsPtr", "statRSPtr", "Getting Stats for Stat Ids",
    commsStatsByStatId, nullptr, true, 1030, 1031, 0, 1032, 1033, 1034, 1131};
constexpr Query statsByGroupQuery = {"getStatsByStatGroupId", "providerIdPtr", "statRSPtr",
    "Getting Stats for Stat Group Ids", commsStatsByStatGroupId, nullptr, true, 1035, 1036, 0, 1037, 1038, 1039, 1132};

// The token of a query that passes is marked busy: *slotPtr.
int checkQueryArguments(
    const Query& query, KRV_GatewayToken_t gwTok, char* ids, KRV_ResultSetToken_t* resultPtr, CallSlot** slotPtr)
{
    if (!gwTok) {
        traceExc(query.exc, "API.%s(gwTok=%p) Null gateway token\n", query.function, static_cast<void*>(gwTok));
        return KRVSTAT_NULL_GATEWAY_TOKEN;
    }
    if (query.idsName && !ids) {
        traceExc(query.exc, "API.%s(%s=%p) Null query argument\n", query.function, query.idsName,
            static_cast<void*>(ids));
        return KRVSTAT_NULL_QUERY_ARGUMENT;
    }
    if (!resultPtr) {
        traceExc(query.exc, "API.%s(&%s=%p) Null result set pointer\n", query.function, query.resultName,
            static_cast<void*>(resultPtr));
        return KRVSTAT_NULL_RESULT_SET_POINTER;
    }
    return verifyForCall(gwTok, slotPtr);
}

// Points the connection's result set at the token's buffer, which the parser may have replaced, with a fresh walk.
void showAnswer(const Query& query, Internal_GatewayToken_t* token)
{
    Internal_ResultSetToken_t* resultSet = token->connRSPtr;
    if (query.setsOwner) resultSet->owner = RESULT_SET_OWNER_API;
    resultSet->rsBuffPtr = token->resultSetBuf;
    resultSet->rsBuffLen = token->resultSetBufLen;
    resultSet->cursor = resultSet->rsBuffPtr;
    resultSet->queryIndex = 0;
    traceDebug(query.debugToken, "API.%s() result set pointer (%p)\n", query.function, static_cast<void*>(resultSet));
    if (query.debugBuffer != 0) {
        traceDebug(query.debugBuffer, "API.%s() result set buffer pointer (%p)\n", query.function,
            static_cast<void*>(resultSet->rsBuffPtr));
    }
}

// Asks the gateway and points the result set at the answer.
int askGateway(const Query& query, Internal_GatewayToken_t* token, char* ids)
{
    Internal_ResultSetToken_t* resultSet = token->connRSPtr;
    if (!token->resultSetBuf) {
        traceExc(query.exc, "API.%s(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n", query.function,
            static_cast<void*>(token));
        return KRVSTAT_NO_RESULT_BUFFER;
    }
    if (query.idsName) {
        if (dup2ASCIIString(ids, &resultSet->queryString) != 0) return KRVSTAT_OUT_OF_MEMORY;
        traceEvent(query.event, "API.%s %s %s\n", query.function, query.getting, resultSet->queryString);
    } else {
        traceEvent(query.event, "API.%s %s\n", query.function, query.getting);
    }

    // The parser may replace the buffer while another thread dumps the token's line.
    char* buffer = token->resultSetBuf;
    const int krvStatRc = query.idsName
        ? query.runWithIds(token->socketDescriptor, &buffer, &token->resultSetBufLen, resultSet->queryString)
        : query.run(token->socketDescriptor, &buffer, &token->resultSetBufLen);
    __atomic_store_n(&token->resultSetBuf, buffer, __ATOMIC_RELAXED);
    showAnswer(query, token);
    return krvStatRc;
}

bool isCommsFailure(int krvStatRc)
{
    return krvStatRc == KRVSTAT_GATEWAY_COMMS_FAILED || krvStatRc == KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

// Asks the gateway. On -102 and -122 the connection is gone, and the token with it: also when another thread interrupted
// the query or closed the connection meanwhile, or the deadline passed.
int runQuery(
    const Query& query, Internal_GatewayToken_t* token, CallSlot* slot, char* ids, KRV_ResultSetToken_t* resultPtr)
{
    Internal_ResultSetToken_t* resultSet = token->connRSPtr;
    int krvStatRc = askGateway(query, token, ids);
    if (!isCommsFailure(krvStatRc) && leaveUndisturbed(slot)) {
        if (krvStatRc == KRVSTAT_OK) *resultPtr = resultSet;
        return krvStatRc;
    }
    if (!isCommsFailure(krvStatRc) || callHasExpired() || callIsInterrupted()) {
        krvStatRc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    traceEvent(query.removing, "API.%s Removing GatewayToken %p due to comms failure %d\n", query.function,
        static_cast<void*>(token), krvStatRc);
    removeAfterCall(&token, slot);
    return krvStatRc;
}

int query(const Query& kind, KRV_GatewayToken_t gwTok, char* ids, KRV_ResultSetToken_t* resultPtr)
{
    beginCall();
    int krvStatRc = stapiInit();
    if (kind.idsName) {
        traceEntry(kind.entry, "API.%s(gwTok=%p, %s=%p, &%s=%p)\n", kind.function, static_cast<void*>(gwTok),
            kind.idsName, static_cast<void*>(ids), kind.resultName, static_cast<void*>(resultPtr));
    } else {
        traceEntry(kind.entry, "API.%s(gwTok=%p, &%s=%p)\n", kind.function, static_cast<void*>(gwTok), kind.resultName,
            static_cast<void*>(resultPtr));
    }

    CallSlot* slot = nullptr;
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkQueryArguments(kind, gwTok, ids, resultPtr, &slot);
    if (krvStatRc == KRVSTAT_OK) krvStatRc = runQuery(kind, gwTok, slot, ids, resultPtr);

    if (kind.idsName) {
        traceExit(kind.exit, "API.%s(gwTok=%p, %s=%p, &%s=%p) rc=%d\n", kind.function, static_cast<void*>(gwTok),
            kind.idsName, static_cast<void*>(ids), kind.resultName, static_cast<void*>(resultPtr), krvStatRc);
    } else {
        traceExit(kind.exit, "API.%s(gwTok=%p, &%s=%p) rc=%d\n", kind.function, static_cast<void*>(gwTok),
            kind.resultName, static_cast<void*>(resultPtr), krvStatRc);
    }
    endCall();
    return krvStatRc;
}

// ---- Result sets ----

// True if the set's buffer begins with the category.
bool holdsCategory(const Internal_ResultSetToken_t* resultSet, const char* category)
{
    if (!resultSet->rsBuffPtr) return false;
    if (resultSet->rsBuffLen > 0 && resultSet->rsBuffLen < EYECATCHER_SIZE) return false;
    return strncmp(resultSet->rsBuffPtr, category, EYECATCHER_SIZE) == 0;
}

bool holdsAnyCategory(const Internal_ResultSetToken_t* resultSet)
{
    return holdsCategory(resultSet, IDS_EYECATCHER) || holdsCategory(resultSet, STATS_EYECATCHER);
}

// A connection's set is bound to the thread that opened it; a copy is not bound.
int checkOwner(Internal_ResultSetToken_t* resultSet)
{
    return resultSet->owner == RESULT_SET_OWNER_API ? verifyAPIResultSetTokenOwner(resultSet) : KRVSTAT_OK;
}

// ---- Walking ----

// One step of a walk, as both kinds of record show it.
struct Step {
    bool fromStart; // the record's eyecatcher is filled
    bool hasElement;
    char* queryElementPtr;
    int queryElementLen;
    int queryElementRC;
    char* idPtr;
    int idLen;
    char* valuePtr; // statistics only
    int valueLen;
};

// The four workers differ in this alone. A trace point of 0 means that the worker has no such line.
struct Worker {
    const char* function;
    bool first;
    bool stats;
    const char* recordName;
    const char* retrieved;
    int entry;
    int notStarted;
    int header;
    int caching;
    int negative;
    int processing;
    int endOfSubset;
    int exit;
    int success;
};

constexpr Worker firstIdWorker = {"getFirstIdInternal", true, false, "idDataPtr", "first Id", 1043, 0, 1044, 0, 1045,
    1046, 1047, 1049, 1137};
constexpr Worker nextIdWorker = {"getNextIdInternal", false, false, "idDataPtr", "the next Id", 1050, 1051, 1052, 0,
    1053, 1054, 1055, 1057, 1138};
constexpr Worker firstStatWorker = {"getFirstStatInternal", true, true, "statDataPtr", "first stat", 1058, 0, 1059,
    1060, 0, 1061, 1062, 1063, 1139};
constexpr Worker nextStatWorker = {"getNextStatInternal", false, true, "statDataPtr", "the next stat", 1064, 1065, 1066,
    0, 1067, 1068, 1069, 1071, 1140};

// The walk's position, taken from the token and stored back only if the step succeeds.
struct Position {
    WireReader reader;
    int queryCount;
    int queryIndex;
    int elementResultCount;
    int elementResultIndex;
};

char* at(const Position* position)
{
    return reinterpret_cast<char*>(const_cast<unsigned char*>(position->reader.at));
}

// A reader from `from` to the end of the set's buffer; no bound where the creator of the set named none.
WireReader readerFrom(const Internal_ResultSetToken_t* resultSet, char* from)
{
    if (resultSet->rsBuffLen <= 0) return unboundedReaderOver(from);
    const uintptr_t start = reinterpret_cast<uintptr_t>(resultSet->rsBuffPtr);
    const uintptr_t offset = reinterpret_cast<uintptr_t>(from) - start;
    const uintptr_t length = static_cast<uintptr_t>(resultSet->rsBuffLen);
    return readerOver(from, offset <= length ? length - offset : 0);
}

// True if the walk ends here: the terminator stands here, or there is no room for a word.
bool atEnd(const Position* position)
{
    if (bytesLeft(&position->reader) < sizeof(int32_t)) return true;
    int isTerminator = 0;
    checkTerminator(at(position), &isTerminator);
    return isTerminator != 0;
}

// A length and the text behind it. False if the terminator stands there, or the text is not inside the buffer.
bool readText(WireReader* reader, char** textPtr, int* length)
{
    *length = readHostI32(reader);
    if (*length < 0 || *length == RESULT_SET_TERMINATOR) return false;
    *textPtr = reinterpret_cast<char*>(const_cast<unsigned char*>(take(reader, static_cast<size_t>(*length))));
    return !reader->spent;
}

// Moves to the beginning of the buffer and over its preamble. False if the set is empty.
bool startWalk(const Worker& worker, const Internal_ResultSetToken_t* resultSet, Position* position)
{
    position->reader = readerFrom(resultSet, resultSet->rsBuffPtr);
    skip(&position->reader, EYECATCHER_SIZE);
    if (worker.first && atEnd(position)) return false;
    position->queryCount = readHostI32(&position->reader);
    position->queryIndex = 1;
    position->elementResultIndex = 0;
    return !position->reader.spent && position->queryCount != RESULT_SET_TERMINATOR;
}

bool readQueryHeader(const Worker& worker, const Internal_ResultSetToken_t* resultSet, Position* position, Step* step)
{
    if (!readText(&position->reader, &step->queryElementPtr, &step->queryElementLen)) return false;
    step->queryElementRC = readHostI32(&position->reader);
    if (position->reader.spent) return false;
    traceDebug(worker.header,
        ".%s Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, "
        "queryElementPtr=%p, queryElementRC=%d\n",
        worker.function, position->queryIndex, position->queryCount, static_cast<const void*>(resultSet),
        static_cast<void*>(at(position)), step->queryElementLen, static_cast<void*>(step->queryElementPtr),
        step->queryElementRC);
    if (worker.caching != 0) {
        traceDebug(worker.caching,
            ".%s Caching new query element details. Resultset=%p, Datacursor=%p, queryElementLen=%d, "
            "queryElementPtr=%p, queryElementRC=%d\n",
            worker.function, static_cast<const void*>(resultSet), static_cast<void*>(at(position)),
            step->queryElementLen, static_cast<void*>(step->queryElementPtr), step->queryElementRC);
    }
    return true;
}

// Reads one element. An element count of 0 still yields one element: the count is compared only afterwards.
bool readElement(const Worker& worker, const Internal_ResultSetToken_t* resultSet, Position* position, Step* step)
{
    if (!readText(&position->reader, &step->idPtr, &step->idLen)) return false;
    traceDebug(worker.processing,
        ".%s Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, %s=%d\n", worker.function,
        position->queryIndex, position->elementResultIndex, static_cast<const void*>(resultSet),
        static_cast<void*>(at(position)), worker.stats ? "statIdLen" : "idLen", step->idLen);
    if (worker.stats && !readText(&position->reader, &step->valuePtr, &step->valueLen)) return false;
    step->hasElement = true;

    if (++position->elementResultIndex > position->elementResultCount) {
        position->elementResultIndex = 0;
        ++position->queryIndex;
        traceDebug(worker.endOfSubset, ".%s End of subset queryIndex=%d. Resultset=%p\n", worker.function,
            position->queryIndex, static_cast<const void*>(resultSet));
    }
    return true;
}

// Takes one step from the position. False if there is none: the end, or a buffer that says what cannot be.
bool takeStep(const Worker& worker, const Internal_ResultSetToken_t* resultSet, const void* record, Position* position,
    Step* step)
{
    if (position->elementResultIndex != 0) {
        step->queryElementPtr = resultSet->cacheElementPtr;
        step->queryElementLen = resultSet->cacheElementLen;
        step->queryElementRC = resultSet->cacheElementRC;
    } else {
        if (!readQueryHeader(worker, resultSet, position, step)) return false;
        if (step->queryElementRC < 0) {
            if (worker.negative != 0) {
                traceEvent(worker.negative, ".%s(rsPtr=%p,%s=%p) Found negative queryElementRC(%d)\n", worker.function,
                    static_cast<const void*>(resultSet), worker.recordName, record, step->queryElementRC);
            }
            ++position->queryIndex;
            return true;
        }
        position->elementResultCount = readHostI32(&position->reader);
        position->elementResultIndex = 1;
        if (position->reader.spent) return false;
    }
    if (!readElement(worker, resultSet, position, step)) return false;
    traceEvent(worker.success, ".%s Successfully retrieved %s from resultset %p\n", worker.function, worker.retrieved,
        static_cast<const void*>(resultSet));
    return true;
}

void storePosition(Internal_ResultSetToken_t* resultSet, const Position* position, const Step* step)
{
    __atomic_store_n(&resultSet->cursor, at(position), __ATOMIC_RELAXED); // another thread's dumpState may look
    resultSet->queryCount = position->queryCount;
    resultSet->queryIndex = position->queryIndex;
    resultSet->elementResultCount = position->elementResultCount;
    resultSet->elementResultIndex = position->elementResultIndex;
    resultSet->cacheElementPtr = step->queryElementPtr;
    resultSet->cacheElementLen = step->queryElementLen;
    resultSet->cacheElementRC = step->queryElementRC;
}

// The body of the four workers. 0 with a step, or -113 with the token as it was. step->fromStart tells in either case
// whether the walk started at the beginning.
int walk(const Worker& worker, Internal_ResultSetToken_t* resultSet, const void* record, Step* step)
{
    traceEntry(worker.entry, ".%s(rsPtr=%p,%s=%p)\n", worker.function, static_cast<void*>(resultSet), worker.recordName,
        record);
    Position position = {readerFrom(resultSet, resultSet->cursor), resultSet->queryCount, resultSet->queryIndex,
        resultSet->elementResultCount, resultSet->elementResultIndex};
    step->fromStart = worker.first || resultSet->queryIndex == 0;

    bool more = true;
    if (step->fromStart) more = startWalk(worker, resultSet, &position);
    if (step->fromStart && worker.notStarted != 0) {
        traceDebug(worker.notStarted, ".%s No getFirst%s() called on Resultset=%p. Datacursor=%p\n", worker.function,
            worker.stats ? "Stat" : "Id", static_cast<void*>(resultSet), static_cast<void*>(at(&position)));
    }
    if (more && !worker.first) more = !atEnd(&position);
    if (more) more = takeStep(worker, resultSet, record, &position, step);
    if (more) storePosition(resultSet, &position, step);

    const int krvStatRc = more ? KRVSTAT_OK : KRVSTAT_RESULT_SET_EMPTY;
    if (worker.stats) {
        traceExit(worker.exit, ".%s() last=%d rc=%d\n", worker.function, !more, krvStatRc);
    } else {
        traceExit(worker.exit, ".%s() endOfResults=%d krvStatRc=%d\n", worker.function, !more, krvStatRc);
    }
    return krvStatRc;
}

void showElement(const Step& step, KRV_IdData_t* record)
{
    record->idLen = step.idLen;
    record->idPtr = step.idPtr;
}

void showElement(const Step& step, KRV_StatData_t* record)
{
    record->statIdLen = step.idLen;
    record->statIdPtr = step.idPtr;
    record->statValueLen = step.valueLen;
    record->statValuePtr = step.valuePtr;
}

// Takes one step and shows it in the caller's record.
template <typename Record>
int walkInto(const Worker& worker, Internal_ResultSetToken_t* resultSet, Record* record)
{
    Step step = {};
    const int krvStatRc = walk(worker, resultSet, record, &step);
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): checkIterationArguments has refused a NULL record
    if (step.fromStart) memcpy(record->eyecatcher, resultSet->rsBuffPtr, EYECATCHER_SIZE);
    if (krvStatRc != KRVSTAT_OK) return krvStatRc;
    record->queryElementPtr = step.queryElementPtr;
    record->queryElementLen = step.queryElementLen;
    record->queryElementRC = step.queryElementRC;
    if (step.hasElement) showElement(step, record);
    return KRVSTAT_OK;
}

// An iteration call of the API: its name, its trace points, and what it reads.
struct IterationCall {
    const char* function;
    const char* recordName;
    const char* category;
    const char* contentMissing;
    int nullRecordCode;
    int entry;
    int exc;
    int exit;
};

constexpr IterationCall firstIdCall = {"getFirstId", "idDataPtr", IDS_EYECATCHER, "Resultset does not contain id data",
    KRVSTAT_NULL_ID_DATA_POINTER, 1150, 1151, 1152};
constexpr IterationCall nextIdCall = {"getNextId", "idDataPtr", IDS_EYECATCHER, "Resultset does not contain id data",
    KRVSTAT_NULL_ID_DATA_POINTER, 1153, 1154, 1155};
constexpr IterationCall firstStatCall = {"getFirstStat", "statDataPtr", STATS_EYECATCHER,
    "Resultset does not contain statistics", KRVSTAT_NULL_STAT_DATA_POINTER, 1156, 1157, 1158};
constexpr IterationCall nextStatCall = {"getNextStat", "statDataPtr", STATS_EYECATCHER,
    "Resultset does not contain statistics", KRVSTAT_NULL_STAT_DATA_POINTER, 1159, 1160, 1161};

int checkIterationArguments(const IterationCall& call, Internal_ResultSetToken_t* rsPtr, const void* record)
{
    if (!rsPtr) {
        traceExc(call.exc, "API.%s(rsPtr=%p) Supplied result set token is NULL\n", call.function,
            static_cast<void*>(rsPtr));
        return KRVSTAT_NULL_RESULT_SET_TOKEN;
    }
    if (!record) {
        traceExc(call.exc, "API.%s(%s=%p) Supplied record pointer is NULL\n", call.function, call.recordName, record);
        return call.nullRecordCode;
    }
    if (!holdsCategory(rsPtr, call.category)) {
        traceExc(call.exc, "API.%s %s\n", call.function, call.contentMissing);
        return KRVSTAT_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(rsPtr);
}

// Bytes of an element besides its texts.
constexpr size_t fixedSize(const KRV_IdData_t*) { return sizeof(int32_t); }
constexpr size_t fixedSize(const KRV_StatData_t*) { return 2 * sizeof(int32_t); }

// Shows the element at `from` in the caller's record, and returns where the next one stands: NULL, with the record as it
// was, if its texts take more than `room`.
inline char* showElementAt(char* from, size_t room, KRV_IdData_t* record)
{
    const size_t idLen = static_cast<uint32_t>(loadWord(from));
    if (idLen > room) return nullptr;
    char* const idPtr = from + sizeof(int32_t);
    record->idLen = static_cast<int>(idLen);
    record->idPtr = idPtr;
    return idPtr + idLen;
}

inline char* showElementAt(char* from, size_t room, KRV_StatData_t* record)
{
    const size_t statIdLen = static_cast<uint32_t>(loadWord(from));
    if (statIdLen > room) return nullptr;
    char* const statIdPtr = from + sizeof(int32_t);
    const size_t statValueLen = static_cast<uint32_t>(loadWord(statIdPtr + statIdLen));
    if (statValueLen > room - statIdLen) return nullptr;
    char* const statValuePtr = statIdPtr + statIdLen + sizeof(int32_t);
    record->statIdLen = static_cast<int>(statIdLen);
    record->statIdPtr = statIdPtr;
    record->statValueLen = static_cast<int>(statValueLen);
    record->statValuePtr = statValuePtr;
    return statValuePtr + statValueLen;
}

// True if the caller is known to own the set, or nobody in particular does.
inline bool isKnownOwner(const Internal_ResultSetToken_t* resultSet)
{
    const bool process = resultSet->owningPid == knownProcess();
    if (__builtin_expect(process, 1) && __builtin_expect(resultSet->owningTid == rememberedThread, 1)) return true;
    return resultSet->owner != RESULT_SET_OWNER_API;
}

// The step that most calls of a walk take: to an element that is not the first of its query, with nothing to trace.
// False, with nothing changed, if this is another one; iterate() then takes it the long way, or says what is wrong.
template <typename Record>
inline bool stepInSubset(const char* category, Internal_ResultSetToken_t* resultSet, Record* record)
{
    if (!isSetUp() || traceLevelExceeds(TRACE_EVENT) || !resultSet || !record) return false;
    // Is either 0? (Two large ones may have that product, too: the long way is as good.)
    const uint32_t elementIndex = static_cast<uint32_t>(resultSet->elementResultIndex);
    if (elementIndex * static_cast<uint32_t>(resultSet->queryIndex) == 0) return false;

    // With less than the terminator's value ahead, no length that fits can be taken for the terminator.
    char* const from = resultSet->cursor;
    const uintptr_t start = reinterpret_cast<uintptr_t>(resultSet->rsBuffPtr);
    const uintptr_t last = start + static_cast<uint32_t>(resultSet->rsBuffLen) - fixedSize(record);
    const size_t room = last - reinterpret_cast<uintptr_t>(from);
    if (room >= RESULT_SET_TERMINATOR || reinterpret_cast<uintptr_t>(from) <= start) return false;
    if (memcmp(resultSet->rsBuffPtr, category, EYECATCHER_SIZE) != 0 || !isKnownOwner(resultSet)) return false;
    char* const next = showElementAt(from, room, record);
    if (!next) return false;

    __atomic_store_n(&resultSet->cursor, next, __ATOMIC_RELAXED); // another thread's dumpState may look
    record->queryElementPtr = resultSet->cacheElementPtr;
    const int queryElementLen = resultSet->cacheElementLen;
    const int queryElementRC = resultSet->cacheElementRC;
    record->queryElementLen = queryElementLen;
    record->queryElementRC = queryElementRC;
    ++resultSet->elementResultIndex;
    if (__builtin_expect(resultSet->elementResultIndex > resultSet->elementResultCount, 0)) {
        resultSet->elementResultIndex = 0;
        ++resultSet->queryIndex;
    }
    return true;
}

template <typename Record>
int iterate(KRV_ResultSetToken_t rsPtr, Record* record, const IterationCall& call, const Worker& worker)
{
    int krvStatRc = stapiInit();
    traceEntry(call.entry, "API.%s(rsPtr=%p, %s=%p)\n", call.function, static_cast<void*>(rsPtr), call.recordName,
        static_cast<void*>(record));
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkIterationArguments(call, rsPtr, record);
    if (krvStatRc == KRVSTAT_OK) krvStatRc = walkInto(worker, rsPtr, record);
    traceExit(call.exit, "API.%s(rsPtr=%p, %s=%p) rc=%d\n", call.function, static_cast<void*>(rsPtr), call.recordName,
        static_cast<void*>(record), krvStatRc);
    return krvStatRc;
}

// ---- Query text from ids ----

int checkIdQueryArguments(Internal_ResultSetToken_t* rsPtr, char** idQueryStringPtr)
{
    if (!rsPtr) {
        traceExc(1041, "API.getIdQuery(rsPtr=%p) Supplied result set token is NULL\n", static_cast<void*>(rsPtr));
        return KRVSTAT_NULL_RESULT_SET_TOKEN;
    }
    if (!idQueryStringPtr) {
        traceExc(1041, "API.getIdQuery(&idQueryStringPtr=%p) Supplied pointer is NULL\n",
            static_cast<void*>(idQueryStringPtr));
        return KRVSTAT_NULL_OUTPUT_POINTER;
    }
    if (!holdsAnyCategory(rsPtr)) {
        traceExc(1041, "API.getIdQuery Resultset does not contain recognised content\n");
        return KRVSTAT_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(rsPtr);
}

// A text under construction in an area of QUERY_TEXT_SIZE bytes.
struct IdText {
    char* area;
    size_t length;
    int goodIdCount;
};

// An id that does not fit is passed over; a later, shorter one may still fit.
void appendId(IdText* text, const char* id, int idLen)
{
    const size_t size = static_cast<size_t>(idLen);
    if (size >= QUERY_TEXT_SIZE || text->length + size + 1 >= QUERY_TEXT_SIZE) return;
    if (text->goodIdCount > 0) text->area[text->length++] = ':';
    memcpy(text->area + text->length, id, size);
    text->length += size;
    ++text->goodIdCount;
}

// Walks the whole set; elements of query elements whose code is not 0 do not count.
void collectIds(Internal_ResultSetToken_t* resultSet, IdText* text)
{
    const bool stats = holdsCategory(resultSet, STATS_EYECATCHER);
    const Worker& first = stats ? firstStatWorker : firstIdWorker;
    const Worker& next = stats ? nextStatWorker : nextIdWorker;
    const Worker* worker = &first;
    for (;;) {
        Step step = {};
        if (walk(*worker, resultSet, nullptr, &step) != KRVSTAT_OK) return;
        if (step.queryElementRC == 0) appendId(text, step.idPtr, step.idLen);
        worker = &next;
    }
}

int buildIdQuery(Internal_ResultSetToken_t* resultSet, char* workArea, char** idQueryStringPtr, int* goodIdCount)
{
    IdText text = {workArea, 0, 0};
    collectIds(resultSet, &text);
    *goodIdCount = text.goodIdCount;
    if (text.length == 0 || !resultSet->validatedQueryPtr) return KRVSTAT_ID_QUERY_FAILED;
    memcpy(resultSet->validatedQueryPtr, workArea, text.length + 1);
    *idQueryStringPtr = resultSet->validatedQueryPtr;
    traceEvent(1141, "API.getIdQuery Created query string %s from results in result set token %p\n",
        resultSet->validatedQueryPtr, static_cast<void*>(resultSet));
    return KRVSTAT_OK;
}

// ---- Copies ----

int checkCopyArguments(Internal_ResultSetToken_t* srcRs, KRV_ResultSetToken_t* tarRsPtr)
{
    if (!srcRs) {
        traceExc(1073, "API.copyResultSet(srcRs=%p) Supplied result set token is NULL\n", static_cast<void*>(srcRs));
        return KRVSTAT_NULL_RESULT_SET_TOKEN;
    }
    if (!tarRsPtr) {
        traceExc(1073, "API.copyResultSet(&tarRsPtr=%p) Supplied result set pointer is NULL\n",
            static_cast<void*>(tarRsPtr));
        return KRVSTAT_NULL_RESULT_SET_POINTER;
    }
    if (!srcRs->rsBuffPtr) {
        traceExc(1074, "API.copyResultSet(srcRs=%p) resultSetBuf is NULL - no data to copy\n",
            static_cast<void*>(srcRs));
        return KRVSTAT_NO_RESULT_BUFFER;
    }
    if (!holdsAnyCategory(srcRs)) {
        traceExc(1074, "API.copyResultSet Resultset does not contain recognised content\n");
        return KRVSTAT_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(srcRs);
}

// A set may end in a terminator that straddles the stated length or stands right behind it: puts what is missing of it
// into the room behind the copied bytes. A set that ends inside needs nothing.
void completeTerminator(char* buffer, size_t length)
{
    const int32_t word = RESULT_SET_TERMINATOR;
    char terminator[sizeof word];
    memcpy(terminator, &word, sizeof word);
    if (memmem(buffer, length, terminator, sizeof word)) return;
    size_t there = length < sizeof word - 1 ? length : sizeof word - 1;
    while (there > 0 && memcmp(buffer + length - there, terminator, there) != 0) --there;
    memcpy(buffer + length, terminator + there, sizeof word - there);
}

int copyBuffer(const Internal_ResultSetToken_t* source, Internal_ResultSetToken_t* copy)
{
    const size_t length = source->rsBuffLen > 0 ? static_cast<size_t>(source->rsBuffLen) : 0;
    char* buffer = static_cast<char*>(malloc(length + RESULT_SET_ROOM));
    traceDebug(1077, "API.copyResultSet Called malloc for %d bytes. rc=%p\n", source->rsBuffLen,
        static_cast<void*>(buffer));
    if (!buffer) {
        traceExc(1078, "API.copyResultSet() Malloc failed for %d bytes\n", source->rsBuffLen);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    memcpy(buffer, source->rsBuffPtr, length);
    memset(buffer + length, 0, RESULT_SET_ROOM);
    completeTerminator(buffer, length);
    copy->rsBuffPtr = buffer;
    copy->rsBuffLen = source->rsBuffLen;
    copy->cursor = buffer;
    copy->category = source->category;
    traceEvent(1135, "API.copyResultSet Copied resultsetbuffer from %p to %p\n", static_cast<void*>(source->rsBuffPtr),
        static_cast<void*>(buffer));
    return KRVSTAT_OK;
}

int makeCopy(Internal_ResultSetToken_t* srcRs, KRV_ResultSetToken_t* tarRsPtr)
{
    char eyecatcher[] = USER_RESULT_SET_EYECATCHER;
    const int createRc = createResultSet(tarRsPtr, eyecatcher, RESULT_SET_OWNER_USER);
    if (createRc != KRVSTAT_OK) {
        traceExc(1075, "API.copyResultSet() Invalid source resultset krvStatRc=d\n");
        return createRc;
    }
    traceEvent(1076, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) Created result set token(%p)\n",
        static_cast<void*>(srcRs), static_cast<void*>(tarRsPtr), static_cast<void*>(*tarRsPtr));
    return copyBuffer(srcRs, *tarRsPtr);
}

int checkFreeArguments(KRV_ResultSetToken_t* rsPtr)
{
    if (!rsPtr) {
        traceExc(1081, "API.freeResultSet(&rsPtr=%p) Supplied result set pointer is NULL\n", static_cast<void*>(rsPtr));
        return KRVSTAT_NULL_RESULT_SET_POINTER;
    }
    if (!*rsPtr) {
        traceExc(1082, "API.freeResultSet(&rsPtr=%p) Supplied result set token is NULL\n", static_cast<void*>(rsPtr));
        return KRVSTAT_NULL_RESULT_SET_TOKEN;
    }
    if ((*rsPtr)->owner != RESULT_SET_OWNER_USER) {
        traceExc(1083, "API.freeResultSet(rsPtr=%p) Cannot free result sets with owner=%d\n",
            static_cast<void*>(*rsPtr), (*rsPtr)->owner);
        return KRVSTAT_RESULT_SET_NOT_USER_OWNED;
    }
    return KRVSTAT_OK;
}

void destroyCopy(KRV_ResultSetToken_t* rsPtr)
{
    Internal_ResultSetToken_t* copy = *rsPtr;
    const volatile uintptr_t freed = reinterpret_cast<uintptr_t>(copy); // volatile: only a number from here on
    if (copy->rsBuffPtr) {
        traceDebug(1084, "API.freeResultSet() free result set buffer storage (%p)\n",
            static_cast<void*>(copy->rsBuffPtr));
        free(copy->rsBuffPtr);
        copy->rsBuffPtr = nullptr;
    } else {
        traceExc(1085, "API.freeResultSet(rsPtr=%p) Result set buffer pointer was already null\n",
            static_cast<void*>(copy));
    }
    deleteResultSet(rsPtr);
    traceEvent(1136, "API.freeResultSetFreed result set %p\n", reinterpret_cast<void*>(freed));
}

int checkDumpArguments(Internal_ResultSetToken_t* rsPtr)
{
    if (!rsPtr) {
        traceExc(1103, "API.dumpResultSet(rsPtr=%p) Supplied result set token is NULL\n", static_cast<void*>(rsPtr));
        return KRVSTAT_NULL_RESULT_SET_TOKEN;
    }
    if (!rsPtr->rsBuffPtr) {
        traceExc(1104, "API.dumpResultSet(rsPtr=%p) resultSetBuf is NULL - no data to dump\n",
            static_cast<void*>(rsPtr));
        return KRVSTAT_NO_RESULT_BUFFER;
    }
    if (!holdsAnyCategory(rsPtr)) {
        traceExc(1104, "API.dumpResultSet Resultset does not contain recognised content\n");
        return KRVSTAT_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(rsPtr);
}

} // namespace

// Sets the library up exactly once, however many threads call at the same time. A failed start is tried again by the
// next call.
int stapiInit()
{
    if (isSetUp()) return 0;
    claimInit();
    const int rc = isSetUp() ? 0 : runInitSteps();
    releaseInit();
    return rc;
}

// ---- Version and trace ----

int getStatsAPIVersion(char** apiVersPtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1088, "API.getStatsAPIVersion(&apiVersPtr=%p)\n", static_cast<void*>(apiVersPtr));
    if (krvStatRc == KRVSTAT_OK && !apiVersPtr) {
        krvStatRc = KRVSTAT_NULL_OUTPUT_POINTER;
        traceExc(1089, "API.getStatsAPIVersion() Supplied pointer is NULL\n");
    }
    if (krvStatRc == KRVSTAT_OK) *apiVersPtr = stapiVersion;
    traceExit(1090, "API.getStatsAPIVersion(&apiVersPtr=%p) rc=%d\n", static_cast<void*>(apiVersPtr), krvStatRc);
    return krvStatRc;
}

int getAPITraceLevel(int* traceStatePtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1091, "API.getAPITraceLevel(&traceState=%p)\n", static_cast<void*>(traceStatePtr));
    if (krvStatRc == KRVSTAT_OK && !traceStatePtr) {
        krvStatRc = KRVSTAT_NULL_OUTPUT_POINTER;
        traceExc(1092, "API.getAPITraceLevel() Supplied pointer is NULL\n");
    }
    if (krvStatRc == KRVSTAT_OK) *traceStatePtr = currentLevel();
    traceExit(1093, "API.getAPITraceLevel(&traceState=%p) rc=%d\n", static_cast<void*>(traceStatePtr), krvStatRc);
    return krvStatRc;
}

int setAPITraceLevel(int traceState)
{
    int krvStatRc = stapiInit();
    traceEntry(1094, "API.setAPITraceLevel(traceState=%d) current trace level=%d\n", traceState, currentLevel());
    if (krvStatRc == KRVSTAT_OK && (traceState < 0 || traceState > 5)) {
        krvStatRc = KRVSTAT_INVALID_TRACE_LEVEL;
        traceExc(1095, "API.setAPITraceLevel() Supplied trace state value %d was invalid\n", traceState);
    }
    if (krvStatRc == KRVSTAT_OK) {
        requestLock(&traceLock);
        // The header counts as written only once setAPITraceFile has written it: until then each switch from level 0
        // repeats it.
        if (traceHeaderWrite == 0 && currentLevel() == 0 && traceState >= 1) writeTraceHeader();
        setLevel(traceState);
        releaseLock(&traceLock);
    }
    traceExit(1096, "API.setAPITraceLevel(traceState=%d) new trace level=%d rc=%d\n", traceState, currentLevel(),
        krvStatRc);
    return krvStatRc;
}

int setAPITraceFile(char* traceFile)
{
    int krvStatRc = stapiInit();
    char destination[TRACE_FILENAME_SIZE] = "";
    if (traceLevelExceeds(TRACE_ENTRY)) copyTraceDestination(destination);
    traceEntry(1097, "API.setAPITraceFile(traceFile=%p) current trace destination=%s\n", static_cast<void*>(traceFile),
        destination);

    if (krvStatRc == KRVSTAT_OK) {
        int openErrno = 0;
        requestLock(&traceLock);
        const Switch result = switchTraceDestination(traceFile, &openErrno);
        if (currentLevel() > 0 && traceHeaderWrite == 0) {
            writeTraceHeader();
            flushTrace();
            traceHeaderWrite = 1;
        }
        releaseLock(&traceLock);

        if (traceLevelExceeds(TRACE_EXC)) copyTraceDestination(destination);
        switch (result) {
        case Switch::OpenFailed:
            krvStatRc = KRVSTAT_TRACE_FILE_OPEN_FAILED;
            traceExc(1100,
                "API.setAPITraceFile(%s) file append failed with errno=%d. Trace file destination is unchanged. "
                "Filename=%s\n",
                traceFile, openErrno, destination);
            break;
        case Switch::NoMemory:
            krvStatRc = KRVSTAT_OUT_OF_MEMORY;
            traceExc(1100,
                "API.setAPITraceFile() Failed to allocate %d bytes. Trace file destination is unchanged. Filename=%s\n",
                TRACE_FILENAME_SIZE, destination);
            break;
        case Switch::Changed:
            traceDebug(1098, "API.setAPITraceFile() Trace file switched to new destination. Filename=%s\n",
                destination);
            break;
        case Switch::Unchanged:
            traceDebug(1099, "API.setAPITraceFile() Trace file destination is unchanged. Filename=%s\n", destination);
            break;
        }
    }

    traceExit(1101, "API.setAPITraceFile(traceFile=%p) new trace destination=%s rc=%d\n",
        static_cast<void*>(traceFile), destination, krvStatRc);
    return krvStatRc;
}

int dup2NativeString(char* in, char** out)
{
    return copyText(nativeCopy, in, out);
}

int dup2ASCIIString(char* in, char** out)
{
    return copyText(asciiCopy, in, out);
}

// ---- Connections ----

int openGatewayConnection(int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr)
{
    beginCall();
    int krvStatRc = stapiInit();
    traceEntry(1000, "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n", port,
        static_cast<void*>(gwTokPtr), static_cast<void*>(protocolVersionPtr));
    if (krvStatRc == KRVSTAT_OK) {
        char localHost[] = "127.0.0.1";
        krvStatRc = openRemoteGatewayConnection(localHost, port, gwTokPtr, protocolVersionPtr);
    }
    traceExit(1003, "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p) rc=%d\n", port,
        static_cast<void*>(gwTokPtr), static_cast<void*>(protocolVersionPtr), krvStatRc);
    endCall();
    return krvStatRc;
}

int openRemoteGatewayConnection(char* hostname, int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr)
{
    beginCall();
    int krvStatRc = stapiInit();
    traceEntry(1001,
        "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n",
        orNull(hostname), port, static_cast<void*>(gwTokPtr), static_cast<void*>(protocolVersionPtr));
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkOpenArguments(hostname, port, gwTokPtr, protocolVersionPtr);
    if (krvStatRc == KRVSTAT_OK) krvStatRc = openConnection(hostname, port, gwTokPtr, protocolVersionPtr);
    traceExit(1002,
        "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p) rc=%d\n",
        orNull(hostname), port, static_cast<void*>(gwTokPtr), static_cast<void*>(protocolVersionPtr), krvStatRc);
    endCall();
    return krvStatRc;
}

int closeGatewayConnection(KRV_GatewayToken_t* gwTokPtr)
{
    beginCall();
    int krvStatRc = stapiInit();
    traceEntry(1004, "API.closeGatewayConnection(&gwTokPtr=%p)\n", static_cast<void*>(gwTokPtr));
    if (krvStatRc == KRVSTAT_OK && !gwTokPtr) {
        krvStatRc = KRVSTAT_NULL_GATEWAY_TOKEN_POINTER;
        traceExc(1005, "API.closeGatewayConnection(&gwTokPtr=%p) Null gateway token Pointer\n",
            static_cast<void*>(gwTokPtr));
    } else if (krvStatRc == KRVSTAT_OK && !*gwTokPtr) {
        krvStatRc = KRVSTAT_NULL_GATEWAY_TOKEN;
        traceExc(1005, "API.closeGatewayConnection(gwTokPtr=%p) Null gateway token\n", static_cast<void*>(*gwTokPtr));
    }
    if (krvStatRc == KRVSTAT_OK) {
        krvStatRc = deleteGatewayToken(gwTokPtr, GTL_LOCK_REQUIRED);
        if (krvStatRc == KRVSTAT_OK) {
            traceEvent(1133, "API.closeGatewayConnection Closed Gateway connection for token %p\n",
                static_cast<void*>(*gwTokPtr));
        }
    }
    traceExit(1006, "API.closeGatewayConnection(&gwTokPtr=%p) rc=%d\n", static_cast<void*>(gwTokPtr), krvStatRc);
    endCall();
    return krvStatRc;
}

int closeAllGatewayConnections()
{
    beginCall();
    int krvStatRc = stapiInit();
    traceEntry(1007, "API.closeAllGatewayConnections()\n");
    if (krvStatRc == KRVSTAT_OK) {
        if (deleteGatewayTokens() == GTL_RUNAWAY) krvStatRc = KRVSTAT_GTL_CORRUPT;
        traceEvent(1134, "API.closeAllGatewayConnections Closed all Gateway connections\n");
    }
    traceExit(1008, "API.closeAllGatewayConnections() rc=%d\n", krvStatRc);
    endCall();
    return krvStatRc;
}

int dumpState()
{
    const int krvStatRc = stapiInit();
    traceEntryWithPreviousTimestamp(1106, "API.dumpState()\n");
    if (krvStatRc == KRVSTAT_OK) {
        PipeSignal held;
        holdPipeSignal(&held);
        pinTraceDestination();
        fprintf(traceStream(), "krvstats state dump: API Version=%s Trace Level=%d statAPITraceFile=%s\n", API_VERSION,
            currentLevel(), traceDestination());
        fflush(traceStream());
        unpinTraceDestination();
        releasePipeSignal(&held);
        dumpGatewayTokens();
    }
    traceExit(1107, "API.dumpState() rc=%d\n", krvStatRc);
    return krvStatRc;
}

// ---- Queries ----

int getResourceGroupIds(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* resGrpIdRSPtr)
{
    return query(resourceGroupIdsQuery, gwTok, nullptr, resGrpIdRSPtr);
}

int getStatIds(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* statIdRSPtr)
{
    return query(statIdsQuery, gwTok, nullptr, statIdRSPtr);
}

int getStatIdsByStatGroupId(KRV_GatewayToken_t gwTok, char* providerIdsPtr, KRV_ResultSetToken_t* statIdRSPtr)
{
    return query(statIdsByGroupQuery, gwTok, providerIdsPtr, statIdRSPtr);
}

int getStats(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* statRSPtr)
{
    return query(statsQuery, gwTok, nullptr, statRSPtr);
}

int getStatsByStatId(KRV_GatewayToken_t gwTok, char* statIdsPtr, KRV_ResultSetToken_t* statRSPtr)
{
    return query(statsByIdQuery, gwTok, statIdsPtr, statRSPtr);
}

int getStatsByStatGroupId(KRV_GatewayToken_t gwTok, char* providerIdPtr, KRV_ResultSetToken_t* statRSPtr)
{
    return query(statsByGroupQuery, gwTok, providerIdPtr, statRSPtr);
}

// ---- Walking a result set ----

int getFirstId(KRV_ResultSetToken_t rsPtr, KRV_IdData_t* idDataPtr)
{
    return iterate(rsPtr, idDataPtr, firstIdCall, firstIdWorker);
}

int getNextId(KRV_ResultSetToken_t rsPtr, KRV_IdData_t* idDataPtr)
{
    if (stepInSubset(IDS_EYECATCHER, rsPtr, idDataPtr)) return KRVSTAT_OK;
    return iterate(rsPtr, idDataPtr, nextIdCall, nextIdWorker);
}

int getFirstStat(KRV_ResultSetToken_t rsPtr, KRV_StatData_t* statDataPtr)
{
    return iterate(rsPtr, statDataPtr, firstStatCall, firstStatWorker);
}

int getNextStat(KRV_ResultSetToken_t rsPtr, KRV_StatData_t* statDataPtr)
{
    if (stepInSubset(STATS_EYECATCHER, rsPtr, statDataPtr)) return KRVSTAT_OK;
    return iterate(rsPtr, statDataPtr, nextStatCall, nextStatWorker);
}

// ---- Whole result sets ----

int getIdQuery(KRV_ResultSetToken_t rsPtr, char** idQueryStringPtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1040, "API.getIdQuery(rsPtr=%p, &idQueryStringPtr=%p)\n", static_cast<void*>(rsPtr),
        static_cast<void*>(idQueryStringPtr));
    int goodIdCount = 0;
    char* workArea = nullptr;
    if (krvStatRc == KRVSTAT_OK) {
        workArea = static_cast<char*>(malloc(QUERY_TEXT_SIZE));
        if (!workArea) {
            krvStatRc = KRVSTAT_OUT_OF_MEMORY;
            traceExc(1041, "API.getIdQuery() Malloc failed for %d bytes\n", QUERY_TEXT_SIZE);
        }
    }
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkIdQueryArguments(rsPtr, idQueryStringPtr);
    if (krvStatRc == KRVSTAT_OK) {
        memset(workArea, 0, QUERY_TEXT_SIZE);
        krvStatRc = buildIdQuery(rsPtr, workArea, idQueryStringPtr, &goodIdCount);
    }
    free(workArea);
    traceExit(1042, "API.getIdQuery(rsPtr=%p) goodIdCount=%d rc=%d\n", static_cast<void*>(rsPtr), goodIdCount,
        krvStatRc);
    return krvStatRc;
}

int copyResultSet(KRV_ResultSetToken_t srcRs, KRV_ResultSetToken_t* tarRsPtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1072, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p)\n", static_cast<void*>(srcRs),
        static_cast<void*>(tarRsPtr));
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkCopyArguments(srcRs, tarRsPtr);
    if (krvStatRc == KRVSTAT_OK) krvStatRc = makeCopy(srcRs, tarRsPtr);
    traceExit(1079, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) rc=%d\n", static_cast<void*>(srcRs),
        static_cast<void*>(tarRsPtr), krvStatRc);
    return krvStatRc;
}

int freeResultSet(KRV_ResultSetToken_t* rsPtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1080, "API.freeResultSet(&rsPtr=%p)\n", static_cast<void*>(rsPtr));
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkFreeArguments(rsPtr);
    if (krvStatRc == KRVSTAT_OK) destroyCopy(rsPtr);
    traceExit(1087, "API.freeResultSet(&rsPtr=%p) rc=%d\n", static_cast<void*>(rsPtr), krvStatRc);
    return krvStatRc;
}

int dumpResultSet(KRV_ResultSetToken_t rsPtr)
{
    int krvStatRc = stapiInit();
    traceEntry(1102, "API.dumpResultSet(rsPtr=%p)\n", static_cast<void*>(rsPtr));
    if (krvStatRc == KRVSTAT_OK) krvStatRc = checkDumpArguments(rsPtr);
    if (krvStatRc == KRVSTAT_OK) dumpResultSetInternal(rsPtr);
    traceExit(1105, "API.dumpResultSet(rsPtr=%p) rc=%d\n", static_cast<void*>(rsPtr), krvStatRc);
    return krvStatRc;
}
