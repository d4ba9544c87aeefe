// Header bytes in both directions.
#include "messages.h"

#include <iterator>

namespace krvgw {
namespace {

struct KindRow {
    MessageKind kind;
    std::string_view name;
};

constexpr KindRow KIND_TABLE[] = {
    {MessageKind::Handshake, "handshake"},
    {MessageKind::Auth1, "auth1"},
    {MessageKind::Auth2, "auth2"},
    {MessageKind::Init, "init"},
    {MessageKind::Attribute, "attribute"},
    {MessageKind::GetStats, "get-stats"},
    {MessageKind::StatIds, "stat-ids"},
    {MessageKind::ResourceGroups, "resource-groups"},
    {MessageKind::Close, "close"},
    {MessageKind::Unknown, "unknown"},
};

constexpr MessageKind KNOWN_KINDS[] = {
    MessageKind::Handshake, MessageKind::Auth1, MessageKind::Auth2, MessageKind::Init, MessageKind::Attribute,
    MessageKind::GetStats, MessageKind::StatIds, MessageKind::ResourceGroups, MessageKind::Close,
};

}  // namespace

std::string_view nameOf(MessageKind kind)
{
    for (const KindRow& row : KIND_TABLE)
        if (row.kind == kind) return row.name;
    return "";
}

std::optional<MessageKind> messageKindByName(std::string_view name)
{
    for (const KindRow& row : KIND_TABLE)
        if (row.name == name) return row.kind;
    return std::nullopt;
}

std::span<const MessageKind> messageKinds()
{
    return KNOWN_KINDS;
}

RequestHeader decodeRequestHeader(const Bytes& bytes)
{
    WireReader reader{bytes};
    RequestHeader header{};
    header.eyecatcher = take32(reader);
    header.flowVersion = take32(reader);
    header.flowType = take32(reader);
    header.gatewayRc = take32(reader);
    header.messageId = take32(reader);
    header.nameLength = take32(reader);
    header.name = takeText(reader, header.nameLength);
    header.security = take8(reader);
    header.dataLength = take32(reader);
    header.isWhole = !reader.spent;
    return header;
}

Message makeReply(const ReplyHeader& header, const Message& body)
{
    Message reply;
    put32(reply, EYECATCHER, Field::Eyecatcher);
    put32(reply, FLOW_VERSION, Field::FlowVersion);
    put32(reply, header.flowType, Field::FlowType);
    put32(reply, header.messageId, Field::MessageId);
    put32(reply, header.gatewayRc, Field::GatewayRc);
    put32(reply, static_cast<std::uint32_t>(header.name.size()), Field::NameLength);
    putText(reply, header.name);
    put8(reply, 0, Field::Security);
    put32(reply, static_cast<std::uint32_t>(body.bytes.size()), Field::DataLength);
    putMessage(reply, body);
    return reply;
}

bool echoOfReply(const Bytes& sent, std::size_t requestNameLength, EchoedHeader& echo)
{
    const std::size_t headerSize = requestNameLength + HEADER_BESIDE_NAME;
    if (sent.size() < headerSize) return false;
    const std::uint32_t nameLength = numberAt(sent, 20, 4);
    if (nameLength > requestNameLength) return false;
    echo.flowVersion = numberAt(sent, 4, 4);
    echo.messageId = numberAt(sent, 12, 4);
    echo.nameLength = nameLength;
    echo.security = numberAt(sent, HEADER_BEFORE_NAME + nameLength, 1);
    echo.dataLength = numberAt(sent, HEADER_BEFORE_NAME + nameLength + 1, 4);
    return true;
}

}  // namespace krvgw
