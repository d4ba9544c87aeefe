// One conversation with a client: the order of messages, what each must repeat, and the replies.
//
// Works on whole messages in memory and opens no sockets. The order:
//
//   handshake, auth1, auth2, then any number of (init, attribute) and (init, operation), and close at any point.
//
// A request with anything wrong in it is answered with the header return code REFUSED_RC, and the conversation is
// over. An attribute or operation that does not exist is answered with the exception flag, and it goes on.
#pragma once

#include "counters.h"
#include "misbehave.h"
#include "requests.h"

namespace krvgw {

constexpr std::uint32_t REFUSED_RC = 9001;

enum class Phase { Greeting, Auth1, Auth2, Ready, Prepared, Over };

struct Conversation {
    std::size_t connection = 0;
    Phase phase = Phase::Greeting;
    Expected expected;           // of the next request of this exchange
    std::uint64_t randomState = 0;
    std::size_t requests = 0;
    std::vector<std::size_t> requestsOfKind;     // indexed by MessageKind
    std::unique_ptr<Session> session;
};

// What stays the same for all connections. Borrowed by conversations.
struct GatewaySettings {
    Source* source = nullptr;
    Counters* counters = nullptr;
    std::string protocolVersion = "1.1.0";
    std::uint64_t seed = 1;
    std::vector<Misbehaviour> misbehaviours;
};

struct Turn {
    MessageKind message = MessageKind::Unknown;
    std::vector<std::string> complaints;
    Delivery delivery;
};

Conversation startConversation(const GatewaySettings& settings, std::size_t connection);

// Takes one whole request and says what is sent in return.
Turn takeRequest(Conversation& conversation, const GatewaySettings& settings, const Bytes& request);

}  // namespace krvgw
