// Why a conversation failed, in words and as an exit code.
#ifndef KRVSTAT_FAILURES_H
#define KRVSTAT_FAILURES_H

#include "exitcodes.h"
#include "session.h"
#include "target.h"

#include <string>

struct Failure {
    ExitCode exitCode;
    std::string sentence;
};

// For a result whose code is not 0.
Failure describeFailure(const CallResult& result, const Target& target);

#endif
