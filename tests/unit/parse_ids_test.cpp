// Id replies: from the bytes of the gateway to the result-set buffer. Replies and results are written by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "krvstats.h"
#include "parse_runs.h"

namespace krvtest {

namespace {

// The part of a response in front of its query element.
Bytes responseHead()
{
    return hex("11 12 13 14 15 16")                        // 6 bytes, skipped
        + hex("00 02") + text("ab")                        // first skipped text
        + hex("21 22 23 24 25 26 27 28 29 2A 2B 2C 2D")    // 13 bytes, skipped
        + hex("00 00")                                     // second skipped text: empty
        + hex("31 32 33 34 35 36 37 38 39 3A 3B 3C 3D")    // 13 bytes, skipped
        + hex("7A 00 00 01 02");                           // long block: type and 4 bytes
}

Bytes idBytes(const std::string& id)
{
    return be16(static_cast<std::uint32_t>(id.size())) + text(id);
}

Bytes setText(const std::string& content)
{
    return hostWord(static_cast<std::int32_t>(content.size())) + text(content);
}

testing::AssertionResult gives(const Bytes& reply, const Bytes& set)
{
    ParseBuffer buffer;
    int rc = parse(ReplyKind::Ids, reply, buffer);
    if (rc != 0) return testing::AssertionFailure() << "rc " << rc;
    if (buffer.capacity != 32768) return testing::AssertionFailure() << "capacity " << buffer.capacity;
    testing::AssertionResult same = sameBytes(set, buffer.first(set.size()));
    if (!same) return same;
    return sameBytes(Bytes(16, ParseBuffer::untouched), Bytes(buffer.block + set.size(), buffer.block + set.size() + 16))
        << " (behind the terminator)";
}

// One response with one id, so long that the set's terminator stands at `total`.
Bytes replyOfTotal(std::size_t total)
{
    std::vector<std::string> ids;
    std::size_t written = 8 + 4 + 4 + 1 + 4 + 4;
    while (total - written > 20000) {
        ids.push_back(letters(16000, static_cast<unsigned int>(ids.size())));
        written += 4 + 16000;
    }
    ids.push_back(letters(total - written - 4));
    return encodeReply({ReplyKind::Ids, 0, true, 0, {idsResponse("S", 0, ids)}, 7});
}

} // namespace

TEST(ParseIds, OfTwoResponses)
{
    Bytes reply = hex("01 00 00 00 02")                             // an array of two
        + responseHead() + hex("00 02") + text("g1")                // query element
        + hex("00 00 00 00")                                        // response rc
        + hex("00 00 00 03")                                        // three ids
        + idBytes("a") + idBytes("") + idBytes("ccc")               //
        + hex("78")                                                 // 1 byte, skipped
        + responseHead() + hex("00 02") + text("g2")                //
        + hex("00 00 00 09") + hex("00 00 00 01") + idBytes("d")    // rc 9, one id
        + hex("78");
    Bytes set = text("KRVIDSET") + hostWord(2)
        + setText("g1") + hostWord(0) + hostWord(3) + setText("a") + setText("") + setText("ccc")
        + setText("g2") + hostWord(9) + hostWord(1) + setText("d") + terminatorBytes();
    EXPECT_TRUE(gives(reply, set));
}

TEST(ParseIds, OfEveryArrayFlagButOneIsASingleResponse)
{
    for (int flag = 0; flag < 256; flag++) {
        if (flag == 1) continue;
        Bytes reply = be16(static_cast<std::uint32_t>(flag));
        reply.erase(reply.begin());
        reply = reply + responseHead() + hex("00 01") + text("g") + hex("00 00 00 00 00 00 00 01") + idBytes("a")
            + hex("78");
        EXPECT_TRUE(gives(reply, text("KRVIDSET") + hostWord(1) + setText("g") + hostWord(0) + hostWord(1)
                                     + setText("a") + terminatorBytes()))
            << "flag " << flag;
    }
}

TEST(ParseIds, OfZeroResponsesIsCategoryCountAndTerminator)
{
    EXPECT_TRUE(gives(hex("01 00 00 00 00"), text("KRVIDSET") + hostWord(0) + terminatorBytes()));
}

TEST(ParseIds, NegativeCountsYieldNothing)
{
    EXPECT_TRUE(gives(hex("01 80 00 00 00"), text("KRVIDSET") + hostWord(INT32_MIN) + terminatorBytes()));
    Bytes reply = hex("00") + responseHead() + hex("00 01") + text("g") + hex("00 00 00 00") + hex("FF FF FF FF")
        + hex("78");
    EXPECT_TRUE(gives(reply, text("KRVIDSET") + hostWord(1) + setText("g") + hostWord(0) + hostWord(-1)
                                 + terminatorBytes()));
}

TEST(ParseIds, OfAFailedResponseHasItsElementAndCodeOnlyAndGoesOnOneByteBehind)
{
    Bytes reply = hex("01 00 00 00 02")
        + responseHead() + hex("00 03") + text("bad") + hex("FF FF FF FE") + hex("78")
        + responseHead() + hex("00 01") + text("g") + hex("00 00 00 00") + hex("00 00 00 01") + idBytes("a") + hex("78");
    EXPECT_TRUE(gives(reply, text("KRVIDSET") + hostWord(2) + setText("bad") + hostWord(-2) + setText("g")
                                 + hostWord(0) + hostWord(1) + setText("a") + terminatorBytes()));
}

TEST(ParseIds, OfAQueryElementWithoutIdsGoesOnWithTheNextHeader)
{
    Bytes reply = hex("01 00 00 00 02")
        + responseHead() + hex("00 01") + text("A") + hex("00 00 00 00") + hex("00 00 00 00") + hex("78")
        + responseHead() + hex("00 01") + text("B") + hex("00 00 00 00") + hex("00 00 00 01") + idBytes("b") + hex("78");
    EXPECT_TRUE(gives(reply, text("KRVIDSET") + hostWord(2) + setText("A") + hostWord(0) + hostWord(0) + setText("B")
                                 + hostWord(0) + hostWord(1) + setText("b") + terminatorBytes()));
}

TEST(ParseIds, NegativeLengthsAreRefused)
{
    Bytes bad = hex("FF FF");
    Bytes tail(70000, 0x20);
    Bytes replies[] = {
        hex("00 11 12 13 14 15 16") + bad + tail,
        hex("00 11 12 13 14 15 16 00 00") + zeros(13) + bad + tail,
        hex("00") + responseHead() + bad + tail,
        hex("00") + responseHead() + hex("00 00 00 00 00 00 00 00 00 01") + bad + tail,
        hex("00") + responseHead() + hex("00 00 00 00 00 00 00 00 00 02 00 01 41") + bad + tail,
    };
    for (std::size_t i = 0; i < std::size(replies); i++) {
        ParseBuffer buffer;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, parse(ReplyKind::Ids, replies[i], buffer)) << "reply " << i;
    }
}

