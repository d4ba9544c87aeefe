// Recognition first, by as little as possible, so that the checks can then name what is wrong with the rest.
#include "requests.h"

#include <fmt/format.h>

#include <algorithm>

namespace krvgw {
namespace {

constexpr std::string_view BASE_NAME = "BASE";
constexpr std::string_view AUTH_NAME = "Auth";
constexpr std::string_view ADMIN_NAME = "Admin";

constexpr std::uint32_t CALL_INIT = 0;
constexpr std::uint32_t CALL_CONFIRM = 1;            // second authorisation
constexpr std::uint32_t CALL_GET_ATTRIBUTE = 1;
constexpr std::uint32_t CALL_INVOKE = 5;

constexpr std::string_view COUNTRY = "US";
constexpr std::string_view LANGUAGE = "en";
constexpr std::string_view VARIANT;
constexpr std::string_view OBJECT = "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats";
constexpr std::string_view ATTRIBUTE = "protocol";
constexpr std::string_view SIGNATURE = "java.lang.String";
constexpr std::string_view HANDSHAKE_BODY("\x00\x02" "en" "\x00\x02" "GB" "\0\0\0\0\0\0\0\0\0\0", 18);
constexpr std::string_view STRING_STREAM("\xAC\xED\x00\x05\x74", 5);

constexpr std::size_t MAP_BYTES = 8;
constexpr std::size_t SERVER_VERSION_BYTES = 4;
constexpr std::size_t AUTH1_BODY = 4;
constexpr std::size_t AUTH2_BODY = 20;

struct OperationRow {
    MessageKind kind;
    Operation operation;
    std::string_view action;
};

constexpr OperationRow OPERATION_TABLE[] = {
    {MessageKind::GetStats, Operation::GetStats, "GET_STATS"},
    {MessageKind::StatIds, Operation::StatIds, "STAT_IDS"},
    {MessageKind::ResourceGroups, Operation::ResourceGroups, "RESOURCE_GROUPS"},
};

using Complaints = std::vector<std::string>;

// A client whose reply header named a shorter name sends that much of its own.
bool isNameOf(const RequestHeader& header, std::string_view name)
{
    return header.name.size() <= name.size() && header.name == name.substr(0, header.name.size());
}

// Names shortened to less than two letters could be "Admin" as well: then the size decides.
bool isAuthorisation(const RequestHeader& header, std::size_t bodySize)
{
    return isNameOf(header, AUTH_NAME) && (header.name.size() >= 2 || bodySize <= AUTH2_BODY);
}

// Hexadecimal, the beginning only of what is long.
std::string shown(std::string_view bytes)
{
    constexpr std::size_t MOST = 80;
    if (bytes.empty()) return "nothing";
    return bytes.size() <= MOST ? hexOf(bytes) : hexOf(bytes.substr(0, MOST)) + "...";
}

void expectNumber(Complaints& complaints, std::string_view what, std::uint32_t actual, std::uint32_t wanted)
{
    if (actual != wanted)
        complaints.push_back(fmt::format("{} is 0x{:08X} instead of 0x{:08X}", what, actual, wanted));
}

void expectText(Complaints& complaints, std::string_view what, std::string_view actual, std::string_view wanted)
{
    if (actual != wanted)
        complaints.push_back(fmt::format("{} is {} instead of {}", what, shown(actual), shown(wanted)));
}

void expectOpaque(Complaints& complaints, std::string_view what, std::string_view actual,
                  const std::optional<Bytes>& wanted, std::size_t from)
{
    if (!wanted || wanted->size() < from) return;
    const std::string text(wanted->begin(), wanted->end());
    expectText(complaints, what, actual, std::string_view(text).substr(from, actual.size()));
}

void checkHeader(Complaints& complaints, const Request& request, const Expected& expected)
{
    const bool isBase = requestNameOf(request.kind) == BASE_NAME;
    const std::string_view name = requestNameOf(request.kind);
    EchoedHeader wanted{FLOW_VERSION, 0, static_cast<std::uint32_t>(name.size()), 0, 0};
    if (expected.header) wanted = *expected.header;
    if (request.kind == MessageKind::Close) wanted.messageId = 0xFFFFFFFF;
    std::uint32_t flowType = FLOW_TYPE_CALL;
    if (isBase) flowType = request.kind == MessageKind::Close ? FLOW_TYPE_CLOSE : FLOW_TYPE_HANDSHAKE;

    expectNumber(complaints, "header: eyecatcher", request.header.eyecatcher, EYECATCHER);
    expectNumber(complaints, "header: flow version", request.header.flowVersion, wanted.flowVersion);
    expectNumber(complaints, "header: flow type", request.header.flowType, flowType);
    expectNumber(complaints, "header: gateway rc", request.header.gatewayRc, 0);
    expectNumber(complaints, "header: message id", request.header.messageId, wanted.messageId);
    expectNumber(complaints, "header: name length", request.header.nameLength, wanted.nameLength);
    expectText(complaints, "header: name", request.header.name, name.substr(0, wanted.nameLength));
    expectNumber(complaints, "header: security", request.header.security, wanted.security);
}

void checkAuthorisation(Complaints& complaints, const Request& request, WireReader& body,
                        const std::optional<Bytes>& opaque)
{
    const bool isSecond = request.kind == MessageKind::Auth2;
    expectNumber(complaints, "body: call type", take32(body), isSecond ? CALL_CONFIRM : CALL_INIT);
    if (!isSecond) return;
    expectOpaque(complaints, "body: protocol map", takeText(body, MAP_BYTES), opaque, 0);
    expectOpaque(complaints, "body: server version", takeText(body, SERVER_VERSION_BYTES), opaque, MAP_BYTES);
    expectNumber(complaints, "body: protocol data length", take32(body), 0);
}

void checkAdmin(Complaints& complaints, const Request& request, WireReader& body, const std::optional<Bytes>& opaque)
{
    const std::uint32_t callType = take32(body);
    if (request.kind == MessageKind::Init) {
        expectNumber(complaints, "body: call type", callType, CALL_INIT);
        return;
    }
    const bool isInvoke = request.kind != MessageKind::Attribute;
    expectNumber(complaints, "body: call type", callType, isInvoke ? CALL_INVOKE : CALL_GET_ATTRIBUTE);
    expectOpaque(complaints, "body: server version", takeText(body, SERVER_VERSION_BYTES), opaque, 0);
    const std::uint32_t callInfoLength = take32(body);
    expectNumber(complaints, "body: call info length", callInfoLength, static_cast<std::uint32_t>(left(body)));
    expectText(complaints, "body: client country", takeUtf(body), COUNTRY);
    expectText(complaints, "body: client language", takeUtf(body), LANGUAGE);
    expectText(complaints, "body: client variant", takeUtf(body), VARIANT);
    takeUtf(body);                                       // object, judged by unservable()
    takeUtf(body);                                       // attribute or operation, likewise
    if (!isInvoke) return;
    expectNumber(complaints, "body: number of arguments", take32(body), 1);
    expectText(complaints, "body: start of argument", takeText(body, STRING_STREAM.size()), STRING_STREAM);
    takeUtf(body);                                       // query string: any
    expectNumber(complaints, "body: number of signatures", take32(body), 1);
    expectText(complaints, "body: signature", takeUtf(body), SIGNATURE);
}

MessageKind kindOfAction(std::string_view action)
{
    for (const OperationRow& row : OPERATION_TABLE)
        if (row.action == action) return row.kind;
    return MessageKind::GetStats;                        // unservable() names the operation
}

// Reads the admin body far enough to tell what it asks for.
void readAdmin(Request& request, WireReader body)
{
    const std::uint32_t callType = take32(body);
    request.kind = MessageKind::Init;
    if (callType == CALL_INIT) return;
    request.kind = MessageKind::Attribute;
    takeText(body, SERVER_VERSION_BYTES);
    take32(body);
    for (int locale = 0; locale < 3; ++locale) takeUtf(body);
    request.objectName = takeUtf(body);
    request.memberName = takeUtf(body);
    if (callType != CALL_INVOKE) return;
    request.kind = kindOfAction(request.memberName);
    take32(body);
    takeText(body, STRING_STREAM.size());
    request.queryString = takeUtf(body);
}

}  // namespace

Request readRequest(const Bytes& bytes)
{
    Request request;
    request.header = decodeRequestHeader(bytes);
    WireReader body{bytes, std::min(bytes.size(), request.header.nameLength + HEADER_BESIDE_NAME)};
    if (request.header.name == BASE_NAME)
        request.kind = request.header.flowType == FLOW_TYPE_CLOSE ? MessageKind::Close : MessageKind::Handshake;
    else if (isAuthorisation(request.header, left(body)))
        request.kind = left(body) <= AUTH1_BODY ? MessageKind::Auth1 : MessageKind::Auth2;
    else if (isNameOf(request.header, ADMIN_NAME))
        readAdmin(request, body);
    return request;
}

std::string_view requestNameOf(MessageKind kind)
{
    switch (kind) {
    case MessageKind::Handshake:
    case MessageKind::Close: return BASE_NAME;
    case MessageKind::Auth1:
    case MessageKind::Auth2: return AUTH_NAME;
    default: return ADMIN_NAME;
    }
}

std::vector<std::string> complaintsAbout(const Request& request, const Bytes& bytes, const Expected& expected)
{
    Complaints complaints;
    if (!request.header.isWhole) {
        complaints.push_back(fmt::format("header: its {} bytes end inside a field", bytes.size()));
        return complaints;
    }
    if (request.kind == MessageKind::Unknown) {
        complaints.push_back(fmt::format("header: no request is named {}", shown(request.header.name)));
        return complaints;
    }
    checkHeader(complaints, request, expected);

    WireReader body{bytes, std::min(bytes.size(), request.header.nameLength + HEADER_BESIDE_NAME)};
    expectNumber(complaints, "header: data length", request.header.dataLength, static_cast<std::uint32_t>(left(body)));
    switch (request.kind) {
    case MessageKind::Close: break;
    case MessageKind::Handshake:
        expectText(complaints, "body", takeText(body, left(body)), HANDSHAKE_BODY);
        break;
    case MessageKind::Auth1:
    case MessageKind::Auth2: checkAuthorisation(complaints, request, body, expected.opaque); break;
    default: checkAdmin(complaints, request, body, expected.opaque); break;
    }
    if (body.spent)
        complaints.push_back(fmt::format("body: its {} bytes end inside a field", request.header.dataLength));
    else if (left(body) > 0)
        complaints.push_back(fmt::format("body: {} bytes behind the last field", left(body)));
    return complaints;
}

std::string unservable(const Request& request)
{
    const bool isAttribute = request.kind == MessageKind::Attribute;
    if (!isAttribute && !operationOf(request.kind)) return "";
    if (request.objectName != OBJECT) return fmt::format("there is no object \"{}\"", request.objectName);
    if (isAttribute && request.memberName != ATTRIBUTE)
        return fmt::format("there is no attribute \"{}\"", request.memberName);
    for (const OperationRow& row : OPERATION_TABLE)
        if (isAttribute || row.action == request.memberName) return "";
    return fmt::format("there is no operation \"{}\"", request.memberName);
}

std::optional<Operation> operationOf(MessageKind kind)
{
    for (const OperationRow& row : OPERATION_TABLE)
        if (row.kind == kind) return row.operation;
    return std::nullopt;
}

}  // namespace krvgw
