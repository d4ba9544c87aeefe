#include "samplestream.h"

#include "commands.h"
#include "recording.h"

#include <fmt/format.h>

#include <algorithm>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr const char* HomeAndClear = "\x1b[H\x1b[J";

bool isTable(const Settings& settings)
{
    return settings.form == Form::Table || settings.form == Form::Wide;
}

std::vector<Entry> entriesOf(const TargetAnswer& answer, SampleStream* stream)
{
    RateBook& book = stream->books[answer.target];
    beginRound(&book);
    std::vector<Entry> entries;
    if (answer.failure) {
        ++stream->gaps;
        Change gap;
        gap.note = Note::Gap;
        entries.push_back({&answer.target, nullptr, gap, answer.sample.time});
    }
    for (const Record& record : answer.sample.records) {
        const Change& change = observe(&book, record, answer.sample.monotonic);
        if (change.note == Note::Reset) ++stream->resets;
        entries.push_back({&answer.target, &record, change, answer.sample.time});
    }
    return entries;
}

std::string roundHeading(const Settings& settings, const SampleStream& stream)
{
    const WallTime now = stream.answers.empty() ? WallTime() : stream.answers.front().sample.time;
    std::string heading;
    for (const TargetAnswer& answer : stream.answers) heading += (heading.empty() ? "" : " ") + answer.target;
    return timeText(settings, now) + "  " + heading + '\n';
}

std::size_t terminalLines()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

// The first lines of a text; the last one says how many are left out.
std::string firstLines(const std::string& text, std::size_t lines)
{
    const auto count = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    if (lines == 0 || count < lines) return text;
    std::size_t end = 0;
    for (std::size_t i = 0; i + 2 < lines; ++i) end = text.find('\n', end) + 1;
    const std::size_t left = count - (lines > 2 ? lines - 2 : 0);
    return text.substr(0, end) + fmt::format("... {} more lines", left);
}

Written writeTable(const Settings& settings, SampleStream* stream)
{
    const bool hasHeading = settings.time != TimeForm::None && settings.hasHeader;
    const std::string table = render(stream->sheet, styleFor(settings));
    const std::string text = (hasHeading ? roundHeading(settings, *stream) : "") + table;
    if (stream->isRedrawn) return writeData(HomeAndClear + firstLines(text, terminalLines()));
    const bool isFirst = stream->rounds == 1;
    return writeData((isFirst || !settings.hasHeader ? "" : "\n") + text);
}

Written writeRound(const Settings& settings, SampleStream* stream)
{
    if (isTable(settings)) return writeTable(settings, stream);
    Style style = styleFor(settings);
    const bool isWhole = settings.form == Form::Prometheus; // each sample by itself
    style.hasHeader = settings.hasHeader && (isWhole || stream->rounds == 1);
    return writeData(render(stream->sheet, style));
}

// The first round decides whether there is anything to watch: a name that is misspelt will not come.
bool judgeFirst(const Settings& settings, SampleStream* stream)
{
    for (const TargetAnswer& answer : stream->answers) {
        judgeAnswer(settings, Question::Statistics, answer, &stream->first, &stream->sheet);
        if (answer.failure) stream->losses.insert(answer.target);
    }
    const bool isAllFailed = std::none_of(stream->first.codes.begin(), stream->first.codes.end(),
        [](ExitCode code) { return code == ExitDone || code == ExitPartial; });
    return !isAllFailed || stream->first.isAnyDelivered;
}

// What the recording tells; clocks that went back make no pause.
SteadyTime::duration pauseBetween(const RecordedRound& before, const RecordedRound& next, double speed)
{
    const std::chrono::duration<double> recorded =
        next.answers.front().sample.time - before.answers.front().sample.time;
    return std::chrono::duration_cast<SteadyTime::duration>(
        std::max(recorded, std::chrono::duration<double>(0)) / speed);
}

} // namespace

