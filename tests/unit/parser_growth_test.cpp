// How the parsers' buffer grows, and what is left when it cannot.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "krvstats.h"
#include "parse_runs.h"
#include "trace_claims.h"
#include "watched_allocator.h"

namespace krvtest {

namespace {

constexpr std::size_t mostRoom = 64; // what the library may ask for beyond a stated capacity

const std::string growPrefix = "stapi_krv_statcomms.reallocResultsSetBuffer";

// One response with one id or one statistic without a value.
Bytes replyWith(ReplyKind kind, std::size_t elementLength, const std::vector<std::size_t>& lengths)
{
    Response response = idsResponse(letters(elementLength), 0, {});
    for (std::size_t length : lengths) {
        if (kind == ReplyKind::Ids) response.ids.push_back(letters(length));
        else response.statistics.push_back(plainElement("i", letters(length)));
    }
    return encodeReply({kind, 0, true, 0, {response}, 3});
}

// What was written in front of an offset, with the terminator there.
Bytes cutAt(const Bytes& set, std::size_t offset)
{
    return slice(set, 0, offset) + terminatorBytes();
}

} // namespace

TEST(Growth, DoublesAndMovesTheCursorAlong)
{
    ParseBuffer buffer(100);
    for (int i = 0; i < 100; i++) buffer.block[i] = static_cast<char>(i);
    Bytes before = buffer.first(100);
    char* cursor = nullptr;
    EXPECT_EQ(0, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 77));
    EXPECT_EQ(200, buffer.capacity);
    EXPECT_EQ(buffer.block + 77, cursor);
    EXPECT_TRUE(sameBytes(before, buffer.first(100)));
    EXPECT_TRUE(sameBytes(zeros(RESULT_SET_ROOM), slice(buffer.first(200 + RESULT_SET_ROOM), 200, RESULT_SET_ROOM)));
}

TEST(Growth, OfNoBlockMakesAZeroedOne)
{
    // soil what is likely to be handed out
    { ParseBuffer soiled(20000); }
    char* block = nullptr;
    char* cursor = nullptr;
    int capacity = 10000;
    ASSERT_EQ(0, reallocResultsSetBuffer(&block, &capacity, &cursor, 5));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(20000, capacity);
    EXPECT_EQ(block + 5, cursor);
    const unsigned char* start = reinterpret_cast<const unsigned char*>(block);
    EXPECT_TRUE(sameBytes(zeros(20000 + RESULT_SET_ROOM), Bytes(start, start + 20000 + RESULT_SET_ROOM)));
    std::free(block);
}

TEST(Growth, ThatFailsLeavesTheOldBlockAloneAndThePointerNull)
{
    ParseBuffer buffer(100);
    char* old = buffer.block;
    char* cursor = old + 33;
    int rc, failures, left;
    {
        AllocationWatch watch(200, 200 + mostRoom);
        watch.fail(0, 1);
        rc = reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 50);
        failures = watch.failures();
        left = watch.blocksLeft();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(0, left);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, buffer.block);
    EXPECT_EQ(100, buffer.capacity);
    EXPECT_EQ(old + 33, cursor);
    buffer.block = old; // still allocated: freed here
    EXPECT_TRUE(sameBytes(Bytes(100, ParseBuffer::untouched), buffer.first(100)));
}

TEST(Growth, PastTheLargestCapacityFails)
{
    for (int capacity : {0x40000000, 0x40000001, 0x60000000, INT_MAX}) {
        ParseBuffer buffer(100);
        char* old = buffer.block;
        char* cursor = old + 33;
        buffer.capacity = capacity;
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 50));
        EXPECT_EQ(nullptr, buffer.block);
        EXPECT_EQ(capacity, buffer.capacity);
        EXPECT_EQ(old + 33, cursor);
        buffer.block = old;
    }
}


