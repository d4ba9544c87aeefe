// What a result-set buffer must hold after a reply, worked out without the library.
#pragma once

#include <cstddef>
#include <cstdint>

#include "reply_builder.h"

namespace krvtest {

struct DecodedReply {
    Bytes set;                // the buffer's bytes from the category to the terminator, in this host's byte order
    int capacity = 0;         // what the buffer grew to
    int growths = 0;
    std::size_t needed = 0;   // the data is read up to here: with fewer bytes there is no answer
    std::size_t lookedAt = 0; // up to here a parser may look although it makes no difference
    bool addsUp = true;       // the parts of each value are as long together as was announced
};

// Decodes data that is whole and right. One doubling is allowed each time something does not fit.
DecodedReply decodeReply(ReplyKind kind, const Bytes& data, int capacity);

// A word in this host's byte order.
Bytes hostWord(std::int32_t value);

Bytes terminatorBytes();

} // namespace krvtest
