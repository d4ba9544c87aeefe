// How a message becomes a line, and how a switch of the destination and the writers that hold no lock wait for each other.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

#include "krvstats.h"
#include "lost_pipe.h"
#include "stapi_krv_diag.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

// The messages as they stand in the trace, each with what follows it up to the next line.
std::string written(const std::string& message, int tracePoint = 9999)
{
    TraceFile trace(1);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    writeTraceLine(TRACE_LINE(tracePoint, KIND_EXC), message.c_str());
#pragma GCC diagnostic pop
    const std::string text = trace.text();
    return text.size() < 60 ? text : text.substr(60);
}

// Counts how often the calling thread waits by giving its turn away, where one is set.
thread_local std::atomic<int>* waits = nullptr;

bool soonWaits(const std::atomic<int>& counted)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (counted == 0) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace

extern "C" int sched_yield() noexcept
{
    if (waits) ++*waits;
    return static_cast<int>(syscall(SYS_sched_yield));
}

// ---- Messages -----------------------------------------------------------------------------------------------------

TEST(TraceMessage, EndsInExactlyOneNewline)
{
    EXPECT_EQ("text\n", written("text\n"));
    EXPECT_EQ("text\n", written("text"));
    EXPECT_EQ("\n", written("\n"));
    EXPECT_EQ("\n", written(""));
}

TEST(TraceMessage, Of255CharactersFits)
{
    EXPECT_EQ(std::string(254, 'x') + "\n", written(std::string(254, 'x') + "\n"));
    EXPECT_EQ(std::string(254, 'x') + "\n", written(std::string(254, 'x')));
}

TEST(TraceMessage, ThatIsLongerIsCutAndStillEndsInANewline)
{
    EXPECT_EQ(std::string(254, 'x') + "\n", written(std::string(255, 'x')));
    EXPECT_EQ(std::string(254, 'x') + "\n", written(std::string(400, 'x') + "\n"));
}

TEST(TraceMessage, ThatBeginsWithAPointIsOfTheModuleThatItsNumberBelongsTo)
{
    EXPECT_EQ("stapi_krv_impl.f() rc=1\n", written(".f() rc=1\n", 1000));
    EXPECT_EQ("stapi_krv_impl.f() rc=1\n", written(".f() rc=1\n", 1999));
    EXPECT_EQ("stapi_krv_gwytok.f() rc=1\n", written(".f() rc=1\n", 2000));
    EXPECT_EQ("stapi_krv_gwytok.f() rc=1\n", written(".f() rc=1\n", 2099));
    EXPECT_EQ("stapi_krv_resultsetbuffer.f() rc=1\n", written(".f() rc=1\n", 2100));
    EXPECT_EQ("stapi_krv_statcomms.f() rc=1\n", written(".f() rc=1\n", 2200));
    EXPECT_EQ("stapi_krv_statquery.f() rc=1\n", written(".f() rc=1\n", 2300));
    EXPECT_EQ("stapi_krv_gwycon.f() rc=1\n", written(".f() rc=1\n", 3000));
    EXPECT_EQ("stapi_krv_lock.f() rc=1\n", written(".f() rc=1\n", 3100));
    EXPECT_EQ("stapi_krv_socketcomms.f() rc=1\n", written(".f() rc=1\n", 3200));
}

TEST(TraceMessage, IsCutTogetherWithWhereItComesFrom)
{
    const std::string origin = "stapi_krv_resultsetbuffer";
    const std::string fitting = "." + std::string(253 - origin.size(), 'x');
    EXPECT_EQ(origin + fitting + "\n", written(fitting, 2100));
    EXPECT_EQ(origin + fitting + "\n", written(fitting + "x", 2100));
    EXPECT_EQ(origin + fitting + "\n", written(fitting + "xy\n", 2100));
}

