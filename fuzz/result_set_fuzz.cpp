// Arbitrary bytes in the place of a result set, and everything that reads one.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "allocations.h"
#include "checks.h"
#include "stapi_krv_resultsetbuffer.h"

using namespace krvfuzz;
using krvtest::operator+;

// The first byte chooses: bits 0 and 1 a category that is put in front of the rest, bit 7 the trace, bits 2 to 4 how
// much of the rest lies behind the stated length.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1) return -1;
    const unsigned int choice = data[0];
    Bytes content(data + 1, data + size);
    if ((choice & 3) == 1) content = krvtest::text("KRVSTSET") + content;
    if ((choice & 3) == 2) content = krvtest::text("KRVIDSET") + content;
    const std::size_t behind = std::min<std::size_t>(choice >> 2 & 7, content.size());
    const std::size_t stated = content.size() - behind;
    if (stated == 0) return -1; // a set without a stated length is trusted

    CaughtTrace trace(choice & 0x80 ? 4 : 0);
    char eyecatcher[] = USER_RESULT_SET_EYECATCHER;
    KRV_ResultSetToken_t set = nullptr;
    const int rc = createResultSet(&set, eyecatcher, RESULT_SET_OWNER_USER);
    requireCode(0, rc, "createResultSet");
    if (rc != 0) return 0;
    char* block = static_cast<char*>(ownBlock(stated + RESULT_SET_ROOM));
    std::memset(block, 0, stated + RESULT_SET_ROOM);
    std::memcpy(block, content.data(), content.size());
    set->rsBuffPtr = block;
    set->rsBuffLen = static_cast<int>(stated);
    set->cursor = block;
    checkResultSet(set, krvtest::ReplyKind::Ids, nullptr);
    checkResultSet(set, krvtest::ReplyKind::Statistics, nullptr);
    releaseBlock(block);
    require(deleteResultSet(&set) == 0, "the record can be deleted");
    return 0;
}
