// The first call of a process, and starts that fail. Every case needs a process of its own, which ctest gives it.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "failing_calls.h"
#include "forked_child.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "lost_pipe.h"
#include "result_sets.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "trace_capture.h"

using namespace krvtest;

namespace krvtest {

// What a call is given to write to. None of it may be touched when the library cannot start.
struct Outputs {
    char* text = nullptr;
    int number = 77;
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    char host[10] = "127.0.0.1";
    char ids[4] = "1:2";
    HeldSet idsInSubset{idSet({{"g", 0, {{"a"}, {"b"}, {"c"}}}})};
    HeldSet statsInSubset{statSet({{"g", 0, {{"a", "1"}, {"b", "2"}, {"c", "3"}}}})};
};

// Each exported function with arguments whose outcome on a working library is known.
struct Call {
    const char* name;
    std::function<int(Outputs&)> call;
    int expected;
};

void PrintTo(const Call& call, std::ostream* out)
{
    *out << call.name;
}

class FirstCall : public ::testing::TestWithParam<Call> {
};

class NoStart : public ::testing::TestWithParam<Call> {
};

} // namespace krvtest

namespace {

bool untouched(const Outputs& outputs)
{
    return outputs.text == nullptr && outputs.number == 77 && outputs.token == nullptr && outputs.set == nullptr
        && outputs.id.idLen == 0 && outputs.stat.statIdLen == 0;
}

// A gateway token that no list holds: it is only looked for, never looked into.
KRV_GatewayToken_t strangeToken(Outputs& outputs)
{
    return reinterpret_cast<KRV_GatewayToken_t>(&outputs);
}

// A set whose first element was taken already. A step from there is the one call that has a way of its own.
KRV_ResultSetToken_t inSubset(const HeldSet& set)
{
    constexpr int behindHeader = RESULT_SET_PREAMBLE_SIZE + 4 + 1 + 4 + 4; // the text "g", its length, code and count
    const bool stats = std::memcmp(set.block(), STATS_EYECATCHER, EYECATCHER_SIZE) == 0;
    set.token->cursor = set.block() + behindHeader + (stats ? 4 + 1 + 4 + 1 : 4 + 1);
    set.token->queryCount = 1;
    set.token->queryIndex = 1;
    set.token->elementResultCount = 3;
    set.token->elementResultIndex = 2;
    return set.token;
}

std::vector<Call> everyCall()
{
    return {
        {"getStatsAPIVersion", [](Outputs& o) { return getStatsAPIVersion(&o.text); }, 0},
        {"getAPITraceLevel", [](Outputs& o) { return getAPITraceLevel(&o.number); }, 0},
        {"setAPITraceLevel", [](Outputs&) { return setAPITraceLevel(0); }, 0},
        {"setAPITraceFile", [](Outputs&) { return setAPITraceFile(nullptr); }, 0},
        {"openGatewayConnection", [](Outputs& o) { return openGatewayConnection(0, &o.token, &o.text); }, -107},
        {"openRemoteGatewayConnection", [](Outputs& o) { return openRemoteGatewayConnection(o.host, 0, &o.token, &o.text); }, -107},
        {"closeGatewayConnection", [](Outputs& o) { return closeGatewayConnection(&o.token); }, -100},
        {"closeAllGatewayConnections", [](Outputs&) { return closeAllGatewayConnections(); }, 0},
        {"dumpState", [](Outputs&) { return dumpState(); }, 0},
        {"getResourceGroupIds", [](Outputs& o) { return getResourceGroupIds(strangeToken(o), &o.set); }, -101},
        {"getStatIds", [](Outputs& o) { return getStatIds(strangeToken(o), &o.set); }, -101},
        {"getStatIdsByStatGroupId", [](Outputs& o) { return getStatIdsByStatGroupId(strangeToken(o), o.ids, &o.set); }, -101},
        {"getStats", [](Outputs& o) { return getStats(strangeToken(o), &o.set); }, -101},
        {"getStatsByStatId", [](Outputs& o) { return getStatsByStatId(strangeToken(o), o.ids, &o.set); }, -101},
        {"getStatsByStatGroupId", [](Outputs& o) { return getStatsByStatGroupId(strangeToken(o), o.ids, &o.set); }, -101},
        {"getFirstId", [](Outputs& o) { return getFirstId(nullptr, &o.id); }, -127},
        {"getNextId", [](Outputs& o) { return getNextId(nullptr, &o.id); }, -127},
        {"getFirstStat", [](Outputs& o) { return getFirstStat(nullptr, &o.stat); }, -127},
        {"getNextStat", [](Outputs& o) { return getNextStat(nullptr, &o.stat); }, -127},
        {"getNextIdInASubset", [](Outputs& o) { return getNextId(inSubset(o.idsInSubset), &o.id); }, 0},
        {"getNextStatInASubset", [](Outputs& o) { return getNextStat(inSubset(o.statsInSubset), &o.stat); }, 0},
        {"getIdQuery", [](Outputs& o) { return getIdQuery(nullptr, &o.text); }, -127},
        {"copyResultSet", [](Outputs& o) { return copyResultSet(nullptr, &o.set); }, -127},
        {"freeResultSet", [](Outputs& o) { return freeResultSet(&o.set); }, -127},
        {"dumpResultSet", [](Outputs&) { return dumpResultSet(nullptr); }, -127},
        {"setCallDeadline", [](Outputs&) { return setCallDeadline(0); }, 0},
        {"interruptGatewayConnection", [](Outputs& o) { return interruptGatewayConnection(strangeToken(o)); }, -101},
    };
}

const char traceFailed[] = "stapi_krv_impl.stapiInit() Initialization of krvstats API trace has failed. rc=";
const char listFailed[] = "stapi_krv_impl.stapiInit() Initialization of krvstats API Gateway Token List has failed. rc=";

// What a set-up library looks like, whichever call set it up.
void expectStarted()
{
    EXPECT_EQ(1, stapiState);
    EXPECT_EQ(0, statAPITrace);
    EXPECT_STREQ("1_1_0_1", stapiVersion);
    EXPECT_EQ(stderr, statAPITraceHandle);
    EXPECT_EQ(STAPILOCK_INITIALIZED, traceLock.initialized);
    EXPECT_EQ(STAPILOCK_INITIALIZED, gtlLock.initialized);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

// Standard error that takes nothing more, until it is let go: whoever writes to it waits.
class FullStandardError {
public:
    FullStandardError() : original(dup(STDERR_FILENO))
    {
        if (original < 0 || pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::vector<char> bytes(4096);
        while (write(ends[1], bytes.data(), bytes.size()) > 0) continue;
        while (write(ends[1], bytes.data(), 1) > 0) continue;
        fcntl(ends[1], F_SETFL, 0);
        dup2(ends[1], STDERR_FILENO);
    }
    ~FullStandardError() { letGo(); }
    FullStandardError(const FullStandardError&) = delete;
    FullStandardError& operator=(const FullStandardError&) = delete;

    // Gives standard error back; those who wait go on, and what they write is lost.
    void letGo()
    {
        if (original < 0) return;
        dup2(original, STDERR_FILENO);
        close(original);
        original = -1;
        close(ends[1]);
        std::vector<char> bytes(4096);
        while (read(ends[0], bytes.data(), bytes.size()) > 0) continue;
        close(ends[0]);
    }

private:
    int original;
    int ends[2] = {-1, -1};
};

// How often threads of this process waited for others by giving their turn away.
std::atomic<int> yields = 0;

const char ownProcess[] = "this case needs a process of its own: run it through ctest or with --gtest_filter";

} // namespace

extern "C" int sched_yield() noexcept
{
    yields++;
    return static_cast<int>(syscall(SYS_sched_yield));
}

TEST(Start, BeforeTheFirstCallNothingIsSetUp)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    EXPECT_EQ(0, statAPITrace);
    EXPECT_EQ(0, statAPIDump);
    EXPECT_EQ(0, traceHeaderWrite);
    EXPECT_STREQ("", timeStamp);
    EXPECT_STREQ("", dateBuf);
    EXPECT_EQ(0, tracePid);
    EXPECT_EQ(ThreadId{}, traceTid);
    EXPECT_EQ(0, iTid);
    EXPECT_STREQ("stderr", defaultTraceFilename);
    EXPECT_EQ(0, traceLock.initialized);
    EXPECT_EQ(0, gtlLock.initialized);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(nullptr, gtListTailPtr);
}

TEST_P(FirstCall, SetsTheLibraryUpAndLeavesItQuiet)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    Outputs outputs;
    EXPECT_EQ(GetParam().expected, GetParam().call(outputs));
    expectStarted();
    EXPECT_STREQ("stderr", statAPITraceFilename);
    const std::string dumped = "krvstats state dump: API Version=1_1_0_1 Trace Level=0 statAPITraceFile=stderr\n";
    const bool dumps = std::string("dumpState") == GetParam().name;
    EXPECT_EQ(dumps ? dumped : "", captured.text().substr(0, dumped.size()));
}

