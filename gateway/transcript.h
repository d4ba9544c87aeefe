// The transcript: what went over every connection, a line each, flushed before the reply that it tells of is sent.
//
//   CONNECTION KIND MESSAGE REST
//
//   1 C>G handshake 4761746500700000...    a request, whole, in hexadecimal
//   1 G>C handshake 4761746500700000...    a reply, as far as it will be sent; written before it is sent
//   1 !!! handshake TEXT                   a complaint about the client's bytes or their order
//   1 *** handshake bad-eyecatcher         a misbehaviour that took effect in this reply
//   1 --- - TEXT                           accepted, left, closed, reset: written after it happened
//
// Connections count from 1 in the order in which they were accepted. Messages: handshake, auth1, auth2, init,
// attribute, get-stats, stat-ids, resource-groups, close, unknown.
//
// Threads: any thread may write; lines do not mix.
#pragma once

#include "messages.h"

#include <fstream>
#include <mutex>

namespace krvgw {

struct Transcript {
    std::ofstream file;          // closed: nothing is written
    std::mutex lock;
};

bool openTranscript(Transcript& transcript, const std::string& path);

void writeRequestLine(Transcript& transcript, std::size_t connection, MessageKind message, const Bytes& bytes);
void writeReplyLine(Transcript& transcript, std::size_t connection, MessageKind message, const Bytes& bytes);
void writeMisbehaviourLine(Transcript& transcript, std::size_t connection, MessageKind message, std::string_view text);
void writeEventLine(Transcript& transcript, std::size_t connection, std::string_view text);

// To standard error as well.
void writeComplaintLine(Transcript& transcript, std::size_t connection, MessageKind message, std::string_view text);

}  // namespace krvgw
