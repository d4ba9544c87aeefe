/* Requests to the gateway's statistics object, and the parsing of their replies into result-set buffers. */
#ifndef STAPI_KRV_STATCOMMS_H
#define STAPI_KRV_STATCOMMS_H

#include "stapi_krv_requests.h"
#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

extern const char ADMIN_REQUEST_NAME[];     /* "Admin" */
extern const char ADMIN_CLIENT_COUNTRY[];   /* "US" */
extern const char ADMIN_CLIENT_LANGUAGE[];  /* "en" */
extern const char STATS_MBEAN_NAME[];       /* the statistics object */
extern const char STATS_MBEAN_SIG[];        /* type of an operation's argument */
extern const char STATS_MBEAN_ACTION_GET_STATS[];
extern const char STATS_MBEAN_ACTION_STAT_IDS[];
extern const char STATS_MBEAN_ACTION_RESOURCE_GROUPS[];
extern const char STATS_MBEAN_PROTOCOL_VERSION[]; /* the attribute that holds the version */

/* Bytes of a token's first version buffer; a longer version text is refused. */
#define PROTOCOL_VERSION_SIZE 64

/* Runs the init call that opens every admin exchange. Returns flowAdminRequest's result. */
int getInitAdminRequest(int socketDesc, AdminRequest* admin, ReasonCodes* reasons);

/* callInfoLength of an invoke call and of a get-attribute call. */
int calculateCallLength(AdminRequest request);
int calculateGetAttrCallLength(AdminRequest request);

/* Reads the statistics protocol version into the token's protocolVersion. 0, -111 without that buffer, -122 for a bad
 * reply, or the result of the exchange. */
int statProtocolVer(Internal_GatewayToken_t* gwTokPtr, ReasonCodes* reasons);

/* Invokes the operation queryType with queryString and parses the reply into *buffer, which may be replaced.
 * Returns 0, the result of the exchange, -111 if the buffer could not grow (*buffer is then NULL), -122 for a reply that
 * ends too early or holds a negative length. */
int statCommsString(
    int socketDesc, char* queryType, char* queryString, char** buffer, int* bufferLen, ReasonCodes* reasons);

/* statCommsString with an empty queryString. */
int statComms(int socketDesc, char* queryType, char** buffer, int* bufferLen, ReasonCodes* reasons);

/* Parse reply data that is trusted to be whole. *resultSetBuffer, of *resultSetBufferLen bytes (12 at least, with 4
 * beyond them for the terminator of an id set), was made by malloc and is replaced when it grows.
 * 0; -103 if a pointer is NULL; -111 if the buffer could not grow (*resultSetBuffer is then NULL); -122 for a negative
 * length. */
int parseStatsData(char* rawData, char** resultSetBuffer, int* resultSetBufferLen);
int parseIdsData(char* rawData, char** resultSetBuffer, int* resultSetBufferLen);

/* Doubles the buffer and moves the write cursor *buffer to totaldatawritten bytes behind its new start. On failure
 * *resultSetBuffer is NULL, the old block is neither freed nor reachable from the caller. 0, -111. */
int reallocResultsSetBuffer(char** resultSetBuffer, int* resultSetBufferLen, char** buffer, int totaldatawritten);

extern const char version4stapi_krv_statcomms[];

#ifdef __cplusplus
}
#endif

#endif
