// The data of a reply to a statistics query, on its way from the wire.
#include "parse_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return krvfuzz::parseAndCheck(krvtest::ReplyKind::Statistics, data, size);
}
