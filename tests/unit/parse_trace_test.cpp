// What the parsers write to the trace.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "parse_runs.h"
#include "trace_claims.h"

namespace krvtest {

namespace {

const std::string statsPrefix = "stapi_krv_statcomms.parseStatsData";
const std::string idsPrefix = "stapi_krv_statcomms.parseIdsData";

struct ExpectedLine {
    int number;
    std::string message; // behind the prefix
};

// These lines are there, in this order; others may stand between them.
void expectInOrder(const std::vector<TraceLine>& lines, const std::string& prefix,
                   const std::vector<ExpectedLine>& expected, const std::string& trace)
{
    std::size_t at = 0;
    for (const ExpectedLine& each : expected) {
        while (at < lines.size() && (lines[at].number != each.number || lines[at].message != prefix + each.message)) at++;
        ASSERT_LT(at, lines.size()) << "not there in this order: " << each.number << " [" << each.message << "]\n" << trace;
        EXPECT_EQ("DEBUG", lines[at].kind);
        at++;
    }
}

int countNumber(const std::vector<TraceLine>& lines, int number)
{
    return static_cast<int>(linesNumbered(lines, number).size());
}

// A plain value, one that fits its chunk, one in segments; then a response that failed.
Bytes statsReply()
{
    StatElement fits = chunkedElement("id22", "12345", {});
    fits.statedChunkLength = 20;
    StatElement continued = chunkedElement("id333", "ab", {{blockLong, "cdef"}, {blockLong, "ghi"}, {blockShort, "jklm"}});
    return encodeReply({ReplyKind::Statistics, 1, true, 0,
                        {statsResponse("S", 0, {plainElement("id1", "value")}), statsResponse("bad", -5, {}),
                         statsResponse("T", 3, {fits, continued})},
                        11});
}

} // namespace

TEST(ParseTrace, OfAStatisticsReply)
{
    ParseBuffer buffer;
    Bytes data = statsReply();
    TraceFile trace(4);
    ASSERT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), statsPrefix);
    ASSERT_GE(lines.size(), 2u) << trace.text();
    EXPECT_EQ(2220, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ(2223, lines.back().number);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << lines.back().text;
    expectInOrder(lines, statsPrefix,
                  {
                      {2221, " received 3 responses from the Gateway"},
                      {2222, " reading 1 stats for result 0"},
                      {2231, " block type=00000077 "},
                      {2233, " statistic ID length=3 "},
                      {2239, " statistic data length=5 "},
                      {2238, " written 5 bytes.  "},
                      {2222, " reading 2 stats for result 2"},
                      {2231, " block type=0000007A "},
                      {2232, " chunklength=20 "},
                      {2233, " statistic ID length=4 "},
                      {2239, " statistic data length=5 "},
                      {2238, " written 5 bytes.  "},
                      {2231, " block type=0000007A "},
                      {2232, " chunklength=11 "},
                      {2233, " statistic ID length=5 "},
                      {2239, " statistic data length=13 "},
                      {2234, " written 2 of 13 bytes. Remaining data = 11 bytes "},
                      {2235, " written 4 bytes. Remaining data = 7 bytes "},
                      {2236, " block type=0000007A "},
                      {2235, " written 3 bytes. Remaining data = 4 bytes "},
                      {2236, " block type=00000077 "},
                      {2237, " written 4 bytes. Remaining data = 0 bytes "},
                  },
                  trace.text());
    EXPECT_EQ(1, countNumber(lines, 2221));
    EXPECT_EQ(2, countNumber(lines, 2222));
    EXPECT_EQ(2, countNumber(lines, 2232));
    EXPECT_EQ(3, countNumber(lines, 2233));
    EXPECT_EQ(3, countNumber(lines, 2239));
    EXPECT_EQ(2, countNumber(lines, 2238));
    EXPECT_EQ(1, countNumber(lines, 2234));
    EXPECT_EQ(2, countNumber(lines, 2235));
    EXPECT_EQ(1, countNumber(lines, 2237));
    EXPECT_EQ(1, countNumber(lines, 2241));
    EXPECT_GE(countNumber(lines, 2240), 1);
    for (const TraceLine& line : lines) {
        if (line.number == 2240) {
            EXPECT_TRUE(line.message.starts_with(statsPrefix + " running total of parsed data = ")) << line.text;
            EXPECT_TRUE(line.message.ends_with(" bytes ")) << line.text;
        }
        if (line.number == 2241) {
            EXPECT_TRUE(line.message.starts_with(statsPrefix + " parsed data total = ")) << line.text;
            EXPECT_TRUE(line.message.ends_with(" bytes ")) << line.text;
        }
    }
}

