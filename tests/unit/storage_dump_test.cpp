// Storage dumps, byte by byte: the address, the hex column, the character column, where they end and what they return.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr unsigned stop = 0x0E0F0E0F;

// The address column shows the low 32 bits.
std::string address(const void* at)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%8.8X: ", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(at)));
    return text;
}

// Memory with room behind it: in stop-word mode a dump looks at whole lines and three bytes beyond.
struct Memory {
    explicit Memory(const std::string& content) : bytes(content.begin(), content.end())
    {
        bytes.resize(content.size() + 64, '~');
    }
    char* at(std::size_t offset) { return bytes.data() + offset; }
    void putStop(std::size_t offset) { std::memcpy(at(offset), &stop, sizeof stop); }
    std::string hex(std::size_t from, std::size_t count) const
    {
        std::string text;
        for (std::size_t i = from; i < from + count; i++) {
            char digits[16];
            std::snprintf(digits, sizeof digits, "%2.2X", static_cast<unsigned>(static_cast<unsigned char>(bytes[i])));
            text += digits;
        }
        return text;
    }
    std::vector<char> bytes;
};

struct Dump {
    int result;
    std::string text;
};

Dump dump(Memory& memory, unsigned length, unsigned stopWord, int width = 16, int translate = 0)
{
    TraceFile trace(0);
    Dump made;
    made.result = traceOutStorage(memory.at(0), length, stopWord, width, translate);
    made.text = trace.text();
    return made;
}

// A column on its own is part of a line, which is flushed when it is whole.
std::string flushed(const TraceFile& trace)
{
    std::fflush(statAPITraceHandle);
    return trace.text();
}

} // namespace

TEST(StorageDump, TwentyBytesByLengthGiveAFullLineAndAPaddedOne)
{
    Memory memory("ABCDEFGHIJKLMNOPqrst");
    Dump made = dump(memory, 20, 0);
    EXPECT_EQ(20, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748 494A4B4C 4D4E4F50 : ABCDEFGHIJKLMNOP \n"
            + address(memory.at(16)) + "71727374                            : qrst\n",
        made.text);
}

TEST(StorageDump, EveryLengthUpToThreeLinesIsPrintedWholeAndNoMore)
{
    const std::string content = "The quick brown fox jumps over the lazy dog 0123";
    ASSERT_EQ(48u, content.size());
    for (unsigned length = 1; length <= 48; length++) {
        Memory memory(content);
        std::string expected;
        for (unsigned from = 0; from < length; from += 16) {
            unsigned count = std::min(16u, length - from);
            std::string hexColumn;
            for (unsigned i = 0; i < 16; i++) {
                if (i != 0 && i % 4 == 0) hexColumn += ' ';
                hexColumn += i < count ? memory.hex(from + i, 1) : "  ";
            }
            expected += address(memory.at(from)) + hexColumn + " : " + content.substr(from, count);
            expected += count == 16 ? " \n" : "\n";
        }
        Dump made = dump(memory, length, 0);
        EXPECT_EQ(static_cast<int>(length), made.result);
        EXPECT_EQ(expected, made.text) << "length " << length;
    }
}

TEST(StorageDump, ALengthIgnoresTheStopWord)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    memory.putStop(4);
    Dump made = dump(memory, 16, stop);
    EXPECT_EQ(16, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 " + memory.hex(4, 4) + " 494A4B4C 4D4E4F50 : ABCD....IJKLMNOP \n", made.text);
}

TEST(StorageDump, AStopWordAtOffsetFiveEndsTheLineThere)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWX");
    memory.putStop(5);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(5, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45                         : ABCDE\n", made.text);
}

TEST(StorageDump, EveryStopWordOffsetInsideALineReturnsItself)
{
    for (std::size_t offset = 1; offset < 16; offset++) {
        Memory memory("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef");
        memory.putStop(offset);
        std::string hexColumn;
        for (std::size_t i = 0; i < 16; i++) {
            if (i != 0 && i % 4 == 0) hexColumn += ' ';
            hexColumn += i < offset ? memory.hex(i, 1) : "  ";
        }
        Dump made = dump(memory, 0, stop);
        EXPECT_EQ(static_cast<int>(offset), made.result);
        EXPECT_EQ(address(memory.at(0)) + hexColumn + " : " + std::string("ABCDEFGHIJKLMNOP").substr(0, offset) + "\n", made.text);
    }
}

