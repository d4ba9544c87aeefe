// A gateway that has one answer, made in advance, and serves one connection: what it costs itself is little.
//
// krvcanned LISTENER SHAPE N in-turn|ahead
//
// LISTENER is the descriptor of a listening socket. "ahead" sends the replies to a query before the query is made, the
// next ones as soon as its requests have come: so a client that waits for them first receives each reply in one piece.
// The process ends with the connection, or with its parent.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include <csignal>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "answers.h"
#include "messages.h"
#include "replies.h"

namespace {

using krvgw::Bytes;

constexpr std::size_t LONGEST_REQUEST = 65536;

struct Conversation {
    int socket;
    Bytes input = Bytes(LONGEST_REQUEST);
    std::size_t from = 0; // what was received and not taken yet: [from, to)
    std::size_t to = 0;
};

struct Ended : std::exception {};

void sendWhole(int socket, const Bytes& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) throw Ended();
        sent += static_cast<std::size_t>(count);
    }
}

// Receives until so many bytes are there to take.
void need(Conversation& conversation, std::size_t count)
{
    unsigned char* const input = conversation.input.data();
    if (conversation.from == conversation.to) conversation.from = conversation.to = 0;
    if (conversation.from + count > LONGEST_REQUEST) {
        std::memmove(input, input + conversation.from, conversation.to - conversation.from);
        conversation.to -= conversation.from;
        conversation.from = 0;
    }
    while (conversation.to - conversation.from < count) {
        const std::size_t room = LONGEST_REQUEST - conversation.to;
        const ssize_t received = recv(conversation.socket, input + conversation.to, room, 0);
        if (received < 1) throw Ended(); // also where a request is longer than there is room
        conversation.to += static_cast<std::size_t>(received);
    }
}

// Passes over a whole request, whatever it is.
void takeRequest(Conversation& conversation)
{
    need(conversation, krvgw::HEADER_BESIDE_NAME);
    const std::size_t name = krvgw::numberAt(conversation.input, conversation.from + 20, 4);
    need(conversation, krvgw::HEADER_BESIDE_NAME + name);
    const std::size_t lengthAt = conversation.from + krvgw::HEADER_BEFORE_NAME + name + 1;
    const std::size_t body = krvgw::numberAt(conversation.input, lengthAt, 4);
    need(conversation, krvgw::HEADER_BESIDE_NAME + name + body);
    conversation.from += krvgw::HEADER_BESIDE_NAME + name + body;
}

void answer(Conversation& conversation, const Bytes& reply)
{
    takeRequest(conversation);
    sendWhole(conversation.socket, reply);
}

Bytes replyOf(std::uint32_t flowType, std::string_view name, const krvgw::Message& body)
{
    return krvgw::makeReply({flowType, 0, 0, name}, body).bytes;
}

void greet(Conversation& conversation)
{
    const std::uint32_t call = krvgw::FLOW_TYPE_CALL;
    answer(conversation, replyOf(krvgw::FLOW_TYPE_HANDSHAKE, "BASE", krvgw::handshakeReplyBody()));
    answer(conversation, replyOf(call, "Auth", krvgw::authReplyBody(0, Bytes(krvgw::AUTH1_OPAQUE, 2))));
    answer(conversation, replyOf(call, "Auth", krvgw::authReplyBody(1, Bytes(krvgw::AUTH2_OPAQUE, 3))));
    answer(conversation, krvbench::initReply());
    answer(conversation, replyOf(call, "Admin", krvgw::attributeReplyBody("1_0")));
}

void serveInTurn(Conversation& conversation, const Bytes& init, const Bytes& result)
{
    for (;;) {
        answer(conversation, init);
        answer(conversation, result);
    }
}

void serveAhead(Conversation& conversation, const Bytes& init, const Bytes& result)
{
    Bytes both = init;
    both.insert(both.end(), result.begin(), result.end());
    for (;;) {
        sendWhole(conversation.socket, both);
        takeRequest(conversation);
        takeRequest(conversation);
    }
}

int serve(int listener, krvbench::Shape shape, std::size_t n, bool ahead)
{
    const Bytes init = krvbench::initReply();
    const Bytes result = krvbench::answerOf(shape, n).message;
    Conversation conversation = {accept(listener, nullptr, nullptr)};
    if (conversation.socket < 0) {
        std::perror("krvcanned: accept");
        return 1;
    }
    const int on = 1;
    setsockopt(conversation.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    try {
        greet(conversation);
        if (ahead) serveAhead(conversation, init, result);
        serveInTurn(conversation, init, result);
    } catch (const Ended&) {
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc != 5) {
        std::fprintf(stderr, "usage: krvcanned LISTENER SHAPE N in-turn|ahead\n");
        return 2;
    }
    try {
        return serve(std::atoi(argv[1]), krvbench::shapeByName(argv[2]), std::strtoul(argv[3], nullptr, 10),
            std::strcmp(argv[4], "ahead") == 0);
    } catch (const std::invalid_argument& wrong) {
        std::fprintf(stderr, "krvcanned: %s\n", wrong.what());
        return 2;
    }
}
