// The primitives that write and recognise the pieces of a result-set buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "krvstats.h"
#include "reference_decoder.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_claims.h"

namespace krvtest {

namespace {

constexpr unsigned char untouched = 0xA5;

// A buffer with a write cursor in it, at an odd address.
struct Page {
    unsigned char bytes[64];
    char* cursor;

    Page()
    {
        std::memset(bytes, untouched, sizeof bytes);
        cursor = start();
    }
    char* start() { return reinterpret_cast<char*>(bytes) + 1; }
    long moved() { return static_cast<long>(cursor - start()); }
    Bytes first(std::size_t count) { return Bytes(bytes + 1, bytes + 1 + count); }
};

Bytes fill(std::size_t count)
{
    return Bytes(count, untouched);
}

} // namespace

TEST(AddInteger, StoresFourBytesInHostOrderAtAnyAddressAndMovesByFour)
{
    for (std::int32_t value : {0, 1, -1, 0x01020304, INT32_MAX, INT32_MIN, 0x0E0F0E0F}) {
        for (int shift = 0; shift < 4; shift++) {
            Page page;
            page.cursor += shift;
            EXPECT_EQ(0, addInteger(&page.cursor, value));
            EXPECT_EQ(shift + 4, page.moved());
            EXPECT_TRUE(sameBytes(fill(static_cast<std::size_t>(shift)) + hostWord(value) + fill(5),
                                  page.first(static_cast<std::size_t>(shift) + 9)))
                << value;
        }
    }
}

TEST(AddInteger, RefusesANullCursorAndWritesNothing)
{
    char* cursor = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addInteger(&cursor, 7));
    EXPECT_EQ(nullptr, cursor);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addInteger(nullptr, 7));
}

TEST(AddChars, CopiesExactlyTheCountWithoutANul)
{
    Page page;
    char content[] = "ab\0cd";
    EXPECT_EQ(0, addChars(&page.cursor, content, 5));
    EXPECT_EQ(5, page.moved());
    EXPECT_TRUE(sameBytes(hex("61 62 00 63 64") + fill(4), page.first(9)));
}

TEST(AddChars, OfNothingMovesNothing)
{
    Page page;
    char content[] = "abc";
    EXPECT_EQ(0, addChars(&page.cursor, content, 0));
    EXPECT_EQ(0, page.moved());
    EXPECT_TRUE(sameBytes(fill(9), page.first(9)));
}

TEST(AddChars, RefusesNullPointersAndWritesNothing)
{
    Page page;
    char content[] = "abc";
    char* none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addChars(nullptr, content, 3));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addChars(&none, content, 3));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addChars(&page.cursor, nullptr, 3));
    EXPECT_EQ(0, page.moved());
    EXPECT_TRUE(sameBytes(fill(9), page.first(9)));
}

TEST(AddPlatformChars, IsAPlainByteCopy)
{
    Page page;
    char every[256];
    for (int i = 0; i < 256; i++) every[i] = static_cast<char>(i);
    char room[300];
    char* cursor = room;
    EXPECT_EQ(0, addPlatformChars(&cursor, every, 256));
    EXPECT_EQ(256, cursor - room);
    EXPECT_EQ(0, std::memcmp(room, every, 256));

    char category[] = "KRVSTSET";
    EXPECT_EQ(0, addPlatformChars(&page.cursor, category, 8));
    EXPECT_EQ(8, page.moved());
    EXPECT_TRUE(sameBytes(text("KRVSTSET") + fill(4), page.first(12)));
}

TEST(AddPlatformChars, RefusesNullPointersAndWritesNothing)
{
    Page page;
    char content[] = "abc";
    char* none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addPlatformChars(nullptr, content, 3));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addPlatformChars(&none, content, 3));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addPlatformChars(&page.cursor, nullptr, 3));
    EXPECT_EQ(0, page.moved());
    EXPECT_TRUE(sameBytes(fill(9), page.first(9)));
}

TEST(AddIdStr, WritesLengthAndTextAndANulThatTheCursorDoesNotPass)
{
    Page page;
    char id[] = "abc";
    EXPECT_EQ(0, addIdStr(&page.cursor, id));
    EXPECT_EQ(7, page.moved());
    EXPECT_TRUE(sameBytes(hostWord(3) + text("abc") + hex("00") + fill(4), page.first(12)));
}

