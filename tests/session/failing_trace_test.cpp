// A trace that cannot be opened or written: every call on its stream fails once, and all of them fail. The calls of the
// application neither fail nor change, and the trace goes on where it can.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "krvstats.h"
#include "lost_pipe.h"
#include "ready_gateway.h"
#include "scripted_peer.h"
#include "short_conversation.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stream_calls.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr int allFromThereOn = INT_MAX;

// What write(2) may give, and printing besides.
const std::vector<int> writeErrors = {EAGAIN, EBADF,  EDESTADDRREQ, EDQUOT, EFAULT, EFBIG,     EINTR,  EINVAL,
                                      EIO,    ENOSPC, EPERM,        EPIPE,  ENOMEM, EOVERFLOW, EILSEQ, 0};

// What open(2) may give, and fopen besides.
const std::vector<int> openErrors = {
    EACCES, EBADF,  EBUSY,  EDQUOT, EEXIST,  EFAULT,     EFBIG,     EINTR, EINVAL, EISDIR,  ELOOP,      EMFILE, ENAMETOOLONG,
    ENFILE, ENODEV, ENOENT, ENOMEM, ENOSPC,  ENOTDIR,    ENXIO,     EPERM, EROFS,  ETXTBSY, EOPNOTSUPP, EOVERFLOW, EAGAIN};

class FailingTrace : public ::testing::Test {
protected:
    void SetUp() override
    {
        gateway.prepare(allReplies());
        ASSERT_EQ(everythingRight, converse(gateway.port()));
    }
    void TearDown() override { EXPECT_EQ(nullptr, gtListHeadPtr); }

    // A conversation during which the writing of the trace fails.
    Gained run(StreamFault& fault)
    {
        const FaultyStreams faulty(nullptr, &fault, &statAPITraceHandle);
        return converse(gateway.port());
    }

    ReadyGateway gateway;
};

} // namespace

TEST_F(FailingTrace, FileThatCannotBeOpenedLeavesTheDestinationWhateverTheError)
{
    TraceFile trace(1);
    const std::string destination = statAPITraceFilename;
    ScratchFolder scratch;
    std::string name = scratch.path("never");
    for (int error : openErrors) {
        SCOPED_TRACE(error);
        trace.forget();
        for (int times : {1, 100}) {
            StreamFault fault;
            fault.first = 0;
            fault.times = times;
            fault.error = error;
            int rc = 0;
            {
                const FaultyStreams faulty(&fault, nullptr, &statAPITraceHandle);
                rc = setAPITraceFile(name.data());
            }
            EXPECT_EQ(1, fault.hits) << "it is tried once";
            EXPECT_EQ(KRVSTAT_TRACE_FILE_OPEN_FAILED, rc);
            EXPECT_EQ(destination, statAPITraceFilename);
        }
        const std::vector<TraceLine> lines = linesNumbered(trace.lines(), 1100);
        ASSERT_EQ(2u, lines.size()) << trace.text();
        EXPECT_NE(std::string::npos, lines[0].message.find("errno=" + std::to_string(error) + ".")) << lines[0].message;
        EXPECT_EQ(everythingRight, converse(gateway.port()));
    }
}

// The errors go round, and each round begins with another one: the writes of a line come at regular distances.
TEST_F(FailingTrace, EveryWriteThatFailsOnceChangesNoAnswerWhateverTheError)
{
    const int errors = static_cast<int>(writeErrors.size());
    TraceFile trace(3);
    StreamFault clean;
    ASSERT_EQ(everythingRight, run(clean));
    ASSERT_GE(clean.made, errors * errors) << "not every error comes first in a round";
    for (int number = 0; number < clean.made; number++) {
        StreamFault fault;
        fault.first = number;
        fault.error = writeErrors[static_cast<std::size_t>((number + number / errors) % errors)];
        EXPECT_EQ(everythingRight, run(fault)) << "write " << number << ", error " << fault.error;
        EXPECT_EQ(1, fault.hits) << "write " << number << ", error " << fault.error;
    }
}

TEST_F(FailingTrace, AllWritesThatFailChangeNoAnswerWhateverTheError)
{
    TraceFile trace(4);
    for (int error : writeErrors) {
        StreamFault fault;
        fault.first = 0;
        fault.times = allFromThereOn;
        fault.error = error;
        EXPECT_EQ(everythingRight, run(fault)) << error;
        EXPECT_GT(fault.hits, 1000) << error;
        EXPECT_EQ(fault.made, fault.hits) << error;
    }
    trace.forget();
    EXPECT_EQ(everythingRight, converse(gateway.port()));
    EXPECT_FALSE(trace.lines().empty()) << "the next lines are written again";
}

