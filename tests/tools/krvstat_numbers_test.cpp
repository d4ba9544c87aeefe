// Numbers, lengths of time, ranges, base64 and misspellings: the small parts by themselves.

#include "base64.h"
#include "duration.h"
#include "graph.h"
#include "number.h"
#include "ranges.h"
#include "similar.h"

#include <gtest/gtest.h>

namespace {

TEST(KrvstatNumbers, AreReadIfTheWholeTextIsOne)
{
    EXPECT_EQ(readNumber("42"), 42.0L);
    EXPECT_EQ(readNumber("-0.5"), -0.5L);
    EXPECT_EQ(readNumber("+7"), 7.0L);
    EXPECT_EQ(readNumber("1e3"), 1000.0L);
    EXPECT_EQ(readNumber("007"), 7.0L);
    for (const char* text : {"", "-", "x", "1 ", " 1", "1x", "nan", "inf", "-inf", ".5", "--1", "+-1", "0x10"}) {
        EXPECT_FALSE(readNumber(text)) << text;
    }
}

TEST(KrvstatNumbers, OfTheGreatestCountersDifferenceIsExact)
{
    // valgrind computes with fewer digits than the compiler knows of.
    const volatile long double greatest = 18446744073709551615.0L;
    const bool hasAllDigits = greatest - 1 != greatest;
    EXPECT_EQ(numberText(*readNumber("18446744073709551615") - *readNumber("18446744073709551614"), Units::Raw),
        hasAllDigits ? "1" : "0");
}

TEST(KrvstatNumbers, AreWrittenForPeople)
{
    EXPECT_EQ(numberText(0, Units::Si), "0");
    EXPECT_EQ(numberText(999, Units::Si), "999");
    EXPECT_EQ(numberText(1000, Units::Si), "1k");
    EXPECT_EQ(numberText(1234, Units::Si), "1.23k");
    EXPECT_EQ(numberText(12345, Units::Si), "12.3k");
    EXPECT_EQ(numberText(123456, Units::Si), "123k");
    EXPECT_EQ(numberText(999999, Units::Si), "1M");
    EXPECT_EQ(numberText(-1500000, Units::Si), "-1.5M");
    EXPECT_EQ(numberText(1024, Units::Iec), "1Ki");
    EXPECT_EQ(numberText(1023, Units::Iec), "1023");
    EXPECT_EQ(numberText(1610612736, Units::Iec), "1.5Gi");
    EXPECT_EQ(numberText(1.25L, Units::Raw), "1.25");
    EXPECT_EQ(rateText(1.0L / 3, Units::Raw), "0.333");
    EXPECT_EQ(rateText(250, Units::Raw), "250");
}

TEST(KrvstatDurations, AreReadWithTheirUnits)
{
    const auto read = [](const char* text) {
        Milliseconds duration{-1};
        EXPECT_EQ(readDuration(text, &duration), "") << text;
        return duration.count();
    };
    EXPECT_EQ(read("2"), 2000);
    EXPECT_EQ(read("500ms"), 500);
    EXPECT_EQ(read("1.5s"), 1500);
    EXPECT_EQ(read("2m"), 120000);
    EXPECT_EQ(read("1h"), 3600000);
    EXPECT_EQ(read("1d"), 86400000);
    for (const char* text : {"", "s", "-1", "1 s", "1x", "0", "0.5ms", "25d", "1e3", "inf"}) {
        Milliseconds duration{-1};
        EXPECT_NE(readDuration(text, &duration), "") << text;
        EXPECT_EQ(duration.count(), -1) << text;
    }
}

TEST(KrvstatRanges, EndsBelongToThem)
{
    const auto alarms = [](const char* text, Number number) {
        Range range;
        EXPECT_EQ(readRange(text, &range), "") << text;
        return raisesAlarm(range, number);
    };
    EXPECT_FALSE(alarms("10", 0));
    EXPECT_FALSE(alarms("10", 10));
    EXPECT_TRUE(alarms("10", 10.1L));
    EXPECT_TRUE(alarms("10", -0.1L));
    EXPECT_FALSE(alarms("10:", 10));
    EXPECT_TRUE(alarms("10:", 9));
    EXPECT_FALSE(alarms("~:10", -1000));
    EXPECT_TRUE(alarms("~:10", 11));
    EXPECT_FALSE(alarms("10:20", 20));
    EXPECT_TRUE(alarms("10:20", 21));
    EXPECT_TRUE(alarms("@10:20", 10));
    EXPECT_FALSE(alarms("@10:20", 9));
    for (const char* text : {"", "@", ":", "x", "1:x", "20:10", "1:2:3"}) {
        Range range;
        EXPECT_NE(readRange(text, &range), "") << text;
    }
}

TEST(KrvstatBase64, ComesBackAsItWas)
{
    EXPECT_EQ(toBase64(""), "");
    EXPECT_EQ(toBase64("f"), "Zg==");
    EXPECT_EQ(toBase64("fo"), "Zm8=");
    EXPECT_EQ(toBase64("foo"), "Zm9v");
    EXPECT_EQ(toBase64("\xff\xfe\xfd\xfc"), "//79/A==");
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    for (std::size_t length = 0; length <= all.size(); ++length) {
        std::string back;
        EXPECT_TRUE(fromBase64(toBase64(all.substr(0, length)), &back));
        EXPECT_EQ(back, all.substr(0, length));
    }
    for (const char* text : {"Z", "Zg=", "Z===", "====", "Zm9v=", "Zm 9", "Zg==Zg=="}) {
        std::string untouched = "before";
        EXPECT_FALSE(fromBase64(text, &untouched)) << text;
        EXPECT_EQ(untouched, "before");
    }
}

TEST(KrvstatSimilar, IsTheNameWithTheFewestChanges)
{
    const std::vector<std::string> names = {"cpu.user", "cpu.idle", "memory.total", "a"};
    EXPECT_EQ(mostSimilar("cpu.usr", names), "cpu.user");
    EXPECT_EQ(mostSimilar("cpu.uesr", names), "cpu.user");
    EXPECT_EQ(mostSimilar("CPU.IDLE", names), "cpu.idle");
    EXPECT_EQ(mostSimilar("memorytotal", names), "memory.total");
    EXPECT_EQ(mostSimilar("disk", names), "");
    EXPECT_EQ(mostSimilar("b", names), "");
    EXPECT_EQ(mostSimilar("", names), "");
    EXPECT_EQ(mostSimilar("x", {}), "");
}

TEST(KrvstatGraph, GoesFromTheLeastToTheGreatest)
{
    const History rising = {0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(graphOf(rising, 20, false), "12345678");
    EXPECT_EQ(graphOf(rising, 3, false), "158");
    EXPECT_EQ(graphOf(rising, 8, true), "▁▂▃▄▅▆▇█");
    EXPECT_EQ(graphOf({5, 5, 5}, 20, false), "111");
    EXPECT_EQ(graphOf({std::nullopt, 1, std::nullopt, 2}, 20, false), " 1 8");
    EXPECT_EQ(graphOf({}, 20, false), "");
    EXPECT_EQ(graphOf(rising, 0, false), "");
}

TEST(KrvstatGraph, ForgetsWhatIsOld)
{
    History history;
    for (int i = 0; i < 1000; ++i) addToHistory(&history, i);
    EXPECT_EQ(history.size(), LongestHistory);
    EXPECT_EQ(*history.back(), 999);
}

} // namespace