TEST(ParseIds, ClosingTerminatorNeedsNoCapacity)
{
    // what is written in front of the terminator decides about growth, the terminator never does
    for (std::size_t total = 32768 - 6; total <= 32768 + 6; total++) {
        Bytes reply = replyOfTotal(total);
        DecodedReply expected = decodeReply(ReplyKind::Ids, reply, 32768);
        ASSERT_EQ(total + 4, expected.set.size());
        ParseBuffer buffer;
        ASSERT_EQ(0, parse(ReplyKind::Ids, reply, buffer)) << total;
        EXPECT_EQ(total <= 32768 ? 32768 : 65536, buffer.capacity) << total;
        EXPECT_TRUE(sameBytes(expected.set, buffer.first(expected.set.size()))) << total;
    }
}

TEST(ParseIds, ClosingTerminatorLandsInTheRoomOfAGrownBuffer)
{
    for (std::size_t capacity : {65536u, 131072u, 262144u}) {
        for (std::size_t total = capacity - 4; total <= capacity; total++) {
            Bytes reply = replyOfTotal(total);
            ParseBuffer buffer;
            ASSERT_EQ(0, parse(ReplyKind::Ids, reply, buffer)) << total;
            EXPECT_EQ(static_cast<int>(capacity), buffer.capacity) << total;
            Bytes end = buffer.first(capacity + RESULT_SET_ROOM);
            EXPECT_TRUE(sameBytes(terminatorBytes(), slice(end, total, 4))) << total;
            std::size_t behind = std::max(total + 4, capacity);
            EXPECT_TRUE(sameBytes(zeros(end.size() - behind), slice(end, behind, end.size() - behind)))
                << "the room is there and zero behind a total of " << total;
        }
    }
}

TEST(ParseIds, RefusesNullPointers)
{
    ParseBuffer buffer;
    Bytes reply = hex("01 00 00 00 00");
    char* raw = reinterpret_cast<char*>(reply.data());
    char* none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseIdsData(nullptr, &buffer.block, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseIdsData(raw, nullptr, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseIdsData(raw, &none, &buffer.capacity));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, parseIdsData(raw, &buffer.block, nullptr));
}

} // namespace krvtest
