// Pipes that nobody reads any more, and what becomes of the signal that their writers are sent.
//
// Include this in exactly one source file of a program.
#ifndef TESTS_SUPPORT_LOST_PIPE_H
#define TESTS_SUPPORT_LOST_PIPE_H

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "krvstats.h"

namespace krvtest {

inline volatile sig_atomic_t pipeSignals = 0; // that the application was sent, with countPipeSignal as its handler

inline void countPipeSignal(int)
{
    pipeSignals = pipeSignals + 1;
}

inline void setPipeSignal(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGPIPE, &action, nullptr);
}

inline bool pipeSignalIsBlocked()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

inline bool pipeSignalWaits()
{
    sigset_t waiting;
    sigpending(&waiting);
    return sigismember(&waiting, SIGPIPE) == 1;
}

// Standard error becomes a pipe that nobody reads.
inline bool loseStandardError()
{
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) return false;
    close(ends[0]);
    close(ends[1]);
    return true;
}

// A named pipe and its only reader, until that leaves.
class ReadPipe {
public:
    explicit ReadPipe(const std::string& name)
    {
        if (mkfifo(name.c_str(), 0600) == 0) reader = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (reader < 0) throw std::runtime_error("no named pipe");
    }
    ~ReadPipe() { leave(); }
    ReadPipe(const ReadPipe&) = delete;
    ReadPipe& operator=(const ReadPipe&) = delete;

    void leave()
    {
        if (reader >= 0) ::close(reader);
        reader = -1;
    }

private:
    int reader = -1;
};

// The trace goes into a named pipe whose only reader leaves.
inline bool loseTraceFile(std::string name)
{
    const ReadPipe pipe(name);
    return setAPITraceFile(name.data()) == KRVSTAT_OK;
}

} // namespace krvtest

#endif
