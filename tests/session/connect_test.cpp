// From a host name to a connection that the gateway has accepted, and to its end; with every call on the way failing.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "interruptions.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "stapi_krv_gwycon.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

char loopback[] = "127.0.0.1";

// Connects to the peer; the socket is closed by the caller.
int connectTo(const ScriptedPeer& peer, int& descriptor)
{
    return connectToGateway(peer.port(), loopback, &descriptor);
}

std::vector<int> numbersOf(const std::vector<TraceLine>& lines, int from, int to)
{
    std::vector<int> numbers;
    for (const TraceLine& line : lines)
        if (line.number >= from && line.number <= to) numbers.push_back(line.number);
    return numbers;
}

TraceLine onlyLine(const std::vector<TraceLine>& lines, int number)
{
    std::vector<TraceLine> found = linesNumbered(lines, number);
    EXPECT_EQ(1u, found.size()) << number;
    return found.empty() ? TraceLine() : found[0];
}

bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

int intOption(int descriptor, int level, int option)
{
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(0, getsockopt(descriptor, level, option, &value, &length));
    return value;
}

constexpr int NoSocket = -77;

// What a failing connect left behind; the socket is closed again.
struct Failure {
    int rc;
    int descriptor = NoSocket;
    bool open = false;
};

Failure connectFailing(int port, const char* host = "127.0.0.1")
{
    Failure failure{0, NoSocket, false};
    failure.rc = connectToGateway(port, const_cast<char*>(host), &failure.descriptor);
    failure.open = failure.descriptor != NoSocket && isOpen(failure.descriptor);
    if (failure.open) close(failure.descriptor);
    return failure;
}

// Nothing that these tests do reaches a gateway: the call that fails comes first.
constexpr int AnyPort = 9;

std::string connectFailedText(int error)
{
    return "stapi_krv_gwycon.connectToGateway() Unable to connect to Gateway: " + std::string(strerror(error)) + "(" +
           std::to_string(error) + ")";
}

}  // namespace

// ---- Success ------------------------------------------------------------------------------------------------------

TEST(Connect, GreetsAndAuthorises)
{
    GatewayAnswers answers;
    ScriptedPeer peer({greeting(answers) + Script{expectCloseWithoutBytes()}});
    int descriptor = NoSocket;
    EXPECT_EQ(0, connectTo(peer, descriptor));
    EXPECT_TRUE(isOpen(descriptor));
    close(descriptor);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(handshakeRequest() + authInitRequest() +
                              authConfirmRequest(answers.protocolMap, answers.authServerVersion),
                          peer.received()));
}

TEST(Connect, LeavesATunedBlockingSocket)
{
    ScriptedPeer peer({greeting()});
    int descriptor = NoSocket;
    ASSERT_EQ(0, connectTo(peer, descriptor));
    EXPECT_EQ(1, intOption(descriptor, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(1, intOption(descriptor, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(0, fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    close(descriptor);
}

TEST(Connect, ByName)
{
    ScriptedPeer peer({greeting()});
    // Whatever "localhost" is here, its first address is what is tried.
    SocketCalls calls;
    int lookups = 0;
    calls.getaddrinfo = [&lookups](const char* host, const char* port, const addrinfo* hints, addrinfo** found) {
        ++lookups;
        EXPECT_STREQ("gateway.example", host);
        return ::getaddrinfo("127.0.0.1", port, hints, found);
    };
    Hooked hooked(calls);
    char name[] = "gateway.example";
    int descriptor = NoSocket;
    EXPECT_EQ(0, connectToGateway(peer.port(), name, &descriptor));
    EXPECT_EQ(1, lookups);
    close(descriptor);
}

TEST(Connect, IsTracedStepByStep)
{
    TraceFile trace(4);
    ScriptedPeer peer({greeting()});
    int descriptor = NoSocket;
    ASSERT_EQ(0, connectTo(peer, descriptor));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3000, 3013, 3002, 3018, 3014, 3003, 3004, 3010, 3011, 3007}),
              numbersOf(lines, 3000, 3020))
        << trace.text();
    EXPECT_EQ("ENTRY", onlyLine(lines, 3000).kind);
    EXPECT_EQ("EXIT", onlyLine(lines, 3007).kind);
    EXPECT_NE(std::string::npos, onlyLine(lines, 3007).message.find("connectRc=0")) << onlyLine(lines, 3007).message;
    for (int number : {3013, 3002, 3018, 3014, 3003, 3004}) EXPECT_EQ("DEBUG", onlyLine(lines, number).kind) << number;
    EXPECT_EQ(0u, onlyLine(lines, 3013)
                      .message.find("stapi_krv_gwycon.connectToGateway Creating socket for family " +
                                    std::to_string(AF_INET) + ", type "));
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Created socket: " + std::to_string(descriptor),
              onlyLine(lines, 3002).message);
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Waiting for connect to complete", onlyLine(lines, 3018).message);
    EXPECT_EQ("stapi_krv_gwycon.waitForConnection Calling select() on socketdescriptor " + std::to_string(descriptor),
              onlyLine(lines, 3014).message);
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Connected to Gateway 127.0.0.1:" + std::to_string(peer.port()),
              onlyLine(lines, 3003).message);
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Flowed Handshake to the Gateway", onlyLine(lines, 3004).message);
    close(descriptor);
}

