// Every request and every release of the library's two locks fails once, with each error: the answers stay right, and
// the locks work afterwards. One that is not granted in time has a code of its own. A lock that cannot be made is a failed
// start, which the next call tries again.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "ready_gateway.h"
#include "short_conversation.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

const std::vector<int> initErrors = {EAGAIN, ENOMEM, EPERM, EBUSY, EINVAL};
const std::vector<int> lockErrors = {EINVAL, EAGAIN, EDEADLK, EOWNERDEAD, ENOTRECOVERABLE, EBUSY};
const std::vector<int> unlockErrors = {EINVAL, EAGAIN, EPERM};

struct Outcome {
    Gained gained;
    int hits = 0;
    int seen = 0;
};

// Of a conversation in which the given call fails, if number is not negative.
Outcome runFailing(FailingCall& call, int port, int number, int error, bool isMade)
{
    Outcome run;
    call = FailingCall{number < 0 ? INT_MAX : number, error, 0, 0, 0, error, isMade};
    run.gained = converse(port);
    run.hits = call.met;
    run.seen = call.seen;
    call = FailingCall{-1, 0, 0, 0, 0};
    return run;
}

class FailingLocks : public ::testing::Test {
protected:
    void SetUp() override
    {
        gateway.prepare(allReplies());
        ASSERT_EQ(everythingRight, converse(gateway.port()));
    }

    // A sanitizer that watches over mutexes does not believe that a lock which is given back was never taken: a request
    // that fails has taken it here. The library cannot tell, because it goes on in either case.
    void failEach(FailingCall& call, const std::vector<int>& errors)
    {
        const Outcome clean = runFailing(call, gateway.port(), -1, 0, true);
        ASSERT_EQ(everythingRight, clean.gained);
        ASSERT_GT(clean.seen, 0) << "nobody makes this call";
        for (int number = 0; number < clean.seen; number++) {
            for (int error : errors) {
                const Outcome run = runFailing(call, gateway.port(), number, error, true);
                EXPECT_EQ(everythingRight, run.gained) << "call " << number << ", error " << error;
                EXPECT_EQ(1, run.hits) << "call " << number << ", error " << error;
            }
        }
        EXPECT_EQ(everythingRight, converse(gateway.port()));
    }

    ReadyGateway gateway;
};

// As before the first call of the process.
void undoStart()
{
    stapiState = 0;
    traceLock.initialized = 0;
    gtlLock.initialized = 0;
    std::free(statAPITraceFilename);
    statAPITraceFilename = nullptr;
}

int anyCall()
{
    int level = 0;
    return getAPITraceLevel(&level);
}

} // namespace

TEST_F(FailingLocks, RequestsAreNotMissed)
{
    failEach(failingMutexLock, lockErrors);
}

TEST_F(FailingLocks, ReleasesAreNotMissed)
{
    failEach(failingMutexUnlock, unlockErrors);
}

TEST_F(FailingLocks, RequestsAndReleasesAreNotMissedByTheTraceEither)
{
    TraceFile trace(3);
    failEach(failingMutexLock, {EINVAL});
    failEach(failingMutexUnlock, {EPERM});
}

TEST_F(FailingLocks, RequestsWithADeadlineAreNotMissed)
{
    ASSERT_EQ(0, setCallDeadline(600000));
    failEach(failingMutexWait, lockErrors);
    ASSERT_EQ(0, setCallDeadline(0));
}

