// Thousands of generated replies, compared byte for byte with what the reference decoder makes of them.
#include <gtest/gtest.h>

#include <string>

#include "parse_runs.h"

namespace krvtest {

namespace {

// Small buffers grow often; a single text is never larger than the buffer, so that one doubling always suffices.
void compareGenerated(ReplyKind kind, std::uint32_t firstSeed, int replies, int capacity, const ReplyShape& shape)
{
    int grown = 0;
    for (std::uint32_t seed = firstSeed; seed < firstSeed + static_cast<std::uint32_t>(replies); seed++) {
        std::mt19937 random(seed);
        Bytes data = encodeReply(randomReply(random, kind, shape));
        grown += decodeReply(kind, data, capacity).growths;
        ASSERT_TRUE(parsesAsExpected(kind, data, capacity)) << "seed " << seed;
    }
    EXPECT_GT(grown, 0) << "the replies were meant to outgrow the buffer";
}

// A reply whose set has its closing terminator at exactly this offset.
Bytes replyOfTotal(ReplyKind kind, std::size_t total, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Response response = idsResponse("S", 0, {});
    std::size_t each = kind == ReplyKind::Statistics ? 8 : 4;
    std::size_t written = 8 + 4 + 4 + 1 + 4 + 4;
    auto add = [&](std::size_t length) {
        if (kind == ReplyKind::Ids) {
            response.ids.push_back(letters(length, seed));
            return;
        }
        std::size_t idLength = random() % (length + 1) % 2000;
        std::string value = letters(length - idLength, seed);
        std::size_t first = random() % (value.size() + 1);
        if (value.size() < 2 || random() % 2 == 0) {
            response.statistics.push_back(plainElement(letters(idLength), value));
        } else {
            if (first == value.size()) first--;
            response.statistics.push_back(
                chunkedElement(letters(idLength), value.substr(0, first), {{blockLong, value.substr(first)}}));
        }
    };
    while (total - written > 30000) {
        std::size_t length = 1000 + random() % 20000;
        add(length);
        written += each + length;
    }
    add(total - written - each);
    return encodeReply({kind, 0, true, 0, {response}, seed});
}

void compareAroundDoublings(ReplyKind kind)
{
    for (std::size_t capacity = 32768; capacity <= 524288; capacity *= 2) {
        for (std::size_t total = capacity - 8; total <= capacity + 8; total++) {
            for (std::uint32_t seed = 1; seed <= 3; seed++) {
                Bytes data = replyOfTotal(kind, total, seed);
                ASSERT_EQ(total + 4, decodeReply(kind, data, 32768).set.size());
                ASSERT_TRUE(parsesAsExpected(kind, data, 32768)) << "total " << total << ", seed " << seed;
            }
        }
    }
}

} // namespace

TEST(ParseGenerated, StatisticsIntoSmallBuffersGrowAsOften)
{
    compareGenerated(ReplyKind::Statistics, 1000, 4000, 256, {5, 6, 200});
}

TEST(ParseGenerated, IdsIntoSmallBuffersGrowAsOften)
{
    compareGenerated(ReplyKind::Ids, 20000, 4000, 256, {5, 12, 200});
}

TEST(ParseGenerated, StatisticsOfManyShortTexts)
{
    compareGenerated(ReplyKind::Statistics, 40000, 1500, 1024, {30, 40, 24});
}

TEST(ParseGenerated, IdsOfManyShortTexts)
{
    compareGenerated(ReplyKind::Ids, 60000, 1500, 1024, {30, 40, 24});
}

TEST(ParseGenerated, StatisticsOfTheLongestTexts)
{
    compareGenerated(ReplyKind::Statistics, 80000, 300, 32768, {4, 6, 32767});
}

TEST(ParseGenerated, IdsOfTheLongestTexts)
{
    compareGenerated(ReplyKind::Ids, 90000, 300, 32768, {4, 10, 32767});
}

TEST(ParseGenerated, StatisticsWithTotalsAroundEachDoubling)
{
    compareAroundDoublings(ReplyKind::Statistics);
}

TEST(ParseGenerated, IdsWithTotalsAroundEachDoubling)
{
    compareAroundDoublings(ReplyKind::Ids);
}

} // namespace krvtest
