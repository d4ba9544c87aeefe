// Version, trace level and trace destination: results, lines, the trace header, and where the trace goes.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "failing_calls.h"
#include "fixed_clock.h"
#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwycon.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_statquery.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr std::time_t marchMorning = 1709629622; // 5 March 2024, UTC
const std::string header =
    "*** 05/03/24 QAL Korvane KRVSTATS DLL trace V" KRVSTATS_PRODUCT_VERSION " API V1_1_0_1 Build Level " KRVSTATS_BUILD_LEVEL " ***\n";

// Stands still on a day whose header is known.
class March {
public:
    March() : zone("UTC") { fixClock(marchMorning, 0); }
    ~March() { releaseClock(); }

private:
    TimeZone zone;
};

int level()
{
    int now = -1;
    EXPECT_EQ(KRVSTAT_OK, getAPITraceLevel(&now));
    return now;
}

std::size_t occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) count++;
    return count;
}

// The trace on standard error, at level 0 and without a header written, whatever ran before.
void toStandardError()
{
    ASSERT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    ScratchFolder scratch;
    ASSERT_EQ(KRVSTAT_OK, setAPITraceFile(scratch.path("elsewhere").data()));
    ASSERT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
}

std::size_t openDescriptors()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) count++;
    return count;
}

// A name of exactly this many characters for a file in this folder.
std::string nameOfLength(const ScratchFolder& scratch, std::size_t length)
{
    const std::string last = "/trace";
    std::string name = scratch.folder;
    if ((length - name.size() - last.size()) % 2 == 1) name += "/";
    while (name.size() + last.size() < length) name += "/.";
    return name + last;
}

} // namespace

// ---- Version ------------------------------------------------------------------------------------------------------

TEST(Version, IsTheSameTextOnEveryCall)
{
    char* first = nullptr;
    char* second = nullptr;
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&first));
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&second));
    EXPECT_STREQ("1_1_0_1", first);
    EXPECT_EQ(first, second);
    EXPECT_EQ(stapiVersion, first) << "the library's own storage";
    EXPECT_EQ(32000u, sizeof stapiVersion);
}

TEST(Version, ANullPointerIsRefused)
{
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getStatsAPIVersion(nullptr));
    EXPECT_EQ(-109, KRVSTAT_NULL_OUTPUT_POINTER);
}

TEST(Version, WritesItsLines)
{
    TraceFile trace(4);
    char* version = nullptr;
    getStatsAPIVersion(&version);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("1088 ENTRY API.getStatsAPIVersion(&apiVersPtr=" + pointerText(&version) + ")", brief(lines)[0]);
    EXPECT_EQ(1090, lines[1].number);
    EXPECT_EQ("EXIT", lines[1].kind);
    EXPECT_EQ(0u, lines[1].message.find("API.getStatsAPIVersion("));
    EXPECT_TRUE(lines[1].message.ends_with("rc=0"));

    trace.forget();
    getStatsAPIVersion(nullptr);
    lines = trace.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("1088 ENTRY API.getStatsAPIVersion(&apiVersPtr=(nil))", brief(lines)[0]);
    EXPECT_EQ("1089 *EXC* API.getStatsAPIVersion() Supplied pointer is NULL", brief(lines)[1]);
    EXPECT_EQ(1090, lines[2].number);
    EXPECT_TRUE(lines[2].message.ends_with("rc=-109"));
}

TEST(Version, BannersNameProductVersionAndBuildLevel)
{
    const std::string banner = "\nKorvane Version " KRVSTATS_PRODUCT_VERSION " Build Level " KRVSTATS_BUILD_LEVEL;
    for (const char* each : {version4stapi_krv_impl, version4stapi_krv_resultsetbuffer, version4stapi_krv_gwytok,
             version4stapi_krv_gwycon, version4stapi_krv_socketcomms, version4stapi_krv_statcomms, version4stapi_krv_statquery,
             version4stapi_krv_diag, version4stapi_krv_lock})
        EXPECT_EQ(banner, each);
}

