// See prepared_gateway.h. The program is linked with --wrap for the calls that make a connection.
#include "prepared_gateway.h"

#include <cerrno>
#include <cstdlib>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace krvfuzz {

namespace {

int* waitingEnd = nullptr;

} // namespace

PreparedGateway::PreparedGateway(const krvtest::Bytes& stream)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
    clientEnd = ends[0];
    gatewayEnd = ends[1];
    std::size_t sent = 0;
    while (sent < stream.size()) {
        ssize_t count = send(gatewayEnd, stream.data() + sent, stream.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count <= 0) std::abort(); // more than mostBytes
        sent += static_cast<std::size_t>(count);
    }
    shutdown(gatewayEnd, SHUT_WR);
}

PreparedGateway::~PreparedGateway()
{
    if (waitingEnd == &clientEnd) waitingEnd = nullptr;
    if (clientEnd >= 0) close(clientEnd);
    close(gatewayEnd);
}

void PreparedGateway::awaitConnection()
{
    waitingEnd = &clientEnd;
}

} // namespace krvfuzz

extern "C" {

int __wrap_socket(int family, int type, int protocol);
int __wrap_connect(int socket, const sockaddr* address, socklen_t length);
int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t length);
int __wrap___setsockopt64(int socket, int level, int option, const void* value, socklen_t length);
int __wrap_getaddrinfo(const char* host, const char* port, const addrinfo* hints, addrinfo** found);
void __wrap_freeaddrinfo(addrinfo* list);

int __wrap_socket(int, int, int)
{
    if (!krvfuzz::waitingEnd) {
        errno = EMFILE;
        return -1;
    }
    const int end = *krvfuzz::waitingEnd;
    *krvfuzz::waitingEnd = -1;
    krvfuzz::waitingEnd = nullptr;
    return end;
}

int __wrap_connect(int, const sockaddr*, socklen_t)
{
    return 0;
}

int __wrap_setsockopt(int, int, int, const void*, socklen_t)
{
    return 0;
}

// The name of the same call where 32-bit programs have 64-bit time.
int __wrap___setsockopt64(int, int, int, const void*, socklen_t)
{
    return 0;
}

int __wrap_getaddrinfo(const char*, const char*, const addrinfo*, addrinfo** found)
{
    static sockaddr_in address = {};
    static addrinfo only = {};
    address.sin_family = AF_INET;
    only.ai_family = AF_INET;
    only.ai_socktype = SOCK_STREAM;
    only.ai_addrlen = sizeof address;
    only.ai_addr = reinterpret_cast<sockaddr*>(&address);
    *found = &only;
    return 0;
}

void __wrap_freeaddrinfo(addrinfo*) {}

} // extern "C"
