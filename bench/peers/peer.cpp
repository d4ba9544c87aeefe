// See peer.h.
#include "peer.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "library_query.h"

namespace krvpeer {

namespace {

constexpr int PATIENCE = 1000; // tries to connect
constexpr useconds_t BETWEEN_TRIES = 10000;

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

} // namespace

int comparePeer(int argc, char** argv, const std::function<MakeContenders()>& start)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s ROUNDS MILLISECONDS N...\n", argv[0]);
        return 2;
    }
    try {
        krvbench::stayOn(CORE);
        const MakeContenders make = start();
        for (int i = 3; i < argc; ++i) {
            const std::size_t n = std::strtoul(argv[i], nullptr, 10);
            krvbench::LibraryQuery library("stats", n, CORE);
            std::vector<krvbench::Contender> contenders = make(n);
            contenders.insert(contenders.begin(), {"library", [&] { library.once(); }});
            krvbench::runRounds("peers", n, contenders, {std::atoi(argv[1]), std::atof(argv[2])});
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}

int freePort(int socketType)
{
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    const int probe = socket(AF_INET, socketType, 0);
    const bool bound = probe >= 0 && bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(probe);
    if (!bound) throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

void awaitListener(int port)
{
    const sockaddr_in address = loopback(port);
    for (int i = 0; i < PATIENCE; ++i) {
        const int probe = socket(AF_INET, SOCK_STREAM, 0);
        const bool listens = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(probe);
        if (listens) return;
        usleep(BETWEEN_TRIES);
    }
    throw std::runtime_error("the server does not listen");
}

void Shown::expect(std::size_t n) const
{
    if (count != n) throw std::runtime_error("the peer answered " + std::to_string(count) + " of " + std::to_string(n));
}

} // namespace krvpeer