TEST(AddIdStr, NulIsOverwrittenByTheNextWrite)
{
    Page page;
    char first[] = "ab";
    char second[] = "c";
    EXPECT_EQ(0, addIdStr(&page.cursor, first));
    EXPECT_EQ(0, addIdStr(&page.cursor, second));
    EXPECT_EQ(11, page.moved());
    EXPECT_TRUE(sameBytes(hostWord(2) + text("ab") + hostWord(1) + text("c") + hex("00") + fill(2),
                          page.first(14)));
}

TEST(AddIdStr, OfAnEmptyTextWritesLengthZeroAndANulAndMovesByFour)
{
    Page page;
    char id[] = "";
    EXPECT_EQ(0, addIdStr(&page.cursor, id));
    EXPECT_EQ(4, page.moved());
    EXPECT_TRUE(sameBytes(hex("00 00 00 00 00") + fill(4), page.first(9)));
}

TEST(AddIdStr, RefusesNullPointersAndWritesNothing)
{
    Page page;
    char id[] = "abc";
    char* none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addIdStr(nullptr, id));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addIdStr(&none, id));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addIdStr(&page.cursor, nullptr));
    EXPECT_EQ(0, page.moved());
    EXPECT_TRUE(sameBytes(fill(9), page.first(9)));
}

TEST(AddTerminator, StoresTheWordAndNothingElse)
{
    Page page;
    EXPECT_EQ(0, addTerminator(page.cursor + 2));
    EXPECT_TRUE(sameBytes(fill(2) + hostWord(0x0E0F0E0F) + fill(20), page.first(26)));
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    EXPECT_TRUE(sameBytes(hex("0F 0E 0F 0E"), Bytes(page.bytes + 3, page.bytes + 7)));
#endif
}

TEST(AddTerminator, RefusesANullCursor)
{
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, addTerminator(nullptr));
}

TEST(CheckTerminator, KnowsTheTerminatorAtAnyAddress)
{
    for (int shift = 0; shift < 4; shift++) {
        Page page;
        int isTerminator = 5;
        ASSERT_EQ(0, addTerminator(page.cursor + shift));
        EXPECT_EQ(0, checkTerminator(page.cursor + shift, &isTerminator));
        EXPECT_EQ(1, isTerminator);
    }
}

TEST(CheckTerminator, SaysNoToEveryOtherWord)
{
    for (int bit = 0; bit < 32; bit++) {
        Page page;
        int isTerminator = 5;
        std::int32_t word = static_cast<std::int32_t>(0x0E0F0E0Fu ^ (1u << bit));
        Bytes other = hostWord(word);
        std::memcpy(page.cursor, other.data(), other.size());
        EXPECT_EQ(0, checkTerminator(page.cursor, &isTerminator));
        EXPECT_EQ(0, isTerminator) << "bit " << bit;
        EXPECT_TRUE(sameBytes(other + fill(3), page.first(7))) << "the bytes are only read";
    }
}

TEST(CheckTerminator, RefusesNullPointersAndTouchesNothing)
{
    Page page;
    int isTerminator = 5;
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, checkTerminator(nullptr, &isTerminator));
    EXPECT_EQ(5, isTerminator);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, checkTerminator(page.cursor, nullptr));
}

TEST(Writers, PutAReplyTogetherInTheOrderOfTheParser)
{
    Page page;
    char category[] = "KRVIDSET";
    char element[] = "g1";
    char id[] = "i7";
    EXPECT_EQ(0, addTerminator(page.cursor));
    EXPECT_EQ(0, addPlatformChars(&page.cursor, category, 8));
    EXPECT_EQ(0, addInteger(&page.cursor, 2));
    EXPECT_EQ(0, addInteger(&page.cursor, 2));
    EXPECT_EQ(0, addChars(&page.cursor, element, 2));
    EXPECT_EQ(0, addInteger(&page.cursor, 0));
    EXPECT_EQ(0, addInteger(&page.cursor, 1));
    EXPECT_EQ(0, addInteger(&page.cursor, 2));
    EXPECT_EQ(0, addChars(&page.cursor, id, 2));
    EXPECT_EQ(0, addInteger(&page.cursor, 0));
    EXPECT_EQ(0, addInteger(&page.cursor, -5));
    EXPECT_EQ(0, addTerminator(page.cursor));
    Bytes expected = text("KRVIDSET")                                           // category
        + hostWord(2)                                                           // query elements
        + hostWord(2) + text("g1") + hostWord(0) + hostWord(1)                  // the first: code 0, one id
        + hostWord(2) + text("i7")                                              // its id
        + hostWord(0) + hostWord(-5)                                            // the second failed
        + hostWord(0x0E0F0E0F);                                                 // terminator
    EXPECT_EQ(static_cast<long>(expected.size()) - 4, page.moved());
    EXPECT_TRUE(sameBytes(expected + fill(4), page.first(expected.size() + 4)));
}

