// Parsing first, with an exception of its own that ends at parseScenario; serving at the end.
#include "scenario.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace krvgw {
namespace {

constexpr std::int64_t FARTHEST = 1'000'000'000'000'000;     // limits of walks and counters
constexpr std::int64_t MOST_REPEATED = 1'000'000;

struct ScenarioError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void refuse(const YAML::Node& node, const std::string& what)
{
    throw ScenarioError(fmt::format("line {}: {}", node.Mark().line + 1, what));
}

void allowKeys(const YAML::Node& node, std::string_view what, std::initializer_list<std::string_view> allowed)
{
    if (!node.IsMap()) refuse(node, fmt::format("{} must be a map", what));
    for (const auto& entry : node) {
        const auto key = entry.first.as<std::string>();
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end())
            refuse(entry.first, fmt::format("{} has no key \"{}\"", what, key));
    }
}

std::string textOf(const YAML::Node& node, std::string_view what)
{
    if (!node.IsScalar()) refuse(node, fmt::format("{} must be a text", what));
    return node.Scalar();
}

// A key that must be there.
YAML::Node childOf(const YAML::Node& parent, const std::string& key)
{
    if (!parent[key]) refuse(parent, fmt::format("{} is missing", key));
    return parent[key];
}

std::int64_t numberOf(const YAML::Node& node, std::string_view what, std::int64_t least, std::int64_t most)
{
    std::int64_t number = 0;
    if (!node.IsScalar() || !YAML::convert<std::int64_t>::decode(node, number) || number < least || number > most)
        refuse(node, fmt::format("{} must be a whole number from {} to {}", what, least, most));
    return number;
}

std::int64_t numberOr(const YAML::Node& node, std::int64_t fallback, std::string_view what, std::int64_t least,
                      std::int64_t most)
{
    return node ? numberOf(node, what, least, most) : fallback;
}

std::int32_t codeOr(const YAML::Node& node, std::int32_t fallback, std::string_view what)
{
    return static_cast<std::int32_t>(numberOr(node, fallback, what, std::numeric_limits<std::int32_t>::min(),
                                              std::numeric_limits<std::int32_t>::max()));
}

double secondsOf(const YAML::Node& node, std::string_view what, double least)
{
    double number = 0;
    if (!node.IsScalar() || !YAML::convert<double>::decode(node, number) || !(number >= least) || number > 1e9)
        refuse(node, fmt::format("{} must be a number from {} to 1e9", what, least));
    return number;
}

// Without a number nothing was repeated, and the placeholder is plain text.
std::string replaced(std::string text, std::string_view placeholder, std::optional<std::int64_t> number)
{
    if (!number) return text;
    const std::string digits = std::to_string(*number);
    for (std::size_t at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + digits.size()))
        text.replace(at, placeholder.size(), digits);
    return text;
}

Pattern constantOf(std::string text)
{
    Pattern pattern;
    pattern.text = std::move(text);
    return pattern;
}

Pattern filledTextOf(const YAML::Node& node)
{
    allowKeys(node, "text", {"repeat", "length"});
    const std::string unit = textOf(childOf(node, "repeat"), "repeat");
    if (unit.empty()) refuse(node, "repeat must not be empty");
    const auto length = static_cast<std::size_t>(
        numberOf(childOf(node, "length"), "length", 0, static_cast<std::int64_t>(LONGEST_TEXT)));
    std::string text;
    while (text.size() < length) text += unit;
    text.resize(length);
    return constantOf(text);
}

Pattern hexOfNode(const YAML::Node& node)
{
    const auto bytes = bytesOfHex(textOf(node, "hex"));
    if (!bytes) refuse(node, "hex must be pairs of hexadecimal digits");
    return constantOf(std::string(bytes->begin(), bytes->end()));
}

Pattern counterOf(const YAML::Node& node)
{
    allowKeys(node, "counter", {"start", "rate", "step"});
    if (!node["rate"] == !node["step"]) refuse(node, "counter needs either a rate (a second) or a step (a query)");
    Pattern pattern;
    pattern.kind = PatternKind::Counter;
    pattern.start = numberOr(node["start"], 0, "start", -FARTHEST, FARTHEST);
    pattern.step = numberOr(node["step"], 0, "step", -FARTHEST, FARTHEST);
    if (node["rate"]) pattern.rate = secondsOf(node["rate"], "rate", 0);
    return pattern;
}

