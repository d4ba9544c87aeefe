// The result-set buffer's writer primitives, and the tokens that hold a buffer.
//
// The primitives write at a cursor and trust that there is room: the parsers check and grow before they write. A token
// owns its texts, never its buffer, which goes with the gateway token or with the copy that it belongs to.
// Threads: nothing here is shared; the dump holds traceLock for its whole output.

#include "stapi_krv_resultsetbuffer.h"

#include <cstdlib>
#include <cstring>

#include "stapi_krv_diag.h"
#include "stapi_krv_pipesignal.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_resultsetbuffer[] = KRVSTATS_VERSION_BANNER;

namespace {

// The two operations that copy text differ in their name and trace points alone: this platform's own character set needs
// no translation.
struct CopyOperation {
    const char* name;
    int entry;
    int exc;
    int debug;
    int exit;
};

int copyText(const CopyOperation& operation, char** bufWPtr, char* textPtr, int charCount)
{
    traceEntry(operation.entry, ".%s(&bufWPtr=%p,textPtr=%p,charCount=%d)\n", operation.name,
        static_cast<void*>(bufWPtr), static_cast<void*>(textPtr), charCount);
    int krvStatRc = KRVSTAT_OK;
    if (!bufWPtr || !*bufWPtr || !textPtr) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(operation.exc, ".%s(&bufWPtr=%p,textPtr=%p,charCount=%d) function received a null parameter\n",
            operation.name, static_cast<void*>(bufWPtr), static_cast<void*>(textPtr), charCount);
    } else {
        traceDebug(operation.debug, ".%s() using memcpy() on writeCursor(%p) charCount(%d)\n", operation.name,
            static_cast<void*>(*bufWPtr), charCount);
        if (charCount > 0) {
            memcpy(*bufWPtr, textPtr, static_cast<size_t>(charCount));
            *bufWPtr += charCount;
        }
    }
    traceExit(operation.exit, ".%s(&bufWPtr=%p,textPtr=%p,charCount=%d) rc=%d\n", operation.name,
        static_cast<void*>(bufWPtr), static_cast<void*>(textPtr), charCount, krvStatRc);
    return krvStatRc;
}

} // namespace

int addIdStr(char** bufWPtr, char* idString)
{
    traceEntry(2100, ".addIdStr(&bufWPtr=%p,idString=%p)\n", static_cast<void*>(bufWPtr), static_cast<void*>(idString));
    int krvStatRc = KRVSTAT_OK;
    if (!bufWPtr || !*bufWPtr || !idString) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(2101, ".addIdStr(&bufWPtr=%p,idString=%p) function received a null parameter\n",
            static_cast<void*>(bufWPtr), static_cast<void*>(idString));
    } else {
        const size_t length = strlen(idString);
        char* lengthPtr = *bufWPtr;
        traceDebug(2102, ".addIdStr Before writing id length, write cursor=%p\n", static_cast<void*>(lengthPtr));
        storeWord(lengthPtr, static_cast<int32_t>(length));
        traceDebug(2103, ".addIdStr Wrote length value %u to address %p, which reads back as %u\n",
            static_cast<unsigned int>(length), static_cast<void*>(lengthPtr),
            static_cast<unsigned int>(loadWord(lengthPtr)));
        char* textPtr = lengthPtr + sizeof(int32_t);
        memcpy(textPtr, idString, length + 1);
        *bufWPtr = textPtr + length;
        traceDebug(2104, ".addIdStr Wrote string %s len %u to address %p, first char reads back as %c\n", idString,
            static_cast<unsigned int>(length), static_cast<void*>(textPtr), *textPtr);
    }
    traceExit(2107, ".addIdStr(&bufWPtr=%p,idString=%p) rc=%d\n", static_cast<void*>(bufWPtr),
        static_cast<void*>(idString), krvStatRc);
    return krvStatRc;
}

int addInteger(char** bufWPtr, int rsInt)
{
    traceEntry(2108, ".addInteger(&bufWPtr=%p,rsInt=%d)\n", static_cast<void*>(bufWPtr), rsInt);
    int krvStatRc = KRVSTAT_OK;
    if (!bufWPtr || !*bufWPtr) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(2109, ".addInteger(&bufWPtr=%p) function received a null parameter\n", static_cast<void*>(bufWPtr));
    } else {
        storeWord(*bufWPtr, rsInt);
        *bufWPtr += sizeof(int32_t);
    }
    traceExit(2110, ".addInteger(&bufWPtr=%p,rsInt=%d) rc=%d\n", static_cast<void*>(bufWPtr), rsInt, krvStatRc);
    return krvStatRc;
}

int addChars(char** bufWPtr, char* textPtr, int charCount)
{
    static constexpr CopyOperation operation = {"addChars", 2111, 2112, 2113, 2115};
    return copyText(operation, bufWPtr, textPtr, charCount);
}

