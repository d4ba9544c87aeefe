// Statistics replies: from the bytes of the gateway to the result-set buffer. Replies and results are written by hand.
#include <gtest/gtest.h>

#include <string>

#include "krvstats.h"
#include "parse_runs.h"

namespace krvtest {

namespace {

// The part of a response in front of its query element.
Bytes responseHead()
{
    return hex("11 12 13 14 15 16")                        // 6 bytes, skipped
        + hex("00 03") + text("abc")                       // first skipped text
        + hex("21 22 23 24 25 26 27 28 29 2A 2B 2C 2D")    // 13 bytes, skipped
        + hex("00 01") + text("q")                         // second skipped text
        + hex("31 32 33 34 35 36 37 38 39 3A 3B 3C 3D")    // 13 bytes, skipped
        + hex("77 40");                                    // short block: type and 1 byte
}

// The fields between the number of statistics and the first of them.
Bytes bodyHead()
{
    return hex("41 42")                    // 2 bytes, skipped
        + hex("00 02") + text("zz")        // skipped text
        + hex("51 52 53 54 55 56 57 58");  // 8 bytes, skipped
}

Bytes plainElementBytes(const std::string& id, const std::string& value)
{
    return hex("61 62 63 64 65")                                         // 5 bytes, skipped
        + hex("77 10")                                                   // type and 1 byte
        + be16(static_cast<std::uint32_t>(id.size())) + text(id)         // id
        + be16(static_cast<std::uint32_t>(value.size())) + text(value)   // value
        + hex("71 72");                                                  // 2 bytes, skipped
}

// Head of a chunked element up to its value: the chunk's length, the id, the value's whole length.
Bytes chunkHead(std::uint32_t chunkLength, const std::string& id, std::uint32_t valueLength)
{
    return hex("61 62 63 64 65")                                  // 5 bytes, skipped
        + hex("7A 00 00")                                         // long block: type and 2 bytes
        + be16(chunkLength)                                       // length of this chunk
        + be16(static_cast<std::uint32_t>(id.size())) + text(id)  // id
        + be16(valueLength);                                      // length of the whole value
}

Bytes setText(const std::string& content)
{
    return hostWord(static_cast<std::int32_t>(content.size())) + text(content);
}

// One response with one statistic, whose bytes stand between head and end.
Bytes oneStatReply(const Bytes& element)
{
    return hex("00")                     // one response, no count
        + responseHead()                 //
        + hex("00 01") + text("S")       // query element
        + hex("00 00 00 00")             // response rc
        + hex("00 00 00 01")             // one statistic
        + bodyHead() + element;
}

Bytes oneStatSet(const std::string& id, const Bytes& value)
{
    return text("KRVSTSET")              // category
        + hostWord(1)                    // one query element
        + setText("S") + hostWord(0)     // it and its code
        + hostWord(1)                    // one statistic
        + setText(id) + value            // id, length and text of the value
        + terminatorBytes();
}

testing::AssertionResult gives(const Bytes& reply, const Bytes& set)
{
    ParseBuffer buffer;
    int rc = parse(ReplyKind::Statistics, reply, buffer);
    if (rc != 0) return testing::AssertionFailure() << "rc " << rc;
    if (buffer.capacity != 32768) return testing::AssertionFailure() << "capacity " << buffer.capacity;
    testing::AssertionResult same = sameBytes(set, buffer.first(set.size()));
    if (!same) return same;
    return sameBytes(Bytes(16, ParseBuffer::untouched), Bytes(buffer.block + set.size(), buffer.block + set.size() + 16))
        << " (behind the terminator)";
}

} // namespace

TEST(ParseStats, OfOneResponseWithoutACount)
{
    EXPECT_TRUE(gives(oneStatReply(plainElementBytes("id1", "value")), oneStatSet("id1", setText("value"))));
}

TEST(ParseStats, OfEveryArrayFlagButOneIsASingleResponse)
{
    for (int flag = 0; flag < 256; flag++) {
        if (flag == 1) continue;
        Bytes reply = oneStatReply(plainElementBytes("id1", "value"));
        reply[0] = static_cast<unsigned char>(flag);
        EXPECT_TRUE(gives(reply, oneStatSet("id1", setText("value")))) << "flag " << flag;
    }
}

TEST(ParseStats, OfAnArrayCountsItsResponses)
{
    Bytes reply = hex("01 00 00 00 02")                                // an array of two
        + responseHead() + hex("00 02") + text("Q1")                   // first query element
        + hex("00 00 00 07")                                           // rc 7
        + hex("00 00 00 02") + bodyHead()                              // two statistics
        + plainElementBytes("a", "1") + plainElementBytes("", "")      //
        + responseHead() + hex("00 00")                                // second query element: empty
        + hex("00 00 00 00")                                           // rc 0
        + hex("00 00 00 01") + bodyHead() + plainElementBytes("b", "22");
    Bytes set = text("KRVSTSET") + hostWord(2)
        + setText("Q1") + hostWord(7) + hostWord(2) + setText("a") + setText("1") + setText("") + setText("")
        + setText("") + hostWord(0) + hostWord(1) + setText("b") + setText("22")
        + terminatorBytes();
    EXPECT_TRUE(gives(reply, set));
}

TEST(ParseStats, OfAFailedResponseHasItsElementAndCodeOnly)
{
    Bytes reply = hex("00") + responseHead() + hex("00 03") + text("bad")
        + hex("FF FF FF FB")  // rc -5
        + hex("99");          // 1 byte, skipped
    EXPECT_TRUE(gives(reply, text("KRVSTSET") + hostWord(1) + setText("bad") + hostWord(-5) + terminatorBytes()));
}

TEST(ParseStats, GoesOnOneByteBehindAFailedResponse)
{
    Bytes reply = hex("01 00 00 00 03")
        + responseHead() + hex("00 01") + text("A") + hex("80 00 00 00") + hex("00")   // the lowest code
        + responseHead() + hex("00 01") + text("B") + hex("00 00 00 00") + hex("00 00 00 00") + bodyHead()
        + responseHead() + hex("00 01") + text("C") + hex("FF FF FF FF") + hex("7A");
    Bytes set = text("KRVSTSET") + hostWord(3)
        + setText("A") + hostWord(INT32_MIN)                 // no count
        + setText("B") + hostWord(0) + hostWord(0)           // count 0: the next header follows
        + setText("C") + hostWord(-1) + terminatorBytes();
    EXPECT_TRUE(gives(reply, set));
}

TEST(ParseStats, OfAnEmptyArrayIsCategoryCountAndTerminator)
{
    EXPECT_TRUE(gives(hex("01 00 00 00 00"), text("KRVSTSET") + hostWord(0) + terminatorBytes()));
}

TEST(ParseStats, OfANegativeResponseCountYieldsNoResponse)
{
    EXPECT_TRUE(gives(hex("01 FF FF FF FE"), text("KRVSTSET") + hostWord(-2) + terminatorBytes()));
}

TEST(ParseStats, OfANegativeStatisticCountYieldsNoStatistic)
{
    Bytes reply = hex("00") + responseHead() + hex("00 01") + text("S") + hex("00 00 00 00")
        + hex("FF FF FF 9C") + bodyHead();  // -100 statistics
    EXPECT_TRUE(gives(reply, text("KRVSTSET") + hostWord(1) + setText("S") + hostWord(0) + hostWord(-100)
                                 + terminatorBytes()));
}

TEST(ParseStats, ResponseBlockOfAnyOtherTypeIsFiveBytes)
{
    Bytes head = responseHead();
    for (int type = 0; type < 256; type++) {
        Bytes longHead(head.begin(), head.end() - 2);
        longHead.push_back(static_cast<unsigned char>(type));
        longHead = longHead + (type == 0x77 ? hex("05") : hex("05 06 07 08"));
        Bytes reply = hex("00") + longHead + hex("00 01") + text("S") + hex("FF FF FF FF") + hex("00");
        EXPECT_TRUE(gives(reply, text("KRVSTSET") + hostWord(1) + setText("S") + hostWord(-1) + terminatorBytes()))
            << "type " << type;
    }
}

TEST(ParseStats, ElementBlockOfAnyTypeButLongIsPlain)
{
    for (int type = 0; type < 256; type++) {
        if (type == 0x7A) continue;
        Bytes element = plainElementBytes("id1", "value");
        element[5] = static_cast<unsigned char>(type);
        EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("value")))) << "type " << type;
    }
}

