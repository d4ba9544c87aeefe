#include "raw_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace krvgwtest {

using krvtest::operator+;

namespace {

constexpr int PATIENCE_MS = 10000;

bool isGood(const Received& reply, std::size_t nameLength)
{
    return reply.left == Left::Open && reply.bytes.size() >= nameLength + 29 && krvtest::wordAt(reply.bytes, 16) == 0;
}

}  // namespace

RawClient::RawClient(int port, const std::string& address)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return;
    fd = socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, found->ai_protocol);
    if (fd >= 0 && connect(fd, found->ai_addr, found->ai_addrlen) != 0) close();
    freeaddrinfo(found);
}

RawClient::~RawClient()
{
    close();
}

void RawClient::close()
{
    if (fd >= 0) ::close(fd);
    fd = -1;
}

bool RawClient::send(const Bytes& bytes) const
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

Received RawClient::receiveOnce() const
{
    Received received;
    pollfd polled = {fd, POLLIN, 0};
    if (poll(&polled, 1, PATIENCE_MS) != 1) {
        received.left = Left::TimedOut;
        return received;
    }
    std::array<unsigned char, 65536> piece;
    const ssize_t got = recv(fd, piece.data(), piece.size(), 0);
    if (got > 0) received.bytes.assign(piece.begin(), piece.begin() + got);
    if (got == 0) received.left = Left::Closed;
    if (got < 0) received.left = Left::Reset;
    return received;
}

Received RawClient::receive(std::size_t count) const
{
    Received received;
    while (received.bytes.size() < count && received.left == Left::Open) {
        pollfd polled = {fd, POLLIN, 0};
        if (poll(&polled, 1, PATIENCE_MS) != 1) {
            received.left = Left::TimedOut;
            break;
        }
        std::array<unsigned char, 65536> piece;
        const ssize_t got = recv(fd, piece.data(), std::min(piece.size(), count - received.bytes.size()), 0);
        if (got > 0) received.bytes.insert(received.bytes.end(), piece.begin(), piece.begin() + got);
        if (got == 0) received.left = Left::Closed;
        if (got < 0) received.left = Left::Reset;
    }
    return received;
}

bool RawClient::isSilentFor(int milliseconds) const
{
    pollfd polled = {fd, POLLIN, 0};
    return poll(&polled, 1, milliseconds) == 0;
}

Received RawClient::exchange(const Bytes& request, std::size_t nameLength) const
{
    if (!send(request)) return {{}, Left::Closed};
    Received reply = receive(nameLength + 29);
    if (reply.left != Left::Open) return reply;
    const std::int32_t dataLength = krvtest::wordAt(reply.bytes, nameLength + 25);
    const Received body = receive(static_cast<std::size_t>(std::max(dataLength, 0)));
    reply.bytes = reply.bytes + body.bytes;
    reply.left = body.left;
    return reply;
}

bool RawClient::greet()
{
    return isGood(exchange(krvtest::handshakeRequest(), 4), 4);
}

bool RawClient::authorise()
{
    const Received first = exchange(krvtest::authInitRequest(), 4);
    if (!isGood(first, 4) || first.bytes.size() != 53) return false;
    const Bytes map = krvtest::slice(first.bytes, 41, 8);
    const Bytes serverVersion = krvtest::slice(first.bytes, 49, 4);
    return isGood(exchange(krvtest::authConfirmRequest(map, serverVersion), 4), 4);
}

bool RawClient::open()
{
    if (!greet() || !authorise()) return false;
    const Received init = exchange(krvtest::adminInitRequest(), 5);
    if (!isGood(init, 5) || init.bytes.size() != 46) return false;
    const Received reply = exchange(krvtest::getProtocolRequest(krvtest::slice(init.bytes, 42, 4)), 5);
    if (!isGood(reply, 5) || reply.bytes.size() < 34 + 9 + 8) return false;
    version.assign(reply.bytes.begin() + 34 + 9 + 8, reply.bytes.end());
    return true;
}

bool RawClient::sendInvoke(const std::string& operation, const std::string& query)
{
    const Received init = exchange(krvtest::adminInitRequest(), 5);
    if (!isGood(init, 5) || init.bytes.size() != 46) return false;
    return send(krvtest::invokeRequest(krvtest::slice(init.bytes, 42, 4), operation, query));
}

Bytes RawClient::invoke(const std::string& operation, const std::string& query)
{
    if (!sendInvoke(operation, query)) return {};
    const Received reply = exchange({}, 5);
    if (!isGood(reply, 5) || reply.bytes.size() < 34 + 9) return {};
    return krvtest::slice(reply.bytes, 43, reply.bytes.size() - 43);
}

bool RawClient::leave()
{
    const bool isAnswered = isGood(exchange(krvtest::closeRequest(), 4), 4);
    close();
    return isAnswered;
}

}  // namespace krvgwtest
