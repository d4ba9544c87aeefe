// What a gateway can do wrong, by name.
//
// A misbehaviour is written NAME[[K]][=ARG][@MESSAGE][#N][%C]:
//   [K]       for the name of a field that occurs several times in a reply: the K-th (default 1), or [*] for all
//   =ARG      see the table; a number as an argument of a field is set (8, 0x1F), or added (+1, -1), and a negative
//             one is set when written =-5, so that "query-length==-5" sets -5 and "query-length=-5" takes 5 off
//   @MESSAGE  only in reply to this kind of message, by default to every one
//   #N        only in reply to the N-th such message of a connection
//   %C        only on the C-th connection that the gateway accepts
// Several may meet in one reply: they take effect in the order in which they were given.
#pragma once

#include "messages.h"

#include <chrono>

namespace krvgw {

enum class Fault {
    SetField, NoAnswer, Delay, ByteByByte, Split, CloseOnAccept, ResetOnAccept, CloseBefore, CloseAfter, CloseAt,
    ResetBefore, ResetAfter, ResetAt, StallAt, ShortBody, ExtraBody, HugeClaim, Name, Opaque,
};

struct Amount {
    std::int64_t value = 0;
    bool isAdded = false;        // to what is there, else it takes its place
};

struct Misbehaviour {
    Fault fault{};
    Field field{};               // SetField only
    std::size_t occurrence = 1;  // of the field in a reply; 0 for every one
    Amount amount;
    std::string text;            // Name
    Bytes bytes;                 // Opaque
    std::chrono::milliseconds pause{0};      // Split
    std::optional<MessageKind> message;      // absent: every kind
    std::size_t nth = 0;         // 0: every one
    std::size_t connection = 0;  // 0: every one
    std::string written;         // as the user wrote it
};

struct MisbehaviourRow {
    std::string_view name;
    Fault fault;
    std::string_view argument;   // how it is written: "", "=N", "[=N]"
    std::string_view fallback;   // the argument where none is given
    std::string_view what;
};

// All but the fields, which fieldTable() lists.
std::span<const MisbehaviourRow> misbehaviourTable();

// On failure returns nothing and says why in `complaint`.
std::optional<Misbehaviour> parseMisbehaviour(std::string_view text, std::string& complaint);

// How far a connection has come, for the conditions of misbehaviours.
struct Occasion {
    std::size_t connection = 0;
    MessageKind message = MessageKind::Unknown;
    std::size_t nthOfKind = 0;
    std::size_t nthOfAll = 0;
};

std::vector<Misbehaviour> misbehavioursFor(const std::vector<Misbehaviour>& all, const Occasion& occasion);

// Whether the connection shall be dropped as soon as it was accepted: Fault::CloseOnAccept or ResetOnAccept.
std::optional<Misbehaviour> misbehaviourOnAccept(const std::vector<Misbehaviour>& all, std::size_t connection);

enum class Ending { None, Close, Reset, Stall };

// How a reply is sent.
struct Delivery {
    Message reply;               // already cut where the sending stops early
    bool isSent = true;
    std::chrono::milliseconds delay{0};
    bool isByteByByte = false;
    std::vector<std::size_t> splits;         // offsets behind which the sending pauses
    std::chrono::milliseconds splitPause{0};
    std::chrono::microseconds bytePause{0};
    Ending ending = Ending::None;
    std::vector<std::string> notes;          // what was done, and what could not be done
};

Delivery planDelivery(Message reply, const std::vector<Misbehaviour>& misbehaviours);

}  // namespace krvgw
