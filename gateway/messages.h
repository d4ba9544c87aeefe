// The frame of every message, and the kinds of messages by their names.
//
//   offset  width  request                 reply
//   0       4      eyecatcher "Gate"       eyecatcher "Gate"
//   4       4      flow version            flow version
//   8       4      flow type               flow type
//   12      4      gateway rc (0)          message id
//   16      4      message id              gateway rc
//   20      4      N, length of the name   N
//   24      N      name                    name
//   24+N    1      security                security
//   25+N    4      length of the body      length of the body
//   29+N           body                    body
//
// Offsets 12 and 16 are crossed between the two directions: the client writes its (zero) return code in front of
// the message id, the gateway the message id in front of its return code.
#pragma once

#include "wire.h"

namespace krvgw {

constexpr std::uint32_t EYECATCHER = 0x47617465;
constexpr std::uint32_t FLOW_VERSION = 0x700000;
constexpr std::uint32_t FLOW_TYPE_CALL = 1;          // authorisation and admin
constexpr std::uint32_t FLOW_TYPE_HANDSHAKE = 5;
constexpr std::uint32_t FLOW_TYPE_CLOSE = 10;
constexpr std::size_t HEADER_BEFORE_NAME = 24;
constexpr std::size_t HEADER_BESIDE_NAME = 29;

enum class MessageKind { Handshake, Auth1, Auth2, Init, Attribute, GetStats, StatIds, ResourceGroups, Close, Unknown };

std::string_view nameOf(MessageKind kind);                          // "handshake", "get-stats", ...
std::optional<MessageKind> messageKindByName(std::string_view name);
std::span<const MessageKind> messageKinds();

struct RequestHeader {
    std::uint32_t eyecatcher;
    std::uint32_t flowVersion;
    std::uint32_t flowType;
    std::uint32_t gatewayRc;
    std::uint32_t messageId;
    std::uint32_t nameLength;
    std::string name;
    std::uint32_t security;
    std::uint32_t dataLength;
    bool isWhole;                // else the missing fields read as zeros
};

RequestHeader decodeRequestHeader(const Bytes& bytes);

struct ReplyHeader {
    std::uint32_t flowType;
    std::uint32_t messageId;
    std::uint32_t gatewayRc;
    std::string_view name;
};

Message makeReply(const ReplyHeader& header, const Message& body);

// A reply's header as a client takes it. All but the data length stand again in its next request of the exchange.
struct EchoedHeader {
    std::uint32_t flowVersion = FLOW_VERSION;
    std::uint32_t messageId = 0;
    std::uint32_t nameLength = 0;
    std::uint32_t security = 0;
    std::uint32_t dataLength = 0;
};

// Reads a reply as a client does: of the header no more than the length of the name in its request says, with the
// fields behind the name found by the length in the reply. False if fewer bytes were sent, or the fields would
// lie outside.
bool echoOfReply(const Bytes& sent, std::size_t requestNameLength, EchoedHeader& echo);

}  // namespace krvgw