TEST(ParseStats, ChunkedValueThatFillsItsChunkFits)
{
    // chunk 12 = id 3 + value 5 + 4: the block type behind must not be looked at
    Bytes element = chunkHead(12, "id1", 5) + text("value") + hex("7A 77");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("value"))));
}

TEST(ParseStats, ChunkedValueShorterThanItsChunkFits)
{
    Bytes element = chunkHead(300, "id1", 5) + text("value") + hex("7A 77");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("value"))));
}

TEST(ParseStats, ChunkedValueOneByteTooLongIsContinued)
{
    Bytes element = chunkHead(12, "id1", 6) + text("value")  // 5 of 6 bytes
        + hex("77 01") + text("!")                           // the sixth in a short segment
        + hex("71 72");                                      // 2 bytes, skipped
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("value!"))));
}

TEST(ParseStats, TwoLongSegmentsAndAShortOneAreOneValue)
{
    Bytes element = chunkHead(9, "id1", 13) + text("ab")     // first part: 9 - 3 - 4 = 2 bytes
        + hex("7A 00 00") + hex("00 04") + text("cdef")      // long segment of 4
        + hex("7A 00 00") + hex("00 03") + text("ghi")       // long segment of 3
        + hex("77 04") + text("jklm")                        // short segment of 4
        + hex("71 72");                                      // 2 bytes, skipped
    // a second statistic shows that the parser stands where it must
    Bytes reply = hex("00") + responseHead() + hex("00 01") + text("S") + hex("00 00 00 00") + hex("00 00 00 02")
        + bodyHead() + element + plainElementBytes("next", "n");
    Bytes set = text("KRVSTSET") + hostWord(1) + setText("S") + hostWord(0) + hostWord(2)
        + setText("id1") + setText("abcdefghijklm") + setText("next") + setText("n") + terminatorBytes();
    EXPECT_TRUE(gives(reply, set));
}

