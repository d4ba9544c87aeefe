// The six queries, one wrapper each: pick the operation, check the buffer, map failures to API codes.
//
// Threads: nothing here is shared; each call keeps its own ReasonCodes, which are not passed back.

#include "stapi_krv_statquery.h"

#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_statquery[] = KRVSTATS_VERSION_BANNER;

namespace {

// A gateway that does not take statistics requests answers with this return code.
constexpr int RESULT_NOT_ACCEPTED = -4;
constexpr int32_t GATEWAY_RC_NOT_ACCEPTED = 0xF004;

// A query by name, operation and the trace points behind its ENTRY line: EXIT and DATA.
struct Query {
    const char* function;
    const char* action;
    int exit;
    int data;
};

constexpr Query resourceGroupsIds = {"commsResourceGroupsIds", STATS_MBEAN_ACTION_RESOURCE_GROUPS, 2301, 2312};
constexpr Query statIdsByStatGroupId = {"commsStatIdsByStatGroupId", STATS_MBEAN_ACTION_STAT_IDS, 2303, 2313};
constexpr Query statIds = {"commsStatIds", STATS_MBEAN_ACTION_STAT_IDS, 2305, 2314};
constexpr Query statsByStatId = {"commsStatsByStatId", STATS_MBEAN_ACTION_GET_STATS, 2307, 2315};
constexpr Query statsByStatGroupId = {"commsStatsByStatGroupId", STATS_MBEAN_ACTION_GET_STATS, 2309, 2316};
constexpr Query stats = {"commsStats", STATS_MBEAN_ACTION_GET_STATS, 2311, 2317};

void traceAnswer(const Query& query, char* buffer)
{
    if (!traceLevelExceeds(TRACE_DATA)) return;
    char message[TRACE_MESSAGE_SIZE];
    snprintf(message, sizeof message, ".%s data=%%p len=%%d stopword=%%8.8X\n", query.function);
    writeTraceData(query.data, message, buffer, 0, RESULT_SET_TERMINATOR, 0);
}

int runWithIds(const Query& query, int socketDesc, char** buffer, int* bufferLen, char* ids)
{
    int krvStatRc = KRVSTAT_NULL_BUFFER;
    if (*buffer) {
        ReasonCodes reasons = {};
        krvStatRc = mapCommsResult(
            statCommsString(socketDesc, const_cast<char*>(query.action), ids, buffer, bufferLen, &reasons), &reasons);
        if (krvStatRc == KRVSTAT_OK) traceAnswer(query, *buffer);
    }
    traceExit(query.exit, ".%s(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) krvStatRc=%d\n", query.function,
        socketDesc, static_cast<void*>(*buffer), *bufferLen, static_cast<void*>(ids), krvStatRc);
    return krvStatRc;
}

int runWithoutIds(const Query& query, int socketDesc, char** buffer, int* bufferLen)
{
    int krvstatRc = KRVSTAT_NULL_BUFFER;
    if (*buffer) {
        ReasonCodes reasons = {};
        krvstatRc = mapCommsResult(
            statComms(socketDesc, const_cast<char*>(query.action), buffer, bufferLen, &reasons), &reasons);
        if (krvstatRc == KRVSTAT_OK) traceAnswer(query, *buffer);
    }
    traceExit(query.exit, ".%s(socketDesc=%d, *buffer=%p, *bufferLen=%d) krvstatRc=%d\n", query.function, socketDesc,
        static_cast<void*>(*buffer), *bufferLen, krvstatRc);
    return krvstatRc;
}

} // namespace

int mapCommsResult(int rc, const ReasonCodes* reasons)
{
    if (rc == 0) return KRVSTAT_OK;
    if (rc == -1) return KRVSTAT_GATEWAY_COMMS_FAILED;
    if (rc == RESULT_NOT_ACCEPTED && reasons->gatewayRc == GATEWAY_RC_NOT_ACCEPTED) return KRVSTAT_GATEWAY_COMMS_FAILED;
    return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

int commsResourceGroupsIds(int socketDesc, char** buffer, int* bufferLen)
{
    traceEntry(2300, ".commsResourceGroupsIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc,
        static_cast<void*>(*buffer), *bufferLen);
    return runWithoutIds(resourceGroupsIds, socketDesc, buffer, bufferLen);
}

int commsStatIdsByStatGroupId(int socketDesc, char** buffer, int* bufferLen, char* ids)
{
    traceEntry(2302, ".commsStatIdsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)\n", socketDesc,
        static_cast<void*>(*buffer), *bufferLen, static_cast<void*>(ids));
    return runWithIds(statIdsByStatGroupId, socketDesc, buffer, bufferLen, ids);
}

int commsStatIds(int socketDesc, char** buffer, int* bufferLen)
{
    traceEntry(2304, ".commsStatIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc,
        static_cast<void*>(*buffer), *bufferLen);
    return runWithoutIds(statIds, socketDesc, buffer, bufferLen);
}

int commsStatsByStatId(int socketDesc, char** buffer, int* bufferLen, char* ids)
{
    traceEntry(2306, ".commsStatsByStatId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)\n", socketDesc,
        static_cast<void*>(*buffer), *bufferLen, static_cast<void*>(ids));
    return runWithIds(statsByStatId, socketDesc, buffer, bufferLen, ids);
}

int commsStatsByStatGroupId(int socketDesc, char** buffer, int* bufferLen, char* ids)
{
    traceEntry(2308, ".commsStatsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen, ids=%p)\n", socketDesc,
        static_cast<void*>(*buffer), static_cast<void*>(ids));
    return runWithIds(statsByStatGroupId, socketDesc, buffer, bufferLen, ids);
}

int commsStats(int socketDesc, char** buffer, int* bufferLen)
{
    traceEntry(2310, ".commsStats(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc, static_cast<void*>(*buffer),
        *bufferLen);
    return runWithoutIds(stats, socketDesc, buffer, bufferLen);
}
