// See reference_decoder.h.
#include "reference_decoder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace krvtest {

namespace {

struct Decoder {
    const Bytes& data;
    std::size_t offset = 0;
    DecodedReply result;
};

unsigned int byteAt(Decoder& from, std::size_t place)
{
    return from.data.at(place);
}

void mustHave(Decoder& from, std::size_t count)
{
    from.offset += count;
    if (from.offset > from.data.size()) throw std::out_of_range("the reply ends inside a field");
    from.result.needed = std::max(from.result.needed, from.offset);
    from.result.lookedAt = std::max(from.result.lookedAt, from.offset);
}

int decodeShort(Decoder& from)
{
    mustHave(from, 2);
    int value = static_cast<int>(byteAt(from, from.offset - 2) * 256 + byteAt(from, from.offset - 1));
    return value >= 32768 ? value - 65536 : value;
}

std::int32_t decodeWord(Decoder& from)
{
    mustHave(from, 4);
    std::uint32_t value = 0;
    for (std::size_t i = from.offset - 4; i < from.offset; i++) value = value * 256 + byteAt(from, i);
    return static_cast<std::int32_t>(value);
}

Bytes decodeBytes(Decoder& from, int count)
{
    if (count < 0) throw std::out_of_range("a length is negative");
    mustHave(from, static_cast<std::size_t>(count));
    auto end = from.data.begin() + static_cast<std::ptrdiff_t>(from.offset);
    return Bytes(end - count, end);
}

void passOver(Decoder& from, int count)
{
    if (count < 0) throw std::out_of_range("a length is negative");
    from.offset += static_cast<std::size_t>(count);
}

void passOverCounted(Decoder& from)
{
    passOver(from, decodeShort(from));
}

// Everything behind the category and the number of responses makes room first, by one doubling.
void store(Decoder& to, const Bytes& bytes)
{
    DecodedReply& result = to.result;
    if (result.set.size() + bytes.size() > static_cast<std::size_t>(result.capacity)) {
        result.capacity *= 2;
        result.growths++;
    }
    result.set.insert(result.set.end(), bytes.begin(), bytes.end());
}

void decodeSegments(Decoder& from, int remaining)
{
    unsigned int type = 0;
    auto lookAtType = [&] {
        if (from.offset >= from.data.size()) throw std::out_of_range("the reply ends before a block type");
        if (remaining > 0) from.result.needed = std::max(from.result.needed, from.offset + 1);
        from.result.lookedAt = std::max(from.result.lookedAt, from.offset + 1);
        type = byteAt(from, from.offset);
    };
    lookAtType();
    while (type == blockLong && remaining > 0) {
        passOver(from, 3);
        int length = decodeShort(from);
        store(from, decodeBytes(from, length));
        remaining -= length;
        lookAtType();
    }
    while (type == blockShort && remaining > 0) {
        passOver(from, 1);
        mustHave(from, 1);
        int length = static_cast<int>(byteAt(from, from.offset - 1));
        store(from, decodeBytes(from, length));
        remaining -= length;
    }
    if (remaining != 0) from.result.addsUp = false;
}

void decodeElement(Decoder& from)
{
    passOver(from, 5);
    mustHave(from, 1);
    bool chunked = byteAt(from, from.offset - 1) == blockLong;
    int chunkLength = 0;
    if (chunked) {
        passOver(from, 2);
        chunkLength = decodeShort(from);
    } else {
        passOver(from, 1);
    }
    int idLength = decodeShort(from);
    store(from, hostWord(idLength));
    store(from, decodeBytes(from, idLength));
    int valueLength = decodeShort(from);
    store(from, hostWord(valueLength));
    if (!chunked || valueLength <= chunkLength - idLength - 4) {
        store(from, decodeBytes(from, valueLength));
    } else {
        int first = chunkLength - idLength - 4;
        store(from, decodeBytes(from, first));
        decodeSegments(from, valueLength - first);
    }
    passOver(from, 2);
}

void decodeResponse(Decoder& from, ReplyKind kind)
{
    passOver(from, 6);
    passOverCounted(from);
    passOver(from, 13);
    passOverCounted(from);
    passOver(from, 13);
    mustHave(from, 1);
    passOver(from, byteAt(from, from.offset - 1) == blockShort ? 1 : 4);
    int length = decodeShort(from);
    store(from, hostWord(length));
    store(from, decodeBytes(from, length));
    std::int32_t rc = decodeWord(from);
    store(from, hostWord(rc));
    if (rc < 0) {
        passOver(from, 1);
        return;
    }
    std::int32_t count = decodeWord(from);
    store(from, hostWord(count));
    if (kind == ReplyKind::Statistics) {
        passOver(from, 2);
        passOverCounted(from);
        passOver(from, 8);
        for (std::int32_t i = 0; i < count; i++) decodeElement(from);
    } else {
        for (std::int32_t i = 0; i < count; i++) {
            int idLength = decodeShort(from);
            store(from, hostWord(idLength));
            store(from, decodeBytes(from, idLength));
        }
        passOver(from, 1);
    }
}

} // namespace

DecodedReply decodeReply(ReplyKind kind, const Bytes& data, int capacity)
{
    Decoder from{data, 0, {}};
    from.result.capacity = capacity;
    mustHave(from, 1);
    std::int32_t responses = byteAt(from, 0) == 1 ? decodeWord(from) : 1;
    from.result.set = text(kind == ReplyKind::Statistics ? "KRVSTSET" : "KRVIDSET") + hostWord(responses);
    for (std::int32_t i = 0; i < responses; i++) decodeResponse(from, kind);
    if (kind == ReplyKind::Statistics) {
        store(from, terminatorBytes());
    } else { // closed without a capacity check
        from.result.set = from.result.set + terminatorBytes();
    }
    return from.result;
}

Bytes hostWord(std::int32_t value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes terminatorBytes()
{
    return hostWord(0x0E0F0E0F);
}

} // namespace krvtest
