// The gateway on the network: a thread that accepts, and one for each connection.
#pragma once

#include "conversation.h"
#include "transcript.h"

namespace krvgw {

constexpr int DEFAULT_PORT = 7845;

struct ServerOptions {
    std::string address = "127.0.0.1";
    int port = DEFAULT_PORT;     // 0: any free one
    GatewaySettings settings;    // its source and counters must outlive the server
    std::string transcriptPath;  // empty: none
};

struct Server;

struct ServerDeleter {
    void operator()(Server* server) const;
};

// Owns its threads and sockets; destroying it closes every connection and waits for every thread.
using ServerPtr = std::unique_ptr<Server, ServerDeleter>;

// Listens already when it returns. On failure returns null and says why in `complaint`.
ServerPtr startServer(ServerOptions options, std::string& complaint);

int portOf(const Server& server);

}  // namespace krvgw