TEST_F(FailingLocks, RequestsThatAreNotGrantedInTimeEndTheirCallAndLeaveTheNextOneWell)
{
    ASSERT_EQ(0, setCallDeadline(600000));
    const Gained expected[] = {
        {KRVSTAT_CONNECT_TIMEOUT, 0, "", 0},                                      // the open cannot enter its connection
        {0, KRVSTAT_GATEWAY_PROTOCOL_ERROR, "", KRVSTAT_GATEWAY_TOKEN_NOT_FOUND}, // the query cannot look it up
        {0, 0, everythingRight.answer, KRVSTAT_GATEWAY_PROTOCOL_ERROR},           // nor can the close, which may be repeated
    };
    const Outcome clean = runFailing(failingMutexWait, gateway.port(), -1, 0, false);
    ASSERT_EQ(static_cast<int>(std::size(expected)), clean.seen);
    for (int number = 0; number < clean.seen; number++) {
        const Outcome run = runFailing(failingMutexWait, gateway.port(), number, ETIMEDOUT, false);
        EXPECT_EQ(1, run.hits) << "request " << number;
        EXPECT_EQ(expected[number], run.gained) << "request " << number;
        EXPECT_EQ(run.gained.close == KRVSTAT_GATEWAY_PROTOCOL_ERROR, gtListHeadPtr != nullptr) << "request " << number;
        EXPECT_EQ(0, closeAllGatewayConnections()) << "request " << number;
        EXPECT_EQ(nullptr, gtListHeadPtr) << "request " << number;
        EXPECT_EQ(everythingRight, converse(gateway.port())) << "after request " << number;
    }
    ASSERT_EQ(0, setCallDeadline(0));
}

TEST_F(FailingLocks, RequestOfAClosingOfAllThatIsNotGrantedInTimeLeavesWhatIsOpen)
{
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    char* version = nullptr;
    ASSERT_EQ(0, setCallDeadline(600000));
    ASSERT_EQ(0, openGatewayConnection(gateway.port(), &token, &version));

    failingMutexWait = FailingCall{0, ETIMEDOUT, 0, 0, 0, ETIMEDOUT};
    const int rc = closeAllGatewayConnections();
    const int hits = failingMutexWait.met;
    failingMutexWait = FailingCall{-1, 0, 0, 0, 0};
    EXPECT_EQ(1, hits);
    EXPECT_EQ(0, rc);

    EXPECT_EQ(token, gtListHeadPtr);
    EXPECT_EQ(0, getStats(token, &set));
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    ASSERT_EQ(0, setCallDeadline(0));
}

TEST_F(FailingLocks, RequestsThatTakeNothingAreNotMissedByOneThreadAlone)
{
    const int requests = runFailing(failingMutexLock, gateway.port(), -1, 0, false).seen;
    ASSERT_GT(requests, 0);
    for (int number = 0; number < requests; number++) {
        failingMutexUnlock = FailingCall{number, EPERM, 0, 0, 0, EPERM}; // what it does not hold cannot be given back
        const Outcome run = runFailing(failingMutexLock, gateway.port(), number, EINVAL, false);
        EXPECT_EQ(1, failingMutexUnlock.met) << "release " << number;
        failingMutexUnlock = FailingCall{-1, 0, 0, 0, 0};
        EXPECT_EQ(everythingRight, run.gained) << "request " << number;
        EXPECT_EQ(1, run.hits) << "request " << number;
    }
    EXPECT_EQ(everythingRight, converse(gateway.port()));
}

TEST_F(FailingLocks, ThatCannotBeMadeAreAFailedStartWhateverTheError)
{
    for (int error : initErrors) {
        for (int lock : {0, 1}) { // that of the trace, then that of the list
            SCOPED_TRACE(error);
            undoStart();
            CapturedStderr complaint;
            failingMutexInit = FailingCall{lock, error, 0, 0, 0, error};
            const int rc = anyCall();
            const int hits = failingMutexInit.met;
            failingMutexInit = FailingCall{-1, 0, 0, 0, 0};
            EXPECT_EQ(1, hits);
            EXPECT_EQ(lock == 0 ? KRVSTAT_LOCK_INIT_FAILED : -2, rc);
            EXPECT_EQ(0, stapiState);
            EXPECT_NE(std::string::npos, complaint.text().find("Lock initialization failed errno=" + std::to_string(error)));
            EXPECT_EQ(0, anyCall());
            EXPECT_EQ(1, stapiState);
            EXPECT_EQ(everythingRight, converse(gateway.port()));
        }
    }
}
