/* Messages on a connected socket: header, exchange, and the four kinds of request.
 *
 * Header on the wire, all integers big-endian, N = requestTypeLength:
 *
 *   offset  width  request         reply
 *        0      4  eyecatcher      eyecatcher
 *        4      4  flowVersion     flowVersion
 *        8      4  flowType        flowType
 *       12      4  gatewayRc       messageId      (crossed on purpose)
 *       16      4  messageId       gatewayRc
 *       20      4  N               N
 *       24      N  request name    passed over
 *     24+N      1  security        security
 *     25+N      4  datalength      datalength
 */
#ifndef STAPI_KRV_SOCKETCOMMS_H
#define STAPI_KRV_SOCKETCOMMS_H

#include "stapi_krv_requests.h"

#ifdef __cplusplus
extern "C" {
#endif

extern const char HANDSHAKE_REQUEST_NAME[]; /* "BASE", also of the close request */
extern const char AUTH_REQUEST_NAME[];      /* "Auth" */
extern const int32_t OUTBOUND_ARRAY_SIZE;   /* elements in the arguments and in their signatures */
extern const unsigned char OBJ_ARRAY_HEADER[5]; /* what a serialised string starts with */

/* Writes the header at the start of data, which has room for it. A requestTypeLength beyond the name is filled up with
 * zeros. */
void writeHeader(GatewayRequest* req, char* data);

/* Decodes a whole received header; trusts the name length that it finds. Leaves req->requestType alone. */
void populateHeader(char* data, GatewayRequest* req);

/* Sends datalen bytes from *data and reads the reply: its header into *header, its body, if it has one, into a new
 * block that replaces *data (the request's block is freed; without a body *data stays). The caller frees *data.
 * Returns 0; -1 if nothing could be sent; -111; -122 for a receive failure or a bad reply; or the reply's own non-zero
 * return code. */
int flow(int socketDesc, int datalen, char** data, char* requestName, GatewayRequest* header, ReasonCodes* reasons);

/* Receives exactly dataSize bytes. 0; -1 if the peer closed; otherwise the errno of the failed receive. */
int readFromSocket(int socketDesc, int dataSize, char* dataBuf);

/* 0, -111 or flow's result. */
int flowHandshakeRequest(int socketDesc, ReasonCodes* reasons);
int flowCloseRequest(int socketDesc, ReasonCodes* reasons);

/* Encodes the request, flows it and decodes the reply into it. 0, -2 if the gateway refuses, -111, -122, or flow's
 * result. */
int flowAuthRequest(int socketDesc, AuthRequest* request, ReasonCodes* reasons);

/* Encodes the request, flows it and decodes the reply into it; callData, of header.datalength bytes, is the caller's to
 * free. 0, -3 if the call failed in the gateway, -111, -122, or flow's result; -1 if the record does not fit its own
 * lengths (nothing is sent). */
int flowAdminRequest(int socketDesc, AdminRequest* request, ReasonCodes* reasons);

extern const char version4stapi_krv_socketcomms[];

#ifdef __cplusplus
}
#endif

#endif
