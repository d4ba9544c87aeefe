/* One TCP connection to the gateway: dial, greet, authorise, close. */
#ifndef STAPI_KRV_GWYCON_H
#define STAPI_KRV_GWYCON_H

#include "stapi_krv_requests.h"

#ifdef __cplusplus
extern "C" {
#endif

struct addrinfo;

/* Arguments of the FIONBIO ioctl. */
extern int32_t sockOptOn;
extern int32_t sockOptOff;

/* What connectToGateway returns besides 0 and the result of authorizeConnection. */
#define CONNECT_OTHER_FAILURE (-100)
#define CONNECT_HOST_NOT_RESOLVED (-101)
#define CONNECT_SOCKET_SETUP_FAILED (-102)
#define CONNECT_TIMED_OUT (-103)
#define CONNECT_REFUSED (-104)
#define CONNECT_NETWORK_UNREACHABLE (-105)

/* Connects, greets and authorises. *socketDescriptorPtr holds the socket whenever one was made, also on failure: the
 * caller closes it. */
int connectToGateway(int port, char* hostname, int* socketDescriptorPtr);

/* Says goodbye, whatever comes of it, and closes the socket. Returns close's result. */
int closeConnection(int* socketDescriptorPtr);

/* The two-step authorisation. Returns flowAuthRequest's result. */
int authorizeConnection(int socketDescriptor, ReasonCodes* reasons);

/* 0 and *hostInfo, to be freed with freeaddrinfo; or CONNECT_HOST_NOT_RESOLVED. */
int getHostInfo(char* address, int port, struct addrinfo** hostInfo);

/* Waits up to 60 seconds for a non-blocking connect. 0; CONNECT_TIMED_OUT; CONNECT_OTHER_FAILURE with *sockError. */
int waitForConnection(int* socketDescriptorPtr, int* sockError);

extern const char version4stapi_krv_gwycon[];

#ifdef __cplusplus
}
#endif

#endif
