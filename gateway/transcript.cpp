// One function forms the lines.
#include "transcript.h"

#include <fmt/format.h>

#include <cstdio>

namespace krvgw {
namespace {

void writeLine(Transcript& transcript, std::size_t connection, std::string_view kind, std::string_view message,
               std::string_view rest)
{
    const std::lock_guard<std::mutex> held(transcript.lock);
    if (!transcript.file.is_open()) return;
    transcript.file << connection << ' ' << kind << ' ' << message << ' ' << rest << '\n' << std::flush;
}

}  // namespace

bool openTranscript(Transcript& transcript, const std::string& path)
{
    transcript.file.open(path, std::ios::out | std::ios::trunc);
    return transcript.file.is_open();
}

void writeRequestLine(Transcript& transcript, std::size_t connection, MessageKind message, const Bytes& bytes)
{
    if (transcript.file.is_open()) writeLine(transcript, connection, "C>G", nameOf(message), hexOf(bytes));
}

void writeReplyLine(Transcript& transcript, std::size_t connection, MessageKind message, const Bytes& bytes)
{
    if (transcript.file.is_open()) writeLine(transcript, connection, "G>C", nameOf(message), hexOf(bytes));
}

void writeMisbehaviourLine(Transcript& transcript, std::size_t connection, MessageKind message, std::string_view text)
{
    writeLine(transcript, connection, "***", nameOf(message), text);
}

void writeEventLine(Transcript& transcript, std::size_t connection, std::string_view text)
{
    writeLine(transcript, connection, "---", "-", text);
}

void writeComplaintLine(Transcript& transcript, std::size_t connection, MessageKind message, std::string_view text)
{
    fmt::print(stderr, "krvgwsim: connection {}: {}: {}\n", connection, nameOf(message), text);
    writeLine(transcript, connection, "!!!", nameOf(message), text);
}

}  // namespace krvgw
