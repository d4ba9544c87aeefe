// Trace lines: their form to the byte, which kinds a level lets through, timestamps, and many threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "failing_calls.h"
#include "fixed_clock.h"
#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_socketcomms.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr char lineTemplate[] = "%s [0x%8.8X,0x%8.8X] [%4.4d] %-6.6s ";

// 5 March 2024, 09:07:02 UTC
constexpr std::time_t marchMorning = 1709629622;

// Provokes lines of every kind; the DATA line by sending to a descriptor that is not there.
void provokeAllKinds()
{
    getAPITraceLevel(nullptr);
    closeAllGatewayConnections();
    char* version = nullptr;
    getStatsAPIVersion(&version);
    char* copy = nullptr;
    char original[] = "text";
    if (dup2NativeString(original, &copy) == 0) std::free(copy);
    char* data = static_cast<char*>(std::malloc(20));
    std::memcpy(data, "ABCDEFGHIJKLMNOPQRST", 20);
    GatewayRequest header = {};
    ReasonCodes reasons = {};
    char name[] = "Auth";
    flow(-1, 20, &data, name, &header, &reasons);
    std::free(data);
}

std::map<std::string, int> kindsOf(const std::vector<TraceLine>& lines)
{
    std::map<std::string, int> kinds;
    for (const TraceLine& line : lines) kinds[line.kind]++;
    return kinds;
}

// A picture of a line up to its message: 9 a decimal digit, F an upper-case hexadecimal one, K part of the kind.
bool followsTemplate(const std::string& line)
{
    const std::string picture = "99/99/99 99:99:99:999 [0xFFFFFFFF,0xFFFFFFFF] [9999] KKKKKK ";
    if (line.size() <= picture.size()) return false;
    for (std::size_t i = 0; i < picture.size(); i++) {
        const char c = line[i];
        const bool digit = c >= '0' && c <= '9';
        switch (picture[i]) {
        case '9':
            if (!digit) return false;
            break;
        case 'F':
            if (!digit && (c < 'A' || c > 'F')) return false;
            break;
        case 'K':
            break;
        default:
            if (c != picture[i]) return false;
        }
    }
    const std::set<std::string> kinds = {"*EXC* ", "EVENT ", "ENTRY ", "EXIT  ", "DEBUG ", "DATA  "};
    return kinds.contains(line.substr(53, 6)) && line[picture.size()] != ' ';
}

} // namespace

TEST(TraceLines, AnExceptionLineIsToTheByte)
{
    TimeZone utc("UTC");
    TraceFile trace(1);
    fixClock(marchMorning, 45);
    getAPITraceLevel(nullptr);
    EXPECT_GT(fixedClock.reads, 0);
    releaseClock();
    char expected[256];
    std::snprintf(expected, sizeof expected, "05/03/24 09:07:02:045 [0x%08X,0x%08X] [1092] *EXC*  API.getAPITraceLevel() Supplied pointer is NULL\n",
        static_cast<unsigned>(getpid()), static_cast<unsigned>(pthread_self()));
    EXPECT_EQ(expected, trace.text());
}

TEST(TraceLines, KindsArePaddedToSixColumns)
{
    TraceFile trace(4);
    provokeAllKinds();
    std::set<std::string> columns;
    for (const TraceLine& line : trace.lines())
        if (line.number != 0) columns.insert(line.text.substr(53, 7));
    EXPECT_EQ((std::set<std::string>{"*EXC*  ", "DATA   ", "DEBUG  ", "ENTRY  ", "EVENT  ", "EXIT   "}), columns);
}

TEST(TraceLines, EveryLineFollowsTheTemplateAndEndsInOneNewline)
{
    TraceFile trace(5);
    provokeAllKinds();
    std::string text = trace.text();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ('\n', text.back());
    int lines = 0;
    for (const std::string& line : splitLines(text)) {
        EXPECT_NE("", line) << "an empty line: a second newline";
        if (isDumpLine(line)) continue;
        EXPECT_TRUE(followsTemplate(line)) << line;
        lines++;
    }
    EXPECT_GT(lines, 10);
}

