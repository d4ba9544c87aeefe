// Messages on a connected socket: the header, the exchange of a request for its reply, and the four kinds of request.
//
// Knows the bytes of every message, not the order of the conversation (stapi_krv_gwycon, stapi_krv_statcomms). Reply
// bytes are read with a bound: what a shorter reply lacks is a bad reply, or zeros where the bytes are opaque.
// Threads: keeps no state; one socket is used by one thread at a time.

#include "stapi_krv_socketcomms.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>

#include "krvstats.h"
#include "stapi_krv_deadline.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_version.h"
#include "stapi_krv_wire.h"

const char version4stapi_krv_socketcomms[] = KRVSTATS_VERSION_BANNER;

const char HANDSHAKE_REQUEST_NAME[] = "BASE";
const char AUTH_REQUEST_NAME[] = "Auth";
const int32_t OUTBOUND_ARRAY_SIZE = 1;
const unsigned char OBJ_ARRAY_HEADER[5] = {0xAC, 0xED, 0x00, 0x05, 0x74}; // stream magic, version 5, string

namespace {

// Results of the flows besides the API's own codes.
constexpr int FLOW_NOT_SENT = -1;
constexpr int FLOW_AUTH_REFUSED = -2;
constexpr int FLOW_ADMIN_FAILED = -3;

constexpr int REQUEST_NAME_TRACE_SIZE = 25;
constexpr size_t HEADER_NAME_LENGTH_OFFSET = 20;

// Language "en", country "GB" as counted texts, then nothing but zeros.
constexpr unsigned char handshakeBody[18] = {0x00, 0x02, 'e', 'n', 0x00, 0x02, 'G', 'B'};

int nameLength(const GatewayRequest* req)
{
    return req->requestTypeLength > 0 ? req->requestTypeLength : 0;
}

void encodeHeader(WireWriter* writer, const GatewayRequest* req)
{
    writeI32(writer, req->eyecatcher);
    writeI32(writer, req->flowVersion);
    writeI32(writer, req->flowType);
    writeI32(writer, req->gatewayRc);
    writeI32(writer, req->messageId);
    writeI32(writer, req->requestTypeLength);
    // The length may have come from a reply's header; a name that is shorter is filled up with zeros.
    const size_t onWire = static_cast<size_t>(nameLength(req));
    const size_t inMemory = req->requestType ? strnlen(req->requestType, onWire) : 0;
    writeBytes(writer, req->requestType, inMemory);
    for (size_t i = inMemory; i < onWire; ++i) writeU8(writer, 0);
    writeU8(writer, static_cast<unsigned char>(req->security));
    writeI32(writer, req->datalength);
}

// The reader takes offset 12 as messageId and offset 16 as gatewayRc, the writer the other way round: the protocol
// crosses them.
void decodeHeader(WireReader* reader, GatewayRequest* req)
{
    req->eyecatcher = readI32(reader);
    req->flowVersion = readI32(reader);
    req->flowType = readI32(reader);
    req->messageId = readI32(reader);
    req->gatewayRc = readI32(reader);
    req->requestTypeLength = readI32(reader);
    skip(reader, req->requestTypeLength < 0 ? SIZE_MAX : static_cast<size_t>(req->requestTypeLength));
    req->security = static_cast<char>(readU8(reader));
    req->datalength = readI32(reader);
}

// Bytes of a whole message, or 0 if its lengths are no message's.
int messageSize(const GatewayRequest* req)
{
    const int64_t size = int64_t{req->requestTypeLength} + req->datalength + GATEWAY_HEADER_FIXED_SIZE;
    if (req->requestTypeLength < 0 || req->datalength < 0 || size > INT_MAX) return 0;
    return static_cast<int>(size);
}

// A writer of the body of a message that fits its own lengths.
WireWriter bodyWriter(char* data, const GatewayRequest* req)
{
    return writerOver(data + nameLength(req) + GATEWAY_HEADER_FIXED_SIZE, static_cast<size_t>(req->datalength));
}

// Zeros for what the fields leave of a body.
void fillUp(WireWriter* writer)
{
    memset(writer->at, 0, static_cast<size_t>(writer->end - writer->at));
    writer->at = writer->end;
}

// A reply's body. One without any is read from the request's own bytes, which flow leaves in place.
WireReader replyBody(const GatewayRequest* header, const char* data, int requestSize)
{
    return readerOver(data, static_cast<size_t>(header->datalength > 0 ? header->datalength : requestSize));
}

// True if the send or receive that just failed would have blocked, and the deadline leaves time to wait.
bool mayWait()
{
    return (errno == EAGAIN || errno == EWOULDBLOCK) && callIsLimited() && !callHasExpired();
}

bool isIgnored(const struct sigaction& action)
{
    return !(action.sa_flags & SA_SIGINFO) && action.sa_handler == SIG_IGN;
}

// Sends all of data with SIGPIPE ignored. The disposition is put back whole, but not where it was "ignore" already: so
// two threads that swap at the same time cannot leave it ignored for good. MSG_NOSIGNAL covers the moment in which the
// other thread has put it back. Before a deadline no send blocks. Returns the bytes sent, or the result of the failed
// send and its errno.
ssize_t sendAll(int socketDesc, const char* data, int dataLen, int* sendErrno)
{
    struct sigaction ignore = {};
    struct sigaction previous = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    const bool swapped = sigaction(SIGPIPE, &ignore, &previous) == 0;

    const int flags = MSG_NOSIGNAL | (callIsLimited() ? MSG_DONTWAIT : 0);
    ssize_t sent = 0;
    ssize_t rc;
    do {
        do {
            rc = send(socketDesc, data + sent, static_cast<size_t>(dataLen - sent), flags);
        } while (rc == -1 && (errno == EINTR || (mayWait() && waitUntilWritable(socketDesc) > 0)));
        if (rc > 0) sent += rc;
    } while (rc > 0 && sent < dataLen);
    *sendErrno = errno;

    if (swapped && !isIgnored(previous)) sigaction(SIGPIPE, &previous, nullptr);
    return rc > 0 ? sent : rc;
}

// Waits until there is something to read: without a time limit, or until the deadline. A call that is late already does
// not wait for its reply. Returns 0, select's negative result, or -122 at the deadline.
int waitForReply(int socketDesc)
{
    const int rc = callHasExpired() ? 0 : waitUntilReadable(socketDesc);
    if (rc == 0) return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    return rc < 0 ? rc : 0;
}

// A call that is late receives nothing more, also from a gateway that never lets it wait: as if that had closed.
ssize_t receive(int socketDesc, char* data, size_t size)
{
    if (callHasExpired()) return 0;
    const int flags = callIsLimited() ? MSG_DONTWAIT : 0;
    ssize_t rc;
    do {
        rc = recv(socketDesc, data, size, flags);
    } while (rc == -1 && (errno == EINTR || (mayWait() && waitUntilReadable(socketDesc) > 0)));
    return rc;
}

// Reads and decodes the header of a reply that carries a name as long as the request's. Returns 0, -111 or -122.
int receiveHeader(int socketDesc, const char* requestName, GatewayRequest* header, ReasonCodes* reasons)
{
    const int nameSize = static_cast<int>(strlen(requestName));
    const int headerSize = nameSize + GATEWAY_HEADER_FIXED_SIZE;
    char* headerData = static_cast<char*>(malloc(static_cast<size_t>(headerSize)));
    traceDebug(3230, ".flow Called malloc for %d bytes. rc=%p\n", headerSize, static_cast<void*>(headerData));
    if (!headerData) {
        traceExc(3231, ".flowFailed to allocate %d bytes.\n", headerSize);
        return KRVSTAT_OUT_OF_MEMORY;
    }

    int rc = readFromSocket(socketDesc, headerSize, headerData);
    if (rc != 0) {
        reasons->socketErrno = rc;
        rc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    if (rc == 0) {
        WireReader reader = readerOver(headerData, static_cast<size_t>(headerSize));
        const int32_t eyecatcher = readI32(&reader);
        skip(&reader, HEADER_NAME_LENGTH_OFFSET - sizeof eyecatcher);
        const int32_t replyNameLength = readI32(&reader);
        if (eyecatcher != GATEWAY_EYECATCHER) {
            traceExc(3251, ".flow Bad eyecatcher! Expected=0x%x, actual=0x%x\n",
                static_cast<unsigned int>(GATEWAY_EYECATCHER), static_cast<unsigned int>(eyecatcher));
            rc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
        } else if (replyNameLength < 0 || replyNameLength > nameSize) {
            // The fields behind the name would lie outside what was received.
            traceExc(3251, ".flow Bad request name length! Expected=%d, actual=%d\n", nameSize, replyNameLength);
            rc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
        } else {
            populateHeader(headerData, header);
        }
    }
    traceDebug(3232, ".flow Free header data %p\n", static_cast<void*>(headerData));
    free(headerData);
    return rc;
}

// Replaces *data, the request, by the reply's body. Returns 0, -111 or -122.
int receiveBody(int socketDesc, int bodySize, char** data, ReasonCodes* reasons)
{
    traceDebug(3233, ".flow Free call data %p\n", static_cast<void*>(*data));
    free(*data);
    *data = nullptr;
    traceDebug(3234, ".flow (re-)malloc call &data %p\n", static_cast<void*>(data));
    *data = static_cast<char*>(malloc(static_cast<size_t>(bodySize)));
    traceDebug(3235, ".flow Called malloc for %d bytes. rc=%p\n", bodySize, static_cast<void*>(*data));
    if (!*data) {
        traceExc(3236, ".flow Failed to allocate %d bytes.\n", bodySize);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    const int rc = readFromSocket(socketDesc, bodySize, *data);
    if (rc == 0) return 0;
    reasons->socketErrno = rc;
    return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

// The two requests that go by the name "BASE" differ in this alone.
struct BaseRequest {
    const char* function;
    const char* failed;   // how the function's name runs into "Failed to allocate"
    const char* freeText;
    int32_t flowType;
    int32_t messageId;
    int32_t bodySize;
    int entry;
    int debugMalloc;
    int exc;
    int debugFree;
    int exit;
};

constexpr BaseRequest handshakeRequest = {"flowHandshakeRequest", "flowHandshakeRequestFailed",
    "Free handshake data", FLOW_TYPE_HANDSHAKE, 0, sizeof handshakeBody, 3215, 3216, 3217, 3218, 3219};

constexpr BaseRequest closeRequest = {"flowCloseRequest", "flowCloseRequest Failed", "Free close request data",
    FLOW_TYPE_CLOSE, -1, 0, 3220, 3221, 3222, 3223, 3224};

int flowBaseRequest(const BaseRequest& kind, int socketDesc, ReasonCodes* reasons)
{
    traceEntry(kind.entry, ".%s(socketDesc=%d, reasons=%p)\n", kind.function, socketDesc, static_cast<void*>(reasons));

    GatewayRequest header = {};
    header.eyecatcher = GATEWAY_EYECATCHER;
    header.flowVersion = GATEWAY_FLOW_VERSION;
    header.flowType = kind.flowType;
    header.messageId = kind.messageId;
    header.requestType = HANDSHAKE_REQUEST_NAME;
    header.requestTypeLength = static_cast<int32_t>(strlen(HANDSHAKE_REQUEST_NAME));
    header.datalength = kind.bodySize;

    int rc;
    const int size = messageSize(&header);
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI): a message has a header at least
    char* data = static_cast<char*>(malloc(static_cast<size_t>(size)));
    traceDebug(
        kind.debugMalloc, ".%s Called malloc for %d bytes. rc=%p\n", kind.function, size, static_cast<void*>(data));
    if (!data) {
        traceExc(kind.exc, ".%s to allocate %d bytes.\n", kind.failed, size);
        rc = KRVSTAT_OUT_OF_MEMORY;
    } else {
        writeHeader(&header, data);
        memcpy(data + size - kind.bodySize, handshakeBody, static_cast<size_t>(kind.bodySize));
        rc = flow(socketDesc, size, &data, const_cast<char*>(HANDSHAKE_REQUEST_NAME), &header, reasons);
        traceDebug(kind.debugFree, ".%s %s %p\n", kind.function, kind.freeText, static_cast<void*>(data));
        free(data);
    }

    traceExit(kind.exit, ".%s(socketDesc=%d, reasons=%p) rc=%d\n", kind.function, socketDesc,
        static_cast<void*>(reasons), rc);
    return rc;
}

// What tells the two kinds of call apart besides their bodies.
struct CallKind {
    const char* function;
    int debugMalloc;
    int exc;
    int debugFree;
};

constexpr CallKind authCall = {"flowAuthRequest", 3210, 3211, 3213};
constexpr CallKind adminCall = {"flowAdminRequest", 3201, 3202, 3207};

// Encodes a request of `size` bytes into a new block, *data, and flows it. *data is the caller's to free, whatever comes
// of it. Returns 0, -1 for a record that does not fit its own lengths, -111, or flow's result.
template <typename Request>
int exchangeCall(const CallKind& kind, void (*encodeBody)(WireWriter*, const Request*), int socketDesc, int size,
    Request* request, char** data, ReasonCodes* reasons)
{
    if (size == 0) return FLOW_NOT_SENT;
    *data = static_cast<char*>(malloc(static_cast<size_t>(size)));
    traceDebug(
        kind.debugMalloc, ".%s Called malloc for %d bytes. rc=%p\n", kind.function, size, static_cast<void*>(*data));
    if (!*data) {
        traceExc(kind.exc, ".%sFailed to allocate %d bytes.\n", kind.function, size);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    writeHeader(&request->header, *data);
    WireWriter writer = bodyWriter(*data, &request->header);
    encodeBody(&writer, request);
    fillUp(&writer);
    if (writer.spent) return FLOW_NOT_SENT;
    return flow(
        socketDesc, size, data, const_cast<char*>(request->header.requestType), &request->header, reasons);
}

void freeCall(const CallKind& kind, char* data)
{
    if (!data) return;
    traceDebug(kind.debugFree, ".%s Free request data %p\n", kind.function, static_cast<void*>(data));
    free(data);
}

//   offset  width
//        0      4  callType
//        4      8  activeProtocolMap, opaque    only in the confirmation call
//       12      4  serverVersion, opaque             "
//       16      4  protocolDataLength, opaque        "
void encodeAuthBody(WireWriter* writer, const AuthRequest* request)
{
    writeI32(writer, request->callType);
    if (request->callType != AUTH_CALL_CONFIRM) return;
    writeBytes(writer, &request->activeProtocolMap, sizeof request->activeProtocolMap);
    writeBytes(writer, &request->serverVersion, sizeof request->serverVersion);
    writeBytes(writer, &request->protocolDataLength, sizeof request->protocolDataLength);
}

//   offset  width
//        0      4  callType
//        4      4  authRc
//        8      8  activeProtocolMap (callType 0), else protocolReturnMap; opaque
//       16      4  serverVersion, opaque (callType 0)
int decodeAuthReply(WireReader body, AuthRequest* request, ReasonCodes* reasons)
{
    request->callType = readI32(&body);
    request->authRc = readI32(&body);
    if (body.spent) {
        traceExc(3212, ".flowAuthRequest Reply is too short\n");
        return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    if (request->callType != AUTH_CALL_INIT) {
        readOpaque(&body, &request->protocolReturnMap, sizeof request->protocolReturnMap);
        return 0;
    }
    if (request->authRc != 0) {
        traceExc(3212, ".flowAuthRequestAuth_Init request failed rc=%d\n", request->authRc);
        reasons->authRc = request->authRc;
        return FLOW_AUTH_REFUSED;
    }
    readOpaque(&body, &request->activeProtocolMap, sizeof request->activeProtocolMap);
    readOpaque(&body, &request->serverVersion, sizeof request->serverVersion);
    return 0;
}

void writeText(WireWriter* writer, const char* text)
{
    const size_t length = text ? strlen(text) : 0;
    writeU16(writer, static_cast<uint32_t>(length)); // its low 16 bits; all bytes follow
    writeBytes(writer, text, length);
}

//   4 callType; nothing else in the init call
//   4 serverVersion, opaque; 4 callInfoLength; then texts, each a 2-byte length and its bytes:
//   clientCountry, clientLanguage, clientVariant, objectName
//   get attribute: attributeName
//   invoke:        invokeAction, 4 array size, 5 OBJ_ARRAY_HEADER, invokeParms, 4 array size, invokeSigs
void encodeAdminBody(WireWriter* writer, const AdminRequest* request)
{
    writeI32(writer, request->callType);
    if (request->callType <= ADMIN_CALL_INIT) return;
    writeBytes(writer, &request->serverVersion, sizeof request->serverVersion);
    writeI32(writer, request->callInfoLength);
    writeText(writer, request->clientCountry);
    writeText(writer, request->clientLanguage);
    writeText(writer, request->clientVariant);
    writeText(writer, request->objectName);
    if (request->callType == ADMIN_CALL_GET_ATTRIBUTE) writeText(writer, request->attributeName);
    if (request->callType == ADMIN_CALL_INVOKE) {
        writeText(writer, request->invokeAction);
        writeI32(writer, OUTBOUND_ARRAY_SIZE);
        writeBytes(writer, OBJ_ARRAY_HEADER, sizeof OBJ_ARRAY_HEADER);
        writeText(writer, request->invokeParms);
        writeI32(writer, OUTBOUND_ARRAY_SIZE);
        writeText(writer, request->invokeSigs);
    }
}

// Takes what is left of the reply over as callData, and its length as the header's.
int keepCallData(WireReader* body, AdminRequest* request)
{
    const size_t length = bytesLeft(body);
    request->header.datalength = static_cast<int32_t>(length);
    request->callData = static_cast<char*>(malloc(length));
    traceDebug(3203, ".flowAdminRequest Called malloc for %d bytes. rc=%p\n", request->header.datalength,
        static_cast<void*>(request->callData));
    if (!request->callData) {
        traceExc(3204, ".flowAdminRequestFailed to allocate %d bytes.\n", request->header.datalength);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    if (length > 0) memcpy(request->callData, take(body, length), length);
    return 0;
}

//   offset  width
//        0      4  callType
//        4      4  adminRc
//        8      4  serverVersion, opaque (callType 0)
//        8      1  exceptionFlag (any other callType)
//        9         the call's result (any other callType)
int decodeAdminReply(WireReader body, AdminRequest* request, ReasonCodes* reasons)
{
    const bool hasBody = request->header.datalength > 0;
    request->callType = readI32(&body);
    request->adminRc = readI32(&body);
    if (!body.spent && request->adminRc != 0) {
        traceExc(3206, ".flowAdminRequest Auth Request returned an error AuthRc=%d\n", request->adminRc);
        reasons->adminRc = request->adminRc;
        return FLOW_ADMIN_FAILED;
    }
    if (!body.spent && request->callType == ADMIN_CALL_INIT) {
        readOpaque(&body, &request->serverVersion, sizeof request->serverVersion);
        return 0;
    }
    request->exceptionFlag = static_cast<char>(readU8(&body));
    if (!body.spent && request->exceptionFlag != 0) {
        traceExc(3205, ".flowAdminRequest Exception occured during request execution\n");
        return FLOW_ADMIN_FAILED;
    }
    // The request's own bytes can stand for the reply's fixed fields, but they hold no result of a call.
    if (body.spent || !hasBody) {
        traceExc(3206, ".flowAdminRequest Reply is too short\n");
        return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    return keepCallData(&body, request);
}

} // namespace

void writeHeader(GatewayRequest* req, char* data)
{
    traceEntry(3248, ".writeHeader(req=%p, data=%p)\n", static_cast<void*>(req), static_cast<void*>(data));
    WireWriter writer = writerOver(data, static_cast<size_t>(nameLength(req)) + GATEWAY_HEADER_FIXED_SIZE);
    encodeHeader(&writer, req);
    traceExit(3249, ".writeHeader(req=%p, data=%p)\n", static_cast<void*>(req), static_cast<void*>(data));
}

void populateHeader(char* data, GatewayRequest* req)
{
    traceEntry(3246, ".populateHeader(data=%p, req=%p)\n", static_cast<void*>(data), static_cast<void*>(req));
    WireReader reader = unboundedReaderOver(data);
    decodeHeader(&reader, req);
    traceExit(3247, ".populateHeader(data=%p, req=%p)\n", static_cast<void*>(data), static_cast<void*>(req));
}

int flow(int socketDesc, int datalen, char** data, char* requestName, GatewayRequest* header, ReasonCodes* reasons)
{
    char requestNameText[REQUEST_NAME_TRACE_SIZE] = "";
    strncpy(requestNameText, requestName, sizeof requestNameText - 1);
    traceEntry(3225, ".flow(socketDesc=%d, datalen=%d, &data=%p, requestName=%s, header=%p, reasons=%p)\n", socketDesc,
        datalen, static_cast<void*>(data), requestNameText, static_cast<void*>(header), static_cast<void*>(reasons));
    int rc = 0;

    if (datalen < 1 || !data || !*data) {
        traceExc(3227, ".flow No data to flow!!\n");
        rc = FLOW_NOT_SENT;
    }
    if (rc == 0) {
        traceData(3226, ".flow data=%p len=%d stopword=%8.8X\n", *data, datalen, 0u, 0);
        int sendErrno = 0;
        const ssize_t sent = sendAll(socketDesc, *data, datalen, &sendErrno);
        if (sent < 1) {
            traceExc(3228, ".flow Unable to write data to socket rc=%d\n", static_cast<int>(sent));
            reasons->socketErrno = sendErrno;
            traceExc(3229, ".flow Unable to send data to Gateway: errno=%d\n", sendErrno);
            rc = FLOW_NOT_SENT;
        }
    }
    if (rc == 0) rc = waitForReply(socketDesc);
    if (rc == 0) rc = receiveHeader(socketDesc, requestName, header, reasons);
    if (rc == 0) {
        if (header->datalength < 1) {
            traceDebug(
                3237, ".flow Managed to read in whole response in one go. data=0x%p\n", static_cast<void*>(*data));
        } else {
            rc = receiveBody(socketDesc, header->datalength, data, reasons);
        }
    }
    if (rc == 0 && header->gatewayRc != 0) {
        reasons->gatewayRc = header->gatewayRc;
        rc = header->gatewayRc;
    }
    if (rc == 0) {
        traceEvent(3250, ".flow Successfully sent and received data with Gateway on socket %d\n", socketDesc);
    }

    traceExit(3238, ".flow(socketDesc=%d, datalen=%d, &data=%p, requestName=%s, header=%p, reasons=%p) rc=%d\n",
        socketDesc, datalen, static_cast<void*>(data), requestNameText, static_cast<void*>(header),
        static_cast<void*>(reasons), rc);
    return rc;
}

int readFromSocket(int socketDesc, int dataSize, char* dataBuf)
{
    traceEntry(3239, ".readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p)\n", socketDesc, dataSize,
        static_cast<void*>(dataBuf));
    int rc = 0;
    int total = 0;

    ssize_t readData = receive(socketDesc, dataBuf, static_cast<size_t>(dataSize));
    traceDebug(3240, ".readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d)\n", socketDesc,
        dataSize, static_cast<void*>(dataBuf), static_cast<int>(readData));
    if (readData == 0) {
        rc = -1;
    } else if (readData < 0) {
        rc = errno;
        traceExc(3244, ".readFromSocket read returned an error code: errno=%d\n", rc);
    } else {
        total = static_cast<int>(readData);
        while (rc == 0 && total < dataSize) {
            readData = receive(socketDesc, dataBuf + total, static_cast<size_t>(dataSize - total));
            if (readData > 0) total += static_cast<int>(readData);
            traceDebug(3241,
                ".readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d, "
                "totaldata=%d)\n",
                socketDesc, dataSize, static_cast<void*>(dataBuf), static_cast<int>(readData), total);
            if (readData < 1) {
                // An orderly close leaves errno as it was: where that is 0, the message must still not pass for whole.
                const int readErrno = errno;
                rc = readErrno != 0 ? readErrno : -1;
                traceExc(3242, ".readFromSocket read returned an error code: errno=%d\n", readErrno);
            }
        }
        traceData(3243, ".readFromSocket data=%p len=%d stopword=%8.8X\n", dataBuf, total, 0u, 0);
    }

    traceExit(3245, ".readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p) rc=%d\n", socketDesc, dataSize,
        static_cast<void*>(dataBuf), rc);
    return rc;
}

int flowHandshakeRequest(int socketDesc, ReasonCodes* reasons)
{
    return flowBaseRequest(handshakeRequest, socketDesc, reasons);
}

int flowCloseRequest(int socketDesc, ReasonCodes* reasons)
{
    return flowBaseRequest(closeRequest, socketDesc, reasons);
}

int flowAuthRequest(int socketDesc, AuthRequest* request, ReasonCodes* reasons)
{
    traceEntry(3209, ".flowAuthRequest(socketDesc=%d, request=%p, reasons=%p)\n", socketDesc,
        static_cast<void*>(request), static_cast<void*>(reasons));
    const int size = messageSize(&request->header);
    char* data = nullptr;
    int rc = exchangeCall(authCall, encodeAuthBody, socketDesc, size, request, &data, reasons);
    if (rc == 0) rc = decodeAuthReply(replyBody(&request->header, data, size), request, reasons);
    freeCall(authCall, data);
    traceExit(3214, ".flowAuthRequest(socketDesc=%d, request=%p, reasons=%p) rc=%d\n", socketDesc,
        static_cast<void*>(request), static_cast<void*>(reasons), rc);
    return rc;
}

int flowAdminRequest(int socketDesc, AdminRequest* request, ReasonCodes* reasons)
{
    traceEntry(3200, ".flowAdminRequest(socketDesc=%d, request=%p, reasons=%p)\n", socketDesc,
        static_cast<void*>(request), static_cast<void*>(reasons));
    const int size = messageSize(&request->header);
    char* data = nullptr;
    int rc = exchangeCall(adminCall, encodeAdminBody, socketDesc, size, request, &data, reasons);
    if (rc == 0) rc = decodeAdminReply(replyBody(&request->header, data, size), request, reasons);
    freeCall(adminCall, data);
    traceExit(3208, ".flowAdminRequest(socketDesc=%d, request=%p, reasons=%p) rc=%d\n", socketDesc,
        static_cast<void*>(request), static_cast<void*>(reasons), rc);
    return rc;
}
