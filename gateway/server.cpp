// Threads: the accepting thread alone touches the list of workers; everything that workers share is atomic or
// locked by itself (counters, transcript, sources).
#include "server.h"

#include "net.h"

#include <fmt/format.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <list>
#include <thread>

namespace krvgw {
namespace {

constexpr std::uint32_t LONGEST_NAME = 64;
constexpr std::uint32_t LARGEST_BODY = 1024 * 1024;

struct Worker {
    std::thread thread;
    std::atomic<bool> isDone{false};
};

}  // namespace

struct Server {
    ServerOptions options;
    Transcript transcript;
    int listening = -1;
    int stopFd = -1;             // an eventfd, readable for good once the server shall stop
    std::list<Worker> workers;
    std::thread acceptor;
};

namespace {

// Where reading one request came to.
struct Frame {
    IoEnd end = IoEnd::Done;
    Bytes bytes;
    std::string complaint;       // the frame cannot be trusted
};

void complain(Server& server, std::size_t connection, MessageKind message, const std::string& text)
{
    ++server.options.settings.counters->complaints;
    writeComplaintLine(server.transcript, connection, message, text);
}

std::string faultOfStart(const Bytes& bytes)
{
    const std::uint32_t eyecatcher = numberAt(bytes, 0, 4);
    const std::uint32_t nameLength = numberAt(bytes, 20, 4);
    if (eyecatcher != EYECATCHER)
        return fmt::format("header: eyecatcher is 0x{:08X} instead of 0x{:08X}", eyecatcher, EYECATCHER);
    if (nameLength > LONGEST_NAME)
        return fmt::format("header: name length 0x{:08X} is above {}", nameLength, LONGEST_NAME);
    return "";
}

Frame receiveFrame(int socket, int stopFd)
{
    Frame frame;
    frame.end = receiveBytes(socket, stopFd, HEADER_BEFORE_NAME, frame.bytes);
    if (frame.end == IoEnd::Done) {
        frame.complaint = faultOfStart(frame.bytes);
        if (!frame.complaint.empty()) return frame;
        const std::size_t rest = numberAt(frame.bytes, 20, 4) + HEADER_BESIDE_NAME - HEADER_BEFORE_NAME;
        frame.end = receiveBytes(socket, stopFd, rest, frame.bytes);
    }
    if (frame.end == IoEnd::Done) {
        const std::uint32_t dataLength = numberAt(frame.bytes, frame.bytes.size() - 4, 4);
        if (dataLength > LARGEST_BODY) {
            frame.complaint = fmt::format("header: data length 0x{:08X} is above {}", dataLength, LARGEST_BODY);
            return frame;
        }
        frame.end = receiveBytes(socket, stopFd, dataLength, frame.bytes);
    }
    if (frame.end == IoEnd::Gone && !frame.bytes.empty())
        frame.complaint = fmt::format("the message ends behind {} bytes", frame.bytes.size());
    return frame;
}

// Sends what the turn says. False when the conversation is over.
bool carryOut(Server& server, int socket, std::size_t connection, const Turn& turn)
{
    const Delivery& delivery = turn.delivery;
    for (const std::string& text : turn.complaints) complain(server, connection, turn.message, text);
    for (const std::string& note : delivery.notes)
        writeMisbehaviourLine(server.transcript, connection, turn.message, note);
    if (delivery.isSent) {
        writeReplyLine(server.transcript, connection, turn.message, delivery.reply.bytes);
        server.options.settings.counters->bytesOut += delivery.reply.bytes.size();
        const IoEnd sent = deliver(socket, server.stopFd, delivery);
        if (sent == IoEnd::Gone) writeEventLine(server.transcript, connection, "left during a reply");
        if (sent != IoEnd::Done) return false;
    }
    return delivery.ending == Ending::None || delivery.ending == Ending::Stall;
}

// True if the connection shall end in a reset.
bool converse(Server& server, int socket, std::size_t connection)
{
    GatewaySettings& settings = server.options.settings;
    const auto atOnce = misbehaviourOnAccept(settings.misbehaviours, connection);
    if (atOnce) {
        writeMisbehaviourLine(server.transcript, connection, MessageKind::Unknown, atOnce->written);
        return atOnce->fault == Fault::ResetOnAccept;
    }
    Conversation conversation = startConversation(settings, connection);
    for (;;) {
        const Frame frame = receiveFrame(socket, server.stopFd);
        settings.counters->bytesIn += frame.bytes.size();
        if (!frame.complaint.empty()) {
            writeRequestLine(server.transcript, connection, MessageKind::Unknown, frame.bytes);
            complain(server, connection, MessageKind::Unknown, frame.complaint);
            return false;
        }
        if (frame.end == IoEnd::Gone) {
            const bool isClosed = conversation.phase == Phase::Over;
            writeEventLine(server.transcript, connection, isClosed ? "left" : "left without close");
        }
        if (frame.end != IoEnd::Done) return false;

        const Turn turn = takeRequest(conversation, settings, frame.bytes);
        writeRequestLine(server.transcript, connection, turn.message, frame.bytes);
        if (!carryOut(server, socket, connection, turn)) return turn.delivery.ending == Ending::Reset;
    }
}

void serveConnection(Server& server, Worker& worker, int socket, std::size_t connection)
{
    Counters& counters = *server.options.settings.counters;
    bool isReset = false;
    try {
        isReset = converse(server, socket, connection);
    } catch (const std::exception& error) {
        complain(server, connection, MessageKind::Unknown, fmt::format("the gateway itself failed: {}", error.what()));
    }
    closeSocket(socket, isReset);
    writeEventLine(server.transcript, connection, isReset ? "reset" : "closed");
    --counters.connectionsOpen;
    worker.isDone = true;
}

void joinWorkers(std::list<Worker>& workers, bool alsoBusy)
{
    for (auto worker = workers.begin(); worker != workers.end();) {
        if (!alsoBusy && !worker->isDone) {
            ++worker;
            continue;
        }
        if (worker->thread.joinable()) worker->thread.join();
        worker = workers.erase(worker);
    }
}

void startWorker(Server& server, int socket, std::size_t connection)
{
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Counters& counters = *server.options.settings.counters;
    ++counters.connectionsAccepted;
    ++counters.connectionsOpen;
    writeEventLine(server.transcript, connection, "accepted");
    Worker& worker = server.workers.emplace_back();
    try {
        worker.thread = std::thread([&server, &worker, socket, connection] {
            serveConnection(server, worker, socket, connection);
        });
    } catch (const std::system_error& error) {
        closeSocket(socket, true);
        --counters.connectionsOpen;
        worker.isDone = true;
        writeEventLine(server.transcript, connection, fmt::format("no thread for it: {}", error.what()));
    }
}

void acceptUntilStopped(Server& server)
{
    std::size_t accepted = 0;
    std::array<pollfd, 2> polled = {{{server.listening, POLLIN, 0}, {server.stopFd, POLLIN, 0}}};
    for (;;) {
        const int ready = poll(polled.data(), polled.size(), -1);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0 || polled[1].revents != 0) return;
        const int socket = accept4(server.listening, nullptr, nullptr, SOCK_CLOEXEC);
        joinWorkers(server.workers, false);
        if (socket >= 0)
            startWorker(server, socket, ++accepted);
        else if (pauseUnlessStopped(server.stopFd, std::chrono::milliseconds(20)))   // out of descriptors, perhaps
            return;
    }
}

}  // namespace

void ServerDeleter::operator()(Server* server) const
{
    if (server->acceptor.joinable()) {
        eventfd_write(server->stopFd, 1);
        server->acceptor.join();
    }
    joinWorkers(server->workers, true);
    if (server->listening >= 0) close(server->listening);
    if (server->stopFd >= 0) close(server->stopFd);
    delete server;
}

ServerPtr startServer(ServerOptions options, std::string& complaint)
{
    ServerPtr server(new Server);
    server->options = std::move(options);
    const std::string& path = server->options.transcriptPath;
    if (!path.empty() && !openTranscript(server->transcript, path)) {
        complaint = fmt::format("cannot write {}", path);
        return nullptr;
    }
    server->stopFd = eventfd(0, EFD_CLOEXEC);
    if (server->stopFd < 0) {
        complaint = fmt::format("no eventfd: {}", std::strerror(errno));
        return nullptr;
    }
    server->listening = listenOn(server->options.address, server->options.port, complaint);
    if (server->listening < 0) return nullptr;
    Server& running = *server;
    server->acceptor = std::thread([&running] { acceptUntilStopped(running); });
    return server;
}

int portOf(const Server& server)
{
    return server.options.port;
}

}  // namespace krvgw
