// What a client may send, byte for byte: recognises a request and names everything in it that is wrong.
//
// Knows nothing of the order of a conversation; that is conversation.h.
#pragma once

#include "catalogue.h"
#include "messages.h"

namespace krvgw {

// What this request must repeat from earlier replies. An absent value is not checked.
struct Expected {
    std::optional<EchoedHeader> header;  // absent: the fixed values of a first request
    std::optional<Bytes> opaque;
};

struct Request {
    MessageKind kind = MessageKind::Unknown;
    RequestHeader header{};
    std::string objectName;      // attribute and operations
    std::string memberName;      // the attribute or the operation
    std::string queryString;     // operations
};

// `bytes` is one whole message. Recognition takes the name, the flow type and the call type; it does not complain.
Request readRequest(const Bytes& bytes);

// The request name that a message of this kind carries: "BASE", "Auth" or "Admin".
std::string_view requestNameOf(MessageKind kind);

// Everything wrong with the bytes, one sentence each; empty for a perfect request. An object, attribute or
// operation that the gateway does not have is none of them.
std::vector<std::string> complaintsAbout(const Request& request, const Bytes& bytes, const Expected& expected);

// Why the request, though well formed, cannot be carried out: empty if it can.
std::string unservable(const Request& request);

std::optional<Operation> operationOf(MessageKind kind);

}  // namespace krvgw