std::string startStream(const Settings& settings, SampleStream* stream)
{
    const std::string problem = makeView(settings, Question::Statistics, true, &stream->view);
    stream->needsGroups = needsGroups(stream->view, settings);
    stream->isRedrawn = isTable(settings) && isatty(STDOUT_FILENO) == 1;
    return problem;
}

bool streamRound(const Settings& settings, std::vector<TargetAnswer> answers, SampleStream* stream)
{
    stream->answers = std::move(answers);
    stream->last = std::chrono::steady_clock::now();
    stream->sheet = emptySheet(stream->view);
    ++stream->rounds;
    if (stream->rounds == 1 && !judgeFirst(settings, stream)) return false;
    std::vector<Entry> entries;
    for (TargetAnswer& answer : stream->answers) {
        const bool isTimeless = answer.sample.time == WallTime(); // a recording tells when a sample was missing
        if (answer.failure && isTimeless) answer.sample.time = std::chrono::system_clock::now();
        if (stream->rounds > 1) noteAnswer(settings, answer, &stream->losses);
        if (!answer.failure) stream->hasAnyAnswered = true;
        std::vector<Entry> more = entriesOf(answer, stream);
        std::move(more.begin(), more.end(), std::back_inserter(entries));
    }
    if (settings.isChangedOnly) {
        std::erase_if(entries, [](const Entry& entry) { return entry.record != nullptr && !entry.change.isOther; });
    }
    addRows(settings, stream->view, selectEntries(settings, std::move(entries)), &stream->sheet);
    stream->written = writeRound(settings, stream);
    return stream->written == Written::Yes;
}

void redrawRound(const Settings& settings, SampleStream* stream)
{
    if (stream->isRedrawn && stream->rounds > 0) stream->written = writeTable(settings, stream);
}

int endStream(const Settings& settings, RoundsEnd end, const SampleStream& stream)
{
    if (end == RoundsEnd::Interrupted) {
        const std::chrono::duration<double> seconds = stream.last - stream.start;
        remark(settings, fmt::format("interrupted after {} samples in {:.1f} seconds; {} gaps, {} resets",
                             stream.rounds, stream.rounds > 0 ? seconds.count() : 0.0, stream.gaps, stream.resets));
        return ExitInterrupted;
    }
    if (end == RoundsEnd::Terminated) return 128 + terminatingSignal();
    if (stream.written == Written::No) return ExitOutput;
    if (stream.written == Written::ReaderGone || end == RoundsEnd::ReaderGone) return ExitDone;
    const ExitCode first = exitCodeOf(stream.first);
    const bool isAboutNames = first == ExitUnknownName || first == ExitRefused;
    if (isAboutNames || !stream.hasAnyAnswered) return first;
    return first != ExitDone || stream.gaps > 0 ? ExitPartial : ExitDone;
}

int replayStream(const Settings& settings, double speed, const std::string& path, const std::vector<std::string>& names,
    SampleStream* stream)
{
    std::vector<RecordedRound> rounds;
    const std::string problem = readRecording(path, &rounds);
    if (!problem.empty()) return refuseUsage(problem);

    startEvents();
    const Inquiry inquiry{Question::Statistics, names, stream->needsGroups};
    RoundsEnd end = RoundsEnd::Done;
    for (std::size_t i = 0; i < rounds.size() && end == RoundsEnd::Done; ++i) {
        std::vector<TargetAnswer> answers;
        for (const TargetAnswer& answer : rounds[i].answers) answers.push_back(answerFromSample(answer, inquiry));
        if (!streamRound(settings, std::move(answers), stream)) break;
        if (i + 1 == rounds.size() || speed <= 0) continue;
        const auto next = std::chrono::steady_clock::now() + pauseBetween(rounds[i], rounds[i + 1], speed);
        waitForRound(
            next, [&] { redrawRound(settings, stream); }, &end);
    }
    return endStream(settings, end, *stream);
}