TEST(StorageDump, AStopWordAtTheStartPrintsTheWholeLineInHexAndNoCharacters)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    memory.putStop(0);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(0, made.result);
    EXPECT_EQ(address(memory.at(0)) + memory.hex(0, 4) + " 45464748 494A4B4C 4D4E4F50 : \n", made.text);
}

TEST(StorageDump, AStopWordAtTheNextLineStartPrintsThatLineInHexToo)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef");
    memory.putStop(16);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(16, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748 494A4B4C 4D4E4F50 : ABCDEFGHIJKLMNOP \n"
            + address(memory.at(16)) + memory.hex(16, 4) + " 55565758 595A6162 63646566 : \n",
        made.text);
}

TEST(StorageDump, AStopWordOverALineBreakEndsInTheLineThatItStartsIn)
{
    for (std::size_t offset : {13u, 14u, 15u}) {
        Memory memory("ABCDEFGHIJKLMNOPQRSTUVWX");
        memory.putStop(offset);
        Dump made = dump(memory, 0, stop);
        EXPECT_EQ(static_cast<int>(offset), made.result);
        std::vector<std::string> lines = splitLines(made.text);
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(" : " + std::string("ABCDEFGHIJKLMNOP").substr(0, offset), lines[0].substr(lines[0].find(" : ")));
    }
}

// The hex column goes on testing: the later match moves the count and pads from there, while what lies between the two
// stays blank; the character column stops at the first.
TEST(StorageDump, TheSecondStopWordOfALineMovesTheCount)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    memory.putStop(4);
    memory.putStop(10);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(10, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344                            : ABCD\n", made.text);
}

// With the first match at offset 0 there is no padding until a later match makes the count a number.
TEST(StorageDump, AStopWordAtTheStartAndOneLaterPrintHexUpToTheLater)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    memory.putStop(0);
    memory.putStop(10);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(10, made.result);
    EXPECT_EQ(address(memory.at(0)) + memory.hex(0, 4) + " 45464748 494A" + std::string(13, ' ') + " : \n", made.text);
}

// 0F 0E 0F 0E 0F 0E: the words at 0 and at 2 are both the stop word.
TEST(StorageDump, OverlappingStopWordsCountAsTwo)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    memory.putStop(6);
    memory.putStop(8);
    unsigned between = 0;
    std::memcpy(&between, memory.at(7), sizeof between);
    ASSERT_NE(stop, between);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(8, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 4546                       : ABCDEF\n", made.text);
}

TEST(StorageDump, TheStopWordIsReadInHostOrderAtAnyAlignment)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqr");
    unsigned reversed = __builtin_bswap32(stop);
    std::memcpy(memory.at(2), &reversed, sizeof reversed);
    memory.putStop(19);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(19, made.result);
    EXPECT_EQ(2u, splitLines(made.text).size());
}

TEST(StorageDump, AnyOtherStopWordWorksToo)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWX");
    unsigned other = 0;
    std::memcpy(&other, "IJKL", 4);
    Dump made = dump(memory, 0, other);
    EXPECT_EQ(8, made.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748                   : ABCDEFGH\n", made.text);
}

TEST(StorageDump, EveryByteIsShownInHexAndOnlyPrintableOnesAsThemselves)
{
    for (unsigned first = 0; first < 256; first += 16) {
        std::string content, hexColumn, characters;
        for (unsigned i = 0; i < 16; i++) {
            unsigned value = first + i;
            content += static_cast<char>(value);
            char digits[16];
            std::snprintf(digits, sizeof digits, "%02X", value);
            if (i != 0 && i % 4 == 0) hexColumn += ' ';
            hexColumn += digits;
            characters += value >= 0x20 && value <= 0x7E ? static_cast<char>(value) : '.';
        }
        Memory memory(content);
        Dump made = dump(memory, 16, 0);
        EXPECT_EQ(address(memory.at(0)) + hexColumn + " : " + characters + " \n", made.text);
    }
}