TEST(Growth, OfANegativeCapacityFails)
{
    for (int capacity : {-1, INT_MIN}) {
        ParseBuffer buffer(100);
        char* old = buffer.block;
        char* cursor = old + 33;
        buffer.capacity = capacity;
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 50));
        EXPECT_EQ(nullptr, buffer.block);
        EXPECT_EQ(capacity, buffer.capacity);
        buffer.block = old;
    }
}

TEST(Growth, ABufferBelowThePreambleIsRefusedUntouched)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        for (int capacity : {0, 8, 11}) {
            ParseBuffer buffer(100);
            buffer.capacity = capacity;
            EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, parse(kind, replyWith(kind, 1, {1}), buffer));
            EXPECT_EQ(capacity, buffer.capacity);
            EXPECT_TRUE(sameBytes(Bytes(100, ParseBuffer::untouched), buffer.first(100)));
        }
    }
}

TEST(Growth, IsTraced)
{
    ParseBuffer buffer(100);
    char* cursor = buffer.block + 9;
    std::string old = pointerText(buffer.block);
    std::string oldCursor = pointerText(cursor);
    TraceFile trace(3);
    ASSERT_EQ(0, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 9));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2244, lines[0].number);
    EXPECT_EQ(growPrefix + "(*resultSetBuffer=" + old + ", *resultSetBufferLen=100, *buffer=" + oldCursor
                  + ", totaldatawritten=9)",
              lines[0].message);
    EXPECT_EQ(2245, lines[1].number);
    EXPECT_EQ(growPrefix + "(*resultSetBuffer=" + pointerText(buffer.block) + ", *resultSetBufferLen=200, *buffer="
                  + pointerText(buffer.block + 9) + ") rc=0)",
              lines[1].message);

    trace.forget();
    char* kept = buffer.block;
    buffer.capacity = INT_MAX;
    ASSERT_EQ(KRVSTAT_OUT_OF_MEMORY, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 9));
    lines = trace.lines();
    ASSERT_EQ(2u, lines.size()) << trace.text();
    EXPECT_EQ(growPrefix + "(*resultSetBuffer=" + pointerText(nullptr) + ", *resultSetBufferLen=2147483647, *buffer="
                  + pointerText(cursor) + ") rc=-111)",
              lines[1].message);
    buffer.block = kept;
}

TEST(Growth, HappensOncePerWriteEvenWhereThatIsTooLittle)
{
    // the blocks are made larger than asked for, so that what goes over the end of the stated capacity has a place
    Bytes reply = replyWith(ReplyKind::Ids, 3, {1000});
    DecodedReply expected = decodeReply(ReplyKind::Ids, reply, 64);
    ASSERT_EQ(128, expected.capacity);
    ASSERT_GT(expected.set.size(), 1000u);
    ParseBuffer buffer(64);
    int rc, requests;
    {
        AllocationWatch watch(100, 5000);
        watch.enlarge(8192);
        char* raw = reinterpret_cast<char*>(reply.data());
        rc = parseIdsData(raw, &buffer.block, &buffer.capacity);
        requests = watch.requests();
    }
    EXPECT_EQ(0, rc);
    EXPECT_EQ(1, requests);
    EXPECT_EQ(128, buffer.capacity);
    EXPECT_TRUE(sameBytes(expected.set, buffer.first(expected.set.size())));
}

TEST(GrowthFailure, StopsAStatisticsParse)
{
    // the value's bytes do not fit in 100 bytes, a terminator would
    Bytes reply = replyWith(ReplyKind::Statistics, 3, {10, 80, 80});
    Bytes whole = decodeReply(ReplyKind::Statistics, reply, 100).set;
    std::size_t written = 8 + 4 + (4 + 3 + 4 + 4) + (4 + 1 + 4 + 10) + (4 + 1 + 4); // up to the second value
    ParseBuffer buffer(100);
    char* old = buffer.block;
    int rc, requests, failures;
    {
        AllocationWatch watch(100, 5000);
        watch.fail(0, 1);
        rc = parseStatsData(reinterpret_cast<char*>(reply.data()), &buffer.block, &buffer.capacity);
        requests = watch.requests();
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(1, requests) << "growth is not tried again: nothing needs it";
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, buffer.block);
    EXPECT_EQ(100, buffer.capacity);
    buffer.block = old; // unreachable for the caller, but not freed
    EXPECT_TRUE(sameBytes(cutAt(whole, written) + Bytes(20, ParseBuffer::untouched), buffer.first(written + 24)));
}