Pattern walkOf(const YAML::Node& node)
{
    allowKeys(node, "walk", {"start", "step", "min", "max", "seed", "every"});
    Pattern pattern;
    pattern.kind = PatternKind::Walk;
    pattern.start = numberOr(node["start"], 0, "start", -FARTHEST, FARTHEST);
    pattern.step = numberOr(node["step"], 1, "step", 0, FARTHEST);
    pattern.least = numberOr(node["min"], -FARTHEST, "min", -FARTHEST, FARTHEST);
    pattern.most = numberOr(node["max"], FARTHEST, "max", -FARTHEST, FARTHEST);
    if (pattern.least > pattern.most) refuse(node, "min is above max");
    pattern.seed = static_cast<std::uint64_t>(numberOr(node["seed"], 1, "seed", 0, FARTHEST));
    const YAML::Node every = node["every"];
    if (every && every.Scalar() != "query") pattern.secondsEach = secondsOf(every, "every", 0.01);
    return pattern;
}

Pattern patternOf(const YAML::Node& node)
{
    int given = 0;
    for (const char* key : {"value", "text", "hex", "counter", "walk"}) given += node[key] ? 1 : 0;
    if (given != 1) refuse(node, "a statistic needs exactly one of value, text, hex, counter, walk");
    if (node["text"]) return filledTextOf(node["text"]);
    if (node["hex"]) return hexOfNode(node["hex"]);
    if (node["counter"]) return counterOf(node["counter"]);
    if (node["walk"]) return walkOf(node["walk"]);
    return constantOf(textOf(node["value"], "value"));
}

BlockCut cutOf(const YAML::Node& node)
{
    const std::string text = textOf(node, "a block");
    const bool isMarked = !text.empty() && (text[0] == 'z' || text[0] == 'w');
    const bool isMarkedLong = isMarked && text[0] == 'z';
    std::size_t size = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + (isMarked ? 1 : 0), end, size);
    if (parsed.ec != std::errc() || parsed.ptr != end || size < 1 || size > LONGEST_TEXT)
        refuse(node, "a block is a size from 1 to 32767, with z or w before it or not");
    const BlockCut cut{isMarkedLong || (!isMarked && size > 255), size};
    if (!cut.isLong && cut.size > 255) refuse(node, "a w block holds no more than 255 bytes");
    return cut;
}

// Refuses what no reader could put together again.
std::vector<BlockCut> cutsOf(const YAML::Node& node, const std::string& id)
{
    std::vector<BlockCut> cuts;
    if (!node) return cuts;
    if (!node.IsSequence() || node.size() == 0) refuse(node, "blocks must be a list");
    for (const auto& each : node) cuts.push_back(cutOf(each));
    if (!cuts.front().isLong) refuse(node, "the first of several blocks must be a z block");
    if (cuts.front().size < id.size() + 4) refuse(node, "the first block must hold the id and 4 bytes more");
    for (std::size_t i = 2; i < cuts.size(); ++i)
        if (cuts[i].isLong && !cuts[i - 1].isLong) refuse(node, "no z block may follow a w block");
    return cuts;
}

// The numbers of the repetitions; one without a number where nothing is repeated.
std::vector<std::optional<std::int64_t>> repetitionsOf(const YAML::Node& node)
{
    if (!node) return {std::nullopt};
    allowKeys(node, "repeat", {"count", "from"});
    const std::int64_t from = numberOr(node["from"], 1, "from", -FARTHEST, FARTHEST);
    const std::int64_t count = numberOf(childOf(node, "count"), "count", 0, MOST_REPEATED);
    std::vector<std::optional<std::int64_t>> numbers;
    for (std::int64_t i = 0; i < count; ++i) numbers.emplace_back(from + i);
    return numbers;
}

void addStatistics(std::vector<ScenarioStatistic>& statistics, const YAML::Node& node,
                   std::optional<std::int64_t> groupNumber)
{
    allowKeys(node, "a statistic", {"id", "value", "text", "hex", "counter", "walk", "rc", "blocks", "repeat"});
    const std::string id = textOf(childOf(node, "id"), "id");
    const Pattern pattern = patternOf(node);
    for (const auto& n : repetitionsOf(node["repeat"])) {
        ScenarioStatistic made;
        made.id = replaced(replaced(id, "{g}", groupNumber), "{n}", n);
        made.pattern = pattern;
        if (node["value"]) made.pattern.text = replaced(replaced(pattern.text, "{g}", groupNumber), "{n}", n);
        made.rc = codeOr(node["rc"], 0, "rc");
        made.cuts = cutsOf(node["blocks"], made.id);
        statistics.push_back(std::move(made));
    }
}

void addGroups(std::vector<ScenarioGroup>& groups, const YAML::Node& node)
{
    allowKeys(node, "a group", {"id", "rc", "statistics", "repeat"});
    const std::string id = textOf(childOf(node, "id"), "id");
    for (const auto& g : repetitionsOf(node["repeat"])) {
        ScenarioGroup made{replaced(id, "{g}", g), codeOr(node["rc"], 0, "rc"), {}};
        for (const auto& each : node["statistics"]) addStatistics(made.statistics, each, g);
        groups.push_back(std::move(made));
    }
}

