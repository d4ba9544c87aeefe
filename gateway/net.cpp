// Everything polls: no call here blocks in the kernel for longer than its socket is ready.
#include "net.h"

#include <fmt/format.h>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace krvgw {
namespace {

constexpr std::size_t PIECE = 65536;

// Waits until the socket is ready for `events` (or broken, which the following call will tell).
IoEnd waitFor(int socket, int stopFd, short events)
{
    std::array<pollfd, 2> polled = {{{socket, events, 0}, {stopFd, POLLIN, 0}}};
    for (;;) {
        const int ready = poll(polled.data(), polled.size(), -1);
        if (ready < 0 && errno != EINTR) return IoEnd::Gone;
        if (ready > 0 && polled[1].revents != 0) return IoEnd::Stopped;
        if (ready > 0 && polled[0].revents != 0) return IoEnd::Done;
    }
}

bool isToRepeat(ssize_t moved)
{
    return moved < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
}

int listenOnOne(const addrinfo& where)
{
    const int made = socket(where.ai_family, where.ai_socktype | SOCK_CLOEXEC, where.ai_protocol);
    if (made < 0) return -1;
    const int on = 1;
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(made, where.ai_addr, where.ai_addrlen) == 0 && listen(made, SOMAXCONN) == 0) return made;
    const int error = errno;
    close(made);
    errno = error;
    return -1;
}

int portOf(int listening)
{
    sockaddr_storage name{};
    socklen_t size = sizeof name;
    if (getsockname(listening, reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
    std::array<char, 16> text{};
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&name), size, nullptr, 0, text.data(), text.size(),
                    NI_NUMERICSERV) != 0)
        return 0;
    return std::stoi(text.data());
}

}  // namespace

IoEnd receiveBytes(int socket, int stopFd, std::size_t count, Bytes& received)
{
    std::size_t missing = count;
    while (missing > 0) {
        const IoEnd ready = waitFor(socket, stopFd, POLLIN);
        if (ready != IoEnd::Done) return ready;
        std::array<unsigned char, PIECE> piece;
        const ssize_t got = recv(socket, piece.data(), std::min(missing, piece.size()), MSG_DONTWAIT);
        if (isToRepeat(got)) continue;
        if (got <= 0) return IoEnd::Gone;
        received.insert(received.end(), piece.begin(), piece.begin() + got);
        missing -= static_cast<std::size_t>(got);
    }
    return IoEnd::Done;
}

IoEnd sendBytes(int socket, int stopFd, const Bytes& bytes, std::size_t from, std::size_t count)
{
    std::size_t done = 0;
    while (done < count) {
        const IoEnd ready = waitFor(socket, stopFd, POLLOUT);
        if (ready != IoEnd::Done) return ready;
        const ssize_t sent = send(socket, bytes.data() + from + done, count - done, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (isToRepeat(sent)) continue;
        if (sent <= 0) return IoEnd::Gone;
        done += static_cast<std::size_t>(sent);
    }
    return IoEnd::Done;
}

bool pauseUnlessStopped(int stopFd, std::chrono::microseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        const timespec wait = {static_cast<time_t>(left.count() / 1'000'000'000),
                               static_cast<long>(left.count() % 1'000'000'000)};
        pollfd polled = {stopFd, POLLIN, 0};
        if (ppoll(&polled, 1, &wait, nullptr) > 0) return true;
    }
}

IoEnd deliver(int socket, int stopFd, const Delivery& delivery)
{
    if (pauseUnlessStopped(stopFd, delivery.delay)) return IoEnd::Stopped;
    const Bytes& bytes = delivery.reply.bytes;
    std::vector<std::size_t> ends = delivery.splits;
    if (delivery.isByteByByte)
        for (std::size_t i = 1; i < bytes.size(); ++i) ends.push_back(i);
    ends.push_back(bytes.size());
    std::sort(ends.begin(), ends.end());

    std::size_t done = 0;
    for (const std::size_t end : ends) {
        if (end > bytes.size() || end <= done) continue;
        const IoEnd sent = sendBytes(socket, stopFd, bytes, done, end - done);
        if (sent != IoEnd::Done) return sent;
        done = end;
        if (done == bytes.size()) break;
        const bool isSplit = std::count(delivery.splits.begin(), delivery.splits.end(), end) > 0;
        const auto pause = isSplit ? std::chrono::microseconds(delivery.splitPause) : delivery.bytePause;
        if (pauseUnlessStopped(stopFd, pause)) return IoEnd::Stopped;
    }
    return IoEnd::Done;
}

int listenOn(const std::string& address, int& port, std::string& complaint)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int resolved = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (resolved != 0) {
        complaint = fmt::format("cannot resolve {}: {}", address, gai_strerror(resolved));
        return -1;
    }
    const int listening = listenOnOne(*found);
    const int error = errno;
    freeaddrinfo(found);
    if (listening < 0)
        complaint = fmt::format("cannot listen on {} port {}: {}", address, port, std::strerror(error));
    else
        port = portOf(listening);
    return listening;
}

void closeSocket(int socket, bool isReset)
{
    if (isReset) {
        const linger atOnce = {1, 0};
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    close(socket);
}

}  // namespace krvgw
