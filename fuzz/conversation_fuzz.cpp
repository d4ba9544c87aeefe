// A whole conversation through the public interface: the input is everything that the gateway ever sends.
//
// Open, the six queries with everything that reads their answers, close; as far as the gateway lets it come.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "allocations.h"
#include "checks.h"
#include "prepared_gateway.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stream_model.h"

using namespace krvfuzz;
using krvtest::ReplyKind;

namespace {

struct QueryCall {
    ReplyKind kind;
    int (*call)(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set);
};

char ids[] = "alpha:beta";

constexpr QueryCall calls[] = {
    {ReplyKind::Statistics, getStats},
    {ReplyKind::Ids, getStatIds},
    {ReplyKind::Ids, getResourceGroupIds},
    {ReplyKind::Statistics, [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatId(token, ids, set); }},
    {ReplyKind::Ids, [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatIdsByStatGroupId(token, ids, set); }},
    {ReplyKind::Statistics, [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatGroupId(token, ids, set); }},
};

// Asks and checks until a query fails. True if the connection is still there.
bool askAll(KRV_GatewayToken_t token, krvtest::Stream& stream)
{
    int capacity = INITIAL_RESULT_SET_SIZE;
    for (const QueryCall& query : calls) {
        KRV_ResultSetToken_t set = nullptr;
        const int rc = query.call(token, &set);
        const krvtest::ModelAnswer expected = krvtest::modelQuery(stream, query.kind, capacity);
        requireCode(expected.rc, rc, "a query");
        if (rc == KRVSTAT_OUT_OF_MEMORY) return true; // before anything was sent
        if (rc != 0) {
            require(query.call(token, &set) == KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, "a failed query removes its connection");
            return false;
        }
        capacity = expected.reply.capacity;
        require(set->rsBuffLen == capacity, "the buffer grew as often as it had to");
        checkResultSet(set, query.kind, &expected.reply.set);
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1 || size > mostBytes) return -1;
    krvtest::Stream stream{Bytes(data + 1, data + size), largestBlock}; // the first byte chooses the trace
    CaughtTrace trace(data[0] & 0x80 ? 4 : 0);
    PreparedGateway gateway(stream.bytes);
    gateway.awaitConnection();
    errno = 0; // so that an end in mid-message cannot be told by what was left there

    char host[] = "127.0.0.1";
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    const int rc = openRemoteGatewayConnection(host, 7845, &token, &version);
    const krvtest::ModelVersion expected = krvtest::modelOpen(stream);
    requireCode(expected.rc, rc, "an open");
    if (rc == 0) {
        require(std::strcmp(version, expected.text.c_str()) == 0, "the version is the reply's");
        const bool stillOpen = askAll(token, stream);
        require(closeGatewayConnection(&token) == (stillOpen ? 0 : KRVSTAT_GATEWAY_TOKEN_NOT_FOUND), "a close");
    } else {
        require(token == nullptr && version == nullptr, "a failed open hands out nothing");
    }
    require(gtListHeadPtr == nullptr, "no connection stays on the list");
    return 0;
}
