// Whole queries over a loopback socket: the library's against the least that the same two exchanges can take.
//
// krvquery one|two ROUNDS MILLISECONDS N...
//
// "one": client and gateway share a core; "two": each has its own. A line of JSON for each N; the contenders:
//
// ping_pong   the same bytes with the fewest calls: send, receive until all of it is there
// prescribed  the calls that the protocol's exchange consists of, and its blocks of memory; nothing is looked at
// library     getStats, and a walk to the end

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <sys/select.h>
#include <sys/socket.h>

#include "stapi_krv_types.h"

#include "answers.h"
#include "library_query.h"
#include "messages.h"
#include "replies.h"
#include "rounds.h"

namespace {

using krvgw::Bytes;

constexpr std::size_t REPLY_HEADER = krvgw::HEADER_BESIDE_NAME + 5; // "Admin"
constexpr std::size_t RESULT_AT = 9;                                // in the body of a reply

Bytes adminRequest(const krvgw::Message& body)
{
    return krvgw::makeReply({krvgw::FLOW_TYPE_CALL, 0, 0, "Admin"}, body).bytes; // both directions are framed alike
}

Bytes initRequest()
{
    krvgw::Message body;
    krvgw::put32(body, 0);
    return adminRequest(body);
}

Bytes statsRequest()
{
    krvgw::Message call;
    for (std::string_view text :
        {"US", "en", "", "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats", "GET_STATS"})
        krvgw::putUtf(call, text);
    krvgw::put32(call, 1);
    krvgw::putBytes(call, {0xAC, 0xED, 0x00, 0x05, 0x74});
    krvgw::putUtf(call, "");
    krvgw::put32(call, 1);
    krvgw::putUtf(call, "java.lang.String");

    krvgw::Message body;
    krvgw::put32(body, 5);
    krvgw::putBytes(body, Bytes(krvgw::INIT_OPAQUE, 1)); // what the init reply brought
    krvgw::put32(body, static_cast<std::uint32_t>(call.bytes.size()));
    krvgw::putMessage(body, call);
    return adminRequest(body);
}

struct Exchange {
    Bytes request;
    std::size_t replySize;
};

struct Exchanges {
    Exchange init;
    Exchange stats;
};

Exchanges exchangesOf(std::size_t n)
{
    return {{initRequest(), krvbench::initReply().size()},
        {statsRequest(), krvbench::answerOf(krvbench::Shape::Stats, n).message.size()}};
}

void sendRequest(int socket, const void* request, std::size_t size)
{
    if (send(socket, request, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) throw std::runtime_error("send");
}

void receiveWhole(int socket, char* to, std::size_t size)
{
    for (std::size_t received = 0; received < size;) {
        const ssize_t count = recv(socket, to + received, size - received, 0);
        if (count < 1) throw std::runtime_error("recv");
        received += static_cast<std::size_t>(count);
    }
}

void pingPong(int socket, const Exchange& exchange, std::vector<char>& room)
{
    sendRequest(socket, exchange.request.data(), exchange.request.size());
    receiveWhole(socket, room.data(), exchange.replySize);
}

char* block(std::size_t size)
{
    char* made = static_cast<char*>(malloc(size));
    if (!made) throw std::bad_alloc();
    return made;
}

// Returns the body of the reply, to be freed.
char* exchangeAsPrescribed(int socket, const Exchange& exchange)
{
    char* const request = block(exchange.request.size());
    memcpy(request, exchange.request.data(), exchange.request.size());
    struct sigaction ignore = {};
    struct sigaction previous = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &previous);
    sendRequest(socket, request, exchange.request.size());
    sigaction(SIGPIPE, &previous, nullptr);

    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket, &readable);
    if (select(socket + 1, &readable, nullptr, nullptr, nullptr) != 1) throw std::runtime_error("select");

    char* const header = block(REPLY_HEADER);
    receiveWhole(socket, header, REPLY_HEADER);
    free(header);
    free(request);
    char* const body = block(exchange.replySize - REPLY_HEADER);
    receiveWhole(socket, body, exchange.replySize - REPLY_HEADER);
    return body;
}

void queryAsPrescribed(int socket, const Exchanges& exchanges)
{
    free(exchangeAsPrescribed(socket, exchanges.init));
    char* const body = exchangeAsPrescribed(socket, exchanges.stats);
    const std::size_t size = exchanges.stats.replySize - REPLY_HEADER - RESULT_AT;
    char* const result = block(size);
    memcpy(result, body + RESULT_AT, size);
    free(body);
    free(result);
}

void compare(const std::string& cores, std::size_t n, const krvbench::Patience& patience)
{
    const int gatewayCore = cores == "one" ? 0 : 1;
    krvbench::LibraryQuery library("stats", n, gatewayCore);
    krvbench::LibraryQuery forPingPong("stats", n, gatewayCore); // opened by the library, then used without it
    krvbench::LibraryQuery forPrescribed("stats", n, gatewayCore);
    const int pingPongSocket = forPingPong.token()->socketDescriptor;
    const int prescribedSocket = forPrescribed.token()->socketDescriptor;
    const Exchanges exchanges = exchangesOf(n);
    std::vector<char> room(exchanges.stats.replySize);

    krvbench::runRounds("query on " + cores + " core" + (cores == "one" ? "" : "s"), n,
        {
            {"ping_pong",
                [&] {
                    pingPong(pingPongSocket, exchanges.init, room);
                    pingPong(pingPongSocket, exchanges.stats, room);
                }},
            {"prescribed", [&] { queryAsPrescribed(prescribedSocket, exchanges); }},
            {"library", [&] { library.once(); }},
        },
        patience);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string cores = argc > 1 ? argv[1] : "";
    if (argc < 5 || (cores != "one" && cores != "two")) {
        std::fprintf(stderr, "usage: krvquery one|two ROUNDS MILLISECONDS N...\n");
        return 2;
    }
    try {
        krvbench::stayOn(0);
        for (int i = 4; i < argc; ++i)
            compare(cores, std::strtoul(argv[i], nullptr, 10), {std::atoi(argv[2]), std::atof(argv[3])});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "krvquery: %s\n", failure.what());
        return 1;
    }
    return 0;
}
