// Holding SIGPIPE back around a write, also where a signal comes in between or the system refuses: its calls are wrapped
// at link time.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "stapi_krv_pipesignal.h"

namespace {

int interruptedWaits = 0; // still to come
int waits = 0;
bool pendingIsUnknown = false;

bool isBlocked()
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

bool isPending()
{
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

void writeToNobody()
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    close(ends[0]);
    EXPECT_EQ(-1, write(ends[1], "x", 1));
    EXPECT_EQ(EPIPE, errno);
    close(ends[1]);
}

// Leaves a stack behind on which nothing is zero.
__attribute__((noinline)) void soilStack()
{
    volatile unsigned char bytes[4096];
    for (volatile unsigned char& byte : bytes) byte = 0xFF;
}

// The calling thread blocks the signal itself.
class Blocked {
public:
    Blocked()
    {
        sigset_t pipes;
        sigemptyset(&pipes);
        sigaddset(&pipes, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipes, &before);
    }
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

private:
    sigset_t before;
};

} // namespace

// With 64-bit time on a 32-bit machine, the call has another name at link time.
#ifdef __USE_TIME_BITS64
#define REAL_SIGTIMEDWAIT __real___sigtimedwait64
#define WRAP_SIGTIMEDWAIT __wrap___sigtimedwait64
#else
#define REAL_SIGTIMEDWAIT __real_sigtimedwait
#define WRAP_SIGTIMEDWAIT __wrap_sigtimedwait
#endif

extern "C" {
int REAL_SIGTIMEDWAIT(const sigset_t* signals, siginfo_t* info, const timespec* limit);
int WRAP_SIGTIMEDWAIT(const sigset_t* signals, siginfo_t* info, const timespec* limit);
int __real_sigpending(sigset_t* pending);
int __wrap_sigpending(sigset_t* pending);

int WRAP_SIGTIMEDWAIT(const sigset_t* signals, siginfo_t* info, const timespec* limit)
{
    waits++;
    if (interruptedWaits-- > 0) {
        errno = EINTR;
        return -1;
    }
    return REAL_SIGTIMEDWAIT(signals, info, limit);
}

int __wrap_sigpending(sigset_t* pending)
{
    if (!pendingIsUnknown) return __real_sigpending(pending);
    errno = EFAULT;
    return -1;
}
}

TEST(PipeSignal, OfAWriteIsEatenUp)
{
    for (int interruptions : {0, 3}) {
        interruptedWaits = interruptions;
        waits = 0;
        PipeSignal held;
        errno = ENOTTY;
        holdPipeSignal(&held);
        EXPECT_EQ(ENOTTY, errno);
        writeToNobody();
        EXPECT_TRUE(isPending());
        errno = ENOTTY;
        releasePipeSignal(&held);
        EXPECT_EQ(ENOTTY, errno);
        EXPECT_EQ(interruptions + 1, waits);
        EXPECT_FALSE(isPending());
        EXPECT_FALSE(isBlocked());
    }
}

TEST(PipeSignal, IsNotMissedWhereNoneCame)
{
    interruptedWaits = 0;
    PipeSignal held;
    holdPipeSignal(&held);
    EXPECT_TRUE(isBlocked());
    errno = ENOTTY;
    releasePipeSignal(&held);
    EXPECT_EQ(ENOTTY, errno);
    EXPECT_FALSE(isBlocked());
}

TEST(PipeSignal, IsTheOnlyOneThatIsHeldBack)
{
    PipeSignal held;
    soilStack();
    holdPipeSignal(&held);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal : {SIGHUP, SIGINT, SIGUSR1, SIGTERM, SIGCHLD}) EXPECT_EQ(0, sigismember(&mask, signal)) << signal;
    releasePipeSignal(&held);
}

TEST(PipeSignal, OfAThreadThatBlocksItStaysBlocked)
{
    interruptedWaits = 0;
    const Blocked blocked;
    PipeSignal held;
    holdPipeSignal(&held);
    writeToNobody();
    releasePipeSignal(&held);
    EXPECT_FALSE(isPending());
    EXPECT_TRUE(isBlocked());
}

TEST(PipeSignal, ThatWasWaitingAlreadyIsTheApplications)
{
    const Blocked blocked;
    writeToNobody();
    ASSERT_TRUE(isPending());
    waits = 0;
    PipeSignal held;
    holdPipeSignal(&held);
    writeToNobody();
    releasePipeSignal(&held);
    EXPECT_EQ(0, waits);
    EXPECT_TRUE(isPending());
    EXPECT_TRUE(isBlocked());
    sigset_t pipes;
    sigemptyset(&pipes);
    sigaddset(&pipes, SIGPIPE);
    const timespec atOnce = {};
    EXPECT_EQ(SIGPIPE, sigtimedwait(&pipes, nullptr, &atOnce)) << "or it would end this program";
}

TEST(PipeSignal, ThatMayHaveBeenWaitingIsLeft)
{
    interruptedWaits = 0;
    const Blocked blocked;
    pendingIsUnknown = true;
    waits = 0;
    PipeSignal held;
    errno = ENOTTY;
    holdPipeSignal(&held);
    EXPECT_EQ(ENOTTY, errno);
    releasePipeSignal(&held);
    pendingIsUnknown = false;
    EXPECT_EQ(0, waits);
    EXPECT_TRUE(isBlocked());
}
