// One TCP connection to the gateway: dial, greet, authorise, close.
//
// Knows the order of the conversation; the bytes are made and moved in stapi_krv_socketcomms.
// Threads: a connection belongs to the thread that opened it. Nothing here takes a lock.

#include "stapi_krv_gwycon.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "krvstats.h"
#include "stapi_krv_calls.h"
#include "stapi_krv_deadline.h"
#include "stapi_krv_descriptorset.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_gwycon[] = KRVSTATS_VERSION_BANNER;

int32_t sockOptOn = 1;
int32_t sockOptOff = 0;

namespace {

constexpr int CONNECT_WAIT_SECONDS = 60;
constexpr int PORT_TEXT_SIZE = 16;

// What is left of the wait when a signal cut it short; never nothing, so that a connect that just finished is seen.
timeval remainingWait(time_t selectStartTime)
{
    const time_t selectInterruptTime = time(nullptr);
    const int timeDiff = static_cast<int>(difftime(selectInterruptTime, selectStartTime));
    timeval remaining = {};
    remaining.tv_sec = timeDiff >= 1 && timeDiff < CONNECT_WAIT_SECONDS ? CONNECT_WAIT_SECONDS - timeDiff : 1;
    return remaining;
}

timespec monotonicNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// Where the wall clock is set back, the remaining wait above never gets less: this clock nobody sets.
bool isWaitOver(const timespec& start)
{
    const timespec now = monotonicNow();
    const time_t seconds = now.tv_sec - start.tv_sec;
    return seconds > CONNECT_WAIT_SECONDS || (seconds == CONNECT_WAIT_SECONDS && now.tv_nsec >= start.tv_nsec);
}

// Makes a tuned, non-blocking socket for the address. 0 or CONNECT_SOCKET_SETUP_FAILED; *sockError is the errno of the
// last call that sets one.
int makeSocket(const addrinfo* address, int* socketDescriptorPtr, int* sockError)
{
    traceDebug(3013, ".connectToGateway Creating socket for family %d, type %d, protocol %d\n", address->ai_family,
        address->ai_socktype, address->ai_protocol);
    // Another thread that wants to interrupt the call looks here for a socket to shut down.
    __atomic_store_n(socketDescriptorPtr, socket(address->ai_family, address->ai_socktype, address->ai_protocol),
        __ATOMIC_SEQ_CST);
    if (*socketDescriptorPtr < 0) {
        *sockError = errno;
        traceExc(3001, ".connectToGateway() Unable to create a socket: %s(%d)\n", strerror(*sockError), *sockError);
        return CONNECT_SOCKET_SETUP_FAILED;
    }

    const int32_t keepAliveval = 1;
    const int32_t nodelay = 1;
    if (setsockopt(*socketDescriptorPtr, SOL_SOCKET, SO_KEEPALIVE, &keepAliveval, sizeof keepAliveval) != 0
        || setsockopt(*socketDescriptorPtr, IPPROTO_TCP, TCP_NODELAY, &nodelay, sizeof nodelay) != 0) {
        traceDebug(3002, ".connectToGateway() Set socket to KeepAlive or NoDelay failed: %d\n", *socketDescriptorPtr);
        return CONNECT_SOCKET_SETUP_FAILED;
    }
    traceDebug(3002, ".connectToGateway() Created socket: %d\n", *socketDescriptorPtr);

    const int ioctlRc = ioctl(*socketDescriptorPtr, FIONBIO, &sockOptOn);
    *sockError = errno;
    if (ioctlRc < 0) {
        traceDebug(
            3019, ".connectToGateway() Set Non-Blocking IOCTL failed with Rc=%d, errno=%d\n", ioctlRc, *sockError);
        return CONNECT_SOCKET_SETUP_FAILED;
    }
    return 0;
}

// Connects and puts the socket back to blocking. 0 or a CONNECT_ code.
int dial(const addrinfo* address, const char* hostname, int port, int* socketDescriptorPtr, int* sockError)
{
    int connectRc = connect(*socketDescriptorPtr, address->ai_addr, address->ai_addrlen);
    *sockError = errno;
    if (connectRc == -1 && *sockError == EINPROGRESS && !callIsInterrupted()) {
        traceDebug(3018, ".connectToGateway() Waiting for connect to complete\n");
        connectRc = waitForConnection(socketDescriptorPtr, sockError);
    }

    int gwyConRc = 0;
    if (connectRc == 0) {
        traceDebug(3003, ".connectToGateway() Connected to Gateway %s:%u\n", orNull(hostname),
            static_cast<unsigned int>(port));
        const int ioctlRc = ioctl(*socketDescriptorPtr, FIONBIO, &sockOptOff);
        *sockError = errno;
        if (ioctlRc < 0) {
            traceDebug(
                3020, ".connectToGateway() Set Blocking IOCTL failed with Rc=%d, errno=%d\n", ioctlRc, *sockError);
            gwyConRc = CONNECT_SOCKET_SETUP_FAILED;
        }
    }
    if (connectRc == 0 && gwyConRc == 0) return 0;

    traceExc(3006, ".connectToGateway() Unable to connect to Gateway: %s(%d)\n", strerror(*sockError), *sockError);
    if (connectRc == CONNECT_TIMED_OUT) return CONNECT_TIMED_OUT;
    if (*sockError == ENETUNREACH) return CONNECT_NETWORK_UNREACHABLE;
    if (*sockError == ECONNREFUSED) return CONNECT_REFUSED;
    return CONNECT_OTHER_FAILURE;
}

// The handshake, whose failures all look alike to the caller, and the authorisation, whose result is passed on.
int greet(int socketDescriptor)
{
    ReasonCodes reasons = {};
    const int handshakeRc = flowHandshakeRequest(socketDescriptor, &reasons);
    if (handshakeRc != 0) {
        traceExc(3005, ".connectToGateway() Handshake flows failed rc=%d errno=%s gwyRc=%d authRc=%d\n", handshakeRc,
            strerror(reasons.socketErrno), reasons.gatewayRc, reasons.authRc);
        return CONNECT_OTHER_FAILURE;
    }
    traceDebug(3004, ".connectToGateway() Flowed Handshake to the Gateway\n");
    return authorizeConnection(socketDescriptor, &reasons);
}

} // namespace

