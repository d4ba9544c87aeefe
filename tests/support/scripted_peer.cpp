#include "scripted_peer.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace krvtest {

namespace {

using Clock = std::chrono::steady_clock;

// No wait of the peer lasts longer: a test that hits it fails with a problem, and never hangs.
constexpr int PatienceMs = 30000;

[[noreturn]] void giveUp(const char* what)
{
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

void closeQuietly(int& descriptor)
{
    if (descriptor >= 0) ::close(descriptor);
    descriptor = -1;
}

int listenOnLoopback(int backlog, int& port)
{
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) giveUp("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0) giveUp("bind");
    if (::listen(listener, backlog) != 0) giveUp("listen");
    if (::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) giveUp("getsockname");
    port = ntohs(address.sin_port);
    return listener;
}

}  // namespace

// What the peer's thread and the test share.
struct ScriptedPeer::Shared {
    int port = 0;
    int listener = -1;
    int pairEnd = -1;       // the peer's end of a socket pair
    int clientSocket = -1;  // the test's end
    int stopPipe[2] = {-1, -1};
    std::thread thread;

    mutable std::mutex mutex;
    std::condition_variable changed;
    int told = 0;
    bool stopping = false;
    std::string problem;
    struct Connection {
        Bytes received;
        std::vector<Bytes> messages;
    };
    std::vector<Connection> connections;
};

// One connection while its script is played.
struct PeerLink {
    int socket;
    int stopEnd;  // becomes readable when the peer is torn down
    std::function<void(const Bytes&)> keep;
    std::function<void(Bytes)> keepMessage;
    std::function<bool()> waitUntilTold;
    std::function<void(const std::string&)> complain;
};

namespace {

// Waits for an event of the socket. False, and a complaint, when it does not come.
bool awaitEvent(PeerLink& link, short events, const char* what)
{
    auto deadline = Clock::now() + std::chrono::milliseconds(PatienceMs);
    for (;;) {
        pollfd waiting[2] = {{link.socket, events, 0}, {link.stopEnd, POLLIN, 0}};
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        int rc = ::poll(waiting, 2, left > 0 ? static_cast<int>(left) : 0);
        if (rc < 0 && errno == EINTR) continue;
        if (rc > 0 && waiting[0].revents != 0) return true;
        link.complain(std::string(rc > 0 ? "stopped while " : "no patience left while ") + what);
        return false;
    }
}

// At most `most` bytes; empty at the end of the stream. False, and a complaint, when nothing comes.
bool receiveSome(PeerLink& link, std::size_t most, Bytes& got)
{
    if (!awaitEvent(link, POLLIN, "receiving")) return false;
    got.resize(std::min<std::size_t>(most, 65536));
    ssize_t count = ::recv(link.socket, got.data(), got.size(), 0);
    if (count < 0) count = 0;  // a reset ends the stream too
    got.resize(static_cast<std::size_t>(count));
    link.keep(got);
    return true;
}

bool receiveExactly(PeerLink& link, std::size_t count, Bytes& message)
{
    std::size_t wanted = message.size() + count;
    while (message.size() < wanted) {
        Bytes got;
        if (!receiveSome(link, wanted - message.size(), got)) return false;
        if (got.empty()) {
            link.complain("the client closed after " + std::to_string(message.size()) + " of " +
                          std::to_string(wanted) + " bytes");
            return false;
        }
        message = message + got;
    }
    return true;
}

bool sendAll(PeerLink& link, const Bytes& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (!awaitEvent(link, POLLOUT, "sending")) return false;
        ssize_t count = ::send(link.socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) {
            link.complain(std::string("send failed: ") + std::strerror(errno));
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

// Bytes that wait in the receive queue of the other end of a loopback TCP connection; -1 when it has gone.
long unreadByOtherEnd(int socket)
{
    sockaddr_in mine{};
    sockaddr_in theirs{};
    socklen_t length = sizeof mine;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&mine), &length) != 0) return -1;
    length = sizeof theirs;
    if (::getpeername(socket, reinterpret_cast<sockaddr*>(&theirs), &length) != 0) return -1;
    std::FILE* table = std::fopen("/proc/net/tcp", "re");
    if (!table) giveUp("/proc/net/tcp");
    char line[512];
    long unread = -1;
    while (unread < 0 && std::fgets(line, sizeof line, table)) {
        // "  sl: local address:port, remote address:port, state, tx_queue:rx_queue ..."
        unsigned int localPort = 0;
        unsigned int remotePort = 0;
        unsigned long receiveQueue = 0;
        int fields = std::sscanf(line, " %*d: %*8x:%4x %*8x:%4x %*x %*8x:%8lx", &localPort, &remotePort, &receiveQueue);
        if (fields == 3 && localPort == ntohs(theirs.sin_port) && remotePort == ntohs(mine.sin_port))
            unread = static_cast<long>(receiveQueue);
    }
    std::fclose(table);
    return unread;
}

// Waits until the other end has taken everything that was sent out of its socket.
bool awaitRead(PeerLink& link)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(link.socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) giveUp("getsockname");
    auto deadline = Clock::now() + std::chrono::milliseconds(PatienceMs);
    for (;;) {
        int unsent = 0;
        if (::ioctl(link.socket, SIOCOUTQ, &unsent) != 0) giveUp("SIOCOUTQ");
        if (unsent == 0 && (address.ss_family != AF_INET || unreadByOtherEnd(link.socket) <= 0)) return true;
        pollfd stopped = {link.stopEnd, POLLIN, 0};
        if (::poll(&stopped, 1, 0) > 0 || Clock::now() > deadline) {
            link.complain("the client did not read what was sent");
            return false;
        }
        std::this_thread::yield();
    }
}