TEST(ParseStats, BehindAShortSegmentEveryTypeIsTakenAsShort)
{
    Bytes element = chunkHead(9, "id1", 10) + text("ab")
        + hex("77 03") + text("cde")  // short segment
        + hex("7A 03") + text("fgh")  // the type byte of this one is not read
        + hex("00 02") + text("ij")   // nor of this one
        + hex("71 72");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("abcdefghij"))));
}

TEST(ParseStats, ShortSegmentLengthIsUnsigned)
{
    std::string rest(255, 'r');
    Bytes element = chunkHead(9, "id1", 257) + text("ab") + hex("77 FF") + text(rest) + hex("71 72");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("ab" + rest))));
}

TEST(ParseStats, SegmentsWithoutBytesAreGoneThrough)
{
    Bytes element = chunkHead(7, "id1", 2)                   // first part: nothing
        + hex("7A 00 00 00 00")                              // long segment of 0
        + hex("7A 00 00 00 01") + text("a")                  // long segment of 1
        + hex("77 00")                                       // short segment of 0
        + hex("77 01") + text("b")                           // short segment of 1
        + hex("71 72");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText("ab"))));
}

TEST(ParseStats, ValueOfAnotherBlockTypeIsNotContinued)
{
    // the value's length is written as stated, and the bytes that came
    Bytes element = chunkHead(9, "id1", 10) + text("ab") + hex("78 70");
    Bytes reply = hex("00") + responseHead() + hex("00 01") + text("S") + hex("00 00 00 00") + hex("00 00 00 02")
        + bodyHead() + element + plainElementBytes("next", "n");
    Bytes set = text("KRVSTSET") + hostWord(1) + setText("S") + hostWord(0) + hostWord(2)
        + setText("id1") + hostWord(10) + text("ab") + setText("next") + setText("n") + terminatorBytes();
    EXPECT_TRUE(gives(reply, set));
}