TEST(Connect, IsTracedByEntryAndExitAtLevelThree)
{
    TraceFile trace(3);
    ScriptedPeer peer({greeting()});
    int descriptor = NoSocket;
    ASSERT_EQ(0, connectTo(peer, descriptor));
    EXPECT_EQ((std::vector<int>{3000, 3010, 3011, 3007}), numbersOf(trace.lines(), 3000, 3020));
    close(descriptor);
}

namespace {

// Waits for a refused connect on descriptors of these numbers.
void expectRefusalKnownAt(std::initializer_list<int> numbers)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(unusedPort()));
    for (int number : numbers) {
        int kept = dup(number);
        int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        ASSERT_EQ(-1, connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        ASSERT_EQ(EINPROGRESS, errno);
        int descriptor = dup2(client, number);
        ASSERT_EQ(number, descriptor);
        close(client);
        int error = 0;
        EXPECT_EQ(-100, waitForConnection(&descriptor, &error)) << number;
        EXPECT_EQ(ECONNREFUSED, error) << number;
        close(number);
        if (kept < 0) continue;
        dup2(kept, number);
        close(kept);
    }
}

}  // namespace

TEST(Connect, RefusalIsKnownWhateverTheNumberOfTheSocket)
{
    expectRefusalKnownAt({30, 31, 32, 33, 62, 63, 64, 65, 95, 96, 127, 128, 500, 1022, 1023});
}

TEST(Connect, WorksWithDescriptorsBeyondAnFdSet)
{
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    rlimit raised = limit;
    raised.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 1600);
    raised.rlim_max = std::max(raised.rlim_max, raised.rlim_cur);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &raised));
    {
        ScriptedPeer peer({greeting()});
        int refusingPort = unusedPort();
        std::vector<int> fillers;
        while (fillers.empty() || fillers.back() < 1500) {
            fillers.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
            ASSERT_GE(fillers.back(), 0);
        }
        Failure refused = connectFailing(refusingPort);
        EXPECT_EQ(-104, refused.rc);
        EXPECT_GT(refused.descriptor, 1500);

        expectRefusalKnownAt({1024, 1087, 1480, 1599});

        int descriptor = NoSocket;
        EXPECT_EQ(0, connectTo(peer, descriptor));
        EXPECT_GT(descriptor, 1500);
        close(descriptor);
        for (int filler : fillers) close(filler);
    }
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
}

TEST(Connect, SignalsWhileTheGatewayAnswersGoUnnoticed)
{
    Interruptions interruptions;
    PeerStep interrupt = doThis([&interruptions] { EXPECT_TRUE(interruptions.interruptSleep(3)); });
    GatewayAnswers answers;
    ScriptedPeer peer({{expectMessage(), interrupt, sendWhole(handshakeReply()), expectMessage(), interrupt,
                        sendWhole(authInitReply(answers.protocolMap, answers.authServerVersion)), expectMessage(),
                        interrupt, sendWhole(authConfirmReply(answers.returnMap))}});
    int descriptor = NoSocket;
    EXPECT_EQ(0, connectTo(peer, descriptor));
    EXPECT_EQ(9, interruptions.count());
    close(descriptor);
}

// ---- Name resolution ----------------------------------------------------------------------------------------------

TEST(Connect, UnresolvableHostIsMinus101AndMakesNoSocket)
{
    TraceFile trace(1);
    Failure failure = connectFailing(7845, "999.1.1.1.invalid");
    EXPECT_EQ(-101, failure.rc);
    EXPECT_EQ(NoSocket, failure.descriptor);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3012, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ(0u, lines[0].message.find(
                      "stapi_krv_gwycon.getHostInfo() Unable to resolve host (999.1.1.1.invalid:7845): "));
}

TEST(Connect, ResolverFailureIsTracedWithItsTextAndCode)
{
    TraceFile trace(1);
    SocketCalls calls;
    int lookups = 0;
    int released = 0;
    calls.getaddrinfo = [&lookups](const char*, const char*, const addrinfo*, addrinfo**) {
        ++lookups;
        return EAI_MEMORY;
    };
    calls.freeaddrinfo = [&released](addrinfo*) { ++released; };
    Hooked hooked(calls);
    EXPECT_EQ(-101, connectFailing(1, "somewhere").rc);
    EXPECT_EQ(1, lookups);
    EXPECT_EQ(0, released);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("stapi_krv_gwycon.getHostInfo() Unable to resolve host (somewhere:1): " +
                  std::string(gai_strerror(EAI_MEMORY)) + "(" + std::to_string(EAI_MEMORY) + ")",
              lines[0].message);
}

