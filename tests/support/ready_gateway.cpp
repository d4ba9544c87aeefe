// See ready_gateway.h.
#include "ready_gateway.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace krvtest {

namespace {

constexpr int longestSilenceSeconds = 20; // of a client that should have gone

void sendPart(int client, const unsigned char* bytes, std::size_t count)
{
    std::size_t sent = 0;
    while (sent < count) {
        ssize_t now = send(client, bytes + sent, count - sent, MSG_NOSIGNAL);
        if (now < 0) return; // the client hung up
        sent += static_cast<std::size_t>(now);
    }
}

void readToTheEnd(int client)
{
    timeval limit = {};
    limit.tv_sec = longestSilenceSeconds;
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    unsigned char bytes[4096];
    while (recv(client, bytes, sizeof bytes, 0) > 0) continue;
}

} // namespace

ReadyGateway::ReadyGateway()
{
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || listen(listener, 16) != 0 || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no listening socket");
    }
    portNumber = ntohs(address.sin_port);
    server = std::thread([this] { serve(); });
}

ReadyGateway::~ReadyGateway()
{
    stopping = true;
    shutdown(listener, SHUT_RDWR); // ends the wait for a connection
    server.join();
    close(listener);
}

void ReadyGateway::prepare(const Bytes& bytes, StreamEnd streamEnd, bool single)
{
    std::lock_guard<std::mutex> lock(changes);
    stream = bytes;
    end = streamEnd;
    byteByByte = single;
}

void ReadyGateway::serve()
{
    while (!stopping) {
        int client = accept(listener, nullptr, nullptr);
        if (client < 0) continue; // the listener was shut down, or the client has gone already
        serveOne(client);
        close(client);
    }
}

void ReadyGateway::serveOne(int client)
{
    std::unique_lock<std::mutex> lock(changes);
    const Bytes bytes = stream;
    const StreamEnd how = end;
    const std::size_t piece = byteByByte ? 1 : bytes.size();
    lock.unlock();

    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    for (std::size_t at = 0; at < bytes.size(); at += piece) sendPart(client, bytes.data() + at, piece);
    if (how == StreamEnd::Reset) {
        linger atOnce = {1, 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        return;
    }
    if (how == StreamEnd::Close) shutdown(client, SHUT_WR);
    readToTheEnd(client);
}

} // namespace krvtest
