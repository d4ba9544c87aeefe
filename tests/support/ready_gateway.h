// A gateway on 127.0.0.1 that has everything to say ready: each connection is sent a stream of bytes at once, whatever
// the client sends, and then ended in a chosen way. So a stream that was damaged on purpose can be followed to its end,
// and a client never waits for what does not come.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "wire_bytes.h"

namespace krvtest {

enum class StreamEnd {
    Close, // no more bytes will come
    Reset, // the connection breaks, and what the client has not read by then is lost
    Stall, // nothing happens any more until the client leaves
};

class ReadyGateway {
public:
    ReadyGateway();
    ~ReadyGateway();
    ReadyGateway(const ReadyGateway&) = delete;
    ReadyGateway& operator=(const ReadyGateway&) = delete;

    int port() const { return portNumber; }

    // What the connections from now on are sent; single: every byte by itself.
    void prepare(const Bytes& bytes, StreamEnd streamEnd = StreamEnd::Close, bool single = false);

private:
    void serve();
    void serveOne(int client);

    int listener = -1;
    int portNumber = 0;
    std::mutex changes;
    Bytes stream;
    StreamEnd end = StreamEnd::Close;
    bool byteByByte = false;
    std::atomic<bool> stopping{false};
    std::thread server;
};

} // namespace krvtest