TEST(GrowthFailure, OfAStatisticsParseIsUndoneWhereTheTerminatorGrowsAgain)
{
    // the second value's length does not fit: neither would the terminator
    std::size_t upToLength = 8 + 4 + (4 + 3 + 4 + 4) + (4 + 1 + 4 + 10) + (4 + 1);
    for (int missing = 1; missing <= 4; missing++) {
        Bytes reply = replyWith(ReplyKind::Statistics, 3, {10, 80, 80});
        int capacity = static_cast<int>(upToLength) + 4 - missing;
        ParseBuffer buffer(capacity);
        char* old = buffer.block;
        int rc, requests, failures;
        {
            AllocationWatch watch(static_cast<std::size_t>(2 * capacity), 5000);
            watch.fail(0, 1);
            rc = parseStatsData(reinterpret_cast<char*>(reply.data()), &buffer.block, &buffer.capacity);
            requests = watch.requests();
            failures = watch.failures();
        }
        ASSERT_EQ(1, failures);
        EXPECT_EQ(2, requests);
        EXPECT_EQ(0, rc);
        EXPECT_EQ(2 * capacity, buffer.capacity);
        ASSERT_NE(nullptr, buffer.block);
        EXPECT_TRUE(sameBytes(zeros(upToLength) + terminatorBytes(), buffer.first(upToLength + 4)))
            << "a new, zeroed block with the terminator where the cursor stood";
        std::free(old); // not freed by the parser
    }
}

TEST(GrowthFailure, OfTheTerminatorsOwnCheckIsReported)
{
    Bytes reply = replyWith(ReplyKind::Statistics, 3, {10});
    Bytes whole = decodeReply(ReplyKind::Statistics, reply, 100).set;
    for (int missing = 1; missing <= 4; missing++) {
        int capacity = static_cast<int>(whole.size()) - missing;
        ParseBuffer buffer(capacity);
        char* old = buffer.block;
        int rc, failures;
        {
            AllocationWatch watch(static_cast<std::size_t>(2 * capacity), 5000);
            watch.fail(0, 1);
            rc = parseStatsData(reinterpret_cast<char*>(reply.data()), &buffer.block, &buffer.capacity);
            failures = watch.failures();
        }
        ASSERT_EQ(1, failures);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
        EXPECT_EQ(nullptr, buffer.block);
        EXPECT_EQ(capacity, buffer.capacity);
        buffer.block = old;
        EXPECT_TRUE(sameBytes(whole, buffer.first(whole.size()))) << "the terminator is written in every case";
    }
}

TEST(GrowthFailure, TwiceLeavesNothing)
{
    std::size_t upToLength = 8 + 4 + (4 + 3 + 4 + 4) + (4 + 1 + 4 + 10) + (4 + 1);
    Bytes reply = replyWith(ReplyKind::Statistics, 3, {10, 80, 80});
    int capacity = static_cast<int>(upToLength) + 2;
    ParseBuffer buffer(capacity);
    char* old = buffer.block;
    int rc, failures;
    {
        AllocationWatch watch(static_cast<std::size_t>(2 * capacity), 5000);
        watch.fail(0, 2);
        rc = parseStatsData(reinterpret_cast<char*>(reply.data()), &buffer.block, &buffer.capacity);
        failures = watch.failures();
    }
    ASSERT_EQ(2, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, buffer.block);
    EXPECT_EQ(capacity, buffer.capacity);
    buffer.block = old;
}

