// What a connection's record says of itself at each stage of its life. Some of it only a dump by another thread would
// show, at the right moment: the calls that the library makes in between are caught instead.
#include <gtest/gtest.h>

#include <cerrno>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "scripted_peer.h"
#include "socket_calls.h"

using namespace krvtest;

namespace {

constexpr int created = 0;
constexpr int connected = 1;
constexpr int connectFailed = 2;
constexpr int closeFailed = 3;
constexpr int closed = 4;
constexpr int unseen = -99;

Internal_GatewayToken_t* watched = nullptr; // until its buffer is freed
int lastStatus = unseen;                    // of the watched one then

} // namespace

extern "C" {
void __real_free(void* block);
void __wrap_free(void* block);

void __wrap_free(void* block)
{
    if (watched && block && block == watched->resultSetBuf) {
        lastStatus = watched->connStatus;
        watched = nullptr;
    }
    __real_free(block);
}
}

TEST(TokenStatus, IsCreatedWithoutASocketUntilTheConnectionStands)
{
    GatewayProcess gateway;
    Connection connection;
    int statusInConnect = unseen, socketInLookUp = unseen;
    SocketCalls calls;
    calls.getaddrinfo = [&](const char* host, const char* port, const addrinfo* hints, addrinfo** found) {
        socketInLookUp = gtListHeadPtr->socketDescriptor;
        return ::getaddrinfo(host, port, hints, found);
    };
    calls.connect = [&](int socket, const sockaddr* address, socklen_t length) {
        statusInConnect = gtListHeadPtr->connStatus;
        return ::connect(socket, address, length);
    };
    {
        Hooked hooked(calls);
        ASSERT_EQ(0, connection.open(gateway.port()));
    }
    EXPECT_EQ(-1, socketInLookUp);
    EXPECT_EQ(created, statusInConnect);
    EXPECT_EQ(connected, connection.token->connStatus);
    EXPECT_GE(connection.token->socketDescriptor, 0);

    watched = connection.token;
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(closed, lastStatus);
}

TEST(TokenStatus, IsConnectFailedUntilTheSocketOfAFailedConnectIsClosed)
{
    Connection connection;
    SocketCalls calls;
    int statusInGoodbye = unseen;
    calls.connect = [](int socket, const sockaddr* address, socklen_t length) {
        watched = gtListHeadPtr;
        return ::connect(socket, address, length);
    };
    calls.send = [&](int socket, const void* bytes, size_t count, int flags) {
        statusInGoodbye = watched->connStatus;
        return ::send(socket, bytes, count, flags);
    };
    lastStatus = unseen;
    Hooked hooked(calls);
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, connection.open(unusedPort()));
    EXPECT_EQ(connectFailed, statusInGoodbye);
    EXPECT_EQ(closed, lastStatus);
}

TEST(TokenStatus, IsConnectFailedToTheEndWhereThereWasNoSocket)
{
    Connection connection;
    SocketCalls calls;
    calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) {
        watched = gtListHeadPtr;
        return EAI_NONAME;
    };
    lastStatus = unseen;
    Hooked hooked(calls);
    EXPECT_EQ(KRVSTAT_HOST_NOT_RESOLVED, connection.open(1));
    EXPECT_EQ(connectFailed, lastStatus);
}

TEST(TokenStatus, IsCloseFailedAfterAFailedClose)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(0, connection.open(gateway.port()));
    SocketCalls calls;
    int closes = 0;
    calls.close = [&](int descriptor) {
        closes++;
        ::close(descriptor);
        errno = EIO;
        return -1;
    };
    lastStatus = unseen;
    watched = connection.token;
    Hooked hooked(calls);
    EXPECT_EQ(0, connection.close());
    EXPECT_EQ(1, closes);
    EXPECT_EQ(closeFailed, lastStatus);
}
