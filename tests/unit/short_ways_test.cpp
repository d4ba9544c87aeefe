// What is traced takes the long way through parsers and walks, what is not takes the short one where it can: both must
// come to the same.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
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

// A run of elements of the same lengths, any of which may be the one from which on more of them are expected, and then
// one that differs in one thing.
// The lines of a step begin with the events.
TEST(ShortWayOfAWalk, IsNotTakenWhereStepsAreTraced)
{
    const int steps = 4;
    for (int level = 0; level <= 5; ++level) {
        HeldSet ids(idSet({{"g", 0, {{"1"}, {"2"}, {"3"}, {"4"}}}}));
        HeldSet stats(statSet({{"g", 0, {{"1", "a"}, {"2", "b"}, {"3", "c"}, {"4", "d"}}}}));
        TraceFile trace(level);
        EXPECT_EQ(4u, walked(ids, ReplyKind::Ids).size() - 1);
        EXPECT_EQ(4u, walked(stats, ReplyKind::Statistics).size() - 1);
        int events = 0;
        for (const TraceLine& line : trace.lines()) events += line.text.find("Successfully retrieved") != std::string::npos;
        EXPECT_EQ(level >= 2 ? 2 * steps : 0, events) << level;
    }
}

TEST(RunsOfAlikeElements, EndInWhateverComesNext)
{
    StatElement otherType = plainElement("id_12", "value");
    otherType.plainType = 0;
    const StatElement cases[] = {
        plainElement("id_123", "valu"),
        plainElement("id_1", "value_"),
        plainElement("id_12", "value_"),
        plainElement("id_12", "valu"),
        plainElement("id_123", "value"),
        plainElement("", ""),
        plainElement(letters(0x105), "value"),
        plainElement("id_12", letters(0x105)),
        otherType,
        chunkedElement("id_12", "value", {}),
        chunkedElement("id_12", "va", {{blockLong, "lue"}}),
        chunkedElement("id_12", "va", {{blockShort, "lue"}}),
    };
    for (const StatElement& next : cases) {
        SCOPED_TRACE("case " + std::to_string(&next - cases));
        for (unsigned int before = 0; before < 9; before++) {
            for (unsigned int behind = 0; behind < 7; behind += 6) {
                Response response = statsResponse("g", 0, {});
                for (unsigned int i = 0; i < before + behind; i++) {
                    if (i == before) response.statistics.push_back(next);
                    response.statistics.push_back(plainElement(letters(5, 7 * i), letters(5, 3 * i)));
                }
                if (behind == 0) response.statistics.push_back(next);
                const Bytes data = encodeReply({ReplyKind::Statistics, 1, true, 0, {response, response}, 5});
                for (int capacity = 140; capacity < 32768; capacity = capacity < 156 ? capacity + 1 : capacity * 4)
                    ASSERT_TRUE(parsesAsExpected(ReplyKind::Statistics, data, capacity))
                        << "behind " << before << ", capacity " << capacity;
            }
        }
    }
}

// Bytes beside the lengths that say the same as those of the elements before, which they would be if one looked there.
TEST(RunsOfAlikeElements, AreToldByTheirLengthsAlone)
{
    using namespace std::string_literals;
    struct Case {
        StatElement alike;
        StatElement next;
    };
    const Case cases[] = {
        {plainElement("id_12", "abc\0\5"s), plainElement("id_12", "value_")}, // in front of the element
        {plainElement("id_12", "\0\5abc"s), plainElement("_____\0\5"s, "value_")},
        {plainElement("id_12", letters(0x77)), plainElement("id_12", letters(0x70))}, // its block type
        {plainElement("id_12", "value"), plainElement("id_12", "\5"s + letters(0xFF))},
        {plainElement("id_12", "value"), plainElement("\5____\0\5"s + letters(0xF9), "value_")},
        {plainElement("id_12", "value"), chunkedElement("ab\0\5c"s, letters(0x520), {})},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE("case " + std::to_string(&each - cases));
        std::vector<StatElement> elements(7, each.alike);
        elements.push_back(each.next);
        elements.push_back(each.alike);
        for (std::uint32_t filler = 1; filler <= 60; filler++) {
            const Bytes data =
                encodeReply({ReplyKind::Statistics, 1, true, 0, {statsResponse("g", 0, elements)}, filler});
            ASSERT_TRUE(parsesAsExpected(ReplyKind::Statistics, data, 32768)) << "filler " << filler;
        }
    }
}

} // namespace

} // namespace krvtest