TEST(GrowthFailure, EndsTheLoopOverStatisticsResponses)
{
    // the first response's query element does not fit; were the second one walked, its trace would show it
    Reply reply{ReplyKind::Statistics, 1, true, 0,
                {statsResponse(letters(90), 0, {plainElement("a", "1")}), statsResponse("z", 0, {plainElement("b", "2")})},
                5};
    Bytes data = encodeReply(reply);
    ParseBuffer buffer(64);
    char* old = buffer.block;
    TraceFile trace(4);
    int rc, requests, failures;
    {
        AllocationWatch watch(128, 128 + mostRoom);
        watch.fail(0, 1);
        rc = parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity);
        requests = watch.requests();
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(1, requests);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    for (const TraceLine& line : linesNumbered(trace.lines(), 2222))
        EXPECT_FALSE(line.message.ends_with("for result 1")) << line.text;
    buffer.block = old;
    Bytes expected = text("KRVSTSET") + hostWord(2) + hostWord(90) + terminatorBytes();
    EXPECT_TRUE(sameBytes(expected + Bytes(8, ParseBuffer::untouched), buffer.first(expected.size() + 8)));
}

TEST(GrowthFailure, OfAnIdParseIsNotTriedAgain)
{
    for (int missing = 1; missing <= 4; missing++) {
        // the second id's length does not fit, and neither would the terminator
        std::size_t upToLength = 8 + 4 + (4 + 3 + 4 + 4) + (4 + 10);
        Bytes reply = replyWith(ReplyKind::Ids, 3, {10, 80, 80});
        Bytes whole = decodeReply(ReplyKind::Ids, reply, 64).set;
        int capacity = static_cast<int>(upToLength) + 4 - missing;
        ParseBuffer buffer(capacity);
        char* old = buffer.block;
        int rc, requests, failures;
        {
            AllocationWatch watch(static_cast<std::size_t>(2 * capacity), 5000);
            watch.fail(0, 1);
            rc = parseIdsData(reinterpret_cast<char*>(reply.data()), &buffer.block, &buffer.capacity);
            requests = watch.requests();
            failures = watch.failures();
        }
        ASSERT_EQ(1, failures);
        EXPECT_EQ(1, requests);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
        EXPECT_EQ(nullptr, buffer.block);
        EXPECT_EQ(capacity, buffer.capacity);
        buffer.block = old;
        EXPECT_TRUE(sameBytes(cutAt(whole, upToLength) + Bytes(8, ParseBuffer::untouched),
                              buffer.first(upToLength + 12)))
            << "the terminator stands where the cursor was, without a capacity check";
    }
}

TEST(GrowthFailure, OfAnIdParseGoesThroughTheOtherResponsesWithoutWriting)
{
    Reply reply{ReplyKind::Ids, 1, true, 0,
                {idsResponse(letters(90), 0, {"a"}), idsResponse("y", 0, {"b"}), idsResponse("z", -1, {})}, 5};
    // behind a failure nothing stands where it is looked for: zeros keep the walk on its way
    Bytes data = encodeReply(reply) + zeros(200000);
    ParseBuffer buffer(64);
    char* old = buffer.block;
    TraceFile trace(4);
    int rc, requests, failures;
    {
        AllocationWatch watch(128, 128 + mostRoom);
        watch.fail(0, 1);
        rc = parseIdsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity);
        requests = watch.requests();
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(1, requests);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, buffer.block);
    EXPECT_EQ(0u, linesNumbered(trace.lines(), 2227).size()) << trace.text();
    EXPECT_EQ(0u, linesNumbered(trace.lines(), 2228).size()) << trace.text();
    std::vector<TraceLine> exits = linesNumbered(trace.lines(), 2229);
    ASSERT_EQ(1u, exits.size());
    EXPECT_NE(std::string::npos, exits[0].message.find("rc=-111")) << exits[0].text;
    buffer.block = old;
    Bytes expected = text("KRVIDSET") + hostWord(3) + hostWord(90) + terminatorBytes();
    EXPECT_TRUE(sameBytes(expected + Bytes(8, ParseBuffer::untouched), buffer.first(expected.size() + 8)));
}

