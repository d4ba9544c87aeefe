// A gateway's end of a connection that has said everything in advance: the replies to one query lie in the socket
// before the query is made.
#pragma once

#include <thread>

#include "wire_bytes.h"

namespace krvtest {

// Answers one query, an init call and an invoke call, with this reply data; then the connection is closed. Requests are
// read by nobody: their form is not what is tested here.
class PreparedPeer {
public:
    explicit PreparedPeer(const Bytes& replies);
    ~PreparedPeer();
    PreparedPeer(const PreparedPeer&) = delete;
    PreparedPeer& operator=(const PreparedPeer&) = delete;

    int socket() const { return client; }

private:
    int client = -1;
    int gateway = -1;
    std::thread sender; // replies larger than a socket takes at once
};

// The two replies of a query whose data is this.
Bytes queryReplies(const Bytes& callData);

} // namespace krvtest
