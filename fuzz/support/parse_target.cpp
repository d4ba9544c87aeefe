// See parse_target.h.
#include "parse_target.h"

#include <cstring>
#include <optional>

#include "allocations.h"
#include "checks.h"
#include "prepared_gateway.h"
#include "prepared_peer.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"
#include "stream_model.h"

namespace krvfuzz {

namespace {

// Small ones so that small replies grow them; the last is a connection's own.
constexpr int capacities[8] = {12, 13, 16, 24, 64, 200, 1000, INITIAL_RESULT_SET_SIZE};

constexpr std::size_t repliesAround = 200; // headers and fixed parts of the two replies

void checkAnswer(krvtest::ReplyKind kind, char* buffer, int capacity, const Bytes& content)
{
    char eyecatcher[] = USER_RESULT_SET_EYECATCHER;
    KRV_ResultSetToken_t set = nullptr;
    const int rc = createResultSet(&set, eyecatcher, RESULT_SET_OWNER_USER);
    requireCode(0, rc, "createResultSet");
    if (rc != 0) return;
    // Behind the last line that a dump looks at, nobody has written: it may hold anything.
    const std::size_t written = (content.size() - 4) / 16 * 16 + RESULT_SET_ROOM;
    const std::size_t stated = static_cast<std::size_t>(capacity);
    if (written < stated) std::memset(buffer + written, 0xA5, stated - written);
    set->rsBuffPtr = buffer;
    set->rsBuffLen = capacity;
    set->cursor = buffer;
    checkResultSet(set, kind, &content);
    require(deleteResultSet(&set) == 0, "the record can be deleted");
}

} // namespace

int parseAndCheck(krvtest::ReplyKind kind, const std::uint8_t* data, std::size_t size)
{
    if (size < 1 || size > mostBytes - repliesAround) return -1;
    const Bytes callData(data + 1, data + size);
    const int stated = capacities[data[0] & 7];

    int capacity = stated;
    char* buffer = static_cast<char*>(ownBlock(static_cast<std::size_t>(capacity) + RESULT_SET_ROOM));
    std::memset(buffer, 0, static_cast<std::size_t>(capacity) + RESULT_SET_ROOM);

    char getStats[] = "GET_STATS";
    char statIds[] = "STAT_IDS";
    char query[] = "a:b";
    ReasonCodes reasons = {};
    int rc;
    {
        CaughtTrace trace(data[0] & 0x80 ? 4 : 0);
        PreparedGateway gateway(krvtest::queryReplies(callData));
        rc = statCommsString(gateway.client(), kind == krvtest::ReplyKind::Statistics ? getStats : statIds, query,
                             &buffer, &capacity, &reasons);
    }

    const std::optional<krvtest::DecodedReply> decoded = krvtest::strictlyDecoded(kind, callData, stated);
    requireCode(decoded ? 0 : KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc, "statCommsString");
    require((rc != KRVSTAT_OUT_OF_MEMORY) || allocations.failed > 0, "there was memory");
    if (rc == 0) {
        require(capacity == decoded->capacity, "the buffer grew as often as it had to");
        checkAnswer(kind, buffer, capacity, decoded->set);
    }
    releaseBlock(buffer);
    return 0;
}

} // namespace krvfuzz
