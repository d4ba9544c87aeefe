// What calls must make of the bytes that a gateway sends, worked out without the library.
//
// Each function takes its bytes from the stream as the library would and says how the call ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "reference_decoder.h"

namespace krvtest {

// A body that a header claims to be larger than mostBody cannot be allocated.
struct Stream {
    Bytes bytes;
    std::size_t mostBody = 1u << 30;
    std::size_t at = 0;
};

// One reply to a request whose name has nameSize characters.
struct ModelReply {
    int rc = 0; // 0, -111, -122, or the gateway's own code
    std::int32_t flowVersion = 0;
    std::optional<Bytes> body; // none: the reply is decoded from the request's own bytes
};

ModelReply modelReply(Stream& stream, std::size_t nameSize);

// Both steps of the authorisation.
int modelAuthorisation(Stream& stream);

struct ModelCall {
    int rc = 0;
    std::optional<Bytes> data; // what the call's reply carries behind its fixed part
};

// The init call and the call that follows it.
ModelCall modelAdminCalls(Stream& stream);

// The attribute with the protocol version.
struct ModelVersion {
    int rc = 0;
    std::string text;
};
ModelVersion modelVersion(Stream& stream);

// Opening a connection by the API.
ModelVersion modelOpen(Stream& stream);

// A query by the API, into a buffer of this capacity.
struct ModelAnswer {
    int rc = 0;
    DecodedReply reply;
};
ModelAnswer modelQuery(Stream& stream, ReplyKind kind, int capacity);

// A strict decoder's opinion on the data of an invoke reply: none if it refuses it.
std::optional<DecodedReply> strictlyDecoded(ReplyKind kind, const Bytes& data, int capacity);

} // namespace krvtest
