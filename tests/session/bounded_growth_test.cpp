// Replies whose result-set buffer cannot grow, on their way from the wire.
#include <gtest/gtest.h>

#include <string>

#include "krvstats.h"
#include "parse_runs.h"
#include "prepared_peer.h"
#include "scripted_peer.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_statquery.h"
#include "watched_allocator.h"

namespace krvtest {

namespace {

constexpr std::size_t mostRoom = 64; // what the library may ask for beyond a stated capacity

// Its set has its terminator at this offset.
Bytes replyOfTotal(ReplyKind kind, std::size_t total)
{
    Response response = idsResponse("S", 0, {});
    std::size_t each = kind == ReplyKind::Ids ? 4 : 9;
    std::size_t written = 8 + 4 + 4 + 1 + 4 + 4;
    auto add = [&](std::size_t length) {
        response.ids.push_back(letters(length));
        response.statistics.push_back(plainElement("i", letters(length)));
        written += each + length;
    };
    while (total - written > 20000) add(9000);
    add(total - written - each);
    return encodeReply({kind, 0, true, 0, {response}, 3});
}

struct Outcome {
    int rc;
    int failures;
    int blocksLeft;
    char* buffer;
};

// A query by a wrapper into a block of 32768 bytes, all of whose larger ones from the n-th on fail.
Outcome queryWithFailingGrowth(ReplyKind kind, const Bytes& data, int failFrom, int failFor)
{
    PreparedPeer peer(queryReplies(data));
    Outcome outcome{};
    int capacity = INITIAL_RESULT_SET_SIZE;
    AllocationWatch watch(INITIAL_RESULT_SET_SIZE, 16u << 20);
    char* buffer = static_cast<char*>(std::calloc(INITIAL_RESULT_SET_SIZE + RESULT_SET_ROOM, 1)); // the first that counts
    // the reply data itself is large too: only growths are to fail
    watch.watch(65536, (failFrom > 0 ? 131072 : 65536) + mostRoom);
    watch.fail(1 + failFrom, failFor);
    outcome.rc = kind == ReplyKind::Ids ? commsStatIds(peer.socket(), &buffer, &capacity)
                                        : commsStats(peer.socket(), &buffer, &capacity);
    outcome.failures = watch.failures();
    outcome.buffer = buffer;
    outcome.blocksLeft = watch.blocksLeft();
    return outcome;
}

} // namespace

TEST(BoundedGrowth, FailureIsABadReplyAndFreesTheLostBlock)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        Outcome outcome = queryWithFailingGrowth(kind, replyOfTotal(kind, 40000), 0, 1);
        ASSERT_EQ(1, outcome.failures);
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, outcome.rc);
        EXPECT_EQ(0, outcome.blocksLeft - (outcome.buffer != nullptr)) << "the block that was lost";
        std::free(outcome.buffer);
    }
}

TEST(BoundedGrowth, FailureIsMissingMemoryToTheExchangeItself)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        PreparedPeer peer(queryReplies(replyOfTotal(kind, 40000)));
        const char* action = kind == ReplyKind::Ids ? STATS_MBEAN_ACTION_STAT_IDS : STATS_MBEAN_ACTION_GET_STATS;
        int capacity = INITIAL_RESULT_SET_SIZE;
        char* buffer = static_cast<char*>(std::calloc(INITIAL_RESULT_SET_SIZE + RESULT_SET_ROOM, 1));
        ReasonCodes reasons = {};
        AllocationWatch watch(65536, 65536 + mostRoom);
        watch.fail(0, 1);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY,
            statComms(peer.socket(), const_cast<char*>(action), &buffer, &capacity, &reasons));
        EXPECT_EQ(1, watch.failures());
        EXPECT_EQ(nullptr, buffer);
    }
}

TEST(BoundedGrowth, FailureIsNeverMadeGoodByTheTerminatorsCheck)
{
    // the first growth fails where the terminator's own check grows again
    for (std::size_t total = 32769; total <= 32772; total++) {
        Response response = statsResponse("S", 0, {});
        // 29 bytes up to the id's length, 1 of id, 4 of length, then the value
        std::size_t value = total - 4 - (8 + 4 + 4 + 1 + 4 + 4) - 9 - 9;
        response.statistics = {plainElement("i", letters(value)), plainElement("j", "")};
        Bytes data = encodeReply({ReplyKind::Statistics, 0, true, 0, {response}, 3});
        ASSERT_EQ(1, decodeReply(ReplyKind::Statistics, data, 32768).growths);
        Outcome outcome = queryWithFailingGrowth(ReplyKind::Statistics, data, 0, 1);
        ASSERT_EQ(1, outcome.failures) << total;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, outcome.rc) << total;
        EXPECT_EQ(0, outcome.blocksLeft - (outcome.buffer != nullptr)) << total;
        std::free(outcome.buffer);
    }
}

TEST(BoundedGrowth, FailureInASecondGrowthFreesTheGrownBlock)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        Outcome outcome = queryWithFailingGrowth(kind, replyOfTotal(kind, 65536 + 400), 1, 1);
        ASSERT_EQ(1, outcome.failures);
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, outcome.rc);
        EXPECT_EQ(0, outcome.blocksLeft - (outcome.buffer != nullptr));
        std::free(outcome.buffer);
    }
}

TEST(BoundedGrowth, FailureRemovesTheConnection)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        ScriptedPeer peer({opening() + query(replyOfTotal(kind, 40000)) + farewell()});
        char host[] = "127.0.0.1";
        KRV_GatewayToken_t gateway = nullptr;
        char* version = nullptr;
        ASSERT_EQ(0, openRemoteGatewayConnection(host, peer.port(), &gateway, &version));
        KRV_ResultSetToken_t set = nullptr;
        int rc, failures, left;
        {
            AllocationWatch watch(65536, 65536 + mostRoom);
            watch.fail(0, 1);
            rc = kind == ReplyKind::Ids ? getStatIds(gateway, &set) : getStats(gateway, &set);
            failures = watch.failures();
            left = watch.blocksLeft();
        }
        ASSERT_EQ(1, failures);
        EXPECT_EQ(0, left);
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc);
        EXPECT_EQ(nullptr, set);
        EXPECT_EQ(nullptr, gtListHeadPtr);
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, getStats(gateway, &set));
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

} // namespace krvtest
