// What several targets came to: what is said about it, and the one exit code.
#ifndef KRVSTAT_OUTCOME_H
#define KRVSTAT_OUTCOME_H

#include "inquiry.h"
#include "settings.h"
#include "sheet.h"

#include <vector>

struct Outcome {
    std::vector<ExitCode> codes; // one a target
    bool isAnyDelivered = false;
};

// Says what went wrong with an answer and notes it, in the sheet as well.
void judgeAnswer(
    const Settings& settings, Question question, const TargetAnswer& answer, Outcome* outcome, Sheet* sheet);

// One code for all: that of the targets if they agree, "partial" if something was delivered, else the first failure.
ExitCode exitCodeOf(const Outcome& outcome);

#endif
