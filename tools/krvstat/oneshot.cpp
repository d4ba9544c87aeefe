#include "oneshot.h"

#include "commands.h"
#include "output.h"
#include "recording.h"
#include "rounds.h"

#include <fmt/format.h>

namespace {

constexpr Milliseconds UsualPause{1000};

int lastTwoRounds(
    const Settings& settings, const Inquiry& inquiry, std::vector<TargetAnswer>* before, std::vector<TargetAnswer>* now)
{
    std::vector<RecordedRound> rounds;
    const std::string problem = readRecording(settings.input, &rounds);
    if (!problem.empty()) return refuseUsage(problem);
    for (const TargetAnswer& answer : rounds.back().answers) now->push_back(answerFromSample(answer, inquiry));
    if (rounds.size() < 2) return ExitDone;
    for (const TargetAnswer& answer : rounds[rounds.size() - 2].answers) {
        before->push_back(answerFromSample(answer, inquiry));
    }
    return ExitDone;
}

} // namespace

std::string answerOnce(const Settings& settings, const Inquiry& inquiry, std::vector<TargetAnswer>* answers)
{
    if (settings.input.empty()) {
        *answers = inquireAll(settings.targets, inquiry, settings.limits);
        return "";
    }
    std::vector<RecordedRound> rounds;
    const std::string problem = readRecording(settings.input, &rounds);
    if (problem.empty()) *answers = answerFromRecording(rounds, inquiry);
    return problem;
}

int answerTwice(
    const Settings& settings, const Inquiry& inquiry, std::vector<TargetAnswer>* before, std::vector<TargetAnswer>* now)
{
    if (!settings.input.empty()) return lastTwoRounds(settings, inquiry, before, now);
    startEvents();
    Schedule schedule = scheduleOf(settings, UsualPause);
    schedule.count = 2;
    const RoundWork keep = [&](std::uint64_t number, std::vector<TargetAnswer> answers) {
        *(number == 1 ? before : now) = std::move(answers);
        return true;
    };
    const RoundsEnd end = runRounds(settings, inquiry, schedule, keep, nullptr);
    if (end == RoundsEnd::Interrupted) return ExitInterrupted;
    if (end == RoundsEnd::Terminated) return 128 + terminatingSignal();
    return ExitDone;
}