TEST(HostInfo, AsksForAnyKindOfAddress)
{
    SocketCalls calls;
    int lookups = 0;
    calls.getaddrinfo = [&lookups](const char* host, const char* port, const addrinfo* hints, addrinfo** found) {
        ++lookups;
        EXPECT_STREQ("host", host);
        EXPECT_STREQ("65535", port);
        EXPECT_NE(nullptr, hints);
        const addrinfo none{};
        EXPECT_EQ(0, std::memcmp(&none, hints ? hints : &none, sizeof none));
        EXPECT_NE(nullptr, found);
        return 0;
    };
    Hooked hooked(calls);
    char host[] = "host";
    addrinfo* found = nullptr;
    EXPECT_EQ(0, getHostInfo(host, 65535, &found));
    EXPECT_EQ(1, lookups);
}

TEST(HostInfo, FindsAnAddress)
{
    addrinfo* found = nullptr;
    ASSERT_EQ(0, getHostInfo(loopback, 7845, &found));
    ASSERT_NE(nullptr, found);
    ASSERT_EQ(AF_INET, found->ai_family);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    EXPECT_EQ(7845, ntohs(address.sin_port));
    EXPECT_EQ(INADDR_LOOPBACK, ntohl(address.sin_addr.s_addr));
    freeaddrinfo(found);
}

TEST(Connect, TriesTheFirstAddressOnlyAndReleasesTheList)
{
    // Two addresses: nobody listens at the first, a gateway at the second.
    ScriptedPeer peer({greeting()});
    SocketCalls calls;
    int connects = 0;
    int released = 0;
    addrinfo* first = nullptr;
    addrinfo* second = nullptr;
    const std::string gatewayPort = std::to_string(peer.port());
    calls.getaddrinfo = [&](const char*, const char* port, const addrinfo* hints, addrinfo** found) {
        EXPECT_EQ(0, ::getaddrinfo("127.0.0.1", port, hints, &first));
        EXPECT_EQ(0, ::getaddrinfo("127.0.0.1", gatewayPort.c_str(), hints, &second));
        addrinfo* last = first;
        while (last->ai_next) last = last->ai_next;
        last->ai_next = second;
        *found = first;
        return 0;
    };
    calls.freeaddrinfo = [&](addrinfo* list) {
        ++released;
        EXPECT_EQ(first, list);
        ::freeaddrinfo(list);
    };
    calls.connect = [&connects](int socket, const sockaddr* address, socklen_t length) {
        ++connects;
        return ::connect(socket, address, length);
    };
    Hooked hooked(calls);
    EXPECT_EQ(-104, connectFailing(unusedPort()).rc);
    EXPECT_EQ(1, connects);
    EXPECT_EQ(1, released);
    EXPECT_EQ(0u, peer.connections());
}

// ---- Socket set-up ------------------------------------------------------------------------------------------------

TEST(Connect, SocketThatCannotBeMadeIsMinus102)
{
    TraceFile trace(1);
    SocketCalls calls;
    int made = 0;
    int connects = 0;
    calls.socket = [&made](int, int, int) {
        ++made;
        errno = EMFILE;
        return -1;
    };
    calls.connect = [&connects](int, const sockaddr*, socklen_t) {
        ++connects;
        return -1;
    };
    Hooked hooked(calls);
    EXPECT_EQ(-102, connectFailing(AnyPort).rc);
    EXPECT_EQ(1, made);
    EXPECT_EQ(0, connects);
    TraceLine line = onlyLine(trace.lines(), 3001);
    EXPECT_EQ("*EXC*", line.kind);
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Unable to create a socket: " + std::string(strerror(EMFILE)) + "(" +
                  std::to_string(EMFILE) + ")",
              line.message);
}

TEST(Connect, MakesTheSocketThatTheAddressAsksFor)
{
    SocketCalls calls;
    addrinfo* list = nullptr;
    int made = 0;
    calls.getaddrinfo = [&list](const char* host, const char* port, const addrinfo* hints, addrinfo** found) {
        int rc = ::getaddrinfo(host, port, hints, found);
        list = *found;
        return rc;
    };
    calls.socket = [&](int family, int type, int protocol) {
        ++made;
        EXPECT_EQ(list->ai_family, family);
        EXPECT_EQ(list->ai_socktype, type);
        EXPECT_EQ(list->ai_protocol, protocol);
        errno = EMFILE;
        return -1;
    };
    Hooked hooked(calls);
    connectFailing(AnyPort);
    EXPECT_EQ(1, made);
}