TEST(ParseTrace, OfAStatisticsReplyHasOnlyItsOwnNumbers)
{
    ParseBuffer buffer(64);
    Bytes data = statsReply();
    TraceFile trace(4);
    ASSERT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
    std::set<int> allowed{2220, 2221, 2222, 2223, 2231, 2232, 2233, 2234, 2235, 2236, 2237, 2238, 2239, 2240, 2241};
    int grown = 0;
    for (const TraceLine& line : trace.lines()) {
        if (line.message.starts_with(statsPrefix)) {
            EXPECT_TRUE(allowed.contains(line.number)) << line.text;
        } else if (line.number == 2244 || line.number == 2245) {
            grown++;
        } else {
            EXPECT_TRUE(line.number >= 2100 && line.number <= 2126) << line.text;
        }
    }
    EXPECT_EQ(2 * decodeReply(ReplyKind::Statistics, data, 64).growths, grown);
}

TEST(ParseTrace, OfAnIdReply)
{
    ParseBuffer buffer;
    Bytes data = encodeReply({ReplyKind::Ids, 1, true, 0,
                              {idsResponse("A", 0, {"a", "b"}), idsResponse("B", -5, {}), idsResponse("C", 300, {"c"})},
                              11});
    TraceFile trace(4);
    ASSERT_EQ(0, parseIdsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), idsPrefix);
    ASSERT_EQ(9u, lines.size()) << trace.text();
    EXPECT_EQ(2224, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ(2229, lines.back().number);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << lines.back().text;
    expectInOrder(lines, idsPrefix,
                  {
                      {2225, " received 3 responses from the Gateway"},
                      {2226, " Query rc=0 or (hex=00000000)"},
                      {2227, " reading 2 IDs for result 0"},
                      {2226, " Query rc=-5 or (hex=FFFFFFFB)"},
                      {2228, " Bad query id element(1), move on to next one"},
                      {2226, " Query rc=300 or (hex=0000012C)"},
                      {2227, " reading 1 IDs for result 2"},
                  },
                  trace.text());
}

TEST(ParseTrace, EntryAndExitNameTheArguments)
{
    ParseBuffer buffer;
    Bytes data = hex("01 00 00 00 00");
    char* raw = reinterpret_cast<char*>(data.data());
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        TraceFile trace(3);
        ASSERT_EQ(0, kind == ReplyKind::Ids ? parseIdsData(raw, &buffer.block, &buffer.capacity)
                                            : parseStatsData(raw, &buffer.block, &buffer.capacity));
        std::vector<TraceLine> lines = linesFrom(trace.lines(), kind == ReplyKind::Ids ? idsPrefix : statsPrefix);
        ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
        EXPECT_NE(std::string::npos, lines[0].message.find(pointerText(raw))) << lines[0].text;
        EXPECT_TRUE(lines[1].message.ends_with("rc=0")) << lines[1].text;
    }
}

TEST(ParseTrace, IsSilentBelowItsLevels)
{
    ParseBuffer buffer(64);
    Bytes data = statsReply();
    for (int level = 0; level <= 2; level++) {
        TraceFile trace(level);
        ASSERT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
        EXPECT_EQ("", trace.text());
    }
    TraceFile trace(3);
    ASSERT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
    for (const TraceLine& line : trace.lines()) EXPECT_TRUE(line.kind == "ENTRY" || line.kind == "EXIT") << line.text;
}

// At level 3, where the writers show themselves: each piece by its own, in the order of the buffer.
TEST(ParseTrace, ShowsTheOrderInWhichTheBufferIsWritten)
{
    constexpr int integer = 2108, chars = 2111, eyecatcher = 2116, terminator = 2120;
    const std::vector<int> expected = {
        terminator, eyecatcher, integer,             // number of responses
        integer, chars, integer, integer,            // element, its rc, its count
        integer, chars, integer, chars,              // id and value
        integer, chars, integer, chars,              //
        terminator,
    };
    ParseBuffer buffer;
    Bytes data = encodeReply({ReplyKind::Statistics, 0, true, 0,
                              {statsResponse("S", 0, {plainElement("a", "1"), plainElement("b", "2")})}, 11});
    TraceFile trace(3);
    ASSERT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer.block, &buffer.capacity));
    std::vector<int> entries;
    for (const TraceLine& line : trace.lines())
        if (line.kind == "ENTRY" && line.number / 100 == 21) entries.push_back(line.number);
    EXPECT_EQ(expected, entries);
}

} // namespace krvtest
