// The same statistics as text over HTTP, a line "NAME VALUE" each, and a scraper written by hand: about the least that
// a client of such text can take.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "peer.h"

namespace {

constexpr char REQUEST[] = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
constexpr char LENGTH[] = "Content-Length: ";
constexpr char HEAD_END[] = "\r\n\r\n";

std::string responseOf(std::size_t n)
{
    std::string body;
    for (std::size_t k = 0; k < n; ++k) body += krvbench::statId(k) + ' ' + krvbench::statValue(k) + '\n';
    return std::string("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n") + LENGTH + std::to_string(body.size()) +
           HEAD_END + body;
}

void sendWhole(int socket, const std::string& text)
{
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t count = send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count < 1) _exit(0);
        sent += static_cast<std::size_t>(count);
    }
}

// Answers whatever comes on one connection, until it ends.
[[noreturn]] void serve(int listener, std::size_t n)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    krvbench::stayOn(krvpeer::CORE);
    const std::string response = responseOf(n);
    const int socket = accept(listener, nullptr, nullptr);
    char request[4096];
    for (std::size_t held = 0;;) {
        const ssize_t count = recv(socket, request + held, sizeof request - held, 0);
        if (count < 1) _exit(0);
        held += static_cast<std::size_t>(count);
        if (held >= sizeof REQUEST - 1) {
            held = 0;
            sendWhole(socket, response);
        }
    }
}

class Scraper {
public:
    explicit Scraper(std::size_t count) : n(count)
    {
        int port;
        const int listener = krvbench::listenOnLoopback(&port);
        server = fork();
        if (server == 0) serve(listener, n);
        close(listener);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        socketNumber = socket(AF_INET, SOCK_STREAM, 0);
        if (server < 0 || connect(socketNumber, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no HTTP server");
    }
    ~Scraper()
    {
        close(socketNumber);
    } // so the server ends
    Scraper(const Scraper&) = delete;
    Scraper& operator=(const Scraper&) = delete;

    void once()
    {
        if (send(socketNumber, REQUEST, sizeof REQUEST - 1, MSG_NOSIGNAL) < 0) throw std::runtime_error("send");
        text.resize(text.capacity());
        std::size_t held = 0;
        std::size_t whole = 0;
        std::size_t bodyAt = 0;
        while (whole == 0 || held < whole) {
            if (held == text.size()) text.resize(2 * text.size() + 65536);
            const ssize_t count = recv(socketNumber, text.data() + held, text.size() - held, 0);
            if (count < 1) throw std::runtime_error("recv");
            held += static_cast<std::size_t>(count);
            if (whole == 0) {
                bodyAt = headSize(held);
                if (bodyAt > 0) whole = bodyAt + contentLength(bodyAt);
                if (text.size() < whole) text.resize(whole);
            }
        }
        readLines(text.data() + bodyAt, text.data() + whole);
    }

private:
    // 0: there is more of it to come.
    std::size_t headSize(std::size_t held) const
    {
        const void* end = memmem(text.data(), held, HEAD_END, sizeof HEAD_END - 1);
        return end ? static_cast<std::size_t>(static_cast<const char*>(end) - text.data()) + sizeof HEAD_END - 1 : 0;
    }

    std::size_t contentLength(std::size_t head) const
    {
        const void* field = memmem(text.data(), head, LENGTH, sizeof LENGTH - 1);
        if (!field) throw std::runtime_error("a reply without a length");
        return std::strtoul(static_cast<const char*>(field) + sizeof LENGTH - 1, nullptr, 10);
    }

    void readLines(const char* at, const char* end) const
    {
        krvpeer::Shown shown;
        while (at < end) {
            const auto* blank = static_cast<const char*>(memchr(at, ' ', static_cast<std::size_t>(end - at)));
            if (!blank) break;
            const char* const value = blank + 1;
            const auto* newline = static_cast<const char*>(memchr(value, '\n', static_cast<std::size_t>(end - value)));
            if (!newline) break;
            shown.look(at, static_cast<std::size_t>(blank - at), value, static_cast<std::size_t>(newline - value));
            at = newline + 1;
        }
        shown.expect(n);
    }

    std::size_t n;
    pid_t server = -1;
    int socketNumber = -1;
    std::vector<char> text;
};

krvpeer::MakeContenders start()
{
    std::signal(SIGCHLD, SIG_IGN); // servers end by themselves
    return [](std::size_t n) -> std::vector<krvbench::Contender> {
        const auto scraper = std::make_shared<Scraper>(n);
        return {{"http_text", [scraper] { scraper->once(); }}};
    };
}

} // namespace

int main(int argc, char** argv)
{
    return krvpeer::comparePeer(argc, argv, start);
}