bool receiveToEnd(PeerLink& link, Bytes& message)
{
    for (;;) {
        Bytes got;
        if (!receiveSome(link, 65536, got)) return false;
        if (got.empty()) return true;
        message = message + got;
    }
}

// Offsets in a message header, and what surrounds its name.
constexpr std::size_t NameLengthOffset = 20;
constexpr std::size_t BeforeName = 24;
constexpr std::size_t AfterName = 5;
constexpr std::int32_t LongestName = 1000;
constexpr std::int32_t LongestBody = 64 * 1024 * 1024;

}  // namespace

PeerStep expectBytes(std::size_t count)
{
    return [count](PeerLink& link) {
        Bytes message;
        bool all = receiveExactly(link, count, message);
        link.keepMessage(message);
        return all;
    };
}

PeerStep expectMessage()
{
    return [](PeerLink& link) {
        Bytes message;
        bool all = receiveExactly(link, BeforeName, message);
        if (all) {
            std::int32_t nameLength = wordAt(message, NameLengthOffset);
            if (nameLength < 0 || nameLength > LongestName) {
                link.complain("a request with a name of " + std::to_string(nameLength) + " bytes");
                all = false;
            } else {
                all = receiveExactly(link, static_cast<std::size_t>(nameLength) + AfterName, message);
            }
        }
        if (all) {
            std::int32_t bodyLength = wordAt(message, message.size() - 4);
            if (bodyLength < 0 || bodyLength > LongestBody) {
                link.complain("a request with a body of " + std::to_string(bodyLength) + " bytes");
                all = false;
            } else {
                all = receiveExactly(link, static_cast<std::size_t>(bodyLength), message);
            }
        }
        link.keepMessage(message);
        return all;
    };
}

PeerStep expectClose()
{
    return [](PeerLink& link) {
        Bytes message;
        bool closed = receiveToEnd(link, message);
        link.keepMessage(message);
        return closed;
    };
}

PeerStep expectCloseWithoutBytes()
{
    return [](PeerLink& link) {
        Bytes message;
        bool closed = receiveToEnd(link, message);
        if (!message.empty()) link.complain(std::to_string(message.size()) + " bytes where none were expected");
        return closed && message.empty();
    };
}

PeerStep sendWhole(Bytes bytes)
{
    return [bytes = std::move(bytes)](PeerLink& link) { return sendAll(link, bytes); };
}

PeerStep sendPieces(std::vector<Bytes> pieces)
{
    return [pieces = std::move(pieces)](PeerLink& link) {
        for (const Bytes& piece : pieces)
            if (!awaitRead(link) || !sendAll(link, piece)) return false;
        return true;
    };
}