// ---- Level --------------------------------------------------------------------------------------------------------

TEST(TraceLevel, IsReportedAsSet)
{
    for (int set = 0; set <= 5; set++) {
        TraceFile trace(set);
        EXPECT_EQ(set, level());
        EXPECT_EQ(set, statAPITrace);
    }
}

TEST(TraceLevel, ANullPointerIsRefused)
{
    TraceFile trace(4);
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getAPITraceLevel(nullptr));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(1091, lines[0].number);
    EXPECT_EQ("ENTRY", lines[0].kind);
    EXPECT_EQ("1092 *EXC* API.getAPITraceLevel() Supplied pointer is NULL", brief(lines)[1]);
    EXPECT_EQ(1093, lines[2].number);
    EXPECT_TRUE(lines[2].message.ends_with("rc=-109"));
}

TEST(TraceLevel, OutsideZeroToFiveIsRefusedAndChangesNothing)
{
    TraceFile trace(4);
    for (int wrong : {-1, 6, INT_MIN, INT_MAX}) {
        trace.forget();
        EXPECT_EQ(KRVSTAT_INVALID_TRACE_LEVEL, setAPITraceLevel(wrong));
        EXPECT_EQ(4, statAPITrace);
        const std::string stated = std::to_string(wrong);
        EXPECT_EQ((std::vector<std::string>{
                      "1094 ENTRY API.setAPITraceLevel(traceState=" + stated + ") current trace level=4",
                      "1095 *EXC* API.setAPITraceLevel() Supplied trace state value " + stated + " was invalid",
                      "1096 EXIT API.setAPITraceLevel(traceState=" + stated + ") new trace level=4 rc=-104"}),
            brief(trace.lines()));
    }
    EXPECT_EQ(-104, KRVSTAT_INVALID_TRACE_LEVEL);
}

TEST(TraceLevel, EntryIsJudgedByTheOldLevelAndExitByTheNew)
{
    TraceFile trace(0);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(3));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size()) << "header and exit";
    EXPECT_EQ(0, lines[0].number);
    EXPECT_EQ("1096 EXIT API.setAPITraceLevel(traceState=3) new trace level=3 rc=0", brief(lines)[1]);
    trace.forget();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(5));
    EXPECT_EQ((std::vector<std::string>{"1094 ENTRY API.setAPITraceLevel(traceState=5) current trace level=3",
                  "1096 EXIT API.setAPITraceLevel(traceState=5) new trace level=5 rc=0"}),
        brief(trace.lines()));
    trace.forget();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(2));
    EXPECT_EQ((std::vector<std::string>{"1094 ENTRY API.setAPITraceLevel(traceState=2) current trace level=5"}), brief(trace.lines()));
}

TEST(TraceLevel, TheChangeIsMadeUnderTraceLock)
{
    TraceFile trace(0);
    Injected counted = withFailing(failingMutexLock, 0, [] { return setAPITraceLevel(0); }, 1000);
    EXPECT_EQ(KRVSTAT_OK, counted.result);
    EXPECT_EQ(1, counted.seen);
    counted = withFailing(failingMutexLock, 0, [] { return setAPITraceLevel(6); }, 1000);
    EXPECT_EQ(KRVSTAT_INVALID_TRACE_LEVEL, counted.result);
    EXPECT_EQ(0, counted.seen) << "a refused value changes nothing and writes nothing at level 0";
}

// ---- Header -------------------------------------------------------------------------------------------------------

TEST(TraceHeader, RaisingTheLevelFromZeroWritesItEachTime)
{
    March clock;
    CapturedStderr captured;
    toStandardError();
    EXPECT_EQ("", captured.text()) << "nothing is written at level 0";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ(header, captured.text());
    EXPECT_EQ(0, traceHeaderWrite) << "this way of writing it is not remembered";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(2));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(2));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ(header, captured.text()) << "only from level 0";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(header, captured.text()) << "not at level 0";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(2));
    EXPECT_EQ(header + header, captured.text());
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(KRVSTAT_INVALID_TRACE_LEVEL, setAPITraceLevel(6));
    EXPECT_EQ(header + header, captured.text());
    EXPECT_STREQ("05/03/24", dateBuf);
}