TEST(TraceLines, EachLevelLetsThroughItsKindsAndNoOther)
{
    const std::vector<std::set<std::string>> expected = {
        {},
        {"*EXC*"},
        {"*EXC*", "EVENT"},
        {"*EXC*", "EVENT", "ENTRY", "EXIT"},
        {"*EXC*", "EVENT", "ENTRY", "EXIT", "DEBUG", "DATA"},
        {"*EXC*", "EVENT", "ENTRY", "EXIT", "DEBUG", "DATA"},
    };
    std::vector<std::map<std::string, int>> seen;
    for (int level = 0; level <= 5; level++) {
        TraceFile trace(level);
        provokeAllKinds();
        std::vector<TraceLine> lines = trace.lines();
        for (const TraceLine& line : lines) EXPECT_NE(0, line.number) << "level " << level << ": " << line.text;
        seen.push_back(kindsOf(lines));
        std::set<std::string> kinds;
        for (const auto& [kind, count] : seen.back()) kinds.insert(kind);
        EXPECT_EQ(expected[static_cast<std::size_t>(level)], kinds) << "level " << level;
    }
    for (std::size_t level = 1; level < 5; level++)
        for (const auto& [kind, count] : seen[level])
            EXPECT_EQ(count, seen[5][kind]) << "a higher level shows no fewer " << kind << " lines and no more";
    EXPECT_EQ(seen[4], seen[5]);
}

TEST(TraceLines, ADataLineIsFollowedAtOnceByItsDump)
{
    TraceFile trace(4);
    provokeAllKinds();
    std::vector<TraceLine> data = linesNumbered(trace.lines(), 3226);
    ASSERT_EQ(1u, data.size());
    EXPECT_EQ("DATA", data[0].kind);
    EXPECT_TRUE(data[0].message.starts_with("stapi_krv_socketcomms.flow data=0x")) << data[0].message;
    EXPECT_TRUE(data[0].message.ends_with(" len=20 stopword=00000000")) << data[0].message;
    ASSERT_EQ(2u, data[0].dump.size());
    EXPECT_EQ("41424344 45464748 494A4B4C 4D4E4F50 : ABCDEFGHIJKLMNOP ", data[0].dump[0].substr(12));
    EXPECT_EQ("51525354                            : QRST", data[0].dump[1].substr(12));
}

TEST(TraceLines, ALongArgumentIsPrintedWhole)
{
    std::string name = "/" + std::string(3000, 'n');
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, setAPITraceFile(name.data()));
    std::vector<TraceLine> lines = linesNumbered(trace.lines(), 1100);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("API.setAPITraceFile(" + name + ") file append failed with errno=" + std::to_string(ENAMETOOLONG)
            + ". Trace file destination is unchanged. Filename=" + trace.path(),
        lines[0].message);
}

TEST(TraceLines, AnArgumentWithConversionsIsNotInterpreted)
{
    char name[] = "/nonexistent/%s%n%d%%";
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, setAPITraceFile(name));
    EXPECT_NE(std::string::npos, trace.text().find("API.setAPITraceFile(/nonexistent/%s%n%d%%) file append failed"));
}

TEST(TraceLines, TheTemplateHasItsFieldsAndIsNeverChanged)
{
    EXPECT_EQ(0u, offsetof(formatStringType, timeStamp));
    EXPECT_EQ(3u, offsetof(formatStringType, pidTid));
    EXPECT_EQ(21u, offsetof(formatStringType, tpid));
    EXPECT_EQ(29u, offsetof(formatStringType, traceType));
    EXPECT_EQ(36u, offsetof(formatStringType, msg));
    EXPECT_EQ(292u, sizeof(formatStringType));
    ASSERT_EQ(36u, std::strlen(lineTemplate));
    EXPECT_EQ(0, std::memcmp(lineTemplate, &traceFmtStr, 36)) << "before any line";
    TraceFile trace(4);
    provokeAllKinds();
    ASSERT_NE("", trace.text());
    EXPECT_EQ(0, std::memcmp(lineTemplate, &traceFmtStr, 36)) << "after lines of every kind";
}

TEST(TraceLines, TheSharedStateDescribesTheLastLine)
{
    TraceFile trace(1);
    getAPITraceLevel(nullptr);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(lines[0].timestamp, timeStamp);
    EXPECT_EQ(getpid(), tracePid);
    EXPECT_TRUE(pthread_equal(pthread_self(), traceTid));
    EXPECT_EQ(static_cast<std::uint32_t>(pthread_self()), static_cast<std::uint32_t>(iTid));
    EXPECT_EQ(0, std::strncmp("API.getAPITraceLevel() Supplied pointer is NULL\n", traceFmtStr.msg, sizeof traceFmtStr.msg));
}

