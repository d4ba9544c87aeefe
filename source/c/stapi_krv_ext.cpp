// The calls beside the base interface: deadlines, interruption, return codes in words.

#include "krvstats_ext.h"

#include "stapi_krv_deadline.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"

namespace {

struct ReturnCode {
    int rc;
    const char* name;
    const char* text;
};

// Every code of krvstats.h. -112, -114, -117 and -120 are not used.
constexpr ReturnCode returnCodes[] = {
    {KRVSTAT_OK, "KRVSTAT_OK", "The call succeeded."},
    {KRVSTAT_NULL_GATEWAY_TOKEN, "KRVSTAT_NULL_GATEWAY_TOKEN", "The gateway token is NULL."},
    {KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, "KRVSTAT_GATEWAY_TOKEN_NOT_FOUND",
        "The gateway token is not an open connection of this process."},
    {KRVSTAT_GATEWAY_COMMS_FAILED, "KRVSTAT_GATEWAY_COMMS_FAILED",
        "The gateway could not be reached or refused the request."},
    {KRVSTAT_NULL_BUFFER, "KRVSTAT_NULL_BUFFER", "An internal output buffer is NULL."},
    {KRVSTAT_INVALID_TRACE_LEVEL, "KRVSTAT_INVALID_TRACE_LEVEL", "The value is out of range: trace levels are 0 to 5."},
    {KRVSTAT_NULL_PROTOCOL_VERSION_POINTER, "KRVSTAT_NULL_PROTOCOL_VERSION_POINTER",
        "The pointer for the protocol version is NULL."},
    {KRVSTAT_RESULT_SET_NOT_USER_OWNED, "KRVSTAT_RESULT_SET_NOT_USER_OWNED",
        "Only copied result sets may be freed; a connection's own goes with its connection."},
    {KRVSTAT_INVALID_PORT, "KRVSTAT_INVALID_PORT", "The port is outside 1 to 65535."},
    {KRVSTAT_NULL_GATEWAY_TOKEN_POINTER, "KRVSTAT_NULL_GATEWAY_TOKEN_POINTER",
        "The pointer to the gateway token is NULL."},
    {KRVSTAT_NULL_OUTPUT_POINTER, "KRVSTAT_NULL_OUTPUT_POINTER", "An output pointer is NULL."},
    {KRVSTAT_NO_RESULT_BUFFER, "KRVSTAT_NO_RESULT_BUFFER",
        "The result-set buffer is gone; the connection may have been closed."},
    {KRVSTAT_OUT_OF_MEMORY, "KRVSTAT_OUT_OF_MEMORY", "There was not enough memory."},
    {KRVSTAT_RESULT_SET_EMPTY, "KRVSTAT_RESULT_SET_EMPTY", "There is no further data in the result set."},
    {KRVSTAT_GTL_CORRUPT, "KRVSTAT_GTL_CORRUPT", "The list of open connections is damaged or too long."},
    {KRVSTAT_INVALID_RESULT_SET_OWNER, "KRVSTAT_INVALID_RESULT_SET_OWNER",
        "The owner of a result set was not recognised."},
    {KRVSTAT_CONNECT_FAILED, "KRVSTAT_CONNECT_FAILED",
        "The connection to the gateway failed, or the gateway did not accept the greeting."},
    {KRVSTAT_WRONG_RESULT_SET_CONTENT, "KRVSTAT_WRONG_RESULT_SET_CONTENT",
        "The result set holds another kind of data than asked for."},
    {KRVSTAT_LOCK_INIT_FAILED, "KRVSTAT_LOCK_INIT_FAILED", "The trace lock could not be initialised."},
    {KRVSTAT_GATEWAY_PROTOCOL_ERROR, "KRVSTAT_GATEWAY_PROTOCOL_ERROR",
        "The exchange with the gateway failed: it closed the connection, sent a bad reply, or did not answer in time."},
    {KRVSTAT_PID_MISMATCH, "KRVSTAT_PID_MISMATCH", "The handle belongs to another process."},
    {KRVSTAT_TID_MISMATCH, "KRVSTAT_TID_MISMATCH", "The handle belongs to another thread."},
    {KRVSTAT_NULL_RESULT_SET_POINTER, "KRVSTAT_NULL_RESULT_SET_POINTER", "The pointer to the result set is NULL."},
    {KRVSTAT_NULL_QUERY_ARGUMENT, "KRVSTAT_NULL_QUERY_ARGUMENT", "The text with ids is NULL."},
    {KRVSTAT_NULL_RESULT_SET_TOKEN, "KRVSTAT_NULL_RESULT_SET_TOKEN", "The result set is NULL."},
    {KRVSTAT_NULL_ID_DATA_POINTER, "KRVSTAT_NULL_ID_DATA_POINTER", "The pointer to the id record is NULL."},
    {KRVSTAT_NULL_STAT_DATA_POINTER, "KRVSTAT_NULL_STAT_DATA_POINTER",
        "The pointer to the statistic record is NULL."},
    {KRVSTAT_TRACE_FILE_OPEN_FAILED, "KRVSTAT_TRACE_FILE_OPEN_FAILED",
        "The trace file could not be opened for append."},
    {KRVSTAT_ID_QUERY_FAILED, "KRVSTAT_ID_QUERY_FAILED", "No query text could be built from the result set."},
    {KRVSTAT_HOST_NOT_RESOLVED, "KRVSTAT_HOST_NOT_RESOLVED", "The host name could not be resolved."},
    {KRVSTAT_NULL_HOSTNAME, "KRVSTAT_NULL_HOSTNAME", "The host name is NULL."},
    {KRVSTAT_CONNECT_TIMEOUT, "KRVSTAT_CONNECT_TIMEOUT", "The connection did not complete in time."},
    {KRVSTAT_CONNECTION_REFUSED, "KRVSTAT_CONNECTION_REFUSED", "Nobody listens at that address and port."},
    {KRVSTAT_NETWORK_UNREACHABLE, "KRVSTAT_NETWORK_UNREACHABLE", "The network is unreachable."},
};

constexpr ReturnCode unknownCode = {0, "KRVSTAT_UNKNOWN", "This is not a return code of krvstats."};

const ReturnCode& lookUp(int rc)
{
    for (const ReturnCode& code : returnCodes) {
        if (code.rc == rc) return code;
    }
    return unknownCode;
}

} // namespace