TEST(TraceHeader, ARaisedLevelDoesNotFlushIt)
{
    March clock;
    TraceFile trace(0);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ("", trace.text());
    getAPITraceLevel(nullptr);
    EXPECT_EQ(header, trace.text().substr(0, header.size())) << "with the next line";
}

TEST(TraceHeader, SwitchingTheDestinationWritesItOnceAndRemembers)
{
    March clock;
    ScratchFolder scratch;
    toStandardError();
    CapturedStderr captured;
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ(header, captured.text());
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(scratch.path("t").data()));
    EXPECT_EQ(header, readWholeFile(scratch.path("t")));
    EXPECT_EQ(1, traceHeaderWrite);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
        EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    }
    std::fflush(statAPITraceHandle);
    EXPECT_EQ(header, readWholeFile(scratch.path("t"))) << "not again, once it was written for this destination";
    captured.forget();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(header, captured.text()) << "for the next destination again";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ(header, captured.text());
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
}

TEST(TraceHeader, AtLevelZeroASwitchWritesNoneAndTheNextRaisedLevelDoes)
{
    March clock;
    TraceFile trace(0);
    EXPECT_EQ(0, traceHeaderWrite);
    EXPECT_EQ("", trace.text());
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(3));
    std::vector<std::string> lines = splitLines(trace.text());
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(header, lines[0] + "\n");
    EXPECT_EQ(0, traceHeaderWrite);
}

TEST(TraceHeader, ReopeningTheSameFileWritesItAgain)
{
    March clock;
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(const_cast<char*>(trace.path().c_str())));
    EXPECT_EQ(header, trace.text());
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(const_cast<char*>(trace.path().c_str())));
    EXPECT_EQ(header + header, trace.text());
}

TEST(TraceHeader, ASwitchThatFailsOrChangesNothingWritesItWhereItIsMissing)
{
    March clock;
    CapturedStderr captured;
    toStandardError();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    captured.forget();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(header, captured.text());
    EXPECT_EQ(1, traceHeaderWrite);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(header, captured.text()) << "and not again";
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));

    toStandardError();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    captured.forget();
    char missing[] = "/nonexistent/trace";
    EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, setAPITraceFile(missing));
    EXPECT_EQ(header, captured.text().substr(0, header.size()));
    EXPECT_EQ(1, traceHeaderWrite);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
}

// ---- Destination --------------------------------------------------------------------------------------------------

TEST(TraceDestination, ASwitchIsToldInTheOldAndTheNewPlace)
{
    ScratchFolder scratch;
    std::string next = scratch.path("next");
    TraceFile trace(4);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(next.data()));
    EXPECT_EQ((std::vector<std::string>{"1097 ENTRY API.setAPITraceFile(traceFile=" + pointerText(next.data())
                  + ") current trace destination=" + trace.path()}),
        brief(trace.lines()));
    std::vector<TraceLine> lines = parseTrace(readWholeFile(next));
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(0, lines[0].number);
    EXPECT_EQ("1098 DEBUG API.setAPITraceFile() Trace file switched to new destination. Filename=" + next, brief(lines)[1]);
    EXPECT_EQ("1101 EXIT API.setAPITraceFile(traceFile=" + pointerText(next.data()) + ") new trace destination=" + next + " rc=0",
        brief(lines)[2]);
    EXPECT_EQ(next, statAPITraceFilename);
    EXPECT_NE(next.data(), statAPITraceFilename) << "the name is copied";
}

