#include "settings.h"

#include "config.h"
#include "printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include <unistd.h>

namespace {

constexpr char NameSeparator = ':';
constexpr std::size_t LongestName = 32765; // bytes that the library takes in one request
constexpr std::size_t MostTargets = 256;   // connections that the library can use at a time

// Where a setting comes from, strongest first. "said" is how a message names it.
struct Source {
    std::string said; // before the name of the setting
    std::map<std::string, std::string> texts;
    std::vector<std::string> targets;
};

struct EnvironmentRow {
    const char* variable;
    const char* option;
};

constexpr EnvironmentRow EnvironmentRows[] = {{"KRVSTAT_TIMEOUT", "timeout"}, {"KRVSTAT_CONFIG", "config"},
    {"KRVSTAT_CONTEXT", "context"}, {"KRVSTAT_OUTPUT", "output"}};

// An empty variable is as good as none.
const char* variable(const char* name)
{
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? text : nullptr;
}

Source optionSource(const Options& options)
{
    return {"--", options.texts, options.targets};
}

Source environmentSource()
{
    Source source{"in the environment, ", {}, {}};
    for (const EnvironmentRow& row : EnvironmentRows) {
        if (const char* text = variable(row.variable)) source.texts[row.option] = text;
    }
    if (const char* text = variable("KRVSTAT_TARGET")) {
        std::istringstream words(text);
        for (std::string word; words >> word;) source.targets.push_back(word);
    }
    return source;
}

struct Found {
    const std::string* text = nullptr;
    std::string name; // for messages: "--timeout"
};

Found findSetting(const std::vector<Source>& sources, const std::string& name)
{
    for (const Source& source : sources) {
        const auto found = source.texts.find(name);
        if (found != source.texts.end()) return {&found->second, source.said + name};
    }
    return {};
}

std::string wrong(const Found& found, const std::string& problem)
{
    return fmt::format("{} {}: {}", found.name, inQuotes(*found.text), problem);
}

// ---- The configuration file ----

std::string usualConfigFile()
{
    if (const char* folder = variable("XDG_CONFIG_HOME")) return std::string(folder) + "/krvstat/config.yaml";
    if (const char* home = variable("HOME")) return std::string(home) + "/.config/krvstat/config.yaml";
    return "";
}

// Adds what the file says behind the sources that are there. A context that was asked for by an option goes before the
// environment: who names it wants its targets.
std::string addConfig(std::vector<Source>* sources, Settings* settings)
{
    const Found named = findSetting(*sources, "config");
    const std::string path = named.text != nullptr ? *named.text : usualConfigFile();
    const Found context = findSetting(*sources, "context");
    Config config;
    if (named.text != nullptr || (!path.empty() && access(path.c_str(), F_OK) == 0)) {
        const std::string problem = readConfig(path, &config);
        if (!problem.empty()) return fmt::format("the configuration file {}: {}", inQuotes(path), problem);
    }
    settings->namedTargets = config.targets;

    const std::string said = "in the configuration file, ";
    const std::string* name = context.text;
    if (name == nullptr && config.context) name = &*config.context;
    if (name != nullptr) {
        const auto found = config.contexts.find(*name);
        if (found == config.contexts.end()) return fmt::format("there is no context {}", inQuotes(*name));
        const bool isOption = sources->front().texts.contains("context");
        sources->insert(
            isOption ? sources->begin() + 1 : sources->end(), {said, found->second.texts, found->second.targets});
    }
    sources->push_back({said, config.settings.texts, {}});
    return "";
}

// ---- Single settings: each returns what is wrong, and leaves the setting alone if there is none ----

std::string readTime(const std::vector<Source>& sources, const std::string& name, Milliseconds* time)
{
    const Found found = findSetting(sources, name);
    if (found.text == nullptr) return "";
    const std::string problem = readDuration(*found.text, time);
    return problem.empty() ? "" : wrong(found, problem);
}

std::string readTime(const std::vector<Source>& sources, const std::string& name, std::optional<Milliseconds>* time)
{
    Milliseconds read{};
    const std::string problem = readTime(sources, name, &read);
    if (problem.empty() && read.count() > 0) *time = read;
    return problem;
}

template <typename Integer>
std::string readCount(const std::vector<Source>& sources, const std::string& name, Integer least, Integer* count)
{
    const Found found = findSetting(sources, name);
    if (found.text == nullptr) return "";
    const char* const end = found.text->data() + found.text->size();
    Integer read = 0;
    const std::from_chars_result result = std::from_chars(found.text->data(), end, read);
    if (result.ec != std::errc() || result.ptr != end || read < least) {
        return wrong(found, fmt::format("it is not a whole number from {} on", least));
    }
    *count = read;
    return "";
}

template <typename Choice>
struct ChoiceRow {
    std::string_view name;
    Choice choice;
};

template <typename Choice, std::size_t N>
std::string readChoice(
    const std::vector<Source>& sources, const std::string& name, const ChoiceRow<Choice> (&rows)[N], Choice* choice)
{
    const Found found = findSetting(sources, name);
    if (found.text == nullptr) return "";
    std::string names;
    for (const ChoiceRow<Choice>& row : rows) {
        if (*found.text == row.name) {
            *choice = row.choice;
            return "";
        }
        names += fmt::format("{}{}", names.empty() ? "" : ", ", row.name);
    }
    return wrong(found, fmt::format("it is none of {}", names));
}

constexpr ChoiceRow<SortKey> SortKeys[] = {
    {"name", SortKey::Name}, {"value", SortKey::Value}, {"rate", SortKey::Rate}, {"none", SortKey::None}};
constexpr ChoiceRow<Units> UnitNames[] = {{"raw", Units::Raw}, {"si", Units::Si}, {"iec", Units::Iec}};
constexpr ChoiceRow<TimeForm> TimeForms[] = {
    {"none", TimeForm::None}, {"iso", TimeForm::Iso}, {"unix", TimeForm::Unix}};
constexpr ChoiceRow<ColourChoice> ColourChoices[] = {
    {"auto", ColourChoice::Auto}, {"always", ColourChoice::Always}, {"never", ColourChoice::Never}};
constexpr ChoiceRow<bool> YesOrNo[] = {{"", true}, {"true", true}, {"yes", true}, {"false", false}, {"no", false}};

std::string readText(const std::vector<Source>& sources, const std::string& name, std::string* text)
{
    const Found found = findSetting(sources, name);
    if (found.text == nullptr) return "";
    if (found.text->empty()) return fmt::format("{}: it is empty", found.name);
    *text = *found.text;
    return "";
}

std::string readTargets(const std::vector<Source>& sources, Settings* settings)
{
    for (const Source& source : sources) {
        for (const std::string& text : source.targets) {
            Target target;
            const std::string problem = readNamedTarget(*settings, text, &target);
            if (!problem.empty()) return fmt::format("{}target {}: {}", source.said, inQuotes(text), problem);
            const auto isSame = [&](const Target& other) { return targetText(other) == targetText(target); };
            if (std::none_of(settings->targets.begin(), settings->targets.end(), isSame)) {
                settings->targets.push_back(target);
            }
        }
        if (!settings->targets.empty()) break;
    }
    if (settings->targets.empty()) settings->targets.emplace_back();
    if (settings->targets.size() > MostTargets) {
        return fmt::format("there are {} targets; {} can be asked at a time", settings->targets.size(), MostTargets);
    }
    return "";
}

std::string readForm(const std::vector<Source>& sources, Form* form)
{
    const Found found = findSetting(sources, "output");
    if (found.text == nullptr || readForm(*found.text, form)) return "";
    return wrong(found, fmt::format("it is none of {}", FormNames));
}

std::string readSelection(const std::vector<Source>& sources, const Options& options, Selection* selection)
{
    selection->rules = options.rules;
    const Found regex = findSetting(sources, "regex");
    if (regex.text != nullptr) {
        const std::string problem = readRegex(*regex.text, &selection->regex);
        if (!problem.empty()) return wrong(regex, problem);
    }
    std::string problem = readChoice(sources, "sort", SortKeys, &selection->sort);
    if (problem.empty()) problem = readCount<std::size_t>(sources, "limit", 1, &selection->limit);
    return problem;
}

std::string readDerived(const Options& options, Derived* derived)
{
    int count = 0;
    for (const auto& [name, choice] :
        {std::pair{"raw", Derived::Raw}, {"rate", Derived::Rate}, {"delta", Derived::Delta}}) {
        if (findOption(options, name) == nullptr) continue;
        *derived = choice;
        ++count;
    }
    return count > 1 ? "only one of --raw, --rate and --delta can be wanted" : "";
}

std::string readTalk(const Options& options, Talk* talk)
{
    const bool isQuiet = findOption(options, "quiet") != nullptr;
    const bool isVerbose = findOption(options, "verbose") != nullptr;
    if (isQuiet && isVerbose) return "only one of --quiet and --verbose can be wanted";
    if (isQuiet) *talk = Talk::Quiet;
    if (isVerbose) *talk = Talk::Verbose;
    return "";
}

std::string readTrace(const std::vector<Source>& sources, Settings* settings)
{
    std::string problem = readCount(sources, "trace", 0, &settings->traceLevel);
    if (!problem.empty() || settings->traceLevel > 5) {
        return wrong(findSetting(sources, "trace"), "it is not a level from 0 to 5");
    }
    problem = readText(sources, "trace-file", &settings->traceFile);
    if (problem.empty() && !settings->traceFile.empty() && findSetting(sources, "trace").text == nullptr) {
        return "--trace-file needs --trace";
    }
    return problem;
}

std::string readSpeed(const std::vector<Source>& sources, double* speed)
{
    const Found found = findSetting(sources, "speed");
    if (found.text == nullptr) return "";
    const std::optional<Number> read = readNumber(*found.text);
    if (!read || *read < 0) return wrong(found, "it is not a number from 0 on");
    *speed = static_cast<double>(*read);
    return "";
}

std::string readCommandOptions(const std::vector<Source>& sources, const Options& options, Settings* settings)
{
    std::string problem = readTime(sources, "interval", &settings->interval);
    if (problem.empty()) problem = readTime(sources, "duration", &settings->duration);
    if (problem.empty() && findOption(options, "count") != nullptr) {
        problem = readCount<std::uint64_t>(sources, "count", 1, &settings->count.emplace());
    }
    if (problem.empty()) problem = readText(sources, "warn", &settings->warn);
    if (problem.empty()) problem = readText(sources, "crit", &settings->crit);
    if (problem.empty()) problem = readSpeed(sources, &settings->speed);
    settings->isAligned = findOption(options, "align") != nullptr;
    settings->isChangedOnly = findOption(options, "changed-only") != nullptr;
    return problem;
}

std::string checkNames(const Settings& settings)
{
    const bool hasFile = settings.command == Command::Record || settings.command == Command::Replay;
    const bool hasIds = settings.command != Command::Diff && settings.command != Command::Completion;
    for (std::size_t i = hasFile ? 1 : 0; hasIds && i < settings.names.size(); ++i) {
        const std::string& name = settings.names[i];
        if (name.empty()) return "an id is empty";
        if (name.find(NameSeparator) != std::string::npos) {
            return fmt::format("the id {} contains '{}', which separates ids; give each id as an argument of its own",
                inQuotes(name), NameSeparator);
        }
        if (name.size() > LongestName) {
            return fmt::format("an id is {} bytes long; one request holds {}", name.size(), LongestName);
        }
    }
    return "";
}

} // namespace

