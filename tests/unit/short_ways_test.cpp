// What is traced takes the long way through parsers and walks, what is not takes the short one where it can: both must
// come to the same.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "krvstats.h"
#include "parse_runs.h"
#include "reply_builder.h"
#include "result_sets.h"
#include "trace_capture.h"

namespace krvtest {

namespace {

constexpr int replies = 150;
constexpr int levelOfTheLongWay = 3;

struct ParsedReply {
    int rc = 0;
    int capacity = 0;
    Bytes set;
};

ParsedReply parsed(ReplyKind kind, const Bytes& data, int capacity)
{
    ParseBuffer buffer(capacity);
    ParsedReply result;
    result.rc = parse(kind, data, buffer);
    result.capacity = buffer.capacity;
    result.set = buffer.first(decodeReply(kind, data, capacity).set.size());
    return result;
}

// Everything that a step shows: its code, the caller's record, and the token.
struct Step {
    int rc = 0;
    Bytes record;
    Bytes token;
};

template <typename Record>
std::vector<Step> stepsOf(HeldSet& set, int (*first)(KRV_ResultSetToken_t, Record*),
    int (*next)(KRV_ResultSetToken_t, Record*))
{
    std::vector<Step> steps;
    Record record;
    std::memset(&record, 0x5A, sizeof record);
    const unsigned char* recordStart = reinterpret_cast<const unsigned char*>(&record);
    int rc = first(set.token, &record);
    for (;;) {
        steps.push_back({rc, Bytes(recordStart, recordStart + sizeof record), recordBytes(set.token)});
        if (rc != 0 || steps.size() > 10000) return steps;
        rc = next(set.token, &record);
    }
}

std::vector<Step> walked(HeldSet& set, ReplyKind kind)
{
    return kind == ReplyKind::Statistics ? stepsOf(set, getFirstStat, getNextStat) : stepsOf(set, getFirstId, getNextId);
}

class ShortWays : public testing::TestWithParam<ReplyKind> {
protected:
    Bytes reply(std::uint32_t seed) const
    {
        std::mt19937 random(seed);
        ReplyShape shape;
        shape.mostElements = 12;
        shape.mostLength = seed % 3 == 0 ? 20 : 200;
        return encodeReply(randomReply(random, GetParam(), shape));
    }
};

TEST_P(ShortWays, ParseToTheSameBytesAndTheSameCapacity)
{
    for (std::uint32_t seed = 1; seed <= replies; seed++) {
        const Bytes data = reply(seed);
        const ParsedReply untraced = parsed(GetParam(), data, 512);
        TraceFile trace(levelOfTheLongWay);
        const ParsedReply traced = parsed(GetParam(), data, 512);
        ASSERT_EQ(traced.rc, untraced.rc) << "seed " << seed;
        ASSERT_EQ(traced.capacity, untraced.capacity) << "seed " << seed;
        ASSERT_TRUE(sameBytes(traced.set, untraced.set)) << "seed " << seed;
    }
}

TEST_P(ShortWays, WalkThroughTheSameRecordsAndTokens)
{
    for (std::uint32_t seed = 1; seed <= replies; seed++) {
        HeldSet set(decodeReply(GetParam(), reply(seed), 32768).set);
        const Internal_ResultSetToken_t fresh = *set.token;
        const std::vector<Step> untraced = walked(set, GetParam());
        *set.token = fresh;
        TraceFile trace(levelOfTheLongWay);
        const std::vector<Step> traced = walked(set, GetParam());
        ASSERT_EQ(traced.size(), untraced.size()) << "seed " << seed;
        ASSERT_EQ(KRVSTAT_RESULT_SET_EMPTY, traced.back().rc) << "seed " << seed;
        for (std::size_t i = 0; i < traced.size(); i++) {
            ASSERT_EQ(traced[i].rc, untraced[i].rc) << "seed " << seed << ", step " << i;
            ASSERT_TRUE(sameBytes(traced[i].record, untraced[i].record)) << "seed " << seed << ", step " << i;
            ASSERT_TRUE(sameBytes(traced[i].token, untraced[i].token)) << "seed " << seed << ", step " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ShortWays, testing::Values(ReplyKind::Statistics, ReplyKind::Ids),
    [](const testing::TestParamInfo<ReplyKind>& kind) {
        return kind.param == ReplyKind::Statistics ? "statistics" : "ids";
    });

} // namespace

} // namespace krvtest