TEST(TraceDestination, BackToStandardErrorAndThereAgain)
{
    CapturedStderr captured;
    {
        TraceFile trace(4);
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
        EXPECT_EQ((std::vector<std::string>{"1097 ENTRY API.setAPITraceFile(traceFile=(nil)) current trace destination=" + trace.path()}),
            brief(trace.lines()));
        EXPECT_EQ(stderr, statAPITraceHandle);
        EXPECT_STREQ("stderr", statAPITraceFilename);
        std::vector<TraceLine> lines = captured.lines();
        ASSERT_EQ(3u, lines.size());
        EXPECT_EQ(0, lines[0].number) << "the header";
        EXPECT_EQ("1098 DEBUG API.setAPITraceFile() Trace file switched to new destination. Filename=stderr", brief(lines)[1]);
        EXPECT_EQ("1101 EXIT API.setAPITraceFile(traceFile=(nil)) new trace destination=stderr rc=0", brief(lines)[2]);
        captured.forget();
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
        EXPECT_EQ((std::vector<std::string>{
                      "1097 ENTRY API.setAPITraceFile(traceFile=(nil)) current trace destination=stderr",
                      "1099 DEBUG API.setAPITraceFile() Trace file destination is unchanged. Filename=stderr",
                      "1101 EXIT API.setAPITraceFile(traceFile=(nil)) new trace destination=stderr rc=0"}),
            brief(captured.lines()));
    }
}

TEST(TraceDestination, AnExistingFileIsAppendedTo)
{
    ScratchFolder scratch;
    std::string name = scratch.path("trace");
    std::ofstream(name) << "what was there\n";
    TraceFile other(1);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data()));
    getAPITraceLevel(nullptr);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data()));
    getAPITraceLevel(nullptr);
    std::vector<TraceLine> lines = parseTrace(readWholeFile(name));
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ("what was there", lines[0].text);
    EXPECT_EQ(0u, lines[1].text.find("*** "));
    EXPECT_EQ(1092, lines[2].number);
    EXPECT_EQ(0u, lines[3].text.find("*** "));
    EXPECT_EQ(1092, lines[4].number);
    EXPECT_EQ("", other.text());
}

TEST(TraceDestination, ReopeningLetsARotatedFileGo)
{
    TraceFile trace(1);
    getAPITraceLevel(nullptr);
    std::filesystem::rename(trace.path(), trace.path() + ".1");
    getAPITraceLevel(nullptr);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(const_cast<char*>(trace.path().c_str())));
    getAPITraceLevel(nullptr);
    EXPECT_EQ(2u, linesNumbered(parseTrace(readWholeFile(trace.path() + ".1")), 1092).size());
    EXPECT_EQ(1u, linesNumbered(parseTrace(readWholeFile(trace.path())), 1092).size());
}

TEST(TraceDestination, TheOldFileIsClosed)
{
    ScratchFolder scratch;
    toStandardError();
    std::size_t before = openDescriptors();
    for (int i = 0; i < 40; i++) {
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(scratch.path("t" + std::to_string(i % 3)).data()));
        EXPECT_EQ(before + 1, openDescriptors());
    }
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(before, openDescriptors()) << "standard error stays open, the file does not";
}

TEST(TraceDestination, AFileThatCannotBeOpenedLeavesEverythingAsItWas)
{
    ScratchFolder scratch;
    struct Case {
        std::string name;
        int error;
    };
    TraceFile trace(4);
    for (const Case& each : {Case{scratch.path("missing/trace"), ENOENT}, Case{scratch.folder, EISDIR}, Case{"", ENOENT},
             Case{scratch.folder + "/" + std::string(256, 'n'), ENAMETOOLONG}, Case{nameOfLength(scratch, 5000), ENAMETOOLONG}}) {
        trace.forget();
        std::string name = each.name;
        std::size_t before = openDescriptors();
        FILE* destination = statAPITraceHandle;
        EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, setAPITraceFile(name.data()));
        EXPECT_EQ(destination, statAPITraceHandle);
        EXPECT_EQ(trace.path(), statAPITraceFilename);
        EXPECT_EQ(before, openDescriptors());
        std::vector<std::string> expected = {
            "1097 ENTRY API.setAPITraceFile(traceFile=" + pointerText(name.data()) + ") current trace destination=" + trace.path(),
            "1100 *EXC* API.setAPITraceFile(" + name + ") file append failed with errno=" + std::to_string(each.error)
                + ". Trace file destination is unchanged. Filename=" + trace.path(),
            "1101 EXIT API.setAPITraceFile(traceFile=" + pointerText(name.data()) + ") new trace destination=" + trace.path()
                + " rc=-130"};
        std::vector<std::string> written = brief(trace.lines());
        std::erase_if(written, [](const std::string& line) { return line.starts_with("*** "); });
        EXPECT_EQ(expected, written);
    }
    EXPECT_EQ(-130, KRVSTAT_TRACE_FILE_OPEN_FAILED);
}