std::string completeSettings(const Options& options, Settings* settings)
{
    settings->command = options.command;
    settings->names = options.names;
    settings->hasHeader = findOption(options, "no-header") == nullptr;
    settings->ignoresMissing = findOption(options, "ignore-missing") != nullptr;

    std::vector<Source> sources = {optionSource(options), environmentSource()};
    std::string problem = addConfig(&sources, settings);
    if (problem.empty()) problem = readTargets(sources, settings);
    if (problem.empty()) problem = readTime(sources, "connect-timeout", &settings->limits.connect);
    if (problem.empty()) problem = readTime(sources, "timeout", &settings->limits.whole);
    if (problem.empty()) problem = readForm(sources, &settings->form);
    if (problem.empty()) problem = readSelection(sources, options, &settings->selection);
    if (problem.empty()) problem = readText(sources, "columns", &settings->columns);
    if (problem.empty()) problem = readDerived(options, &settings->derived);
    if (problem.empty()) problem = readChoice(sources, "units", UnitNames, &settings->units);
    if (problem.empty()) problem = readChoice(sources, "time", TimeForms, &settings->time);
    if (problem.empty()) problem = readChoice(sources, "utc", YesOrNo, &settings->isUtc);
    if (problem.empty()) problem = readChoice(sources, "color", ColourChoices, &settings->colour);
    if (problem.empty()) problem = readTalk(options, &settings->talk);
    if (problem.empty()) problem = readText(sources, "input", &settings->input);
    if (problem.empty()) problem = readTrace(sources, settings);
    if (problem.empty()) problem = readCommandOptions(sources, options, settings);
    if (problem.empty()) problem = checkNames(*settings);
    return problem;
}

std::string readNamedTarget(const Settings& settings, const std::string& text, Target* target)
{
    const auto named = settings.namedTargets.find(text);
    return readTarget(named != settings.namedTargets.end() ? named->second : text, target);
}
