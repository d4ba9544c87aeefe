// check: one value against ranges, with the output and the exit codes that monitoring systems expect of a plugin: one
// line for people, behind "|" the number for machines, and everything that prevents a judgement is UNKNOWN.

#include "commands.h"

#include "oneshot.h"
#include "output.h"
#include "printable.h"
#include "ranges.h"
#include "rates.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr const char* StateNames[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

struct Judgement {
    PluginState state = PluginUnknown;
    std::string words;
    std::string performance; // empty: there is no number
};

struct Limits {
    std::optional<Range> warn;
    std::optional<Range> crit;
};

std::string readLimits(const Settings& settings, Limits* limits)
{
    if (!settings.warn.empty()) {
        const std::string problem = readRange(settings.warn, &limits->warn.emplace());
        if (!problem.empty()) return fmt::format("--warn {}: {}", inQuotes(settings.warn), problem);
    }
    if (!settings.crit.empty()) {
        const std::string problem = readRange(settings.crit, &limits->crit.emplace());
        if (!problem.empty()) return fmt::format("--crit {}: {}", inQuotes(settings.crit), problem);
    }
    return "";
}

// Of a plugin's line "|" begins the numbers; a line end would end it.
std::string inLine(const std::string& text)
{
    std::string line = printable(text).text;
    std::replace(line.begin(), line.end(), '|', '/');
    return line;
}

// In quotes, in which ' is doubled; "=" is not allowed.
std::string labelOf(const std::string& text)
{
    std::string label = "'";
    for (const char c : inLine(text)) {
        if (c == '\'') label += '\'';
        label += c == '=' ? '_' : c;
    }
    return label + '\'';
}

Judgement judgeNumber(const Settings& settings, const Limits& limits, const std::string& id, Number number)
{
    const bool isRate = settings.derived == Derived::Rate;
    const std::string shown = isRate ? rateText(number, Units::Raw) : numberText(number, Units::Raw);
    Judgement judgement;
    judgement.state = PluginOk;
    std::string reason;
    if (limits.warn && raisesAlarm(*limits.warn, number)) {
        judgement.state = PluginWarning;
        reason = " (warning: " + settings.warn + ")";
    }
    if (limits.crit && raisesAlarm(*limits.crit, number)) {
        judgement.state = PluginCritical;
        reason = " (critical: " + settings.crit + ")";
    }
    const char* const unit = isRate ? "/s" : "";
    judgement.words = fmt::format("{} is {}{}{}", inLine(id), shown, unit, reason);
    judgement.performance = fmt::format("{}={};{};{}", labelOf(id), shown, settings.warn, settings.crit);
    return judgement;
}

Judgement unknown(const std::string& words)
{
    return {PluginUnknown, inLine(words), ""};
}

Judgement judge(
    const Settings& settings, const Limits& limits, const TargetAnswer& answer, const std::vector<TargetAnswer>& before)
{
    const std::string& id = settings.names.front();
    if (answer.failure) return unknown(answer.failure->sentence);
    const std::vector<Record>& records = answer.sample.records;
    const auto record = std::find_if(records.begin(), records.end(), [&](const Record& each) { return each.id == id; });
    if (record == records.end()) return unknown(fmt::format("there is no statistic {}", id));

    RateBook book;
    for (const TargetAnswer& each : before) {
        if (each.target != answer.target || each.failure) continue;
        beginRound(&book);
        for (const Record& old : each.sample.records) observe(&book, old, each.sample.monotonic);
    }
    beginRound(&book);
    const Change& change = observe(&book, *record, answer.sample.monotonic);
    std::optional<Number> number = readNumber(record->value);
    if (!number) return unknown(fmt::format("{} is no number: {}", id, record->value));
    if (settings.derived == Derived::Rate) number = change.rate;
    if (settings.derived == Derived::Delta) number = change.delta;
    if (!number && change.note != Note::None) return unknown(fmt::format("{}: {}", id, noteText(change.note)));
    if (!number) return unknown(fmt::format("{} has no sample before this one", id));
    return judgeNumber(settings, limits, id, *number);
}

// UNKNOWN is no worse than WARNING to a person, but hides nothing that is CRITICAL.
int severityOf(PluginState state)
{
    constexpr int severities[] = {0, 1, 3, 2};
    return severities[state];
}

int report(const std::vector<TargetAnswer>& answers, std::vector<Judgement> judgements)
{
    PluginState worst = PluginOk;
    std::string words;
    std::string performance;
    for (std::size_t i = 0; i < judgements.size(); ++i) {
        const Judgement& each = judgements[i];
        if (severityOf(each.state) > severityOf(worst)) worst = each.state;
        const bool isOneOfMany = judgements.size() > 1;
        if (!words.empty()) words += ", ";
        if (isOneOfMany) words += answers[i].target + ": ";
        words += each.words;
        if (each.performance.empty()) continue;
        performance += performance.empty() ? " |" : "";
        performance += ' ';
        if (isOneOfMany) performance += "'" + answers[i].target + " " + each.performance.substr(1);
        else performance += each.performance;
    }
    const Written written = writeData(fmt::format("KRVSTAT {} - {}{}\n", StateNames[worst], words, performance));
    return written == Written::No ? PluginUnknown : worst;
}

int reportUnknown(const std::string& words)
{
    return report({{}}, {unknown(words)});
}

} // namespace

int runCheck(const Settings& settings)
{
    Limits limits;
    if (settings.names.empty()) return reportUnknown("the command check needs the id of a statistic");
    std::string problem = readLimits(settings, &limits);
    if (!problem.empty()) return reportUnknown(problem);

    const Inquiry inquiry{Question::Statistics, settings.names, false};
    std::vector<TargetAnswer> before;
    std::vector<TargetAnswer> answers;
    if (settings.derived == Derived::Rate || settings.derived == Derived::Delta) {
        const int code = answerTwice(settings, inquiry, &before, &answers);
        if (code != ExitDone) return reportUnknown("interrupted");
    } else {
        problem = answerOnce(settings, inquiry, &answers);
        if (!problem.empty()) return reportUnknown(problem);
    }
    std::vector<Judgement> judgements;
    judgements.reserve(answers.size());
    for (const TargetAnswer& answer : answers) judgements.push_back(judge(settings, limits, answer, before));
    return report(answers, std::move(judgements));
}