TEST(TraceLines, ALineNamesTheProcessAndThreadThatWroteIt)
{
    TraceFile trace(1);
    std::uint32_t other = 0;
    std::thread writer([&] {
        other = static_cast<std::uint32_t>(pthread_self());
        getAPITraceLevel(nullptr);
    });
    writer.join();
    getAPITraceLevel(nullptr);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(other, lines[0].tid);
    EXPECT_EQ(static_cast<std::uint32_t>(pthread_self()), lines[1].tid);
    for (const TraceLine& line : lines) EXPECT_EQ(static_cast<std::uint32_t>(getpid()), line.pid);
}

TEST(TraceLines, LinesOfManyThreadsAreNeverMixed)
{
    constexpr int threads = 8, calls = 100;
    TraceFile trace(4);
    std::vector<std::thread> writers;
    for (int i = 0; i < threads; i++)
        writers.emplace_back([] {
            for (int call = 0; call < calls; call++) provokeAllKinds();
        });
    for (std::thread& writer : writers) writer.join();
    std::vector<TraceLine> lines = trace.lines();

    trace.forget();
    provokeAllKinds();
    std::map<int, int> expected;
    for (const TraceLine& line : trace.lines()) expected[line.number] += threads * calls;

    std::map<int, int> written;
    for (const TraceLine& line : lines) {
        ASSERT_NE(0, line.number) << line.text;
        if (line.kind == "DATA") {
            ASSERT_EQ(2u, line.dump.size()) << "the dump follows its line at once";
        }
        written[line.number]++;
    }
    EXPECT_EQ(expected, written);
}

TEST(TraceLines, EachLineIsFlushedAndWrittenUnderTraceLock)
{
    TraceFile trace(1);
    Injected counted = withFailing(failingMutexLock, 0, [] { return getAPITraceLevel(nullptr); }, 1000);
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, counted.result);
    EXPECT_EQ(1, counted.seen);
    EXPECT_EQ(1u, trace.lines().size()) << "readable without a flush of our own";
}

TEST(TraceLines, AtLevelZeroNoLockIsTakenAndNothingWritten)
{
    TraceFile trace(0);
    Injected counted = withFailing(failingMutexLock, 0, [] {
        char* version = nullptr;
        int level = -1;
        return getStatsAPIVersion(&version) + getAPITraceLevel(&level) + getStatsAPIVersion(nullptr) + getAPITraceLevel(nullptr);
    }, 1000);
    EXPECT_EQ(2 * KRVSTAT_NULL_OUTPUT_POINTER, counted.result);
    EXPECT_EQ(0, counted.seen);
    EXPECT_EQ("", trace.text());
}

TEST(TraceLines, WriteErrorsAreIgnored)
{
    char full[] = "/dev/full";
    ASSERT_EQ(KRVSTAT_OK, setAPITraceFile(full));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(4));
    char* version = nullptr;
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
    EXPECT_STREQ("1_1_0_1", version);
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getAPITraceLevel(nullptr));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
}

TEST(TraceTime, TheTimestampHasTwentyOneCharactersAndThreeDigitsOfMilliseconds)
{
    TimeZone utc("UTC");
    char text[TRACE_TIMESTAMP_SIZE + 8];
    struct Case {
        std::time_t seconds;
        int milliseconds;
        const char* expected;
    };
    for (const Case& each : {Case{marchMorning, 45, "05/03/24 09:07:02:045"}, Case{marchMorning, 0, "05/03/24 09:07:02:000"},
             Case{marchMorning, 7, "05/03/24 09:07:02:007"}, Case{marchMorning, 999, "05/03/24 09:07:02:999"},
             Case{946684799, 500, "31/12/99 23:59:59:500"}, Case{4102444800, 1, "01/01/00 00:00:00:001"}}) {
        std::memset(text, '#', sizeof text);
        fixClock(each.seconds, each.milliseconds);
        getTimestamp(text);
        EXPECT_GT(fixedClock.reads, 0);
        releaseClock();
        EXPECT_STREQ(each.expected, text);
        EXPECT_EQ(21u, std::strlen(text));
        for (std::size_t i = TRACE_TIMESTAMP_SIZE; i < sizeof text; i++) EXPECT_EQ('#', text[i]) << "beyond its 24 bytes";
    }
}

