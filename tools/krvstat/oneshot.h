// The answers to one question, from gateways or from a file.
#ifndef KRVSTAT_ONESHOT_H
#define KRVSTAT_ONESHOT_H

#include "inquiry.h"
#include "settings.h"

#include <string>
#include <vector>

// Returns an empty string, or what is wrong with the file of --input.
std::string answerOnce(const Settings& settings, const Inquiry& inquiry, std::vector<TargetAnswer>* answers);

// The same twice, with an interval between, for what is computed of two samples. Returns 0, or an exit code: of a file
// that cannot be used, which is said, or of a signal that ended the wait.
int answerTwice(const Settings& settings, const Inquiry& inquiry, std::vector<TargetAnswer>* before,
    std::vector<TargetAnswer>* now);

#endif
