// Claims about a forked child: a process with a copy of everything and one thread.
#ifndef TESTS_SESSION_FORKED_CHILD_H
#define TESTS_SESSION_FORKED_CHILD_H

#include <cstdio>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hanging_gateways.h"

namespace krvtest {

constexpr int allHold = 0;
constexpr int neverEnded = -1;

// Runs the claims in a forked child. They return allHold, or the number of the first that does not hold: that, or
// neverEnded, is the result; a child that was ended by a signal gives 1000 and the signal's number.
//
// The child's good end is a signal too: at an exit, a leak checker would blame it for what the threads of the parent left
// behind.
template <typename Claims>
int failedClaimOfAFork(Claims claims)
{
    std::fflush(stdout); // or the child writes it once more
    const pid_t child = fork();
    if (child == 0) {
        const int failed = claims();
        if (failed == allHold) kill(getpid(), SIGKILL);
        _exit(failed);
    }
    int status = 0;
    if (!soon([&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return neverEnded;
    }
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGKILL ? allHold : 1000 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

} // namespace krvtest

#endif