int addPlatformChars(char** bufWPtr, char* textPtr, int charCount)
{
    static constexpr CopyOperation operation = {"addPlatformChars", 2116, 2117, 2118, 2119};
    return copyText(operation, bufWPtr, textPtr, charCount);
}

int addTerminator(char* writeCursor)
{
    traceEntry(2120, ".addTerminator(writeCursor=%p)\n", static_cast<void*>(writeCursor));
    int krvStatRc = KRVSTAT_OK;
    if (!writeCursor) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(2121, ".addTerminator(writeCursor=%p) function received a null parameter\n",
            static_cast<void*>(writeCursor));
    } else {
        storeWord(writeCursor, RESULT_SET_TERMINATOR);
    }
    traceExit(2122, ".addTerminator(writeCursor=%p) rc=%d\n", static_cast<void*>(writeCursor), krvStatRc);
    return krvStatRc;
}

int checkTerminator(char* dataCursorPtr, int* isRSTermPtr)
{
    traceEntry(2123, ".checkTerminator(dataCursor=%p, isRSTermPtr=%p)\n", static_cast<void*>(dataCursorPtr),
        static_cast<void*>(isRSTermPtr));
    int krvStatRc = KRVSTAT_OK;
    if (!dataCursorPtr || !isRSTermPtr) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(2124,
            ".checkTerminator(dataCursor=%p, isRSTermPtr=%p) function received a null "
            "parameter\n",
            static_cast<void*>(dataCursorPtr), static_cast<void*>(isRSTermPtr));
    } else {
        *isRSTermPtr = loadWord(dataCursorPtr) == RESULT_SET_TERMINATOR ? 1 : 0;
        traceDebug(2125, ".checkTerminator(dataCursor=%p, *isRSTermPtr=%d)\n", static_cast<void*>(dataCursorPtr),
            *isRSTermPtr);
    }
    traceExit(2126, ".checkTerminator(dataCursor=%p, isRSTermPtr=%p) rc=%d\n", static_cast<void*>(dataCursorPtr),
        static_cast<void*>(isRSTermPtr), krvStatRc);
    return krvStatRc;
}

int createResultSet(KRV_ResultSetToken_t* newRsTokPtr, char* eyecatcher, int owner)
{
    traceEntry(2127, ".createResultSet(&newRsTokPtr=%p, eyecatcher=%p, owner=%x)\n", static_cast<void*>(newRsTokPtr),
        static_cast<void*>(eyecatcher), static_cast<unsigned int>(owner));
    constexpr int recordSize = static_cast<int>(sizeof(Internal_ResultSetToken_t));
    int krvStatRc = KRVSTAT_OK;
    Internal_ResultSetToken_t* resultSet = nullptr;

    if (!newRsTokPtr || !eyecatcher) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
        traceExc(2128,
            ".createResultSet(&newRsTokPtr=%p, eyecatcher=%p) function received a null "
            "parameter\n",
            static_cast<void*>(newRsTokPtr), static_cast<void*>(eyecatcher));
    } else if (owner != RESULT_SET_OWNER_API && owner != RESULT_SET_OWNER_USER) {
        krvStatRc = KRVSTAT_INVALID_RESULT_SET_OWNER;
        traceExc(2128, ".createResultSet Owner %x was invalid\n", static_cast<unsigned int>(owner));
    }

    if (krvStatRc == KRVSTAT_OK) {
        resultSet = static_cast<Internal_ResultSetToken_t*>(malloc(sizeof *resultSet));
        traceDebug(
            2129, ".createResultSet Called malloc for %d bytes. rc=%p\n", recordSize, static_cast<void*>(resultSet));
        if (!resultSet) {
            krvStatRc = KRVSTAT_OUT_OF_MEMORY;
            traceExc(2130, ".createResultSet Failed to allocate %d bytes\n", recordSize);
            *newRsTokPtr = nullptr;
        }
    }

    if (krvStatRc == KRVSTAT_OK) {
        memset(resultSet, 0, sizeof *resultSet);
        resultSet->validatedQueryPtr = static_cast<char*>(malloc(QUERY_TEXT_SIZE));
        traceDebug(2131, ".createResultSet Called malloc for %d bytes. rc=%p\n", QUERY_TEXT_SIZE,
            static_cast<void*>(resultSet->validatedQueryPtr));
        if (!resultSet->validatedQueryPtr) {
            krvStatRc = KRVSTAT_OUT_OF_MEMORY;
            traceExc(2130, ".createResultSet Failed to allocate %d bytes\n", recordSize);
            free(resultSet);
        }
    }

    if (krvStatRc == KRVSTAT_OK) {
        memset(resultSet->validatedQueryPtr, 0, QUERY_TEXT_SIZE);
        memcpy(resultSet->eyecatcher, eyecatcher, strnlen(eyecatcher, sizeof resultSet->eyecatcher));
        resultSet->owner = owner;
        if (owner == RESULT_SET_OWNER_API) getPidTid(&resultSet->owningPid, &resultSet->owningTid);
        *newRsTokPtr = resultSet;
    }

    traceExit(2132, ".createResultSet(&newRsTokPtr=%p, eyecatcher=%p, owner=%x) rc=%d\n",
        static_cast<void*>(newRsTokPtr), static_cast<void*>(eyecatcher), static_cast<unsigned int>(owner), krvStatRc);
    return krvStatRc;
}

