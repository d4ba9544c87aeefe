// A connect that is not answered, on a machine whose wall clock is set while it waits. What an interruption leaves of the
// wait goes by that clock; but the wait is over for good once a minute of the clock that nobody sets has passed.
#include "hanging_gateways.h"

#include <sys/syscall.h>

#include <ctime>

#include "socket_calls.h"
#include "stapi_krv_gwycon.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

constexpr std::int64_t second = 1000000000;
constexpr std::int64_t monotonicStart = 5000 * second + 300000000; // not at a whole second
constexpr time_t wallStart = 1700000000;

// The monotonic clock of a thread that set it, in nanoseconds; negative: the machine's.
thread_local std::int64_t monotonicTime = -1;

// An interruption of the wait: when it comes, in seconds since the start by either clock.
struct Interruption {
    double wall;
    double monotonic;
};

struct Waited {
    int rc = 0;
    std::vector<time_t> seconds; // of each single wait
};

// Waits for a connect that is not answered, with these interruptions; every further wait ends by itself.
Waited waitWith(const std::vector<Interruption>& interruptions, const std::function<int()>& wait)
{
    Waited waited;
    time_t wall = wallStart;
    SocketCalls calls;
    calls.time = [&](time_t* result) {
        if (result) *result = wall;
        return wall;
    };
    calls.select = [&](int, fd_set*, fd_set*, fd_set*, timeval* timeout) {
        waited.seconds.push_back(timeout->tv_sec);
        if (waited.seconds.size() > interruptions.size()) return 0;
        const Interruption& now = interruptions[waited.seconds.size() - 1];
        wall = wallStart + static_cast<time_t>(now.wall);
        monotonicTime = monotonicStart + static_cast<std::int64_t>(now.monotonic * static_cast<double>(second));
        errno = EINTR;
        return -1;
    };
    monotonicTime = monotonicStart;
    const Hooked hooked(calls);
    waited.rc = wait();
    monotonicTime = -1;
    return waited;
}

Waited waitOnASocket(const std::vector<Interruption>& interruptions)
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    const Waited waited = waitWith(interruptions, [&] {
        int error = 0;
        return waitForConnection(&ends[0], &error);
    });
    for (int each : ends) ::close(each);
    return waited;
}

// Set back by an hour at the first of them, with an interruption each half second.
std::vector<Interruption> everyHalfSecondUntil(double end)
{
    std::vector<Interruption> all;
    for (double at = 0.5; at <= end; at += 0.5) all.push_back({at - 3600, at});
    return all;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) noexcept
{
    if (clock == CLOCK_MONOTONIC && monotonicTime >= 0) {
        now->tv_sec = static_cast<time_t>(monotonicTime / second);
        now->tv_nsec = static_cast<long>(monotonicTime % second);
        return 0;
    }
#ifdef SYS_clock_gettime64 // 32-bit machines, where time_t is 64-bit here
    return static_cast<int>(syscall(SYS_clock_gettime64, clock, now));
#else
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
#endif
}

TEST(ClockSetBack, EndsTheWaitAtTheFirstInterruptionBehindAMinute)
{
    const Waited waited = waitOnASocket(everyHalfSecondUntil(100));
    EXPECT_EQ(-103, waited.rc);
    std::vector<time_t> seconds(120, 1); // the last of them is interrupted after 60 seconds
    seconds.front() = 60;
    EXPECT_EQ(seconds, waited.seconds);
}

TEST(ClockSetBack, LeavesEachWaitItsSecondBeforeThat)
{
    const Waited waited = waitOnASocket({{-3600, 10}, {-3599, 59.999}});
    EXPECT_EQ(-103, waited.rc) << "the third wait came to its end";
    EXPECT_EQ((std::vector<time_t>{60, 1, 1}), waited.seconds);
    EXPECT_EQ((std::vector<time_t>{60, 1}), waitOnASocket({{-3600, 10}, {-3599, 60}}).seconds);
}

TEST(ClockSetForward, ShortensTheWaitAsItAlwaysDid)
{
    EXPECT_EQ((std::vector<time_t>{60, 20}), waitOnASocket({{40, 2}}).seconds);
    EXPECT_EQ((std::vector<time_t>{60, 1}), waitOnASocket({{100000, 2}}).seconds);
}

TEST(ClockThatIsRight, IsNotOverruledByTheOther)
{
    EXPECT_EQ((std::vector<time_t>{60, 50, 30, 1}), waitOnASocket({{10, 10}, {30, 30}, {59, 59}}).seconds);
    EXPECT_EQ((std::vector<time_t>{60}), waitOnASocket({{61, 61}}).seconds);
}

TEST(ClockSetBack, MakesAnOpenATimeOutThatIsTracedAsOne)
{
    Unanswering gateway;
    TraceFile trace(1);
    Connection connection;
    const Waited waited = waitWith({{-3600, 30}, {-3600, 61}}, [&] { return connection.open(gateway.port()); });
    EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, waited.rc);
    EXPECT_EQ((std::vector<time_t>{60, 1}), waited.seconds);
    EXPECT_TRUE(connection.untouched());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(1u, linesNumbered(trace.lines(), 3016).size()) << trace.text();
}
