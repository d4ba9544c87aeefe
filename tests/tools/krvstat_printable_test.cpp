// What reaches a terminal of the bytes that a gateway sends.

#include "printable.h"

#include <gtest/gtest.h>

#include <clocale>

namespace {

using namespace std::string_view_literals;

class KrvstatPrintable : public testing::Test {
protected:
    void TearDown() override
    {
        std::setlocale(LC_CTYPE, "C");
    }
    static void useUtf8()
    {
        ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    }
};

TEST_F(KrvstatPrintable, PlainTextStaysAsItIs)
{
    const Printable shown = printable("Read: 12.5 MB/s, ~[ok]");
    EXPECT_EQ(shown.text, "Read: 12.5 MB/s, ~[ok]");
    EXPECT_EQ(shown.columns, 22U);
    EXPECT_EQ(printable("").text, "");
    EXPECT_EQ(printable("").columns, 0U);
}

TEST_F(KrvstatPrintable, EveryControlCharacterIsEscaped)
{
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const std::string shown = printable(std::string_view(&c, 1)).text;
        if (byte == '\\') {
            EXPECT_EQ(shown, "\\\\");
        } else if (byte >= 0x20 && byte < 0x7f) {
            EXPECT_EQ(shown, std::string(1, c));
        } else {
            char expected[5];
            std::snprintf(expected, sizeof expected, "\\x%02x", static_cast<unsigned>(byte));
            EXPECT_EQ(shown, expected);
        }
    }
}

TEST_F(KrvstatPrintable, ColumnsCountWhatIsShown)
{
    EXPECT_EQ(printable("a\tb"sv).text, "a\\x09b");
    EXPECT_EQ(printable("a\tb"sv).columns, 6U);
    EXPECT_EQ(printable("a\0b"sv).text, "a\\x00b");
    EXPECT_EQ(printable("\\x09").text, "\\\\x09"); // not to be taken for a tabulator
    EXPECT_EQ(printable("\\x09").columns, 5U);
}

TEST_F(KrvstatPrintable, CharactersOfTheLocaleStayAndKeepTheirWidth)
{
    useUtf8();
    EXPECT_EQ(printable("Z\u00fcrich").text, "Z\u00fcrich");
    EXPECT_EQ(printable("Z\u00fcrich").columns, 6U);
    EXPECT_EQ(printable("\u6f22\u5b57").text, "\u6f22\u5b57");
    EXPECT_EQ(printable("\u6f22\u5b57").columns, 4U); // two columns each
}

TEST_F(KrvstatPrintable, CharactersThatTheLocaleCannotPrintAreEscaped)
{
    EXPECT_EQ(printable("Z\u00fcrich").text, "Z\\xc3\\xbcrich"); // the C locale
}

TEST_F(KrvstatPrintable, InvalidAndInvisibleCharactersAreEscapedByteByByte)
{
    useUtf8();
    EXPECT_EQ(printable("\xff\x41").text, "\\xffA");
    EXPECT_EQ(printable("\xc3").text, "\\xc3");             // cut in the middle
    EXPECT_EQ(printable("\xc0\xaf").text, "\\xc0\\xaf");    // overlong
    EXPECT_EQ(printable("\u0085").text, "\\xc2\\x85");      // a control character of two bytes
    EXPECT_EQ(printable("\u202e").text, "\\xe2\\x80\\xae"); // turns the direction of writing
}

TEST_F(KrvstatPrintable, TextThatFitsIsNotCut)
{
    EXPECT_EQ(printableWithin("12345678", 8).text, "12345678");
    EXPECT_EQ(printableWithin("", 3).text, "");
}

TEST_F(KrvstatPrintable, TextThatDoesNotFitEndsInDots)
{
    const Printable cut = printableWithin("123456789", 8);
    EXPECT_EQ(cut.text, "12345...");
    EXPECT_EQ(cut.columns, 8U);
    EXPECT_EQ(printableWithin("1234", 3).text, "...");
}

TEST_F(KrvstatPrintable, NoEscapeAndNoWideCharacterIsCutInTwo)
{
    EXPECT_EQ(printableWithin("123\n567890", 9).text, "123..."); // "\x0a" would need one column more
    EXPECT_EQ(printableWithin("123\n567890", 10).text, "123\\x0a...");
    useUtf8();
    const Printable cut = printableWithin("a\u6f22\u5b57\u6f22", 6);
    EXPECT_EQ(cut.text, "a\u6f22...");
    EXPECT_EQ(cut.columns, 6U);
    EXPECT_EQ(printableWithin("a\u6f22\u5b57\u6f22", 5).columns, 4U); // the half of a character is not shown
}

TEST_F(KrvstatPrintable, WhatStandsInQuotesIsEscaped)
{
    EXPECT_EQ(inQuotes("a\x1b[2Jb"), "'a\\x1b[2Jb'");
}

} // namespace