int deleteResultSet(KRV_ResultSetToken_t* rsPtr)
{
    traceEntry(2133, ".deleteResultSet(&rsPtr=%p)\n", static_cast<void*>(rsPtr));
    int krvStatRc = KRVSTAT_OK;
    if (!rsPtr) {
        krvStatRc = KRVSTAT_NULL_RESULT_SET_POINTER;
        traceExc(2134, ".deleteResultSet(&rsPtr=%p) Supplied result set pointer is NULL\n", static_cast<void*>(rsPtr));
    } else if (!*rsPtr) {
        krvStatRc = KRVSTAT_NULL_RESULT_SET_TOKEN;
        traceExc(2134, ".deleteResultSet(&rsPtr=%p) Supplied result set token is NULL\n", static_cast<void*>(rsPtr));
    } else {
        Internal_ResultSetToken_t* resultSet = *rsPtr;
        if (resultSet->validatedQueryPtr) {
            traceDebug(2135, ".deleteResultSet Free result set verifiedQueryString(%p)\n",
                static_cast<void*>(resultSet->validatedQueryPtr));
            free(resultSet->validatedQueryPtr);
            resultSet->validatedQueryPtr = nullptr;
        }
        free(resultSet->queryString);
        resultSet->queryString = nullptr;
        traceDebug(2136, ".deleteResultSet Free result set token(%p)\n", static_cast<void*>(resultSet));
        const volatile uintptr_t freed = reinterpret_cast<uintptr_t>(resultSet); // volatile: only a number from here on
        free(resultSet);
        *rsPtr = nullptr;
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): nothing is read through the number
        traceDebug(2137, ".deleteResultSet Freed result set token(%p)\n", reinterpret_cast<void*>(freed));
    }
    traceExit(2138, ".deleteResultSet(&rsPtr=%p) rc=%d\n", static_cast<void*>(rsPtr), krvStatRc);
    return krvStatRc;
}

int verifyAPIResultSetTokenOwner(Internal_ResultSetToken_t* rsPtr)
{
    traceEntry(2141, ".verifyAPIResultSetToken(rsPtr=%p)\n", static_cast<void*>(rsPtr));
    int krvStatRc = KRVSTAT_OK;
    ProcessId currentPid;
    ThreadId currentTid;
    getPidTid(&currentPid, &currentTid);
    if (currentPid != rsPtr->owningPid) {
        krvStatRc = KRVSTAT_PID_MISMATCH;
        traceExc(2142, ".verifyAPIResultSetToken PID mismatch: currentPid=%x, owningPid=%x\n",
            static_cast<unsigned int>(currentPid), static_cast<unsigned int>(rsPtr->owningPid));
    } else if (!compareTids(currentTid, rsPtr->owningTid)) {
        krvStatRc = KRVSTAT_TID_MISMATCH;
        traceExc(2143, ".verifyAPIResultSetToken TID mismatch: currentTid=%x, owningTid=%x\n",
            static_cast<unsigned int>(currentTid), static_cast<unsigned int>(rsPtr->owningTid));
    }
    traceExit(2144, ".verifyAPIResultSetToken(rsPtr=%p) rc=%d\n", static_cast<void*>(rsPtr), krvStatRc);
    return krvStatRc;
}

int dumpResultSetInternal(Internal_ResultSetToken_t* rsPtr)
{
    traceEntry(2139, ".dumpResultSetInternal(rsPtr=%p)\n", static_cast<void*>(rsPtr));
    int krvStatRc = KRVSTAT_OK;
    int bytesDumped = 0;
    if (!rsPtr) {
        krvStatRc = KRVSTAT_NULL_BUFFER;
    } else {
        PipeSignal held;
        holdPipeSignal(&held);
        requestLock(&traceLock);
        fprintf(traceStream(), "Dump of ResultSet(%p) owner(%x) head(%p) next(%p)\n", static_cast<void*>(rsPtr),
            static_cast<unsigned int>(rsPtr->owner), static_cast<void*>(rsPtr->rsBuffPtr),
            static_cast<void*>(rsPtr->cursor));
        writeTraceRule();
        bytesDumped = traceOutStorage(rsPtr->rsBuffPtr, 0, RESULT_SET_TERMINATOR, TRACE_DUMP_WIDTH, 0);
        writeTraceRule();
        fflush(traceStream());
        releaseLock(&traceLock);
        releasePipeSignal(&held);
    }
    traceExit(2140, ".dumpResultSetInternal(rsPtr=%p) bytes dumped=%d rc=%d\n", static_cast<void*>(rsPtr), bytesDumped,
        krvStatRc);
    return krvStatRc;
}