namespace {

struct OptionCall {
    int level;
    int option;
    int value;
    socklen_t length;
    bool operator==(const OptionCall&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const OptionCall& call)
{
    return stream << "{" << call.level << ", " << call.option << ", " << call.value << ", " << call.length << "}";
}

}  // namespace

TEST(Connect, OptionsThatCannotBeSetAreMinus102)
{
    const OptionCall keepAlive{SOL_SOCKET, SO_KEEPALIVE, 1, 4};
    const OptionCall noDelay{IPPROTO_TCP, TCP_NODELAY, 1, 4};
    const struct {
        int failing;
        std::vector<OptionCall> met;
    } rows[] = {{SO_KEEPALIVE, {keepAlive}}, {TCP_NODELAY, {keepAlive, noDelay}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failing);
        TraceFile trace(4);
        std::vector<OptionCall> met;
        int connects = 0;
        SocketCalls calls;
        calls.setsockopt = [&](int socket, int level, int option, const void* value, socklen_t length) {
            int number = 0;
            std::memcpy(&number, value, std::min<std::size_t>(length, sizeof number));
            met.push_back({level, option, number, length});
            if (option != row.failing) return ::setsockopt(socket, level, option, value, length);
            errno = ENOPROTOOPT;
            return -1;
        };
        calls.connect = [&connects](int, const sockaddr*, socklen_t) {
            ++connects;
            errno = ECONNREFUSED;
            return -1;
        };
        Hooked hooked(calls);
        Failure failure = connectFailing(AnyPort);
        EXPECT_EQ(-102, failure.rc);
        EXPECT_TRUE(failure.open);  // the caller closes it
        EXPECT_EQ(row.met, met);
        EXPECT_EQ(0, connects);
        TraceLine line = onlyLine(trace.lines(), 3002);
        EXPECT_EQ("DEBUG", line.kind);
        EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Set socket to KeepAlive or NoDelay failed: " +
                      std::to_string(failure.descriptor),
                  line.message);
    }
}

TEST(Connect, SocketThatStaysBlockingIsMinus102)
{
    TraceFile trace(4);
    SocketCalls calls;
    std::vector<int> arguments;
    int connects = 0;
    calls.ioctl = [&arguments](int, unsigned long code, void* argument) {
        EXPECT_EQ(static_cast<unsigned long>(FIONBIO), code);
        int value = -1;
        std::memcpy(&value, argument, sizeof value);
        arguments.push_back(value);
        errno = ENOTTY;
        return -1;
    };
    calls.connect = [&connects](int, const sockaddr*, socklen_t) {
        ++connects;
        return -1;
    };
    Hooked hooked(calls);
    Failure failure = connectFailing(AnyPort);
    EXPECT_EQ(-102, failure.rc);
    EXPECT_TRUE(failure.open);
    EXPECT_EQ((std::vector<int>{1}), arguments);
    EXPECT_EQ(0, connects);
    TraceLine line = onlyLine(trace.lines(), 3019);
    EXPECT_EQ("DEBUG", line.kind);
    EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Set Non-Blocking IOCTL failed with Rc=-1, errno=" +
                  std::to_string(ENOTTY),
              line.message);
}

TEST(Connect, SocketThatStaysNonBlockingIsClassifiedByItsErrno)
{
    const struct {
        int error;
        int rc;
    } rows[] = {{ENOTTY, -100}, {ECONNREFUSED, -104}, {ENETUNREACH, -105}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        ScriptedPeer peer({{expectCloseWithoutBytes()}});
        TraceFile trace(4);
        SocketCalls calls;
        std::vector<int> arguments;
        calls.ioctl = [&](int socket, unsigned long code, void* argument) {
            int value = -1;
            std::memcpy(&value, argument, sizeof value);
            arguments.push_back(value);
            if (value == 1) return ::ioctl(socket, code, argument);
            errno = row.error;
            return -1;
        };
        Hooked hooked(calls);
        Failure failure = connectFailing(peer.port());
        EXPECT_EQ(row.rc, failure.rc);
        EXPECT_TRUE(failure.open);
        EXPECT_EQ((std::vector<int>{1, 0}), arguments);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        TraceLine line = onlyLine(trace.lines(), 3020);
        EXPECT_EQ("DEBUG", line.kind);
        EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Set Blocking IOCTL failed with Rc=-1, errno=" +
                      std::to_string(row.error),
                  line.message);
        EXPECT_EQ("*EXC*", onlyLine(trace.lines(), 3006).kind);
        EXPECT_EQ(connectFailedText(row.error), onlyLine(trace.lines(), 3006).message);
    }
}

// ---- The connect itself -------------------------------------------------------------------------------------------

TEST(Connect, RefusedConnectionIsMinus104)
{
    TraceFile trace(1);
    Failure failure = connectFailing(unusedPort());
    EXPECT_EQ(-104, failure.rc);
    EXPECT_TRUE(failure.open);
    TraceLine line = onlyLine(trace.lines(), 3006);
    EXPECT_EQ("*EXC*", line.kind);
    EXPECT_EQ(connectFailedText(ECONNREFUSED), line.message);
    TraceLine delivered = onlyLine(trace.lines(), 3015);
    EXPECT_EQ("*EXC*", delivered.kind);
    EXPECT_EQ("stapi_krv_gwycon.waitForConnection socket " + std::to_string(failure.descriptor) +
                  " connect() failed error " + std::to_string(ECONNREFUSED),
              delivered.message);
}