TEST(GrowthFailure, OfEachGrowthInTurnIsReported)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        Bytes reply = replyWith(kind, 3, {50, 60, 100, 200, 400, 800, 1600});
        int growths = decodeReply(kind, reply, 64).growths;
        ASSERT_GT(growths, 4);
        for (int number = 0; number < growths; number++) {
            char* block = static_cast<char*>(std::malloc(64 + RESULT_SET_ROOM));
            char* start = block;
            int capacity = 64;
            int rc, failures;
            {
                AllocationWatch watch(128, 10000);
                watch.fail(number, 2);
                char* raw = reinterpret_cast<char*>(reply.data());
                rc = kind == ReplyKind::Ids ? parseIdsData(raw, &block, &capacity)
                                            : parseStatsData(raw, &block, &capacity);
                failures = watch.failures();
                // the block that got lost: one that grew, or the first
                for (void* lost : watchedAllocations.blocks)
                    if (lost && lost != block) std::free(lost);
            }
            if (number == 0) std::free(start);
            ASSERT_GE(failures, 1) << number;
            EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc) << number;
            EXPECT_EQ(nullptr, block) << number;
            EXPECT_EQ(64 << number, capacity) << number;
        }
    }
}

TEST(Growth, AsksForTwiceAnyLengthThatCanBeDoubled)
{
    for (int capacity : {1, INT_MAX / 3 + 1, INT_MAX / 2 - 1, INT_MAX / 2}) {
        ParseBuffer buffer(100);
        char* const lost = buffer.block;
        buffer.capacity = capacity;
        char* cursor = nullptr;
        int rc = 0;
        int requests = 0;
        std::size_t size = 0;
        {
            AllocationWatch watch(1, SIZE_MAX);
            watch.fail(0, 1);
            rc = reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 1);
            requests = watch.requests();
            size = watch.size(0);
        }
        std::free(lost);
        EXPECT_EQ(nullptr, buffer.block);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
        EXPECT_EQ(1, requests) << capacity;
        EXPECT_LE(2 * static_cast<std::size_t>(capacity), size) << capacity;
        EXPECT_GE(2 * static_cast<std::size_t>(capacity) + mostRoom, size) << capacity;
    }
}

TEST(Growth, OfALengthOfZeroIsTwiceNothing)
{
    ParseBuffer buffer(100);
    buffer.capacity = 0;
    char* cursor = nullptr;
    EXPECT_EQ(0, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 0));
    EXPECT_EQ(0, buffer.capacity);
    EXPECT_EQ(buffer.block, cursor);
}

TEST(Growth, ZeroesTheRoomBehindTheNewLengthAndNothingBehindThat)
{
    AllocationWatch watch(1, 100000);
    watch.soil(16);
    ParseBuffer buffer(100);
    char* cursor = nullptr;
    EXPECT_EQ(0, reallocResultsSetBuffer(&buffer.block, &buffer.capacity, &cursor, 100));
    EXPECT_EQ(0, watch.damaged());
    EXPECT_TRUE(sameBytes(zeros(RESULT_SET_ROOM), slice(buffer.first(200 + RESULT_SET_ROOM), 200, RESULT_SET_ROOM)));
}

TEST(Growth, WhatOneDoublingHasNoRoomForLandsInTheBlockAllTheSame)
{
    constexpr int preamble = 12; // category and number of responses: the least that a buffer holds
    for (ReplyKind kind : {ReplyKind::Ids, ReplyKind::Statistics}) {
        for (int capacity : {preamble, preamble + 1, 64}) {
            Bytes reply = replyWith(kind, 10, {3000, 7});
            const DecodedReply expected = decodeReply(kind, reply, capacity);
            AllocationWatch watch(1, 1000000);
            watch.soil(64);
            ParseBuffer buffer(capacity);
            EXPECT_EQ(0, parse(kind, reply, buffer));
            EXPECT_EQ(0, watch.damaged());
            EXPECT_EQ(expected.capacity, buffer.capacity);
            EXPECT_TRUE(sameBytes(expected.set, buffer.first(expected.set.size())));
        }
    }
}

} // namespace krvtest