// ---- What they write to the trace ---------------------------------------------------------------------------------

TEST(WritersTrace, AddIntegerHasItsThreePoints)
{
    Page page;
    TraceFile trace(4);
    ASSERT_EQ(0, addInteger(&page.cursor, 258));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2108, lines[0].number);
    EXPECT_EQ(2110, lines[1].number);
    EXPECT_TRUE(lines[0].message.starts_with("stapi_krv_resultsetbuffer.addInteger(")) << lines[0].text;
    EXPECT_TRUE(lines[1].message.starts_with("stapi_krv_resultsetbuffer.addInteger(")) << lines[1].text;
    EXPECT_TRUE(lines[1].message.ends_with("rc=0")) << lines[1].text;

    trace.forget();
    char* none = nullptr;
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addInteger(&none, 258));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2109, lines[1].number);
    EXPECT_EQ("stapi_krv_resultsetbuffer.addInteger(&bufWPtr=" + pointerText(&none)
                  + ") function received a null parameter",
              lines[1].message);
    EXPECT_TRUE(lines[2].message.ends_with("rc=-103")) << lines[2].text;

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addInteger(nullptr, 258));
    lines = trace.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("stapi_krv_resultsetbuffer.addInteger(&bufWPtr=" + pointerText(nullptr)
                  + ") function received a null parameter",
              lines[1].message);
}

TEST(WritersTrace, AddIdStrShowsEachStep)
{
    Page page;
    char id[] = "statId";
    TraceFile trace(4);
    ASSERT_EQ(0, addIdStr(&page.cursor, id));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_GE(lines.size(), 5u) << trace.text();
    expectNumbersRise(lines, 2100, 2107);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_EQ(2107, lines.back().number);
    for (const TraceLine& line : lines)
        EXPECT_TRUE(line.message.starts_with("stapi_krv_resultsetbuffer.addIdStr")) << line.text;
    EXPECT_EQ(1, countOf(lines, "DEBUG", "stapi_krv_resultsetbuffer.addIdStr Before writing id length, write cursor="
                                             + pointerText(page.start())))
        << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", "stapi_krv_resultsetbuffer.addIdStr Wrote length value 6 to address "
                                             + pointerText(page.start()) + ", which reads back as 6"))
        << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", "stapi_krv_resultsetbuffer.addIdStr Wrote string statId len 6 to address "
                                             + pointerText(page.start() + 4) + ", first char reads back as s"))
        << trace.text();

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addIdStr(&page.cursor, nullptr));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2100, 2107);
    EXPECT_EQ("stapi_krv_resultsetbuffer.addIdStr(&bufWPtr=" + pointerText(&page.cursor) + ",idString="
                  + pointerText(nullptr) + ") function received a null parameter",
              lines[1].message);
}

TEST(WritersTrace, AddCharsNamesCursorAndCount)
{
    Page page;
    char content[] = "abc";
    TraceFile trace(4);
    ASSERT_EQ(0, addChars(&page.cursor, content, 3));
    std::vector<TraceLine> lines = trace.lines();
    expectNumbersRise(lines, 2111, 2115);
    EXPECT_EQ(2115, lines.back().number);
    EXPECT_EQ(1, countOf(lines, "DEBUG", "stapi_krv_resultsetbuffer.addChars() using memcpy() on writeCursor("
                                             + pointerText(page.start()) + ") charCount(3)"))
        << trace.text();

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addChars(nullptr, content, 3));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2111, 2115);
    EXPECT_TRUE(lines[1].message.starts_with("stapi_krv_resultsetbuffer.addChars(")) << lines[1].text;
    EXPECT_TRUE(lines[1].message.ends_with(") function received a null parameter")) << lines[1].text;
}