TEST(Connect, ErrorOfConnectItselfIsClassified)
{
    const struct {
        int error;
        int rc;
    } rows[] = {{ECONNREFUSED, -104}, {ENETUNREACH, -105},  {EHOSTUNREACH, -100}, {ETIMEDOUT, -100},
                {EACCES, -100},       {EADDRNOTAVAIL, -100}, {EAGAIN, -100}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        TraceFile trace(4);
        SocketCalls calls;
        int connects = 0;
        int waits = 0;
        calls.connect = [&](int socket, const sockaddr*, socklen_t) {
            ++connects;
            EXPECT_NE(0, fcntl(socket, F_GETFL) & O_NONBLOCK);
            errno = row.error;
            return -1;
        };
        calls.select = [&waits](int, fd_set*, fd_set*, fd_set*, timeval*) {
            ++waits;
            return -1;
        };
        Hooked hooked(calls);
        Failure failure = connectFailing(AnyPort);
        EXPECT_EQ(row.rc, failure.rc);
        EXPECT_TRUE(failure.open);
        EXPECT_EQ(1, connects);
        EXPECT_EQ(0, waits);
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ((std::vector<int>{3000, 3013, 3002, 3006, 3007}), numbersOf(lines, 3000, 3020)) << trace.text();
        EXPECT_EQ(connectFailedText(row.error), onlyLine(lines, 3006).message);
        EXPECT_NE(std::string::npos, onlyLine(lines, 3007).message.find("connectRc=" + std::to_string(row.rc)));
    }
}

TEST(Connect, ConnectionThatIsThereAtOnceIsNotWaitedFor)
{
    ScriptedPeer peer({greeting()});
    TraceFile trace(4);
    SocketCalls calls;
    int connects = 0;
    calls.connect = [&connects](int socket, const sockaddr* address, socklen_t length) {
        ++connects;
        int flags = fcntl(socket, F_GETFL);
        fcntl(socket, F_SETFL, flags & ~O_NONBLOCK);
        int rc = ::connect(socket, address, length);
        fcntl(socket, F_SETFL, flags);
        return rc;
    };
    int descriptor = NoSocket;
    {
        Hooked hooked(calls);
        EXPECT_EQ(0, connectTo(peer, descriptor));
    }
    EXPECT_EQ(1, connects);
    EXPECT_EQ((std::vector<int>{3000, 3013, 3002, 3003, 3004, 3010, 3011, 3007}),
              numbersOf(trace.lines(), 3000, 3020));
    EXPECT_EQ(0, fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    close(descriptor);
}

TEST(Connect, ErrorDeliveredAfterTheWaitIsClassified)
{
    const struct {
        int error;
        int rc;
    } rows[] = {{ECONNREFUSED, -104}, {ENETUNREACH, -105}, {EHOSTUNREACH, -100}, {ETIMEDOUT, -100}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        ScriptedPeer peer({{expectCloseWithoutBytes()}});
        TraceFile trace(1);
        SocketCalls calls;
        int asked = 0;
        calls.getsockopt = [&](int, int level, int option, void* value, socklen_t* length) {
            ++asked;
            EXPECT_EQ(SOL_SOCKET, level);
            EXPECT_EQ(SO_ERROR, option);
            EXPECT_EQ(4u, *length);
            std::memcpy(value, &row.error, sizeof row.error);
            return 0;
        };
        Failure failure{};
        {
            Hooked hooked(calls);
            failure = connectFailing(peer.port());
        }
        EXPECT_EQ(row.rc, failure.rc);
        EXPECT_EQ(1, asked);
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ((std::vector<int>{3015, 3006}), numbersOf(lines, 3000, 3020)) << trace.text();
        EXPECT_EQ(connectFailedText(row.error), onlyLine(lines, 3006).message);
    }
}

TEST(Connect, TimeOutIsMinus103WhateverTheErrorIs)
{
    for (int error : {0, ECONNREFUSED, ENETUNREACH}) {
        SCOPED_TRACE(error);
        ScriptedPeer peer({{expectCloseWithoutBytes()}});
        TraceFile trace(1);
        SocketCalls calls;
        int waits = 0;
        calls.select = [&](int, fd_set*, fd_set*, fd_set*, timeval*) {
            ++waits;
            errno = error;
            return 0;
        };
        Failure failure{};
        {
            Hooked hooked(calls);
            failure = connectFailing(peer.port());
        }
        EXPECT_EQ(-103, failure.rc);
        EXPECT_EQ(1, waits);
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ((std::vector<int>{3016, 3006}), numbersOf(lines, 3000, 3020)) << trace.text();
        EXPECT_EQ("*EXC*", onlyLine(lines, 3016).kind);
        EXPECT_EQ("stapi_krv_gwycon.waitForConnection socket " + std::to_string(failure.descriptor) +
                      " connect timed out",
                  onlyLine(lines, 3016).message);
    }
}

TEST(Connect, FailedWaitIsClassifiedByItsErrno)
{
    const struct {
        int error;
        int rc;
    } rows[] = {{EBADF, -100}, {ENOMEM, -100}, {ECONNREFUSED, -104}, {ENETUNREACH, -105}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        ScriptedPeer peer({{expectCloseWithoutBytes()}});
        TraceFile trace(1);
        SocketCalls calls;
        int waits = 0;
        calls.select = [&](int, fd_set*, fd_set*, fd_set*, timeval*) {
            ++waits;
            errno = row.error;
            return -1;
        };
        Failure failure{};
        {
            Hooked hooked(calls);
            failure = connectFailing(peer.port());
        }
        EXPECT_EQ(row.rc, failure.rc);
        EXPECT_EQ(1, waits);
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ((std::vector<int>{3017, 3006}), numbersOf(lines, 3000, 3020)) << trace.text();
        EXPECT_EQ("*EXC*", onlyLine(lines, 3017).kind);
        EXPECT_EQ("stapi_krv_gwycon.waitForConnection select call failed with error " + std::to_string(row.error),
                  onlyLine(lines, 3017).message);
    }
}

// ---- The wait -----------------------------------------------------------------------------------------------------

namespace {

// A wait on a socket with calls and clock of the test's making.
struct Wait {
    int rc;
    int error;
};

Wait waitOn(int descriptor)
{
    Wait result{0, -1};
    result.rc = waitForConnection(&descriptor, &result.error);
    return result;
}

struct ConnectedPair {
    int ends[2] = {-1, -1};
    ConnectedPair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)); }
    ~ConnectedPair()
    {
        close(ends[0]);
        close(ends[1]);
    }
};

}  // namespace