PeerStep sendByteByByte(Bytes bytes)
{
    std::vector<Bytes> pieces;
    for (unsigned char byte : bytes) pieces.push_back({byte});
    return sendPieces(std::move(pieces));
}

PeerStep sendSplitAt(Bytes bytes, std::size_t position)
{
    return sendPieces({slice(bytes, 0, position), slice(bytes, position, bytes.size() - position)});
}

PeerStep closeLink()
{
    return [](PeerLink& link) {
        closeQuietly(link.socket);
        return false;
    };
}

PeerStep resetLink()
{
    return [](PeerLink& link) {
        linger abortively = {1, 0};
        if (::setsockopt(link.socket, SOL_SOCKET, SO_LINGER, &abortively, sizeof abortively) != 0)
            link.complain("SO_LINGER");
        closeQuietly(link.socket);
        return false;
    };
}

PeerStep waitUntilTold()
{
    return [](PeerLink& link) {
        bool told = link.waitUntilTold();
        if (!told) link.complain("never told to go on");
        return told;
    };
}

PeerStep doThis(std::function<void()> action)
{
    return [action = std::move(action)](PeerLink&) {
        action();
        return true;
    };
}

Script operator+(Script left, const Script& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Script greeting(const GatewayAnswers& answers)
{
    return {expectMessage(), sendWhole(handshakeReply()),
            expectMessage(), sendWhole(authInitReply(answers.protocolMap, answers.authServerVersion)),
            expectMessage(), sendWhole(authConfirmReply(answers.returnMap))};
}

Script adminExchange(const GatewayAnswers& answers, std::int32_t callType, const Bytes& callData)
{
    return {expectMessage(), sendWhole(adminInitReply(answers.adminServerVersion)),
            expectMessage(), sendWhole(adminCallReply(callType, callData))};
}

Script opening(const GatewayAnswers& answers)
{
    return greeting(answers) + adminExchange(answers, 1, attributeData(answers.version));
}

Script query(const Bytes& callData, const GatewayAnswers& answers)
{
    return adminExchange(answers, 5, callData);
}

Script farewell()
{
    return {expectMessage(), sendWhole(closeReply()), expectCloseWithoutBytes()};
}

Script wholeConversation(const std::vector<Bytes>& queryData, const GatewayAnswers& answers)
{
    Script script = opening(answers);
    for (const Bytes& callData : queryData) script = script + query(callData, answers);
    return script + farewell();
}

ScriptedPeer::ScriptedPeer() : shared_(std::make_unique<Shared>()) {}

ScriptedPeer::ScriptedPeer(ScriptedPeer&&) noexcept = default;

ScriptedPeer::ScriptedPeer(std::vector<Script> scripts) : ScriptedPeer()
{
    shared_->listener = listenOnLoopback(static_cast<int>(scripts.size()) + 1, shared_->port);
    start(std::move(scripts));
}

ScriptedPeer ScriptedPeer::onSocketPair(Script script)
{
    ScriptedPeer peer;
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) giveUp("socketpair");
    peer.shared_->pairEnd = ends[0];
    peer.shared_->clientSocket = ends[1];
    peer.start({std::move(script)});
    return peer;
}

