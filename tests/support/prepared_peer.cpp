// See prepared_peer.h.
#include "prepared_peer.h"

#include <stdexcept>

#include <sys/socket.h>
#include <unistd.h>

namespace krvtest {

namespace {

constexpr std::size_t takenAtOnce = 60000;

void sendAll(int socket, const Bytes& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) return; // the client hung up
        sent += static_cast<std::size_t>(count);
    }
}

} // namespace

PreparedPeer::PreparedPeer(const Bytes& replies)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no socket pair");
    client = ends[0];
    gateway = ends[1];
    if (replies.size() <= takenAtOnce) {
        sendAll(gateway, replies);
        shutdown(gateway, SHUT_WR);
    } else {
        sender = std::thread([socket = gateway, replies] {
            sendAll(socket, replies);
            shutdown(socket, SHUT_WR);
        });
    }
}

PreparedPeer::~PreparedPeer()
{
    close(client);
    if (sender.joinable()) sender.join();
    close(gateway);
}

Bytes queryReplies(const Bytes& callData)
{
    return adminInitReply(hex("01 02 03 04")) + adminCallReply(5, callData);
}

} // namespace krvtest