TEST_F(FailingTrace, HundredWritesInARowThatAreInterruptedChangeNoAnswer)
{
    TraceFile trace(4);
    StreamFault clean;
    ASSERT_EQ(everythingRight, run(clean));
    for (int first = 0; first < clean.made; first += 100) {
        StreamFault fault;
        fault.first = first;
        fault.times = 100;
        fault.error = EINTR;
        EXPECT_EQ(everythingRight, run(fault)) << "writes from " << first;
        EXPECT_GE(fault.hits, 1) << "writes from " << first;
    }
}

// The code of a failed call is worked out from errno, with trace lines between the two.
TEST_F(FailingTrace, WritesThatFailDoNotHideWhatElseFailed)
{
    TraceFile trace(4);
    for (int error : writeErrors) {
        StreamFault fault;
        fault.first = 0;
        fault.times = allFromThereOn;
        fault.error = error;
        const FaultyStreams faulty(nullptr, &fault, &statAPITraceHandle);
        EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, converse(unusedPort()).open) << error;
        EXPECT_GT(fault.hits, 0) << error;
    }
}

TEST_F(FailingTrace, DumpsThatCannotBeWrittenEndAllTheSame)
{
    TraceFile trace(0);
    char host[] = "127.0.0.1";
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    char* version = nullptr;
    ASSERT_EQ(0, openRemoteGatewayConnection(host, gateway.port(), &token, &version));
    ASSERT_EQ(0, getStats(token, &set));
    for (int error : writeErrors) {
        StreamFault fault;
        fault.first = 0;
        fault.times = allFromThereOn;
        fault.error = error;
        const FaultyStreams faulty(nullptr, &fault, &statAPITraceHandle);
        EXPECT_EQ(0, dumpResultSet(set)) << error;
        EXPECT_EQ(0, dumpState()) << error;
        EXPECT_GT(fault.hits, 10) << error;
    }
    EXPECT_EQ(0, closeGatewayConnection(&token));
}

// The header of a new file goes out at once.
TEST_F(FailingTrace, PipeThatIsLostAsSoonAsItIsOpenedIsNoneOfTheApplicationsBusiness)
{
    TraceFile trace(1);
    const ScratchFolder scratch;
    std::string name = scratch.path("pipe");
    ReadPipe pipe(name);
    setPipeSignal(countPipeSignal);
    behindOpening = [&] { pipe.leave(); };
    EXPECT_EQ(0, setAPITraceFile(name.data()));
    behindOpening = nullptr;
    EXPECT_TRUE(ferror(statAPITraceHandle)) << "it was written";
    EXPECT_EQ(0, pipeSignals);
    EXPECT_FALSE(pipeSignalIsBlocked());
    setPipeSignal(SIG_DFL);
}

TEST_F(FailingTrace, FileThatCannotBeClosedIsLeftAllTheSame)
{
    ScratchFolder scratch;
    std::string names[] = {scratch.path("one"), scratch.path("two")};
    for (int error : {EBADF, EINTR, EIO, ENOSPC, EDQUOT}) {
        ASSERT_EQ(0, setAPITraceFile(names[0].data()));
        const std::size_t files = openFiles();
        StreamFault fault;
        fault.first = 0;
        fault.error = error;
        {
            FILE* const left = statAPITraceHandle;
            const FaultyStreams faulty(nullptr, &fault, &left);
            EXPECT_EQ(0, setAPITraceFile(names[1].data())) << error;
        }
        EXPECT_EQ(1, fault.hits) << error;
        EXPECT_EQ(names[1], statAPITraceFilename);
        EXPECT_LE(openFiles(), files); // the gateway may let go of the last conversation meanwhile
        ASSERT_EQ(0, setAPITraceFile(nullptr));
    }
}

TEST_F(FailingTrace, FullDiskChangesNoAnswerAndIsLeftForAnotherOne)
{
    char full[] = "/dev/full";
    ASSERT_EQ(0, setAPITraceFile(full));
    ASSERT_EQ(0, setAPITraceLevel(4));
    EXPECT_EQ(everythingRight, converse(gateway.port()));
    EXPECT_EQ(0, dumpState());

    ScratchFolder scratch;
    std::string name = scratch.path("other");
    ASSERT_EQ(0, setAPITraceFile(name.data()));
    EXPECT_EQ(everythingRight, converse(gateway.port()));
    ASSERT_EQ(0, setAPITraceLevel(0));
    ASSERT_EQ(0, setAPITraceFile(nullptr));
    EXPECT_EQ(1u, linesNumbered(parseTrace(readWholeFile(name)), 1025).size());
}