void ScriptedPeer::start(std::vector<Script> scripts)
{
    if (::pipe(shared_->stopPipe) != 0) giveUp("pipe");
    Shared* shared = shared_.get();

    shared->thread = std::thread([shared, scripts = std::move(scripts)] {
        auto complain = [shared](const std::string& what) {
            std::lock_guard<std::mutex> held(shared->mutex);
            if (!shared->problem.empty()) shared->problem += "; ";
            shared->problem += what;
            shared->changed.notify_all();
        };

        for (std::size_t i = 0; i < scripts.size(); ++i) {
            PeerLink link{-1, shared->stopPipe[0], {}, {}, {}, {}};
            link.complain = [&complain, i](const std::string& what) {
                complain("connection " + std::to_string(i) + ": " + what);
            };
            link.keep = [shared, i](const Bytes& bytes) {
                std::lock_guard<std::mutex> held(shared->mutex);
                shared->connections[i].received = std::move(shared->connections[i].received) + bytes;
                shared->changed.notify_all();
            };
            link.keepMessage = [shared, i](Bytes message) {
                std::lock_guard<std::mutex> held(shared->mutex);
                shared->connections[i].messages.push_back(std::move(message));
            };
            link.waitUntilTold = [shared] {
                std::unique_lock<std::mutex> held(shared->mutex);
                bool told = shared->changed.wait_for(held, std::chrono::milliseconds(PatienceMs),
                                                     [shared] { return shared->told > 0 || shared->stopping; });
                if (!told || shared->told == 0) return false;
                --shared->told;
                return true;
            };

            if (shared->pairEnd >= 0) {
                link.socket = std::exchange(shared->pairEnd, -1);
            } else {
                link.socket = shared->listener;
                if (!awaitEvent(link, POLLIN, "waiting for a connection")) break;
                link.socket = ::accept4(shared->listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (link.socket < 0) {
                    link.complain(std::string("accept failed: ") + std::strerror(errno));
                    break;
                }
                int on = 1;
                if (::setsockopt(link.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
                    link.complain("TCP_NODELAY");
            }
            {
                std::lock_guard<std::mutex> held(shared->mutex);
                shared->connections.emplace_back();
            }

            for (const PeerStep& step : scripts[i])
                if (!step(link)) break;
            closeQuietly(link.socket);
        }
        closeQuietly(shared->listener);  // later clients are refused
    });
}

ScriptedPeer::~ScriptedPeer()
{
    if (!shared_) return;
    {
        std::lock_guard<std::mutex> held(shared_->mutex);
        shared_->stopping = true;
    }
    shared_->changed.notify_all();
    closeQuietly(shared_->stopPipe[1]);  // ends every wait of the thread
    finish();
    closeQuietly(shared_->stopPipe[0]);
    closeQuietly(shared_->clientSocket);
}

int ScriptedPeer::port() const
{
    return shared_->port;
}

int ScriptedPeer::clientSocket() const
{
    return shared_->clientSocket;
}

void ScriptedPeer::closeClientSocket()
{
    closeQuietly(shared_->clientSocket);
}

void ScriptedPeer::tell()
{
    std::lock_guard<std::mutex> held(shared_->mutex);
    ++shared_->told;
    shared_->changed.notify_all();
}

bool ScriptedPeer::waitUntilReceived(std::size_t count, std::size_t connection)
{
    std::unique_lock<std::mutex> held(shared_->mutex);
    auto enough = [this, count, connection] {
        return connection < shared_->connections.size() && shared_->connections[connection].received.size() >= count;
    };
    shared_->changed.wait_for(held, std::chrono::milliseconds(PatienceMs),
                              [this, &enough] { return enough() || !shared_->problem.empty(); });
    return enough();
}

void ScriptedPeer::finish()
{
    if (shared_->thread.joinable()) shared_->thread.join();
}

std::string ScriptedPeer::problem() const
{
    std::lock_guard<std::mutex> held(shared_->mutex);
    return shared_->problem;
}

std::size_t ScriptedPeer::connections() const
{
    std::lock_guard<std::mutex> held(shared_->mutex);
    return shared_->connections.size();
}

Bytes ScriptedPeer::received(std::size_t connection) const
{
    std::lock_guard<std::mutex> held(shared_->mutex);
    return connection < shared_->connections.size() ? shared_->connections[connection].received : Bytes();
}

std::vector<Bytes> ScriptedPeer::messages(std::size_t connection) const
{
    std::lock_guard<std::mutex> held(shared_->mutex);
    return connection < shared_->connections.size() ? shared_->connections[connection].messages : std::vector<Bytes>();
}

int connectToPeer(const ScriptedPeer& peer)
{
    int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (client < 0) giveUp("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(peer.port()));
    if (::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) giveUp("connect");
    return client;
}

int unusedPort()
{
    int port = 0;
    int listener = listenOnLoopback(1, port);
    ::close(listener);
    return port;
}

}  // namespace krvtest
