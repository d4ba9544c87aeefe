// record: a watch into a file, and replay: the file as a watch. Every sample is written out of the process at once, so
// that a record that is cut off has all but the last line.

#include "commands.h"

#include "losses.h"
#include "outcome.h"
#include "output.h"
#include "recording.h"
#include "rounds.h"
#include "samplestream.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

int keepOpen(std::FILE*)
{
    return 0;
}

File openFile(const std::string& path)
{
    if (path == "-") return {stdout, keepOpen};
    return {std::fopen(path.c_str(), "we"), std::fclose};
}

struct Recorder {
    File file;
    Outcome first; // of the first round, which decides whether there is anything to record
    Sheet notShown;
    Losses losses;
    std::uint64_t rounds = 0;
    std::uint64_t gaps = 0;
    int writeErrno = 0;
};

bool recordRound(const Settings& settings, std::uint64_t number, std::vector<TargetAnswer> answers, Recorder* recorder)
{
    if (number == 1) {
        for (const TargetAnswer& answer : answers) {
            judgeAnswer(settings, Question::Statistics, answer, &recorder->first, &recorder->notShown);
        }
        if (exitCodeOf(recorder->first) != ExitDone && !recorder->first.isAnyDelivered) return false;
    }
    std::string lines;
    for (TargetAnswer& answer : answers) {
        if (answer.failure) {
            ++recorder->gaps;
            answer.sample.time = std::chrono::system_clock::now();
            answer.sample.monotonic = std::chrono::steady_clock::now().time_since_epoch();
        }
        if (number > 1) noteAnswer(settings, answer, &recorder->losses);
        else if (answer.failure) recorder->losses.insert(answer.target);
        std::erase_if(
            answer.sample.records, [&](const Record& record) { return !isSelected(settings.selection, record.id); });
        lines += recordLine(number, answer);
    }
    ++recorder->rounds;
    std::FILE* const file = recorder->file.get();
    const bool isWritten = std::fwrite(lines.data(), 1, lines.size(), file) == lines.size() && std::fflush(file) == 0;
    recorder->writeErrno = isWritten ? 0 : errno;
    return isWritten;
}

int endOfRecord(const Settings& settings, RoundsEnd end, const Recorder& recorder)
{
    if (recorder.writeErrno == EPIPE || end == RoundsEnd::ReaderGone) return ExitDone;
    if (recorder.writeErrno != 0) {
        complain(fmt::format("cannot write the record: {}", std::strerror(recorder.writeErrno)));
        return ExitOutput;
    }
    remark(settings, fmt::format("{} samples recorded, {} gaps", recorder.rounds, recorder.gaps));
    if (end == RoundsEnd::Interrupted) return ExitInterrupted;
    if (end == RoundsEnd::Terminated) return 128 + terminatingSignal();
    const ExitCode first = exitCodeOf(recorder.first);
    return first == ExitDone && recorder.gaps > 0 ? ExitPartial : first;
}

// The arguments behind the file.
std::vector<std::string> idsBehindFile(const Settings& settings)
{
    return {settings.names.begin() + 1, settings.names.end()};
}

} // namespace

int runRecord(const Settings& settings)
{
    if (settings.names.empty()) return refuseUsage("the command record needs a file to write, or -");
    if (!settings.input.empty()) return refuseUsage("the command record asks gateways; it does not take --input");
    Recorder recorder{openFile(settings.names.front()), {}, {}, {}, 0, 0, 0};
    if (!recorder.file) {
        return refuseUsage(fmt::format("cannot write the file '{}': {}", settings.names.front(), std::strerror(errno)));
    }
    startEvents();
    const Inquiry inquiry{Question::Statistics, idsBehindFile(settings), true};
    const RoundWork work = [&](std::uint64_t number, std::vector<TargetAnswer> answers) {
        return recordRound(settings, number, std::move(answers), &recorder);
    };
    const RoundsEnd end = runRounds(settings, inquiry, scheduleOf(settings, Milliseconds(2000)), work, nullptr);
    return endOfRecord(settings, end, recorder);
}

int runReplay(const Settings& settings)
{
    if (settings.names.empty()) return refuseUsage("the command replay needs a file to read, or -");
    SampleStream stream;
    const std::string problem = startStream(settings, &stream);
    if (!problem.empty()) return refuseUsage(problem);
    return replayStream(settings, settings.speed, settings.names.front(), idsBehindFile(settings), &stream);
}