int connectToGateway(int port, char* hostname, int* socketDescriptorPtr)
{
    traceEntry(3000, ".connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p)\n", port, orNull(hostname),
        static_cast<void*>(socketDescriptorPtr));

    addrinfo* hostInfo = nullptr;
    int sockError = 0;
    int gwyConRc = getHostInfo(hostname, port, &hostInfo);
    if (gwyConRc == 0) gwyConRc = makeSocket(hostInfo, socketDescriptorPtr, &sockError);
    if (gwyConRc == 0) gwyConRc = dial(hostInfo, hostname, port, socketDescriptorPtr, &sockError);
    if (gwyConRc == 0) gwyConRc = greet(*socketDescriptorPtr);
    if (hostInfo) freeaddrinfo(hostInfo);

    traceExit(3007, ".connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p) connectRc=%d\n", port,
        orNull(hostname), static_cast<void*>(socketDescriptorPtr), gwyConRc);
    return gwyConRc;
}

int closeConnection(int* socketDescriptorPtr)
{
    traceEntry(3008, ".closeConnection(socketDescriptorPtr=%p)\n", static_cast<void*>(socketDescriptorPtr));
    ReasonCodes reasons = {};
    flowCloseRequest(*socketDescriptorPtr, &reasons);
    const int closeConnectionRc = close(*socketDescriptorPtr);
    traceExit(3009, ".closeConnection(socketDescriptorPtr=%p) closeConnectionRc=%d\n",
        static_cast<void*>(socketDescriptorPtr), closeConnectionRc);
    return closeConnectionRc;
}

