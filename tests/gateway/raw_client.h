// A client of the tests' own: bytes over a socket, and a conversation as far as a test needs it.
#pragma once

#include "wire_bytes.h"

#include <string>

namespace krvgwtest {

using krvtest::Bytes;

enum class Left { Open, Closed, Reset, TimedOut };

struct Received {
    Bytes bytes;
    Left left = Left::Open;      // why there is not more
};

class RawClient {
public:
    explicit RawClient(int port, const std::string& address = "127.0.0.1");
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool send(const Bytes& bytes) const;
    // Exactly `count` bytes, or what came until the peer was gone or 10 seconds were over.
    Received receive(std::size_t count) const;
    // What one receive call gives, once there is something.
    Received receiveOnce() const;
    // True if nothing comes within that many milliseconds.
    bool isSilentFor(int milliseconds) const;
    void close();

    // Sends a request and takes a reply with a name of that length.
    Received exchange(const Bytes& request, std::size_t nameLength) const;

    // The steps of a conversation; each false if the reply was not a good one.
    bool greet();
    bool authorise();            // both steps
    bool open();                 // greet, authorise and the version
    // The result of an operation, from the array flag on; empty if the reply was not a good one.
    Bytes invoke(const std::string& operation, const std::string& query);
    // The same, only sent: the reply is the caller's.
    bool sendInvoke(const std::string& operation, const std::string& query);
    bool leave();                // close request, its reply, the end

    std::string version;         // by open()
    int fd = -1;
};

}  // namespace krvgwtest