TEST(ConnectWait, EndsWhenTheSocketCanBeWritten)
{
    ConnectedPair pair;
    EXPECT_EQ(0, waitOn(pair.ends[0]).rc);
}

TEST(ConnectWait, IsForWritingAndExceptionsOnThisSocketAloneForSixtySeconds)
{
    ConnectedPair pair;
    SocketCalls calls;
    int waits = 0;
    calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        ++waits;
        EXPECT_EQ(pair.ends[0] + 1, count);
        EXPECT_EQ(nullptr, reading);
        for (int descriptor = 0; descriptor < count; ++descriptor) {
            EXPECT_EQ(descriptor == pair.ends[0], FD_ISSET(descriptor, writing) != 0) << descriptor;
            EXPECT_EQ(descriptor == pair.ends[0], FD_ISSET(descriptor, exceptional) != 0) << descriptor;
        }
        EXPECT_EQ(60, timeout->tv_sec);
        EXPECT_EQ(0, timeout->tv_usec);
        return ::select(count, reading, writing, exceptional, timeout);
    };
    Hooked hooked(calls);
    EXPECT_EQ(0, waitOn(pair.ends[0]).rc);
    EXPECT_EQ(1, waits);
}

TEST(ConnectWait, InterruptionsShortenIt)
{
    // Seconds since the start at each interruption, and what is waited then: the start is that of the whole wait.
    const struct {
        std::vector<time_t> interruptedAt;
        std::vector<time_t> waited;
    } rows[] = {
        {{10}, {60, 50}},
        {{0}, {60, 1}},
        {{1}, {60, 59}},
        {{58}, {60, 2}},
        {{59}, {60, 1}},
        {{60}, {60, 1}},
        {{61}, {60, 1}},
        {{1000}, {60, 1}},
        {{-5}, {60, 1}},  // the clock was set back
        {{10, 20, 55, 60, 61}, {60, 50, 40, 5, 1, 1}},
    };
    constexpr time_t Start = 1000000;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.interruptedAt));
        ConnectedPair pair;
        TraceFile trace(4);
        std::vector<time_t> waited;
        std::size_t clockReads = 0;
        SocketCalls calls;
        calls.time = [&](time_t* result) {
            time_t now = clockReads == 0 ? Start : Start + row.interruptedAt.at(clockReads - 1);
            ++clockReads;
            if (result) *result = now;
            return now;
        };
        calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
            waited.push_back(timeout->tv_sec);
            EXPECT_EQ(0, timeout->tv_usec);
            if (waited.size() > row.interruptedAt.size())
                return ::select(count, reading, writing, exceptional, timeout);
            timeout->tv_sec = 3;  // the system counts it down
            timeout->tv_usec = 141592;
            errno = EINTR;
            return -1;
        };
        Hooked hooked(calls);
        EXPECT_EQ(0, waitOn(pair.ends[0]).rc);
        EXPECT_EQ(row.waited, waited);
        EXPECT_EQ(row.interruptedAt.size() + 1, clockReads);
        EXPECT_EQ(std::vector<int>(row.waited.size(), 3014), numbersOf(trace.lines(), 3000, 3020));
    }
}