INSTANTIATE_TEST_SUITE_P(Of, FirstCall, ::testing::ValuesIn(everyCall()), [](const auto& each) { return each.param.name; });

TEST_P(NoStart, AListLockThatIsThereAlreadyIsReturnedAsOneAndNothingIsDone)
{
    Outputs outputs;
    int level = -1;
    ASSERT_EQ(0, getAPITraceLevel(&level));
    stapiState = 0;
    CapturedStderr captured;
    for (int attempt = 0; attempt < 2; attempt++) {
        captured.forget();
        EXPECT_EQ(1, GetParam().call(outputs));
        EXPECT_TRUE(untouched(outputs));
        EXPECT_EQ(0, stapiState);
        EXPECT_EQ(1, statAPITrace) << "the level of a start is left";
        std::vector<TraceLine> lines = captured.lines();
        ASSERT_EQ(1u, lines.size()) << ::testing::PrintToString(brief(lines));
        EXPECT_EQ("1124 *EXC* " + std::string(listFailed) + "1", brief(lines)[0]);
    }
}

TEST_P(NoStart, AFailedTraceLockIsReturnedAndNothingIsDone)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    Outputs outputs;
    Injected injected = withFailing(failingMutexInit, EAGAIN, [&] { return GetParam().call(outputs); });
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(KRVSTAT_LOCK_INIT_FAILED, injected.result);
    EXPECT_EQ(-121, injected.result);
    EXPECT_TRUE(untouched(outputs));
    EXPECT_EQ(0, stapiState);
    EXPECT_EQ(1, statAPITrace);
    EXPECT_EQ(0, gtlLock.initialized) << "the list is not set up behind a failed trace";
    std::vector<TraceLine> lines = captured.lines();
    ASSERT_EQ(2u, lines.size()) << ::testing::PrintToString(brief(lines));
    EXPECT_EQ("3101 *EXC* stapi_krv_lock.initializeLock(lockPtr=" + pointerText(&traceLock)
            + ") Lock initialization failed errno=" + std::to_string(EAGAIN),
        brief(lines)[0]);
    EXPECT_EQ(std::string(traceFailed) + "-121", lines[1].text) << "straight to standard error";

    captured.forget();
    EXPECT_EQ(GetParam().expected, GetParam().call(outputs)) << "the next call tries again";
    expectStarted();
    EXPECT_STREQ("stderr", statAPITraceFilename);
}