TEST(TraceTime, TimestampAndDateAreLocal)
{
    TimeZone east("TST-5:30"); // UTC+5:30
    char text[TRACE_TIMESTAMP_SIZE];
    char date[TRACE_DATE_SIZE];
    fixClock(946684799, 3); // 31/12/1999 23:59:59 UTC
    getTimestamp(text);
    getTraceDate(date);
    releaseClock();
    EXPECT_STREQ("01/01/00 05:29:59:003", text);
    EXPECT_STREQ("01/01/00", date);
}

TEST(TraceTime, TheDateHasEightCharacters)
{
    TimeZone utc("UTC");
    char date[TRACE_DATE_SIZE + 4];
    std::memset(date, '#', sizeof date);
    fixClock(marchMorning, 45);
    getTraceDate(date);
    EXPECT_GT(fixedClock.reads, 0);
    releaseClock();
    EXPECT_STREQ("05/03/24", date);
    for (std::size_t i = TRACE_DATE_SIZE; i < sizeof date; i++) EXPECT_EQ('#', date[i]) << "beyond its 10 bytes";
}

TEST(TraceTime, TheTimestampIsTheTimeOfTheCall)
{
    TimeZone utc("UTC");
    std::time_t before = std::time(nullptr);
    char text[TRACE_TIMESTAMP_SIZE];
    getTimestamp(text);
    std::time_t after = std::time(nullptr);
    std::tm broken = {};
    ASSERT_NE(nullptr, strptime(text, "%d/%m/%y %H:%M:%S:", &broken));
    std::time_t stated = timegm(&broken);
    EXPECT_LE(before, stated);
    EXPECT_GE(after, stated);
}

TEST(TraceTime, EachLineCarriesItsOwnTimeButTheEntryOfDumpStateThatOfTheLineBefore)
{
    TimeZone utc("UTC");
    TraceFile trace(3);
    fixClock(marchMorning, 1);
    getAPITraceLevel(nullptr);
    fixClock(marchMorning + 60, 2);
    EXPECT_EQ(KRVSTAT_OK, dumpState());
    releaseClock();
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, linesNumbered(lines, 1092).size());
    EXPECT_EQ("05/03/24 09:07:02:001", linesNumbered(lines, 1092)[0].timestamp);
    ASSERT_EQ(1u, linesNumbered(lines, 1106).size());
    EXPECT_EQ("ENTRY", linesNumbered(lines, 1106)[0].kind);
    EXPECT_EQ("05/03/24 09:07:02:001", linesNumbered(lines, 1106)[0].timestamp);
    EXPECT_EQ(static_cast<std::uint32_t>(getpid()), linesNumbered(lines, 1106)[0].pid);
    ASSERT_EQ(1u, linesNumbered(lines, 1107).size());
    EXPECT_EQ("05/03/24 09:08:02:002", linesNumbered(lines, 1107)[0].timestamp);
}

TEST(TraceIdentity, ProcessAndThreadAreStoredWhereThereIsAPlace)
{
    ProcessId process = 0;
    ThreadId thread = {};
    getPidTid(&process, &thread);
    EXPECT_EQ(getpid(), process);
    EXPECT_TRUE(pthread_equal(pthread_self(), thread));

    process = 0;
    getPidTid(&process, nullptr);
    EXPECT_EQ(getpid(), process);
    thread = {};
    getPidTid(nullptr, &thread);
    EXPECT_TRUE(pthread_equal(pthread_self(), thread));
    getPidTid(nullptr, nullptr);
}

TEST(TraceIdentity, ThreadsAreComparedAsThreads)
{
    ThreadId own = pthread_self();
    EXPECT_EQ(1, compareTids(own, pthread_self()));
    int same = -1;
    std::thread other([&] { same = compareTids(own, pthread_self()); });
    other.join();
    EXPECT_EQ(0, same);
}

TEST(TraceState, TheNameOfTheDefaultDestinationAndTheUnusedDumpWord)
{
    EXPECT_STREQ("stderr", defaultTraceFilename);
    TraceFile trace(5);
    provokeAllKinds();
    EXPECT_EQ(0, statAPIDump);
}
