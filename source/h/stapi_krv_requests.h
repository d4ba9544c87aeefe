/* The records that requests are filled into and replies are decoded into. */
#ifndef STAPI_KRV_REQUESTS_H
#define STAPI_KRV_REQUESTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Header fields that every request of this library carries. */
#define GATEWAY_EYECATCHER 0x47617465 /* "Gate" on the wire */
#define GATEWAY_FLOW_VERSION 0x700000

#define FLOW_TYPE_CALL 1 /* authorisation and admin */
#define FLOW_TYPE_HANDSHAKE 5
#define FLOW_TYPE_CLOSE 10

/* A header's bytes besides the request name. */
#define GATEWAY_HEADER_FIXED_SIZE 29

/* Why an exchange failed. Filled on failure only; the caller keeps one per request. */
typedef struct _ReasonCodes {
    int32_t socketErrno; /* errno of a failed socket call */
    int32_t gatewayRc;   /* non-zero return code of a reply header */
    int32_t authRc;      /* refusal in the authorisation reply */
    int32_t adminRc;     /* non-zero result of an admin call */
} ReasonCodes;

/* Message header in memory. requestType is borrowed: a static name. */
typedef struct _GatewayRequest {
    int32_t eyecatcher;
    int32_t flowVersion;
    int32_t flowType;
    int32_t messageId;
    int32_t gatewayRc;
    int32_t requestTypeLength; /* bytes of the name on the wire, no terminator */
    const char* requestType;
    char security;
    int32_t datalength; /* bytes of the body behind the header */
} GatewayRequest;

/* Values of callType in AuthRequest. */
enum { AUTH_CALL_INIT = 0, AUTH_CALL_CONFIRM = 1 };

/* The maps and serverVersion are opaque: copied from and to the wire, never swapped or interpreted. */
typedef struct _AuthRequest {
    GatewayRequest header;
    int32_t callType;
    int32_t authRc;
    double activeProtocolMap;
    int32_t serverVersion;
    int32_t protocolDataLength;
    double protocolReturnMap;
} AuthRequest;

/* Values of callType in AdminRequest. */
enum { ADMIN_CALL_INIT = 0, ADMIN_CALL_GET_ATTRIBUTE = 1, ADMIN_CALL_INVOKE = 5 };

/* Body bytes of an admin request in front of what callInfoLength counts. */
#define ADMIN_BODY_FIXED_SIZE 12

/* All texts are borrowed and NUL-terminated; a NULL text counts as empty. */
typedef struct _AdminRequest {
    GatewayRequest header;
    int32_t callType;
    int32_t adminRc;
    int32_t serverVersion; /* opaque, echoed from the init reply */
    int32_t callInfoLength;
    const char* clientCountry;
    const char* clientLanguage;
    const char* clientVariant;
    const char* objectName;
    const char* attributeName;
    const char* invokeAction;
    const char* invokeParms;
    const char* invokeSigs;
    char exceptionFlag;
    char* callData; /* reply payload of header.datalength bytes; allocated by flowAdminRequest, freed by the caller */
} AdminRequest;

#ifdef __cplusplus
}
#endif

#endif
