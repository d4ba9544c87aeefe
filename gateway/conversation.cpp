// Whoever reads the order of messages finds it in isInOrder and phaseBehind.
#include "conversation.h"

#include "random.h"
#include "replies.h"

#include <fmt/format.h>

#include <algorithm>

namespace krvgw {
namespace {

constexpr std::uint32_t CALL_AUTH_INIT = 0;
constexpr std::uint32_t CALL_AUTH_CONFIRM = 1;

Bytes opaqueBytes(Conversation& conversation, std::size_t count)
{
    Bytes bytes;
    while (bytes.size() < count)
        bytes.push_back(static_cast<unsigned char>(nextRandom(conversation.randomState) >> 56));
    return bytes;
}

std::string_view awaitedIn(Phase phase)
{
    switch (phase) {
    case Phase::Greeting: return "handshake";
    case Phase::Auth1: return "auth1";
    case Phase::Auth2: return "auth2";
    case Phase::Ready: return "init";
    case Phase::Prepared: return "attribute or an operation";
    case Phase::Over: return "nothing";
    }
    return "";
}

bool isInOrder(Phase phase, MessageKind message)
{
    switch (message) {
    case MessageKind::Handshake: return phase == Phase::Greeting;
    case MessageKind::Auth1: return phase == Phase::Auth1;
    case MessageKind::Auth2: return phase == Phase::Auth2;
    // A client whose call failed inside begins again with an init.
    case MessageKind::Init: return phase == Phase::Ready || phase == Phase::Prepared;
    case MessageKind::Close: return phase != Phase::Over;
    default: return phase == Phase::Prepared;
    }
}

Phase phaseBehind(MessageKind message)
{
    switch (message) {
    case MessageKind::Handshake: return Phase::Auth1;
    case MessageKind::Auth1: return Phase::Auth2;
    case MessageKind::Init: return Phase::Prepared;
    case MessageKind::Close: return Phase::Over;
    default: return Phase::Ready;
    }
}

Message makeBody(Conversation& conversation, const GatewaySettings& settings, const Request& request)
{
    switch (request.kind) {
    case MessageKind::Handshake: return handshakeReplyBody();
    case MessageKind::Auth1: return authReplyBody(CALL_AUTH_INIT, opaqueBytes(conversation, AUTH1_OPAQUE));
    case MessageKind::Auth2: return authReplyBody(CALL_AUTH_CONFIRM, opaqueBytes(conversation, AUTH2_OPAQUE));
    case MessageKind::Init: return initReplyBody(opaqueBytes(conversation, INIT_OPAQUE));
    case MessageKind::Attribute: return attributeReplyBody(settings.protocolVersion);
    default: break;
    }
    const auto operation = operationOf(request.kind);
    if (!operation) return {};
    const Catalogue catalogue = conversation.session->read(*operation == Operation::GetStats);
    return operationReplyBody(*operation, answerQuery(catalogue, *operation, request.queryString));
}

// The opaque bytes that a client finds in the body of this reply, taking the body for as long as the header says.
// Bytes that did not arrive count as zeros; after an unexpected call type the client has taken none.
std::optional<Bytes> opaqueIn(const Bytes& sent, std::size_t nameLength, std::uint32_t dataLength, std::size_t count)
{
    constexpr std::size_t BEFORE_OPAQUE = 8;                     // call type and result
    const std::size_t bodyAt = HEADER_BESIDE_NAME + nameLength;
    const std::size_t bodySize = std::min<std::size_t>(sent.size() - bodyAt, dataLength);
    if (bodySize < BEFORE_OPAQUE || numberAt(sent, bodyAt, 4) != 0) return std::nullopt;
    Bytes opaque(count, 0);
    for (std::size_t i = 0; i < count && BEFORE_OPAQUE + i < bodySize; ++i)
        opaque[i] = sent[bodyAt + BEFORE_OPAQUE + i];
    return opaque;
}

// What the next request of the exchange has to repeat from this reply, as it was really sent.
Expected expectedAfter(MessageKind message, const Bytes& sent)
{
    Expected expected;
    if (message != MessageKind::Auth1 && message != MessageKind::Init) return expected;
    const std::size_t nameLength = requestNameOf(message).size();
    EchoedHeader echo;
    if (!echoOfReply(sent, nameLength, echo)) return expected;
    expected.header = echo;
    const std::size_t opaqueSize = message == MessageKind::Auth1 ? AUTH1_OPAQUE : INIT_OPAQUE;
    expected.opaque = opaqueIn(sent, nameLength, echo.dataLength, opaqueSize);
    return expected;
}

std::vector<std::string> complaintsOf(const Conversation& conversation, const Request& request, const Bytes& bytes)
{
    const bool isFollowUp = request.kind == MessageKind::Auth2
                            || (request.kind != MessageKind::Init && conversation.phase == Phase::Prepared);
    Expected expected;
    if (isFollowUp && request.kind != MessageKind::Close) expected = conversation.expected;
    std::vector<std::string> complaints = complaintsAbout(request, bytes, expected);
    if (request.kind != MessageKind::Unknown && !isInOrder(conversation.phase, request.kind))
        complaints.push_back(fmt::format("out of order: {} was awaited", awaitedIn(conversation.phase)));
    return complaints;
}

}  // namespace

Conversation startConversation(const GatewaySettings& settings, std::size_t connection)
{
    Conversation conversation;
    conversation.connection = connection;
    conversation.randomState = settings.seed * 0x100000001B3 + connection;
    conversation.requestsOfKind.resize(static_cast<std::size_t>(MessageKind::Unknown) + 1, 0);
    conversation.session = settings.source->openSession();
    return conversation;
}

Turn takeRequest(Conversation& conversation, const GatewaySettings& settings, const Bytes& bytes)
{
    const Request request = readRequest(bytes);
    const auto kindIndex = static_cast<std::size_t>(request.kind);
    ++conversation.requests;
    ++conversation.requestsOfKind[kindIndex];
    ++settings.counters->requests[kindIndex];

    Turn turn;
    turn.message = request.kind;
    turn.complaints = complaintsOf(conversation, request, bytes);
    const bool isKnown = request.kind != MessageKind::Unknown;
    ReplyHeader header{request.header.flowType, request.header.messageId, 0,
                       isKnown ? requestNameOf(request.kind) : std::string_view(request.header.name)};
    Message body;
    const bool isRefused = !turn.complaints.empty();
    const std::string reason = isRefused ? "" : unservable(request);
    if (isRefused) {
        header.gatewayRc = REFUSED_RC;
    } else if (!reason.empty()) {
        turn.complaints.push_back(reason);
        body = exceptionReplyBody(numberAt(bytes, HEADER_BESIDE_NAME + request.header.nameLength, 4), reason);
    } else {
        body = makeBody(conversation, settings, request);
    }

    const Occasion occasion{conversation.connection, request.kind, conversation.requestsOfKind[kindIndex],
                            conversation.requests};
    turn.delivery = planDelivery(makeReply(header, body), misbehavioursFor(settings.misbehaviours, occasion));
    if (isRefused && turn.delivery.ending == Ending::None) turn.delivery.ending = Ending::Close;
    conversation.phase = isRefused ? Phase::Over : phaseBehind(request.kind);
    conversation.expected = expectedAfter(request.kind, turn.delivery.reply.bytes);
    return turn;
}

}  // namespace krvgw