TEST(ConnectWait, RealSignalsAreSurvived)
{
    // A socket that can neither be written nor has failed, until the other end is read.
    ConnectedPair pair;
    int flags = fcntl(pair.ends[0], F_GETFL);
    fcntl(pair.ends[0], F_SETFL, flags | O_NONBLOCK);
    char block[4096] = {};
    while (send(pair.ends[0], block, sizeof block, MSG_NOSIGNAL) > 0) continue;
    while (send(pair.ends[0], block, 1, MSG_NOSIGNAL) > 0) continue;

    Interruptions interruptions;
    int interrupted = 0;
    int waits = 0;
    SocketCalls calls;
    constexpr time_t Start = 1000000;
    calls.time = [&waits](time_t*) { return Start + (waits == 0 ? 0 : 1); };  // 59 seconds are left each time
    calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        ++waits;
        int rc = ::select(count, reading, writing, exceptional, timeout);
        if (rc == -1 && errno == EINTR) ++interrupted;
        return rc;
    };
    std::thread other([&] {
        EXPECT_TRUE(interruptions.interruptSleep(5));
        char drained[65536];
        while (recv(pair.ends[1], drained, sizeof drained, MSG_DONTWAIT) > 0) continue;
    });
    {
        Hooked hooked(calls);
        EXPECT_EQ(0, waitOn(pair.ends[0]).rc);
    }
    other.join();
    EXPECT_EQ(5, interruptions.count());
    EXPECT_GE(interrupted, 1);
    EXPECT_EQ(interrupted + 1, waits);
}

TEST(ConnectWait, SocketOnlyInTheExceptionSetCountsAsConnected)
{
    ConnectedPair pair;
    SocketCalls calls;
    int asked = 0;
    calls.select = [&pair](int, fd_set*, fd_set* writing, fd_set*, timeval*) {
        FD_CLR(pair.ends[0], writing);
        return 1;
    };
    calls.getsockopt = [&asked](int, int, int, void* value, socklen_t*) {
        ++asked;
        int error = ECONNREFUSED;
        std::memcpy(value, &error, sizeof error);
        return 0;
    };
    Hooked hooked(calls);
    EXPECT_EQ(0, waitOn(pair.ends[0]).rc);
    EXPECT_EQ(0, asked);
}

TEST(ConnectWait, ErrorOfTheSocketIsHandedOut)
{
    ConnectedPair pair;
    SocketCalls calls;
    int asked = 0;
    calls.getsockopt = [&asked](int, int, int, void* value, socklen_t*) {
        ++asked;
        int error = EHOSTUNREACH;
        std::memcpy(value, &error, sizeof error);
        return 0;
    };
    Hooked hooked(calls);
    Wait result = waitOn(pair.ends[0]);
    EXPECT_EQ(-100, result.rc);
    EXPECT_EQ(EHOSTUNREACH, result.error);
    EXPECT_EQ(1, asked);
}

TEST(ConnectWait, FailureToWaitIsHandedOut)
{
    ConnectedPair pair;
    SocketCalls calls;
    calls.select = [](int, fd_set*, fd_set*, fd_set*, timeval*) {
        errno = ENOMEM;
        return -1;
    };
    Hooked hooked(calls);
    Wait result = waitOn(pair.ends[0]);
    EXPECT_EQ(-100, result.rc);
    EXPECT_EQ(ENOMEM, result.error);
}

TEST(ConnectWait, TimeOutHandsOutNoError)
{
    ConnectedPair pair;
    SocketCalls calls;
    calls.select = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
    Hooked hooked(calls);
    Wait result = waitOn(pair.ends[0]);
    EXPECT_EQ(-103, result.rc);
    EXPECT_EQ(-1, result.error);
}

// ---- Handshake and authorisation ----------------------------------------------------------------------------------