TEST(StorageDump, TranslateHasNoEffect)
{
    Memory memory(std::string("A\0\x81\xC1z", 5));
    Dump plain = dump(memory, 5, 0, 16, 0);
    EXPECT_EQ(plain.text, dump(memory, 5, 0, 16, 1).text);
    EXPECT_EQ(plain.text, dump(memory, 5, 0, 16, -1).text);
    EXPECT_NE(std::string::npos, plain.text.find(" : A...z\n"));
}

TEST(StorageDump, OtherWidthsKeepGroupsOfFourAndSixteen)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmn");
    Dump eight = dump(memory, 10, 0, 8);
    EXPECT_EQ(10, eight.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748 : ABCDEFGH\n" + address(memory.at(8)) + "494A" + std::string(13, ' ') + " : IJ\n", eight.text);

    Dump five = dump(memory, 5, 0, 5);
    EXPECT_EQ(5, five.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45 : ABCDE\n", five.text);

    // a second blank after every 16th byte of the hex column, one in the character column
    Dump twenty = dump(memory, 22, 0, 20);
    EXPECT_EQ(22, twenty.result);
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748 494A4B4C 4D4E4F50  51525354 : ABCDEFGHIJKLMNOP QRST\n"
            + address(memory.at(20)) + "5556" + std::string(41, ' ') + " : UV\n",
        twenty.text);

    Dump thirtyTwo = dump(memory, 32, 0, 32);
    EXPECT_EQ(32, thirtyTwo.result);
    EXPECT_EQ(address(memory.at(0))
            + "41424344 45464748 494A4B4C 4D4E4F50  51525354 55565758 595A6162 63646566 : ABCDEFGHIJKLMNOP QRSTUVWXYZabcdef \n",
        thirtyTwo.text);
}

TEST(StorageDump, NeitherLengthNorStopWordWritesNothing)
{
    Memory memory("ABCDEFGH");
    Dump made = dump(memory, 0, 0);
    EXPECT_EQ(0, made.result);
    EXPECT_EQ("", made.text);
}

TEST(StorageDump, TheDumpIsWrittenAtLevelZeroAndHoldsNoLock)
{
    Memory memory("ABCD");
    TraceFile trace(0);
    ASSERT_EQ(0, requestLock(&traceLock));
    EXPECT_EQ(4, traceOutStorage(memory.at(0), 4, 0, 16, 0));
    ASSERT_EQ(0, releaseLock(&traceLock));
    EXPECT_EQ(1u, splitLines(trace.text()).size());
}

TEST(StorageDump, TheHexColumnAloneReturnsWhatBelongsToTheData)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    TraceFile trace(0);
    EXPECT_EQ(16, writeStorageLineHex(memory.at(0), 16, 20, 0));
    EXPECT_EQ("41424344 45464748 494A4B4C 4D4E4F50", flushed(trace));
    trace.forget();
    EXPECT_EQ(16, writeStorageLineHex(memory.at(0), 16, 16, 0)) << "the end at the width is never reached";
    EXPECT_EQ("41424344 45464748 494A4B4C 4D4E4F50", flushed(trace));
    trace.forget();
    EXPECT_EQ(3, writeStorageLineHex(memory.at(0), 16, 3, 0));
    EXPECT_EQ("414243                             ", flushed(trace));
    trace.forget();
    memory.putStop(7);
    EXPECT_EQ(7, writeStorageLineHex(memory.at(0), 16, 0, stop));
    EXPECT_EQ("41424344 454647                    ", flushed(trace));
    trace.forget();
    EXPECT_EQ(0, writeStorageLineHex(memory.at(7), 8, 0, stop));
    EXPECT_EQ(memory.hex(7, 4) + " 4C4D4E4F", flushed(trace));
}

