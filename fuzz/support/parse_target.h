// What the targets of the two parsers share: a reply's data through the whole path from the wire, then everything that
// reads a result set, with a strict decoder's opinion beside it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "reply_builder.h"

namespace krvfuzz {

// The first byte of the input chooses: bits 0 to 2 the buffer's capacity, bit 7 the trace. The rest is the data.
int parseAndCheck(krvtest::ReplyKind kind, const std::uint8_t* data, std::size_t size);

} // namespace krvfuzz
