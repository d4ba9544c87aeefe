// A trace that goes into a pipe which nobody reads any more: no call notices, and the application is neither ended nor
// sent a signal.
#include "forked_child.h"
#include "gateway_process.h"
#include "lost_pipe.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

// Every call that writes to the trace. The number of the first one that does not give 0, from 10 on.
int failedCall(int port)
{
    Connection connection;
    KRV_ResultSetToken_t set = nullptr;
    KRV_ResultSetToken_t copy = nullptr;
    if (setAPITraceLevel(5) != 0) return 10;
    if (connection.open(port) != 0) return 11;
    if (getStats(connection.token, &set) != 0) return 12;
    if (dumpResultSet(set) != 0) return 13;
    if (copyResultSet(set, &copy) != 0) return 14;
    if (dumpState() != 0) return 15;
    if (freeResultSet(&copy) != 0) return 16;
    if (connection.close() != 0) return 17;
    if (setAPITraceLevel(0) != 0) return 18;
    if (dumpState() != 0) return 19;
    if (setAPITraceLevel(1) != 0) return 20;
    if (connection.close() != KRVSTAT_GATEWAY_TOKEN_NOT_FOUND) return 21; // an exception line
    if (setAPITraceLevel(0) != 0) return 22;
    if (setAPITraceFile(nullptr) != 0) return 23;
    return allHold;
}

class LostTrace : public ::testing::Test {
protected:
    GatewayProcess gateway;
    ScratchFolder scratch;
};

} // namespace

TEST_F(LostTrace, OnStandardErrorEndsNobody)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(SIG_DFL);
        if (!loseStandardError()) return 1;
        return failedCall(gateway.port());
    }));
}

TEST_F(LostTrace, OfAFileEndsNobody)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(SIG_DFL);
        if (!loseTraceFile(scratch.path("pipe"))) return 1;
        const int failed = failedCall(gateway.port());
        if (failed != allHold) return failed;
        std::fflush(nullptr); // as an exit does
        return allHold;
    }));
}

TEST_F(LostTrace, IsReplacedByAFileThatHasTheLinesFromThenOn)
{
    std::string name = scratch.path("file");
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(SIG_DFL);
        if (!loseTraceFile(scratch.path("pipe"))) return 1;
        if (setAPITraceLevel(3) != 0) return 2;
        if (setAPITraceFile(name.data()) != 0) return 3;
        return allHold;
    }));
    EXPECT_EQ(1u, linesNumbered(parseTrace(readWholeFile(name)), 1101).size());
}

TEST_F(LostTrace, DoesNotRunTheHandlerOfTheApplication)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(countPipeSignal);
        if (!loseStandardError()) return 1;
        const int failed = failedCall(gateway.port());
        if (failed != allHold) return failed;
        if (pipeSignals != 0) return 2;
        if (pipeSignalIsBlocked()) return 3;
        return allHold;
    }));
}

// The header that a level above 0 brings waits in the stream, and goes out when that is closed.
TEST_F(LostTrace, IsNoneOfTheApplicationsBusinessWhenItIsClosed)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(countPipeSignal);
        if (!loseTraceFile(scratch.path("pipe"))) return 1;
        if (setAPITraceLevel(1) != 0) return 2;
        if (setAPITraceLevel(0) != 0) return 3;
        if (setAPITraceFile(nullptr) != 0) return 4;
        if (pipeSignals != 0) return 5;
        if (pipeSignalIsBlocked()) return 6;
        return allHold;
    }));
}

TEST_F(LostTrace, LeavesNothingBehindForAThreadThatBlocksTheSignal)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(SIG_DFL);
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        if (!loseStandardError()) return 1;
        const int failed = failedCall(gateway.port());
        if (failed != allHold) return failed;
        if (!pipeSignalIsBlocked()) return 2;
        if (pipeSignalWaits()) return 3;
        return allHold;
    }));
}

TEST_F(LostTrace, DoesNotEatUpASignalOfTheApplication)
{
    EXPECT_EQ(allHold, failedClaimOfAFork([&] {
        setPipeSignal(SIG_DFL);
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        raise(SIGPIPE);
        if (!loseStandardError()) return 1;
        if (setAPITraceLevel(5) != 0) return 2;
        if (dumpState() != 0) return 3;
        if (!pipeSignalWaits()) return 4;
        return allHold;
    }));
}