TEST(StorageDump, TheCharacterColumnAloneReturnsWhereTheDataEndedOrZero)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    TraceFile trace(0);
    EXPECT_EQ(0, writeStorageLineChar(memory.at(0), 16, 20, 0, 0)) << "no end in this line";
    EXPECT_EQ("ABCDEFGHIJKLMNOP ", flushed(trace));
    trace.forget();
    EXPECT_EQ(0, writeStorageLineChar(memory.at(0), 16, 16, 0, 0));
    EXPECT_EQ("ABCDEFGHIJKLMNOP ", flushed(trace));
    trace.forget();
    EXPECT_EQ(3, writeStorageLineChar(memory.at(0), 16, 3, 0, 1));
    EXPECT_EQ("ABC", flushed(trace));
    trace.forget();
    memory.putStop(7);
    EXPECT_EQ(7, writeStorageLineChar(memory.at(0), 16, 0, stop, 0));
    EXPECT_EQ("ABCDEFG", flushed(trace));
    trace.forget();
    EXPECT_EQ(0, writeStorageLineChar(memory.at(7), 16, 0, stop, 0));
    EXPECT_EQ("", flushed(trace));
}

TEST(StorageDump, ALineAloneIsAddressBothColumnsAndNewline)
{
    Memory memory("ABCDEFGHIJKLMNOPQRST");
    TraceFile trace(0);
    EXPECT_EQ(16, writeStorageLineDual(memory.at(0), 16, 20, 0, 0));
    EXPECT_EQ(address(memory.at(0)) + "41424344 45464748 494A4B4C 4D4E4F50 : ABCDEFGHIJKLMNOP \n", flushed(trace));
    trace.forget();
    EXPECT_EQ(4, writeStorageLineDual(memory.at(16), 16, 4, 0, 0));
    EXPECT_EQ(address(memory.at(16)) + "51525354                            : QRST\n", flushed(trace));
    trace.forget();
    memory.putStop(2);
    memory.putStop(12);
    EXPECT_EQ(12, writeStorageLineDual(memory.at(0), 16, 0, stop, 0));
    EXPECT_EQ(address(memory.at(0)) + "4142                                : AB\n", flushed(trace));
}

// A stop word that the dump meets at the last byte of a line after an earlier one: the count is that of the line's last
// match, never the width, so the dump ends.
TEST(StorageDump, TwoStopWordsEndTheDumpEvenWhenTheLaterCrossesTheLine)
{
    Memory memory("ABCDEFGHIJKLMNOPQRSTUVWX");
    memory.putStop(1);
    memory.putStop(15);
    Dump made = dump(memory, 0, stop);
    EXPECT_EQ(15, made.result);
    EXPECT_EQ(1u, splitLines(made.text).size());
}

TEST(StorageDump, OfOneColumnIsALineForEachByte)
{
    Memory memory("ABC");
    Dump made = dump(memory, 3, 0, 1);
    EXPECT_EQ(3, made.result);
    EXPECT_EQ(3u, splitLines(made.text).size());
}

// What a process that dies in the middle leaves of a dump is complete up to the last byte.
TEST(StorageDump, FlushesEachHexByte)
{
    Memory memory("ABCDEFGH");
    std::vector<std::string> writes;
    cookie_io_functions_t functions = {};
    functions.write = [](void* cookie, const char* bytes, size_t count) {
        static_cast<std::vector<std::string>*>(cookie)->emplace_back(bytes, count);
        return static_cast<ssize_t>(count);
    };
    FILE* const before = statAPITraceHandle;
    statAPITraceHandle = fopencookie(&writes, "w", functions);
    ASSERT_NE(nullptr, statAPITraceHandle);
    EXPECT_EQ(8, writeStorageLineHex(memory.at(0), 8, 8, 0));
    fclose(statAPITraceHandle);
    statAPITraceHandle = before;
    EXPECT_EQ((std::vector<std::string>{"41", "42", "43", "44", " 45", "46", "47", "48"}), writes);
}

TEST(StorageDump, WithoutAnythingToShowWritesNothing)
{
    Memory memory("ABCDEFGH");
    TraceFile trace(0);
    EXPECT_EQ(0, traceOutStorage(nullptr, 8, 0, 16, 0)) << "no data";
    EXPECT_EQ(0, traceOutStorage(memory.at(0), 8, 0, 0, 0)) << "no width";
    EXPECT_EQ(0, traceOutStorage(memory.at(0), 0, 0, 16, 0)) << "no end";
    EXPECT_EQ(0, writeStorageLineHex(memory.at(0), 0, 8, 0));
    EXPECT_EQ(0, writeStorageLineChar(memory.at(0), 0, 8, 0, 0));
    EXPECT_EQ("", flushed(trace));
}
