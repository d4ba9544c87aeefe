/* The six queries, one wrapper each: pick the operation, check the buffer, map failures to API codes. */
#ifndef STAPI_KRV_STATQUERY_H
#define STAPI_KRV_STATQUERY_H

#include "stapi_krv_requests.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 0; -103 if *buffer is NULL (no request is made); -102 if nothing could be sent; -122 for any other failure. */
int commsResourceGroupsIds(int socketDesc, char** buffer, int* bufferLen);
int commsStatIdsByStatGroupId(int socketDesc, char** buffer, int* bufferLen, char* ids);
int commsStatIds(int socketDesc, char** buffer, int* bufferLen);
int commsStatsByStatId(int socketDesc, char** buffer, int* bufferLen, char* ids);
int commsStatsByStatGroupId(int socketDesc, char** buffer, int* bufferLen, char* ids);
int commsStats(int socketDesc, char** buffer, int* bufferLen);

extern const char version4stapi_krv_statquery[];

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

/* The API code for the result of a failed exchange: -102 if nothing could be sent or the gateway is not accepting
 * statistics requests, else -122. 0 stays 0. */
int mapCommsResult(int rc, const ReasonCodes* reasons);

#ifdef __cplusplus
}
#endif

#endif