INSTANTIATE_TEST_SUITE_P(Of, NoStart, ::testing::ValuesIn(everyCall()), [](const auto& each) { return each.param.name; });

TEST(FailedStart, AFileNameBufferThatCannotBeMadeGivesMinus111)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    Outputs outputs;
    Injected injected =
        withFailing(failingMalloc, ENOMEM, [&] { return getStatsAPIVersion(&outputs.text); }, 0, TRACE_FILENAME_SIZE);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, injected.result);
    EXPECT_TRUE(untouched(outputs));
    EXPECT_EQ(0, stapiState);
    EXPECT_EQ(1, statAPITrace);
    EXPECT_EQ(std::string(traceFailed) + "-111\n", captured.text());

    // The lock is there now: a second attempt succeeds without making the buffer.
    captured.forget();
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&outputs.text));
    EXPECT_STREQ("1_1_0_1", outputs.text);
    expectStarted();
    EXPECT_EQ(nullptr, statAPITraceFilename);
    EXPECT_EQ("", captured.text());
}

TEST(FailedStart, AMissingFileNameBufferIsShownAsStderrAndMadeByTheNextSwitch)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    char* version = nullptr;
    Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return getStatsAPIVersion(&version); }, 0, TRACE_FILENAME_SIZE);
    ASSERT_EQ(1, injected.hits);
    ASSERT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
    ASSERT_EQ(nullptr, statAPITraceFilename);

    captured.forget();
    EXPECT_EQ(KRVSTAT_OK, dumpState());
    EXPECT_EQ(0u, captured.text().find("krvstats state dump: API Version=1_1_0_1 Trace Level=0 statAPITraceFile=stderr\n"));

    ScratchFolder scratch;
    std::string name = scratch.path("trace");
    ASSERT_EQ(KRVSTAT_OK, setAPITraceLevel(4));
    captured.forget();
    injected = withFailing(failingMalloc, ENOMEM, [&] { return setAPITraceFile(name.data()); }, 0, TRACE_FILENAME_SIZE);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, injected.result);
    EXPECT_EQ(stderr, statAPITraceHandle);
    EXPECT_EQ(nullptr, statAPITraceFilename);
    std::vector<TraceLine> lines = captured.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("1097 ENTRY API.setAPITraceFile(traceFile=" + pointerText(name.data()) + ") current trace destination=stderr", brief(lines).front());
    EXPECT_EQ("1101 EXIT API.setAPITraceFile(traceFile=" + pointerText(name.data()) + ") new trace destination=stderr rc=-111", brief(lines).back());
    ASSERT_EQ(1u, linesNumbered(lines, 1100).size());
    EXPECT_EQ("API.setAPITraceFile() Failed to allocate 1024 bytes. Trace file destination is unchanged. Filename=stderr",
        linesNumbered(lines, 1100)[0].message);
    EXPECT_EQ(0u, linesNumbered(lines, 1098).size()) << "nothing was switched";

    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(name.data()));
    ASSERT_NE(nullptr, statAPITraceFilename);
    EXPECT_EQ(name, statAPITraceFilename);
    EXPECT_EQ(KRVSTAT_OK, setAPITraceLevel(0));
    EXPECT_EQ(KRVSTAT_OK, setAPITraceFile(nullptr));
    EXPECT_STREQ("stderr", statAPITraceFilename);
}

