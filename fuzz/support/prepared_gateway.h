// A gateway that has said everything in advance: its bytes lie in a socket before the library asks, and its end is shut
// down for writing, so that nothing can wait. What the library sends is read by nobody.
#pragma once

#include "wire_bytes.h"

namespace krvfuzz {

// What a socket takes at once; longer inputs are cut.
constexpr std::size_t mostBytes = 60000;

class PreparedGateway {
public:
    explicit PreparedGateway(const krvtest::Bytes& stream);
    ~PreparedGateway();
    PreparedGateway(const PreparedGateway&) = delete;
    PreparedGateway& operator=(const PreparedGateway&) = delete;

    // The library's end, which stays the gateway's to close.
    int client() const { return clientEnd; }

    // The library's next socket() gives the client's end, and connect() finds it connected; the library closes it then.
    void awaitConnection();

private:
    int clientEnd = -1;
    int gatewayEnd = -1;
};

} // namespace krvfuzz