TEST(ParseStats, SegmentThatBringsMoreThanIsMissingIsTakenWhole)
{
    Bytes element = chunkHead(9, "id1", 4) + text("ab") + hex("7A 00 00 00 05") + text("cdefg") + hex("77 01");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", hostWord(4) + text("abcdefg"))));
}

TEST(ParseStats, ChunkedValueOfNothingFits)
{
    Bytes element = chunkHead(7, "id1", 0) + hex("7A 77");
    EXPECT_TRUE(gives(oneStatReply(element), oneStatSet("id1", setText(""))));
}

TEST(ParseStats, LengthsAreSigned16BitAndTheLongestIs32767)
{
    std::string longest = letters(32767);
    Bytes reply = oneStatReply(plainElementBytes(longest, longest));
    ParseBuffer buffer;
    ASSERT_EQ(0, parse(ReplyKind::Statistics, reply, buffer));
    Bytes set = oneStatSet(longest, setText(longest));
    EXPECT_EQ(131072, buffer.capacity);
    EXPECT_TRUE(sameBytes(set, buffer.first(set.size())));
}

TEST(ParseStats, NegativeLengthsAreRefused)
{
    Bytes bad = hex("80 00");
    Bytes tail(70000, 0x20);
    Bytes replies[] = {
        hex("00 11 12 13 14 15 16") + bad + tail,                                             // first skipped text
        hex("00 11 12 13 14 15 16 00 00") + zeros(13) + bad + tail,                           // second skipped text
        hex("00") + responseHead() + bad + tail,                                              // query element
        hex("00") + responseHead() + hex("00 00 00 00 00 00 00 00 00 01 41 42") + bad + tail, // text of the body
        oneStatReply(hex("61 62 63 64 65 77 10") + bad + tail),                               // id
        oneStatReply(hex("61 62 63 64 65 77 10 00 00") + bad + tail),                         // value
        oneStatReply(chunkHead(9, "id1", 10) + text("ab") + hex("7A 00 00") + bad + tail),    // long segment
    };
    for (std::size_t i = 0; i < std::size(replies); i++) {
        ParseBuffer buffer;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, parse(ReplyKind::Statistics, replies[i], buffer)) << "reply " << i;
    }
}

TEST(ParseStats, FirstChunkShorterThanItsIdIsRefused)
{
    Bytes tail(70000, 0x20);
    for (std::uint32_t chunk : {0u, 3u, 6u, 0x8000u, 0xFFFFu}) {
        ParseBuffer buffer;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR,
                  parse(ReplyKind::Statistics, oneStatReply(chunkHead(chunk, "id1", 10) + tail), buffer))
            << "chunk " << chunk;
    }
}

TEST(ParseStats, StartsBySettingTheBufferEmptyAndEndsWithOneTerminator)
{
    // a set with a longer one before it in the same buffer
    ParseBuffer buffer;
    ASSERT_EQ(0, parse(ReplyKind::Statistics, oneStatReply(plainElementBytes(letters(300), letters(500))), buffer));
    ASSERT_EQ(0, parse(ReplyKind::Statistics, hex("01 00 00 00 00"), buffer));
    Bytes set = text("KRVSTSET") + hostWord(0) + terminatorBytes();
    EXPECT_TRUE(sameBytes(set, buffer.first(set.size())));
}

TEST(ParseStats, RefusesNullPointers)
{
    ParseBuffer buffer;
    Bytes reply = hex("01 00 00 00 00");
    char* raw = reinterpret_cast<char*>(reply.data());
    char* none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseStatsData(nullptr, &buffer.block, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseStatsData(raw, nullptr, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseStatsData(raw, &none, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseStatsData(raw, &buffer.block, nullptr));
}

} // namespace krvtest