TEST(TraceDestination, LongNamesAreOpenedAsAskedAndRememberedCut)
{
    ScratchFolder scratch;
    for (std::size_t length : {1022u, 1023u, 1024u, 1025u, 4000u}) {
        TraceFile before(3);
        std::string name = nameOfLength(scratch, length);
        ASSERT_EQ(length, name.size());
        std::filesystem::remove(scratch.path("trace"));
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data()));
        EXPECT_EQ(name.substr(0, 1023), statAPITraceFilename);
        std::vector<TraceLine> lines = parseTrace(readWholeFile(scratch.path("trace")));
        ASSERT_EQ(2u, lines.size());
        EXPECT_EQ("1101 EXIT API.setAPITraceFile(traceFile=" + pointerText(name.data()) + ") new trace destination="
                + name.substr(0, 1023) + " rc=0",
            brief(lines)[1]);
    }
}

TEST(TraceDestination, MayBeNamedByTheTextThatRemembersIt)
{
    const ScratchFolder scratch;
    for (const char* const name : {"trace", "t"}) {
        TraceFile before(3);
        std::string path = scratch.path(name);
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(path.data()));
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(statAPITraceFilename));
        EXPECT_EQ(path, statAPITraceFilename);
        EXPECT_TRUE(brief(parseTrace(readWholeFile(path))).back().ends_with(" new trace destination=" + path + " rc=0"));
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(statAPITraceFilename)) << "once more";
    }
}

TEST(TraceDestination, TheSwitchIsMadeUnderTraceLockAndToldAfterwards)
{
    TraceFile trace(0);
    Injected counted = withFailing(failingMutexLock, 0, [&] { return setAPITraceFile(const_cast<char*>(trace.path().c_str())); }, 1000);
    EXPECT_EQ(KRVSTAT_OK, counted.result);
    EXPECT_GE(counted.seen, 1);
    char missing[] = "/nonexistent/trace";
    CapturedStderr captured;
    toStandardError();
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(1));
    EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, setAPITraceFile(missing)) << "its line takes the lock again: it must be free";
    EXPECT_EQ(1u, occurrences(captured.text(), "[1100]"));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
}

// ---- Copies of texts ----------------------------------------------------------------------------------------------

namespace krvtest {

struct Duplicator {
    const char* name;
    int (*call)(char*, char**);
    int first, last; // its block of trace points
};

class Duplicating : public ::testing::TestWithParam<Duplicator> {
};

} // namespace krvtest

TEST_P(Duplicating, CopiesBytesAndTerminatorIntoABlockOfTheCaller)
{
    for (const std::string& text : {std::string(), std::string("a"), std::string("\x80\xFF\x01 z"), std::string(32765, 'x')}) {
        std::string original = text;
        char* copy = nullptr;
        EXPECT_EQ(0, GetParam().call(original.data(), &copy));
        ASSERT_NE(nullptr, copy);
        EXPECT_NE(original.data(), copy);
        EXPECT_EQ(text, copy);
        std::free(copy);
    }
}

