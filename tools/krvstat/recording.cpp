#include "recording.h"

#include "files.h"
#include "json_text.h"
#include "printable.h"
#include "similar.h"
#include "timestamps.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace {

// ---- Lines ----

Json statisticOf(const Record& record)
{
    Json statistic = Json::object();
    if (!record.group.empty()) addText(&statistic, "group", record.group);
    addText(&statistic, "id", record.id);
    addText(&statistic, "value", record.value);
    return statistic;
}

bool readStatistic(const Json& statistic, Record* record)
{
    if (!statistic.is_object() || !takeText(statistic, "id", &record->id)) return false;
    takeText(statistic, "group", &record->group);
    return takeText(statistic, "value", &record->value);
}

bool readTime(const Json& object, Sample* sample)
{
    std::string text;
    if (!takeText(object, "time", &text) || !readIsoTime(text, &sample->time)) return false;
    const auto monotonic = object.find("monotonic_ns");
    if (monotonic != object.end() && monotonic->is_number_integer()) {
        sample->monotonic = std::chrono::nanoseconds(monotonic->get<std::int64_t>());
    } else {
        sample->monotonic = sample->time.time_since_epoch();
    }
    return true;
}

std::string readSampleLine(const Json& line, std::vector<RecordedRound>* rounds)
{
    TargetAnswer answer;
    const auto round = line.find("round");
    const bool isPlaced =
        round != line.end() && round->is_number_unsigned() && takeText(line, "target", &answer.target);
    if (!isPlaced || !readTime(line, &answer.sample)) return "it is no sample of a recording";
    const auto statistics = line.find("statistics");
    std::string gap;
    if (takeText(line, "gap", &gap)) {
        answer.failure = Failure{ExitPartial, fmt::format("{}: {}", answer.target, gap)};
    } else if (statistics == line.end() || !statistics->is_array()) {
        return "it is no sample of a recording";
    } else {
        for (const Json& statistic : *statistics) {
            Record record;
            if (!readStatistic(statistic, &record)) return "it has a statistic without id or value";
            answer.sample.records.push_back(std::move(record));
        }
    }
    const auto number = round->get<std::uint64_t>();
    if (rounds->empty() || rounds->back().number != number) rounds->push_back({number, {}});
    rounds->back().answers.push_back(std::move(answer));
    return "";
}

// ---- Documents ----

std::string readDocument(const Json& document, std::vector<RecordedRound>* rounds)
{
    const auto records = document.find("records");
    Sample times;
    if (records == document.end() || !records->is_array() || !readTime(document, &times)) {
        return "it is no document with statistics";
    }
    RecordedRound round;
    std::unordered_map<std::string, std::size_t> placeOf;
    for (const Json& each : *records) {
        Record record;
        std::string target = "file";
        takeText(each, "target", &target);
        if (!readStatistic(each, &record)) return "it has a record without id or value";
        const auto [place, isNew] = placeOf.try_emplace(target, round.answers.size());
        if (isNew) {
            round.answers.push_back({target, std::nullopt, {}, ""});
            round.answers.back().sample.time = times.time;
            round.answers.back().sample.monotonic = times.monotonic;
        }
        round.answers[place->second].sample.records.push_back(std::move(record));
    }
    rounds->push_back(std::move(round));
    return "";
}

bool isVersioned(const Json& object)
{
    const auto version = object.is_object() ? object.find("schema_version") : object.end();
    return version != object.end() && *version == SchemaVersion;
}

std::string kindOf(const Json& object)
{
    std::string kind;
    takeText(object, "kind", &kind);
    return kind;
}