TEST(FailedStart, AFailedListLockIsReturnedAsItIsAndTheNextCallTriesAgain)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    Outputs outputs;
    Injected injected = withFailing(failingMutexInit, ENOMEM, [&] { return getStatsAPIVersion(&outputs.text); }, 1);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(-2, injected.result);
    EXPECT_TRUE(untouched(outputs));
    EXPECT_EQ(0, stapiState);
    EXPECT_EQ(1, statAPITrace);
    EXPECT_EQ((std::vector<std::string>{
                  "3101 *EXC* stapi_krv_lock.initializeLock(lockPtr=" + pointerText(&gtlLock)
                      + ") Lock initialization failed errno=" + std::to_string(ENOMEM),
                  "1124 *EXC* " + std::string(listFailed) + "-2"}),
        brief(captured.lines()));
    char* nameBuffer = statAPITraceFilename;
    ASSERT_NE(nullptr, nameBuffer);

    captured.forget();
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&outputs.text));
    expectStarted();
    EXPECT_EQ(nameBuffer, statAPITraceFilename) << "not allocated twice";
    EXPECT_EQ("", captured.text());
}

TEST(FailedStart, WithoutAReaderOfStandardErrorSendsTheApplicationNoSignal)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    EXPECT_EQ(allHold, failedClaimOfAFork([] {
        setPipeSignal(countPipeSignal);
        if (!loseStandardError()) return 1;
        const Injected injected =
            withFailing(failingMalloc, ENOMEM, [] { return closeAllGatewayConnections(); }, 0, TRACE_FILENAME_SIZE);
        if (injected.hits != 1 || injected.result != KRVSTAT_OUT_OF_MEMORY) return 2;
        if (pipeSignals != 0) return 3;
        if (pipeSignalIsBlocked()) return 4;
        return closeAllGatewayConnections() == KRVSTAT_OK ? allHold : 5;
    }));
}