int authorizeConnection(int socketDescriptor, ReasonCodes* reasons)
{
    traceEntry(
        3010, ".authorizeConnection(socketDescriptor=%d, reasons=%p)\n", socketDescriptor, static_cast<void*>(reasons));

    AuthRequest request = {};
    request.callType = AUTH_CALL_INIT;
    request.header.eyecatcher = GATEWAY_EYECATCHER;
    request.header.flowVersion = GATEWAY_FLOW_VERSION;
    request.header.flowType = FLOW_TYPE_CALL;
    request.header.requestType = AUTH_REQUEST_NAME;
    request.header.requestTypeLength = static_cast<int32_t>(strlen(AUTH_REQUEST_NAME));
    request.header.datalength = 4;
    int rc = flowAuthRequest(socketDescriptor, &request, reasons);

    if (rc == 0) {
        // The rest of the header, and the opaque fields, go back as the first reply brought them.
        request.callType = AUTH_CALL_CONFIRM;
        request.header.flowType = FLOW_TYPE_CALL;
        request.header.requestType = AUTH_REQUEST_NAME;
        request.header.gatewayRc = 0;
        request.header.datalength = 20;
        rc = flowAuthRequest(socketDescriptor, &request, reasons);
    }

    traceExit(3011, ".authorizeConnection(socketDescriptor=%d, reasons=%p) rc=%d\n", socketDescriptor,
        static_cast<void*>(reasons), rc);
    return rc;
}

int getHostInfo(char* address, int port, struct addrinfo** hostInfo)
{
    char portString[PORT_TEXT_SIZE];
    snprintf(portString, sizeof portString, "%d", port);
    addrinfo hints = {};
    const int rc = getaddrinfo(address, portString, &hints, hostInfo);
    if (rc == 0) return 0;
    traceExc(3012, ".getHostInfo() Unable to resolve host (%s:%s): %s(%d)\n", orNull(address), portString,
        gai_strerror(rc), rc);
    return CONNECT_HOST_NOT_RESOLVED;
}

// The set's content is not made anew after an interruption: select leaves it alone then.
int waitForConnection(int* socketDescriptorPtr, int* sockError)
{
    const int descriptor = *socketDescriptorPtr;
    DescriptorSet fdsWr = {};
    DescriptorSet fdsEx = {};
    int connectRc = 0;
    if (makeDescriptorSet(&fdsWr, descriptor) != 0 || makeDescriptorSet(&fdsEx, descriptor) != 0) {
        *sockError = ENOMEM;
        connectRc = CONNECT_OTHER_FAILURE;
    } else {
        timeval connTimeOut = {};
        connTimeOut.tv_sec = CONNECT_WAIT_SECONDS;
        const time_t selectStartTime = time(nullptr);
        const timespec start = monotonicNow();
        int rc;
        int selectErrno;
        for (;;) {
            limitWait(&connTimeOut);
            traceDebug(3014, ".waitForConnection Calling select() on socketdescriptor %d\n", descriptor);
            rc = select(descriptor + 1, nullptr, asFdSet(&fdsWr), asFdSet(&fdsEx), &connTimeOut);
            selectErrno = errno;
            if (rc != -1 || selectErrno != EINTR) break;
            if (isWaitOver(start)) {
                rc = 0;
                break;
            }
            connTimeOut = remainingWait(selectStartTime);
        }

        if (rc > 0 && holdsDescriptor(&fdsWr, descriptor)) {
            int32_t socketerror = 0;
            socklen_t size = sizeof socketerror;
            getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &socketerror, &size);
            if (socketerror != 0) {
                traceExc(3015, ".waitForConnection socket %d connect() failed error %d\n", descriptor, socketerror);
                *sockError = socketerror;
                connectRc = CONNECT_OTHER_FAILURE;
            }
        } else if (rc == 0) {
            traceExc(3016, ".waitForConnection socket %d connect timed out\n", descriptor);
            connectRc = CONNECT_TIMED_OUT;
        } else if (rc < 0) {
            traceExc(3017, ".waitForConnection select call failed with error %d\n", selectErrno);
            *sockError = selectErrno;
            connectRc = CONNECT_OTHER_FAILURE;
        }
    }
    freeDescriptorSet(&fdsWr);
    freeDescriptorSet(&fdsEx);
    return connectRc;
}