std::string readLines(const std::string& content, std::vector<RecordedRound>* rounds)
{
    std::size_t number = 0;
    for (std::size_t start = 0; start < content.size();) {
        const std::size_t end = content.find('\n', start);
        if (end == std::string::npos) return "";
        ++number;
        const Json line = Json::parse(content.begin() + static_cast<std::ptrdiff_t>(start),
            content.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
        start = end + 1;
        if (!isVersioned(line) || kindOf(line) != "sample") {
            return fmt::format("line {}: it is no sample of a recording", number);
        }
        const std::string problem = readSampleLine(line, rounds);
        if (!problem.empty()) return fmt::format("line {}: {}", number, problem);
    }
    return "";
}

// ---- Answers ----

std::vector<Record> groupsOf(const Sample& sample)
{
    std::vector<Record> groups;
    std::unordered_set<std::string> seen;
    for (const Record& record : sample.records) {
        if (!record.group.empty() && seen.insert(record.group).second) groups.push_back({record.group, "", ""});
    }
    return groups;
}

void refuse(const std::string& name, Question question, const Sample& recorded, Sample* sample)
{
    std::vector<std::string> known;
    for (const Record& group : groupsOf(recorded)) known.push_back(group.id);
    if (question == Question::Statistics) {
        for (const Record& record : recorded.records) known.push_back(record.id);
    }
    sample->refused.push_back({name, 0, true, mostSimilar(name, known)});
}

} // namespace

std::string recordLine(std::uint64_t round, const TargetAnswer& answer)
{
    Json line = Json::object();
    line["schema_version"] = SchemaVersion;
    line["kind"] = "sample";
    line["round"] = round;
    line["time"] = isoTime(answer.sample.time, true);
    line["monotonic_ns"] = static_cast<std::int64_t>(answer.sample.monotonic.count());
    addText(&line, "target", answer.target);
    if (answer.failure) {
        addText(&line, "gap", answer.failure->sentence);
    } else {
        Json& statistics = line["statistics"] = Json::array();
        for (const Record& record : answer.sample.records) statistics.push_back(statisticOf(record));
    }
    return jsonText(line, false) + '\n';
}

std::string readRecording(const std::string& path, std::vector<RecordedRound>* rounds)
{
    std::string content;
    std::string problem = readFile(path, &content);
    if (problem.empty()) {
        const Json document = Json::parse(content, nullptr, false);
        const bool isDocument = isVersioned(document) && kindOf(document) == "statistics";
        problem = isDocument ? readDocument(document, rounds) : readLines(content, rounds);
    }
    if (problem.empty() && rounds->empty()) problem = "it holds no sample";
    return problem.empty() ? "" : fmt::format("the file {}: {}", inQuotes(path), problem);
}

TargetAnswer answerFromSample(const TargetAnswer& recorded, const Inquiry& inquiry)
{
    if (recorded.failure || (inquiry.question == Question::Statistics && inquiry.names.empty())) return recorded;
    const Sample& all = recorded.sample;
    TargetAnswer answer{recorded.target, std::nullopt, {}, ""};
    answer.sample.time = all.time;
    answer.sample.monotonic = all.monotonic;
    if (inquiry.question == Question::Groups) {
        answer.sample.records = groupsOf(all);
        return answer;
    }
    if (inquiry.names.empty()) answer.sample.records = all.records;
    for (const std::string& name : inquiry.names) {
        const std::size_t before = answer.sample.records.size();
        for (const Record& record : all.records) {
            const bool isNamed = inquiry.question == Question::Statistics && record.id == name;
            if (record.group == name || isNamed) answer.sample.records.push_back(record);
        }
        if (answer.sample.records.size() == before) refuse(name, inquiry.question, all, &answer.sample);
    }
    return answer;
}

std::vector<TargetAnswer> answerFromRecording(const std::vector<RecordedRound>& rounds, const Inquiry& inquiry)
{
    std::vector<TargetAnswer> answers;
    for (auto round = rounds.rbegin(); round != rounds.rend(); ++round) {
        for (const TargetAnswer& recorded : round->answers) {
            const auto isSame = [&](const TargetAnswer& answer) { return answer.target == recorded.target; };
            if (recorded.failure || std::any_of(answers.begin(), answers.end(), isSame)) continue;
            answers.push_back(answerFromSample(recorded, inquiry));
        }
    }
    return answers;
}