TEST_P(Duplicating, RefusesTextsOfMoreThan32765Characters)
{
    TraceFile trace(1);
    for (std::size_t length : {32766u, 32767u, 100000u}) {
        std::string text(length, 'x');
        char* const untouched = reinterpret_cast<char*>(&trace);
        char* copy = untouched;
        trace.forget();
        EXPECT_EQ(-2, GetParam().call(text.data(), &copy));
        EXPECT_EQ(untouched, copy);
        std::vector<TraceLine> lines = trace.lines();
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ("*EXC*", lines[0].kind);
        EXPECT_EQ(std::string("stapi_krv_impl.") + GetParam().name + "() supplied input data pointer was NULL or overlength", lines[0].message);
    }
}

TEST_P(Duplicating, RefusesNullPointers)
{
    TraceFile trace(1);
    char text[] = "text";
    char* copy = nullptr;
    EXPECT_EQ(-2, GetParam().call(text, nullptr));
    EXPECT_EQ(-2, GetParam().call(nullptr, &copy));
    EXPECT_EQ(-2, GetParam().call(nullptr, nullptr));
    EXPECT_EQ(nullptr, copy);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(3u, lines.size());
    for (const TraceLine& line : lines) {
        EXPECT_EQ("*EXC*", line.kind);
        EXPECT_EQ(std::string("stapi_krv_impl.") + GetParam().name + "() supplied input data pointer was NULL or overlength", line.message);
    }
}

TEST_P(Duplicating, AFailedAllocationGivesMinusOneAndNull)
{
    TraceFile trace(1);
    std::string text(20000, 'x');
    char* copy = nullptr;
    Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return GetParam().call(text.data(), &copy); }, 0, text.size() + 1);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(-1, injected.result);
    EXPECT_EQ(nullptr, copy);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ(0u, lines[0].message.find(std::string("stapi_krv_impl.") + GetParam().name));
}

TEST_P(Duplicating, ItsLinesLieInItsBlock)
{
    TraceFile trace(4);
    char text[] = "text";
    char* copy = nullptr;
    EXPECT_EQ(0, GetParam().call(text, &copy));
    std::free(copy);
    std::string tooLong(32766, 'x');
    EXPECT_EQ(-2, GetParam().call(tooLong.data(), &copy));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_GE(lines.size(), 7u);
    for (const TraceLine& line : lines) {
        EXPECT_GE(line.number, GetParam().first);
        EXPECT_LE(line.number, GetParam().last);
    }
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ(GetParam().first, lines.front().number) << "the entry line has the lowest number";
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.ends_with("rc=-2"));
}

INSTANTIATE_TEST_SUITE_P(Text, Duplicating,
    ::testing::Values(Duplicator{"dup2NativeString", dup2NativeString, 1116, 1123}, Duplicator{"dup2ASCIIString", dup2ASCIIString, 1108, 1115}),
    [](const auto& each) { return each.param.name; });

TEST(Duplicators, OnlyTheAsciiOneFreesWhatWasThere)
{
    TraceFile trace(4);
    char text[] = "ABCDEFG";
    char* copy = static_cast<char*>(std::malloc(100)); // a leak checker sees whether it is freed
    EXPECT_EQ(0, dup2ASCIIString(text, &copy));
    EXPECT_STREQ(text, copy);
    std::string ascii = trace.text();
    EXPECT_NE(std::string::npos, ascii.find("stapi_krv_impl.dup2ASCIIString() called malloc for 8 bytes. rc=" + pointerText(copy) + "\n"));
    EXPECT_NE(std::string::npos, ascii.find("stapi_krv_impl.dup2ASCIIString() using memcpy() on writePtr(" + pointerText(copy) + ") bytes(8)\n"));

    trace.forget();
    char* before = copy;
    EXPECT_EQ(0, dup2NativeString(text, &copy));
    EXPECT_NE(before, copy);
    EXPECT_STREQ(text, before) << "still there";
    std::free(before);
    std::string native = trace.text();
    EXPECT_NE(std::string::npos, native.find("stapi_krv_impl.dup2NativeString() called strdup for 8 bytes. rc=0x" + pointerText(copy) + "\n"));
    EXPECT_NE(std::string::npos, native.find("stapi_krv_impl.dup2NativeString() about to memcpy for 8 bytes. \n")) << "with its blank";
    std::free(copy);
}
