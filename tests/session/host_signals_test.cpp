// An application whose timer interrupts whatever waits, a thousand times a second.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>

#include <signal.h>
#include <sys/time.h>

#include "gateway_process.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "socket_calls.h"

using namespace krvtest;

namespace {

constexpr int everyQueries = 500; // a new connection

std::atomic<int> ticks{0};
static_assert(std::atomic<int>::is_always_lock_free);

void countTick(int)
{
    ticks++;
}

// Raises SIGALRM every millisecond while it lives; interrupted calls are not restarted.
class Timer {
public:
    Timer()
    {
        struct sigaction action = {};
        action.sa_handler = countTick;
        sigemptyset(&action.sa_mask);
        EXPECT_EQ(0, sigaction(SIGALRM, &action, &before));
        set(1000);
    }
    ~Timer()
    {
        set(0);
        sigaction(SIGALRM, &before, nullptr);
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

private:
    static void set(suseconds_t microseconds)
    {
        itimerval each = {};
        each.it_interval.tv_usec = microseconds;
        each.it_value.tv_usec = microseconds;
        EXPECT_EQ(0, setitimer(ITIMER_REAL, &each, nullptr));
    }

    struct sigaction before = {};
};

// The number of waits that were interrupted.
int queryUnderTheTimer(int port, int queries)
{
    int interrupted = 0;
    SocketCalls calls;
    calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        const int rc = select(count, reading, writing, exceptional, timeout);
        if (rc == -1 && errno == EINTR) interrupted++;
        return rc;
    };
    const Hooked hooked(calls);
    const Timer timer;
    ticks = 0;
    char group[] = "beta";
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    for (int done = 0; done < queries; done++) {
        if (!token) {
            EXPECT_EQ(0, openGatewayConnection(port, &token, &version));
            EXPECT_STREQ("1.1.0", version);
        }
        KRV_ResultSetToken_t set = nullptr;
        const int rc = getStatsByStatGroupId(token, group, &set);
        EXPECT_EQ(0, rc) << "query " << done;
        if (rc != 0) break;
        KRV_StatData_t stat = {};
        EXPECT_EQ(0, getFirstStat(set, &stat));
        EXPECT_EQ("two", std::string(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen)));
        if (done % everyQueries == everyQueries - 1) {
            EXPECT_EQ(0, closeGatewayConnection(&token));
            token = nullptr;
        }
    }
    return interrupted;
}

} // namespace

TEST(HostTimer, OfAThousandTicksASecondIsNotSeenInTenThousandQueries)
{
    GatewayProcess gateway;
    const int interrupted = queryUnderTheTimer(gateway.port(), 10000);
    EXPECT_GT(interrupted, 0) << "no tick met a wait";
    std::printf("    %d ticks, %d waits interrupted\n", ticks.load(), interrupted);
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST(HostTimer, OfAThousandTicksASecondIsNotSeenWithADeadlineEither)
{
    GatewayProcess gateway({"delay=20@get-stats#1"}); // one wait at least that a tick meets
    ASSERT_EQ(0, setCallDeadline(100000));
    EXPECT_GT(queryUnderTheTimer(gateway.port(), 1000), 0) << "no tick met a wait";
    ASSERT_EQ(0, setCallDeadline(0));
    EXPECT_TRUE(gateway.complaints().empty());
}
