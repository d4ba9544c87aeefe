// How values develop.
#include "pattern.h"

#include <gtest/gtest.h>

using krvgw::Pattern;
using krvgw::PatternKind;
using krvgw::valueOf;
using krvgw::WalkState;

namespace {

Pattern walk(std::uint64_t seed)
{
    Pattern pattern;
    pattern.kind = PatternKind::Walk;
    pattern.start = 50;
    pattern.step = 3;
    pattern.least = 45;
    pattern.most = 55;
    pattern.seed = seed;
    return pattern;
}

}  // namespace

TEST(Patterns, AConstantStays)
{
    Pattern pattern;
    pattern.text = "steady";
    WalkState state;
    EXPECT_EQ(valueOf(pattern, state, 0, 0), "steady");
    EXPECT_EQ(valueOf(pattern, state, 99, 99), "steady");
}

TEST(Patterns, ACounterGoesByQueries)
{
    Pattern pattern;
    pattern.kind = PatternKind::Counter;
    pattern.start = 100;
    pattern.step = 7;
    WalkState state;
    EXPECT_EQ(valueOf(pattern, state, 0, 1000), "100");
    EXPECT_EQ(valueOf(pattern, state, 1, 1000), "107");
    EXPECT_EQ(valueOf(pattern, state, 10, 1000), "170");
    pattern.step = -60;
    EXPECT_EQ(valueOf(pattern, state, 2, 1000), "-20");
}

TEST(Patterns, ACounterGoesByTime)
{
    Pattern pattern;
    pattern.kind = PatternKind::Counter;
    pattern.start = 1000;
    pattern.rate = 2.5;
    WalkState state;
    EXPECT_EQ(valueOf(pattern, state, 5, 0), "1000");
    EXPECT_EQ(valueOf(pattern, state, 5, 0.39), "1000");
    EXPECT_EQ(valueOf(pattern, state, 5, 0.41), "1001");
    EXPECT_EQ(valueOf(pattern, state, 5, 100), "1250");
}

TEST(Patterns, AWalkStartsAtItsStartAndStaysInItsLimits)
{
    const Pattern pattern = walk(42);
    WalkState state;
    EXPECT_EQ(valueOf(pattern, state, 0, 0), "50");
    bool hasMoved = false;
    std::int64_t before = 50;
    for (std::uint64_t query = 1; query < 500; ++query) {
        const std::int64_t value = std::stoll(valueOf(pattern, state, query, 0));
        EXPECT_GE(value, 45);
        EXPECT_LE(value, 55);
        EXPECT_LE(std::abs(value - before), 3);
        hasMoved = hasMoved || value != before;
        before = value;
    }
    EXPECT_TRUE(hasMoved);
}

TEST(Patterns, AWalkIsTheSameForASeedHoweverOftenItIsLookedAt)
{
    const Pattern pattern = walk(7);
    WalkState often;
    for (std::uint64_t query = 0; query < 100; ++query) valueOf(pattern, often, query, 0);
    WalkState once;
    EXPECT_EQ(valueOf(pattern, once, 100, 0), valueOf(pattern, often, 100, 0));
}

TEST(Patterns, SeedsGiveDifferentWalks)
{
    std::string first;
    std::string second;
    const Pattern patterns[] = {walk(1), walk(2)};
    WalkState states[2];
    for (std::uint64_t query = 0; query < 50; ++query) {
        first += valueOf(patterns[0], states[0], query, 0) + " ";
        second += valueOf(patterns[1], states[1], query, 0) + " ";
    }
    EXPECT_NE(first, second);
}

TEST(Patterns, AWalkCanGoByTime)
{
    Pattern pattern = walk(9);
    WalkState byQueries;
    const std::string tenth = valueOf(pattern, byQueries, 10, 0);
    pattern.secondsEach = 0.5;
    WalkState byTime;
    EXPECT_EQ(valueOf(pattern, byTime, 77, 0.4), "50");
    EXPECT_EQ(valueOf(pattern, byTime, 78, 5.2), tenth);
}