TEST(FailedStart, EveryCallReturnsTheFailureUntilAStartSucceeds)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    CapturedStderr captured;
    for (const Call& each : everyCall()) {
        Outputs outputs;
        Injected injected = withFailing(failingMutexInit, EAGAIN, [&] { return each.call(outputs); });
        EXPECT_EQ(1, injected.hits) << each.name;
        EXPECT_EQ(KRVSTAT_LOCK_INIT_FAILED, injected.result) << each.name;
        EXPECT_TRUE(untouched(outputs)) << each.name;
    }
    char* version = nullptr;
    EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
    expectStarted();
}

TEST(Start, ManyFirstCallsAtOnceSetUpOnce)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    constexpr int callers = 16;
    CapturedStderr captured;
    std::barrier together(callers);
    std::atomic<int> succeeded = 0, made = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; i++)
        threads.emplace_back([&] {
            together.arrive_and_wait();
            Injected counted = withFailing(failingMutexInit, 0, [] {
                char* version = nullptr;
                int result = getStatsAPIVersion(&version);
                return result == 0 && std::strcmp("1_1_0_1", version) != 0 ? 1000 : result;
            }, 1000);
            if (counted.result == KRVSTAT_OK) succeeded++;
            made += counted.seen;
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(callers, succeeded);
    EXPECT_EQ(2, made) << "each lock is made once";
    expectStarted();
    EXPECT_EQ("", captured.text());
}

TEST(Start, ManyFirstCallsAtOnceSurviveAFailedStart)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    constexpr int callers = 16;
    CapturedStderr captured;
    std::barrier together(callers);
    std::atomic<int> succeeded = 0, failed = 0, other = 0, hits = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; i++)
        threads.emplace_back([&, i] {
            together.arrive_and_wait();
            int rc;
            if (i % 2 == 0) {
                Injected injected = withFailing(failingMutexInit, EAGAIN, [] { return closeAllGatewayConnections(); });
                rc = injected.result;
                hits += injected.hits;
            } else {
                rc = closeAllGatewayConnections();
            }
            if (rc == KRVSTAT_OK) succeeded++;
            else if (rc == KRVSTAT_LOCK_INIT_FAILED || rc == -2) failed++;
            else other++;
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(callers, succeeded + failed);
    EXPECT_EQ(0, other) << "a start that goes wrong is somebody's result, and no start finds the lock of another: never 1";
    EXPECT_GE(failed, hits);
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    expectStarted();
}

// The first call fails and hangs in what it has to say about that.
TEST(Start, ASecondCallWaitsForTheFirstAndThenTriesItself)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    FullStandardError full;
    std::atomic<int> first = 99, second = 99;
    std::thread one([&] {
        first = withFailing(failingMutexInit, EAGAIN, [] { return closeAllGatewayConnections(); }).result;
    });
    EXPECT_TRUE(soon([] { return __atomic_load_n(&statAPITrace, __ATOMIC_RELAXED) == 1; }));
    const int before = yields;
    std::thread other([&] { second = closeAllGatewayConnections(); });
    EXPECT_TRUE(soon([&] { return yields > before; }));
    EXPECT_EQ(99, first);
    EXPECT_EQ(99, second);
    full.letGo();
    one.join();
    other.join();
    EXPECT_EQ(KRVSTAT_LOCK_INIT_FAILED, first);
    EXPECT_EQ(KRVSTAT_OK, second);
    expectStarted();
}

TEST(Start, AForkedChildDoesNotWaitForAFirstCallOfItsParent)
{
    ASSERT_EQ(0, stapiState) << ownProcess;
    FullStandardError full;
    std::thread one([] { withFailing(failingMutexInit, EAGAIN, [] { return closeAllGatewayConnections(); }); });
    EXPECT_TRUE(soon([] { return __atomic_load_n(&statAPITrace, __ATOMIC_RELAXED) == 1; }));
    EXPECT_EQ(allHold, failedClaimOfAFork([] {
        if (closeAllGatewayConnections() != KRVSTAT_OK) return 1;
        return stapiState == 1 ? allHold : 2;
    }));
    full.letGo();
    one.join();
}
