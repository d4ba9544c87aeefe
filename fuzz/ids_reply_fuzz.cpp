// The data of a reply to a query for ids, on its way from the wire.
#include "parse_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return krvfuzz::parseAndCheck(krvtest::ReplyKind::Ids, data, size);
}
