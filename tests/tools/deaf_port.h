// A port of this machine that nobody listens at and nobody else can take.
#ifndef TESTS_TOOLS_DEAF_PORT_H
#define TESTS_TOOLS_DEAF_PORT_H

#include <gtest/gtest.h>

#include <string>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

struct DeafPort {
    int socketDescriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port = 0;

    DeafPort()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(socketDescriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(getsockname(socketDescriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
        port = ntohs(address.sin_port);
    }
    ~DeafPort()
    {
        close(socketDescriptor);
    }
    DeafPort(const DeafPort&) = delete;
    DeafPort& operator=(const DeafPort&) = delete;

    std::string target() const
    {
        return "127.0.0.1:" + std::to_string(port);
    }
};

#endif