ArrayForm arrayFormOf(const YAML::Node& node)
{
    const std::string text = node ? textOf(node, "array") : "when-several";
    if (text != "when-several" && text != "always") refuse(node, "array must be when-several or always");
    return text == "always" ? ArrayForm::Always : ArrayForm::WhenSeveral;
}

Misbehaviour misbehaviourOf(const YAML::Node& node)
{
    std::string complaint;
    const auto made = parseMisbehaviour(textOf(node, "a misbehaviour"), complaint);
    if (!made) refuse(node, complaint);
    return *made;
}

// The scenario as it is served at one moment of a connection.
Catalogue catalogueOf(const Scenario& scenario, std::vector<WalkState>& walks, std::uint64_t queries, double seconds)
{
    Catalogue catalogue{{}, scenario.unknownRc, scenario.everythingRc, scenario.arrayForm};
    std::size_t index = 0;
    for (const ScenarioGroup& group : scenario.groups) {
        Group made{group.id, {}, group.rc};
        made.statistics.reserve(group.statistics.size());
        for (const ScenarioStatistic& each : group.statistics) {
            if (index == walks.size()) walks.emplace_back();
            made.statistics.push_back(
                {each.id, valueOf(each.pattern, walks[index], queries, seconds), each.rc, each.cuts});
            ++index;
        }
        catalogue.groups.push_back(std::move(made));
    }
    return catalogue;
}

Scenario scenarioOf(const YAML::Node& root)
{
    allowKeys(root, "a scenario", {"protocol", "seed", "array", "unknown-rc", "all-rc", "groups", "misbehave"});
    Scenario scenario;
    if (root["protocol"]) scenario.protocolVersion = textOf(root["protocol"], "protocol");
    if (root["seed"]) scenario.seed = static_cast<std::uint64_t>(numberOf(root["seed"], "seed", 0, FARTHEST));
    scenario.arrayForm = arrayFormOf(root["array"]);
    scenario.unknownRc = codeOr(root["unknown-rc"], UNKNOWN_ID_RC, "unknown-rc");
    scenario.everythingRc = codeOr(root["all-rc"], 0, "all-rc");
    for (const auto& each : root["groups"]) addGroups(scenario.groups, each);
    for (const auto& each : root["misbehave"]) scenario.misbehaviours.push_back(misbehaviourOf(each));

    std::vector<WalkState> walks;
    const std::string fault = faultOfCatalogue(catalogueOf(scenario, walks, 0, 0));
    if (!fault.empty()) throw ScenarioError(fault);
    if (scenario.protocolVersion && scenario.protocolVersion->size() > LONGEST_TEXT)
        throw ScenarioError("protocol is longer than 32767 bytes");
    return scenario;
}

struct ScenarioSession : Session {
    ScenarioSession(const Scenario& served, std::chrono::steady_clock::time_point since)
        : scenario(served), startTime(since)
    {
    }

    Catalogue read(bool countsAsQuery) override
    {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - startTime;
        Catalogue catalogue = catalogueOf(scenario, walks, queries, elapsed.count());
        if (countsAsQuery) ++queries;
        return catalogue;
    }

    const Scenario& scenario;    // lives in the source, which outlives its sessions
    std::chrono::steady_clock::time_point startTime;
    std::uint64_t queries = 0;
    std::vector<WalkState> walks;
};

struct ScenarioSource : Source {
    explicit ScenarioSource(const Scenario& served) : scenario(served) {}

    std::unique_ptr<Session> openSession() override
    {
        return std::make_unique<ScenarioSession>(scenario, startTime);
    }

    const Scenario scenario;
    const std::chrono::steady_clock::time_point startTime = std::chrono::steady_clock::now();
};

}  // namespace

std::optional<Scenario> parseScenario(const std::string& yaml, std::string& complaint)
{
    try {
        return scenarioOf(YAML::Load(yaml));
    } catch (const std::exception& error) {
        complaint = error.what();
        return std::nullopt;
    }
}

std::optional<Scenario> loadScenario(const std::string& path, std::string& complaint)
{
    std::ifstream file(path);
    std::ostringstream yaml;
    yaml << file.rdbuf();
    if (!file.is_open() || file.bad()) {
        complaint = fmt::format("cannot read {}", path);
        return std::nullopt;
    }
    auto scenario = parseScenario(yaml.str(), complaint);
    if (!scenario) complaint = fmt::format("{}: {}", path, complaint);
    return scenario;
}

std::unique_ptr<Source> scenarioSource(const Scenario& scenario)
{
    return std::make_unique<ScenarioSource>(scenario);
}

}  // namespace krvgw
