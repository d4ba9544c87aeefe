// diff: two snapshots, each from a file or from a gateway.

#include "commands.h"

#include "outcome.h"
#include "output.h"
#include "printable.h"
#include "recording.h"
#include "show.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include <unistd.h>

namespace {

// A file goes before a target of the same name.
bool isFile(const std::string& name)
{
    return name == "-" || access(name.c_str(), F_OK) == 0;
}

struct Snapshot {
    std::vector<TargetAnswer> answers;
};

std::string readSnapshot(const Settings& settings, const std::string& name, Snapshot* snapshot)
{
    if (isFile(name)) {
        std::vector<RecordedRound> rounds;
        const std::string problem = readRecording(name, &rounds);
        if (problem.empty()) snapshot->answers = answerFromRecording(rounds, {});
        return problem;
    }
    Target target;
    const std::string problem = readNamedTarget(settings, name, &target);
    if (!problem.empty()) return fmt::format("{} is no file, and no target: {}", inQuotes(name), problem);
    snapshot->answers.push_back(inquireOnce(target, {}, settings.limits));
    return "";
}

// What is compared is found by its id; by its target, too, where a snapshot has several.
struct Key {
    std::string target;
    std::string id;
    auto operator<=>(const Key&) const = default;
};

struct Pair {
    const Record* before = nullptr;
    const Record* after = nullptr;
};

using Pairs = std::map<Key, Pair>;

void addSnapshot(const Settings& settings, const Snapshot& snapshot, bool hasTargets, const Record* Pair::*side,
    Pairs* pairs, std::vector<Key>* order)
{
    for (const TargetAnswer& answer : snapshot.answers) {
        for (const Record& record : answer.sample.records) {
            if (!isSelected(settings.selection, record.id)) continue;
            Key key{hasTargets ? answer.target : "", record.id};
            const auto [place, isNew] = pairs->try_emplace(key);
            if (isNew) order->push_back(std::move(key));
            if (place->second.*side == nullptr) place->second.*side = &record;
        }
    }
}

const char* changeOf(const Pair& pair)
{
    if (pair.before == nullptr) return "added";
    if (pair.after == nullptr) return "removed";
    return pair.before->value != pair.after->value ? "changed" : "";
}

Cell valueCell(const Settings& settings, const Record* record)
{
    Cell cell;
    if (record == nullptr) return cell;
    cell.text = record->value;
    const std::optional<Number> number = readNumber(record->value);
    if (number && settings.units != Units::Raw) cell.forPeople = numberText(*number, settings.units);
    return cell;
}

Cell deltaCell(const Settings& settings, const Pair& pair)
{
    Cell cell;
    cell.forPeople = "";
    if (pair.before == nullptr || pair.after == nullptr) return cell;
    const std::optional<Number> before = readNumber(pair.before->value);
    const std::optional<Number> after = readNumber(pair.after->value);
    if (!before || !after) return cell;
    cell.text = numberText(*after - *before, Units::Raw);
    cell.forPeople = numberText(*after - *before, settings.units);
    return cell;
}

Cell cellFor(const Settings& settings, const Key& key, const Pair& pair, Column column)
{
    switch (column) {
    case Column::Target: return {key.target, std::nullopt, Emphasis::None};
    case Column::Id: return {key.id, std::nullopt, Emphasis::None};
    case Column::Change: return {changeOf(pair), std::nullopt, Emphasis::None};
    case Column::Before: return valueCell(settings, pair.before);
    case Column::After: return valueCell(settings, pair.after);
    case Column::Delta: return deltaCell(settings, pair);
    default: return {}; // those of other commands are not allowed here
    }
}

std::string chooseColumns(const Settings& settings, bool hasTargets, std::vector<Column>* columns)
{
    const std::vector<Column> all = {
        Column::Target, Column::Id, Column::Change, Column::Before, Column::After, Column::Delta};
    if (settings.form == Form::Prometheus) return "--output 'prom': there are no values to show";
    if (settings.form == Form::Value || settings.form == Form::Name) {
        *columns = {settings.form == Form::Value ? Column::After : Column::Id};
        return "";
    }
    *columns = {all.begin() + (hasTargets ? 0 : 1), all.end()};
    if (settings.columns.empty()) return "";
    const std::string problem = readColumns(settings.columns, all, columns);
    return problem.empty() ? "" : "--columns: " + problem;
}

Outcome judgeSnapshots(const Settings& settings, const Snapshot& before, const Snapshot& after, Sheet* sheet)
{
    Outcome outcome;
    for (const Snapshot* snapshot : {&before, &after}) {
        for (const TargetAnswer& answer : snapshot->answers) {
            judgeAnswer(settings, Question::Statistics, answer, &outcome, sheet);
        }
    }
    return outcome;
}

} // namespace

int runDiff(const Settings& settings)
{
    if (settings.names.size() != 2) return refuseUsage("the command diff needs two snapshots: files or gateways");
    if (settings.names[0] == "-" && settings.names[1] == "-") return refuseUsage("standard input is one snapshot only");
    Snapshot before;
    Snapshot after;
    std::string problem = readSnapshot(settings, settings.names[0], &before);
    if (problem.empty()) problem = readSnapshot(settings, settings.names[1], &after);
    const bool hasTargets = before.answers.size() > 1 || after.answers.size() > 1;
    Sheet sheet;
    if (problem.empty()) problem = chooseColumns(settings, hasTargets, &sheet.columns);
    if (!problem.empty()) return refuseUsage(problem);

    sheet.kind = "difference";
    sheet.documentKind = "differences";
    sheet.time = isoTime(std::chrono::system_clock::now(), true);
    const Outcome outcome = judgeSnapshots(settings, before, after, &sheet);
    const auto isFailure = [](ExitCode code) { return code != ExitDone; };
    const auto failure = std::find_if(outcome.codes.begin(), outcome.codes.end(), isFailure);
    if (failure != outcome.codes.end()) return *failure; // half a comparison would be a lie

    Pairs pairs;
    std::vector<Key> order;
    addSnapshot(settings, before, hasTargets, &Pair::before, &pairs, &order);
    addSnapshot(settings, after, hasTargets, &Pair::after, &pairs, &order);
    for (const Key& key : order) {
        const Pair& pair = pairs.at(key);
        if (*changeOf(pair) == '\0') continue;
        std::vector<Cell> row;
        for (Column column : sheet.columns) row.push_back(cellFor(settings, key, pair, column));
        sheet.rows.push_back(std::move(row));
    }
    return showSheet(settings, sheet, sheet.rows.empty() ? ExitDone : ExitRefused);
}