TEST(TraceStream, IsStandardErrorBeforeThereIsADestination)
{
    FILE* const before = statAPITraceHandle;
    statAPITraceHandle = nullptr;
    const CapturedStderr captured;
    writeTraceLineUnlocked(TRACE_LINE(9999, KIND_EXC), "early\n");
    statAPITraceHandle = before;
    ASSERT_EQ(1u, captured.lines().size());
    EXPECT_EQ("9999 *EXC* early", brief(captured.lines())[0]);
}

// Between a failed call and what is made of its errno stand trace lines.
TEST(TraceWriters, LeaveErrnoAloneThoughNothingCanBeWritten)
{
    const TraceFile trace(5);
    std::string full = "/dev/full";
    ASSERT_EQ(KRVSTAT_OK, setAPITraceFile(full.data()));
    char data[] = "data";

    errno = EAGAIN;
    writeTraceLine(TRACE_LINE(9999, KIND_EXC), "text\n");
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_TRUE(ferror(statAPITraceHandle)) << "it was written";

    errno = EINTR;
    writeTraceLineWithPreviousTimestamp(TRACE_LINE(9999, KIND_EXC), "text\n");
    EXPECT_EQ(EINTR, errno);
    errno = ECONNRESET;
    writeTraceLineUnlocked(TRACE_LINE(9999, KIND_EXC), "text\n");
    EXPECT_EQ(ECONNRESET, errno);
    errno = EPIPE;
    writeTraceData(9999, "text\n", data, 4, 0, 0);
    EXPECT_EQ(EPIPE, errno);
}

TEST(TraceWriters, KeepTheSignalOfALostPipeFromTheApplication)
{
    const TraceFile trace(1);
    const ScratchFolder scratch;
    ASSERT_TRUE(loseTraceFile(scratch.path("pipe")));
    setPipeSignal(countPipeSignal);
    char data[] = "data";

    const auto expectNoSignal = [](const char* writer) {
        EXPECT_TRUE(ferror(statAPITraceHandle)) << writer << ": it was written";
        clearerr(statAPITraceHandle);
        EXPECT_EQ(0, pipeSignals) << writer;
        EXPECT_FALSE(pipeSignalIsBlocked()) << writer;
    };
    writeTraceLine(TRACE_LINE(9999, KIND_EXC), "text\n");
    expectNoSignal("writeTraceLine");
    writeTraceLineWithPreviousTimestamp(TRACE_LINE(9999, KIND_EXC), "text\n");
    expectNoSignal("writeTraceLineWithPreviousTimestamp");
    writeTraceLineUnlocked(TRACE_LINE(9999, KIND_EXC), "text\n");
    expectNoSignal("writeTraceLineUnlocked");
    writeTraceData(9999, "text\n", data, 4, 0, 0);
    expectNoSignal("writeTraceData");
    setPipeSignal(SIG_DFL);
}

// ---- A switch of the destination ----------------------------------------------------------------------------------

TEST(SwitchOfTheDestination, WaitsForAWriterAndLaterWritersWaitForIt)
{
    const TraceFile trace(0);
    const ScratchFolder scratch;
    std::string elsewhere = scratch.path("elsewhere");
    const std::string before = traceDestination();

    pinTraceDestination();
    std::atomic<int> waitsOfTheSwitch = 0;
    std::thread switching([&] {
        waits = &waitsOfTheSwitch;
        EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(elsewhere.data()));
    });
    EXPECT_TRUE(soonWaits(waitsOfTheSwitch));
    EXPECT_EQ(before, traceDestination()) << "pinned";

    std::string seen;
    std::atomic<int> waitsOfTheWriter = 0;
    std::thread writing([&] {
        waits = &waitsOfTheWriter;
        pinTraceDestination();
        seen = traceDestination();
        unpinTraceDestination();
    });
    EXPECT_TRUE(soonWaits(waitsOfTheWriter));
    EXPECT_EQ(before, traceDestination()) << "still pinned";

    unpinTraceDestination();
    switching.join();
    writing.join();
    EXPECT_EQ(elsewhere, seen);
}