int setCallDeadline(int milliseconds)
{
    int krvStatRc = stapiInit();
    traceEntry(1143, "API.setCallDeadline(milliseconds=%d)\n", milliseconds);
    if (krvStatRc == KRVSTAT_OK && milliseconds < 0) {
        krvStatRc = KRVSTAT_INVALID_TRACE_LEVEL;
        traceExc(1144, "API.setCallDeadline() Supplied deadline %d was invalid\n", milliseconds);
    }
    if (krvStatRc == KRVSTAT_OK) setCallLimit(milliseconds);
    traceExit(1145, "API.setCallDeadline(milliseconds=%d) rc=%d\n", milliseconds, krvStatRc);
    return krvStatRc;
}

int interruptGatewayConnection(KRV_GatewayToken_t gwTok)
{
    int krvStatRc = stapiInit();
    traceEntry(1146, "API.interruptGatewayConnection(gwTok=%p)\n", static_cast<void*>(gwTok));
    if (krvStatRc == KRVSTAT_OK && !gwTok) {
        krvStatRc = KRVSTAT_NULL_GATEWAY_TOKEN;
        traceExc(1147, "API.interruptGatewayConnection(gwTok=%p) Null gateway token\n", static_cast<void*>(gwTok));
    }
    if (krvStatRc == KRVSTAT_OK) krvStatRc = interruptGatewayToken(gwTok);
    traceExit(1148, "API.interruptGatewayConnection(gwTok=%p) rc=%d\n", static_cast<void*>(gwTok), krvStatRc);
    return krvStatRc;
}

const char* getReturnCodeName(int rc)
{
    return lookUp(rc).name;
}

const char* getReturnCodeText(int rc)
{
    return lookUp(rc).text;
}