TEST(Connect, FailedHandshakeIsMinus100WhateverFailed)
{
    ReplyHeader bad;
    bad.name = "BASE";
    bad.eyecatcher = 0x47617464;
    const struct {
        const char* how;
        Script script;
        int rc;
        std::string error;
        int gatewayRc;
    } rows[] = {
        {"bad eyecatcher", {expectMessage(), sendWhole(replyHeader(bad))}, -122, strerror(0), 0},
        {"return code", {expectMessage(), sendWhole(refusal("BASE", 61444))}, 61444, strerror(0), 61444},
        {"close", {expectMessage(), closeLink()}, -122, strerror(-1), 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        TraceFile trace(1);
        ScriptedPeer peer({row.script});
        Failure failure = connectFailing(peer.port());
        EXPECT_EQ(-100, failure.rc);
        EXPECT_TRUE(failure.open);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        TraceLine line = onlyLine(trace.lines(), 3005);
        EXPECT_EQ("*EXC*", line.kind);
        EXPECT_EQ("stapi_krv_gwycon.connectToGateway() Handshake flows failed rc=" + std::to_string(row.rc) +
                      " errno=" + row.error + " gwyRc=" + std::to_string(row.gatewayRc) + " authRc=0",
                  line.message);
    }
}

TEST(Connect, ResultOfTheAuthorisationIsTheResult)
{
    const GatewayAnswers answers;
    const Script handshake{expectMessage(), sendWhole(handshakeReply())};
    const Script firstStep = handshake + Script{expectMessage(), sendWhole(authInitReply(answers.protocolMap,
                                                                                        answers.authServerVersion))};
    const struct {
        const char* how;
        Script script;
        int rc;
    } rows[] = {
        {"refused", handshake + Script{expectMessage(), sendWhole(authInitReply(zeros(8), zeros(4), 17))}, -2},
        {"first return code", handshake + Script{expectMessage(), sendWhole(refusal("Auth", 3))}, 3},
        {"first closed", handshake + Script{expectMessage(), closeLink()}, -122},
        {"second return code", firstStep + Script{expectMessage(), sendWhole(refusal("Auth", 61444))}, 61444},
        {"second return code -1", firstStep + Script{expectMessage(), sendWhole(refusal("Auth", -1))}, -1},
        {"second closed", firstStep + Script{expectMessage(), closeLink()}, -122},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        TraceFile trace(3);
        ScriptedPeer peer({row.script});
        Failure failure = connectFailing(peer.port());
        EXPECT_EQ(row.rc, failure.rc);
        EXPECT_TRUE(failure.open);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_NE(std::string::npos,
                  onlyLine(trace.lines(), 3007).message.find("connectRc=" + std::to_string(row.rc)));
        EXPECT_TRUE(linesNumbered(trace.lines(), 3005).empty());
        EXPECT_TRUE(linesNumbered(trace.lines(), 3006).empty());
    }
}

// ---- The end ------------------------------------------------------------------------------------------------------

TEST(CloseConnection, SaysGoodbyeAndCloses)
{
    TraceFile trace(3);
    ScriptedPeer peer({greeting() + farewell()});
    int descriptor = NoSocket;
    ASSERT_EQ(0, connectTo(peer, descriptor));
    int* place = &descriptor;
    EXPECT_EQ(0, closeConnection(place));
    EXPECT_FALSE(isOpen(descriptor));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    ASSERT_EQ(4u, peer.messages().size());
    EXPECT_TRUE(sameBytes(closeRequest(), peer.messages()[3]));
    EXPECT_EQ("ENTRY", onlyLine(trace.lines(), 3008).kind);
    EXPECT_EQ(0u, onlyLine(trace.lines(), 3008).message.find("stapi_krv_gwycon.closeConnection("));
    EXPECT_EQ("EXIT", onlyLine(trace.lines(), 3009).kind);
    EXPECT_EQ("stapi_krv_gwycon.closeConnection(socketDescriptorPtr=" + pointerText(place) + ") closeConnectionRc=0",
              onlyLine(trace.lines(), 3009).message);
}

TEST(CloseConnection, IgnoresWhatBecomesOfTheGoodbye)
{
    ReplyHeader bad;
    bad.name = "BASE";
    bad.eyecatcher = 1;
    const Script endings[] = {{expectMessage(), closeLink()},
                              {expectMessage(), resetLink()},
                              {expectMessage(), sendWhole(refusal("BASE", 8))},
                              {expectMessage(), sendWhole(replyHeader(bad))},
                              {closeLink()}};
    for (const Script& ending : endings) {
        ScriptedPeer peer({greeting() + ending});
        int descriptor = NoSocket;
        ASSERT_EQ(0, connectTo(peer, descriptor));
        EXPECT_EQ(0, closeConnection(&descriptor));
        EXPECT_FALSE(isOpen(descriptor));
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(CloseConnection, FailureToCloseIsTheResult)
{
    TraceFile trace(3);
    int descriptor = -1;
    EXPECT_EQ(-1, closeConnection(&descriptor));
    EXPECT_NE(std::string::npos, onlyLine(trace.lines(), 3009).message.find("closeConnectionRc=-1"));
}

TEST(CloseConnection, ClosesEvenWhereTheGoodbyeCannotBeSent)
{
    ScriptedPeer peer({greeting() + Script{resetLink()}});
    int descriptor = NoSocket;
    ASSERT_EQ(0, connectTo(peer, descriptor));
    peer.finish();
    EXPECT_EQ(0, closeConnection(&descriptor));
    EXPECT_FALSE(isOpen(descriptor));
}

TEST(Connect, ArgumentsOfTheModeSwitchAreOneAndZero)
{
    EXPECT_EQ(1, sockOptOn);
    EXPECT_EQ(0, sockOptOff);
}
