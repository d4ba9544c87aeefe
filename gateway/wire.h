// Big-endian bytes: a message under construction, and a bounded reader of a received one.
//
// Everything else in the gateway that makes or takes bytes stands on these calls.
#pragma once

#include "fields.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krvgw {

using Bytes = std::vector<unsigned char>;

// Bytes being written, and where their named fields stand.
struct Message {
    Bytes bytes;
    std::vector<FieldMark> marks;
};

void put8(Message& message, std::uint32_t value, std::optional<Field> field = std::nullopt);
void put16(Message& message, std::uint32_t value, std::optional<Field> field = std::nullopt);
void put32(Message& message, std::uint32_t value, std::optional<Field> field = std::nullopt);
void put64(Message& message, std::uint64_t value);
void putText(Message& message, std::string_view text);
void putBytes(Message& message, const Bytes& bytes);

// A 2-byte length and the bytes, as Java's writeUTF lays out a text; `field` names the length.
void putUtf(Message& message, std::string_view text, std::optional<Field> field = std::nullopt);

// Appends [from, from + count) of `part`, with the marks that lie wholly inside.
void putPart(Message& message, const Message& part, std::size_t from, std::size_t count);
void putMessage(Message& message, const Message& part);

// Puts a number into 1, 2 or 4 bytes at a place that exists already.
void overwrite(Bytes& bytes, std::size_t at, std::size_t width, std::uint32_t value);
std::uint32_t numberAt(const Bytes& bytes, std::size_t at, std::size_t width);

struct WireReader {              // borrows the bytes: owns nothing, copies nothing
    const Bytes& bytes;
    std::size_t at = 0;
    bool spent = false;          // latched by the first read past the end; later reads give 0 or nothing
};

std::uint32_t take8(WireReader& reader);
std::uint32_t take16(WireReader& reader);
std::uint32_t take32(WireReader& reader);
std::string takeText(WireReader& reader, std::size_t count);
std::string takeUtf(WireReader& reader);
std::size_t left(const WireReader& reader);

std::string hexOf(const Bytes& bytes);
std::string hexOf(std::string_view bytes);
std::optional<Bytes> bytesOfHex(std::string_view hex);

}  // namespace krvgw