TEST(WritersTrace, AddPlatformCharsHasABlockOfItsOwn)
{
    Page page;
    char content[] = "abc";
    TraceFile trace(4);
    ASSERT_EQ(0, addPlatformChars(&page.cursor, content, 3));
    std::vector<TraceLine> lines = trace.lines();
    expectNumbersRise(lines, 2116, 2119);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_EQ(2119, lines.back().number);
    for (const TraceLine& line : lines)
        EXPECT_TRUE(line.message.starts_with("stapi_krv_resultsetbuffer.addPlatformChars")) << line.text;

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addPlatformChars(&page.cursor, nullptr, 3));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2116, 2119);
    EXPECT_TRUE(lines[1].message.starts_with("stapi_krv_resultsetbuffer.addPlatformChars(")) << lines[1].text;
    EXPECT_TRUE(lines[1].message.ends_with(") function received a null parameter")) << lines[1].text;
}

TEST(WritersTrace, AddTerminatorHasItsThreePoints)
{
    Page page;
    TraceFile trace(4);
    ASSERT_EQ(0, addTerminator(page.cursor));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2120, lines[0].number);
    EXPECT_EQ(2122, lines[1].number);

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, addTerminator(nullptr));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2121, lines[1].number);
    EXPECT_EQ("stapi_krv_resultsetbuffer.addTerminator(writeCursor=" + pointerText(nullptr)
                  + ") function received a null parameter",
              lines[1].message);
}

TEST(WritersTrace, CheckTerminatorShowsWhatItFound)
{
    Page page;
    int isTerminator = 0;
    TraceFile trace(4);
    ASSERT_EQ(0, checkTerminator(page.cursor, &isTerminator));
    ASSERT_EQ(0, isTerminator);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "DEBUG", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2123, 2126);
    EXPECT_EQ(2126, lines[2].number);
    EXPECT_EQ("stapi_krv_resultsetbuffer.checkTerminator(dataCursor=" + pointerText(page.cursor) + ", *isRSTermPtr=0)",
              lines[1].message);

    ASSERT_EQ(0, addTerminator(page.cursor));
    trace.forget();
    ASSERT_EQ(0, checkTerminator(page.cursor, &isTerminator));
    lines = trace.lines();
    ASSERT_EQ(3u, lines.size()) << trace.text();
    EXPECT_EQ("stapi_krv_resultsetbuffer.checkTerminator(dataCursor=" + pointerText(page.cursor) + ", *isRSTermPtr=1)",
              lines[1].message);

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, checkTerminator(nullptr, &isTerminator));
    lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2123, 2126);
    EXPECT_EQ("stapi_krv_resultsetbuffer.checkTerminator(dataCursor=" + pointerText(nullptr) + ", isRSTermPtr="
                  + pointerText(&isTerminator) + ") function received a null parameter",
              lines[1].message);

    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_BUFFER, checkTerminator(page.cursor, nullptr));
    lines = trace.lines();
    ASSERT_EQ(3u, lines.size()) << trace.text();
    EXPECT_EQ("stapi_krv_resultsetbuffer.checkTerminator(dataCursor=" + pointerText(page.cursor) + ", isRSTermPtr="
                  + pointerText(nullptr) + ") function received a null parameter",
              lines[1].message);
}

TEST(WritersTrace, EachKindIsWrittenFromItsLevelOn)
{
    char id[] = "x";
    for (int level = 0; level <= 5; level++) {
        TraceFile trace(level);
        Page page;
        int isTerminator = 0;
        addIdStr(&page.cursor, id);
        addInteger(&page.cursor, 1);
        addChars(&page.cursor, id, 1);
        addPlatformChars(&page.cursor, id, 1);
        addTerminator(page.cursor);
        checkTerminator(page.cursor, &isTerminator);
        addIdStr(nullptr, id);
        addInteger(nullptr, 1);
        addChars(nullptr, id, 1);
        addPlatformChars(nullptr, id, 1);
        addTerminator(nullptr);
        checkTerminator(nullptr, nullptr);
        int exceptions = 0, entries = 0, exits = 0, details = 0;
        for (const TraceLine& line : trace.lines()) {
            exceptions += line.kind == "*EXC*";
            entries += line.kind == "ENTRY";
            exits += line.kind == "EXIT";
            details += line.kind == "DEBUG";
        }
        EXPECT_EQ(level >= 1 ? 6 : 0, exceptions) << "level " << level;
        EXPECT_EQ(level >= 3 ? 12 : 0, entries) << "level " << level;
        EXPECT_EQ(level >= 3 ? 12 : 0, exits) << "level " << level;
        EXPECT_EQ(level >= 4, details >= 5) << "level " << level << ": " << details;
        if (level < 4) {
            EXPECT_EQ(0, details) << "level " << level;
        }
    }
}

} // namespace krvtest
