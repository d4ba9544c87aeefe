// Lets the calling thread read a wall clock that stands still.
//
// A program that defines clock_gettime is asked first, also by the shared library. Include this in exactly one source
// file of a program. Clocks other than CLOCK_REALTIME, and threads that set nothing, get the real time.
#ifndef TESTS_SUPPORT_FIXED_CLOCK_H
#define TESTS_SUPPORT_FIXED_CLOCK_H

#include <cstdlib>
#include <ctime>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

namespace krvtest {

struct FixedClock {
    bool fixed;
    std::time_t seconds;
    long nanoseconds;
    int reads; // since it was fixed
};

inline constinit thread_local FixedClock fixedClock{false, 0, 0, 0};

inline void fixClock(std::time_t seconds, int milliseconds)
{
    fixedClock = FixedClock{true, seconds, milliseconds * 1000000L, 0};
}

inline void releaseClock()
{
    fixedClock.fixed = false;
}

// Makes TZ take effect for as long as this lives.
class TimeZone {
public:
    explicit TimeZone(const char* name)
    {
        const char* old = std::getenv("TZ");
        had = old != nullptr;
        if (had) before = old;
        setenv("TZ", name, 1);
        tzset();
    }
    ~TimeZone()
    {
        if (had) setenv("TZ", before.c_str(), 1);
        else unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    bool had;
    std::string before;
};

} // namespace krvtest

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) noexcept
{
    krvtest::FixedClock& standing = krvtest::fixedClock;
    if (standing.fixed && clock == CLOCK_REALTIME) {
        standing.reads++;
        now->tv_sec = standing.seconds;
        now->tv_nsec = standing.nanoseconds;
        return 0;
    }
#ifdef SYS_clock_gettime64 // 32-bit machines, where time_t is 64-bit here
    return static_cast<int>(syscall(SYS_clock_gettime64, clock, now));
#else
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
#endif
}

#endif
