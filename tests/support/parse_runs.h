// A result-set buffer of the test's own, and runs of the parsers into it.
#pragma once

#include <cstdlib>
#include <cstring>

#include "reference_decoder.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"

namespace krvtest {

// A block of `capacity` bytes and the room behind it, filled so that what was not written shows. The library's own
// blocks have zeroed room.
class ParseBuffer {
public:
    static constexpr unsigned char untouched = 0xA5;

    explicit ParseBuffer(int size = INITIAL_RESULT_SET_SIZE, unsigned char room = untouched) : capacity(size)
    {
        block = static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + RESULT_SET_ROOM));
        std::memset(block, untouched, static_cast<std::size_t>(size));
        std::memset(block + size, room, RESULT_SET_ROOM);
    }
    ~ParseBuffer() { std::free(block); }
    ParseBuffer(const ParseBuffer&) = delete;
    ParseBuffer& operator=(const ParseBuffer&) = delete;

    Bytes first(std::size_t count) const
    {
        const unsigned char* start = reinterpret_cast<const unsigned char*>(block);
        return Bytes(start, start + count);
    }

    char* block;
    int capacity;
};

inline int parse(ReplyKind kind, Bytes data, ParseBuffer& buffer)
{
    // a block of exactly the data's size, so that a memory checker sees a read behind it
    char* raw = static_cast<char*>(std::malloc(data.size()));
    std::memcpy(raw, data.data(), data.size());
    int rc = kind == ReplyKind::Statistics ? parseStatsData(raw, &buffer.block, &buffer.capacity)
                                           : parseIdsData(raw, &buffer.block, &buffer.capacity);
    if (std::memcmp(raw, data.data(), data.size()) != 0) std::abort(); // the parsers only read
    std::free(raw);
    return rc;
}

// True if this reply gives exactly the set and the capacity that the reference says.
inline testing::AssertionResult parsesAsExpected(ReplyKind kind, const Bytes& data, int capacity)
{
    DecodedReply expected = decodeReply(kind, data, capacity);
    ParseBuffer buffer(capacity);
    int rc = parse(kind, data, buffer);
    if (rc != 0) return testing::AssertionFailure() << "rc " << rc;
    if (buffer.capacity != expected.capacity)
        return testing::AssertionFailure() << "capacity " << buffer.capacity << ", not " << expected.capacity;
    return sameBytes(expected.set, buffer.first(expected.set.size()));
}

} // namespace krvtest
