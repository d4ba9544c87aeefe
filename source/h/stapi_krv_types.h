/* The records behind the two public handles, and the identities that own them. */
#ifndef STAPI_KRV_TYPES_H
#define STAPI_KRV_TYPES_H

#include <pthread.h>
#include <stdint.h>
#include <sys/types.h>

#include "krvstats.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef pid_t ProcessId;
typedef pthread_t ThreadId;

/* Who owns a result set: a gateway token, or the application that copied it. */
#define RESULT_SET_OWNER_API 0x8888
#define RESULT_SET_OWNER_USER 0x9999

/* A result set. queryString and validatedQueryPtr are owned; rsBuffPtr is owned by the gateway token (owner 0x8888) or
 * by this record (owner 0x9999). An rsBuffLen of 0 or less means that the creator named no bound. */
typedef struct _KRV_ResultSetToken_t {
    char eyecatcher[8]; /* "KRVRSROB" or "KRVRSUSR", no NUL */
    int32_t owner;
    int32_t category;
    char* queryString;       /* text of the last query, NULL when none */
    char* validatedQueryPtr; /* scratch area of QUERY_TEXT_SIZE bytes for getIdQuery */
    char* rsBuffPtr;
    int32_t rsBuffLen; /* capacity in bytes, not the bytes in use */
    char* cursor;      /* where the walk stands */
    int32_t queryCount;
    int32_t queryIndex; /* 1-based; 0: the walk has not started */
    int32_t elementResultCount;
    int32_t elementResultIndex; /* 1-based number of the next element; 0: the cursor stands at a query header */
    ProcessId owningPid;        /* set for owner 0x8888 only, as owningTid */
    ThreadId owningTid;
    char* cacheElementPtr; /* query header of the element being walked; points into the buffer */
    int32_t cacheElementLen;
    int32_t cacheElementRC;
} Internal_ResultSetToken_t;

/* connStatus of a gateway token. */
enum {
    CONNECTION_CREATED = 0,
    CONNECTION_CONNECTED = 1,
    CONNECTION_CONNECT_FAILED = 2,
    CONNECTION_CLOSE_FAILED = 3,
    CONNECTION_CLOSED = 4
};

/* One connection. Owns connRSPtr, resultSetBuf and protocolVersion. */
typedef struct _KRV_GatewayToken_t {
    char eyecatcher[8]; /* "KRVGWTOK", no NUL */
    uint32_t portNumber;
    int32_t connStatus;
    int32_t socketDescriptor; /* -1 while there is none */
    Internal_ResultSetToken_t* connRSPtr;
    char* resultSetBuf; /* shared with connRSPtr; NULL once it could not grow */
    int32_t resultSetBufLen;
    ProcessId owningPid;
    ThreadId owningTid;
    char* protocolVersion;
    struct _KRV_GatewayToken_t* nextGwyTokPtr;
} Internal_GatewayToken_t;

#ifdef __cplusplus
}
#endif

#endif
