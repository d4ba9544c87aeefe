// Holds SIGPIPE back in the calling thread while it writes to a stream of somebody else's.

#include "stapi_krv_pipesignal.h"

#include <cerrno>
#include <csignal>
#include <ctime>

namespace {

sigset_t pipeSignalAlone()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    return signals;
}

} // namespace

void holdPipeSignal(PipeSignal* held)
{
    const int callersErrno = errno;
    const sigset_t pipes = pipeSignalAlone();
    sigset_t before;
    sigset_t waiting;
    sigemptyset(&before);
    held->isHeld = pthread_sigmask(SIG_BLOCK, &pipes, &before) == 0;
    held->wasBlocked = sigismember(&before, SIGPIPE);
    if (held->wasBlocked) held->isHeld = sigpending(&waiting) == 0 && !sigismember(&waiting, SIGPIPE);
    errno = callersErrno;
}

void releasePipeSignal(const PipeSignal* held)
{
    if (!held->isHeld) return;
    const int callersErrno = errno;
    const timespec atOnce = {};
    const sigset_t pipes = pipeSignalAlone();
    while (sigtimedwait(&pipes, nullptr, &atOnce) == -1 && errno == EINTR) continue;
    if (!held->wasBlocked) pthread_sigmask(SIG_UNBLOCK, &pipes, nullptr);
    errno = callersErrno;
}
