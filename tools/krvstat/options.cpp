// The command line is CLI11's to take apart; here stand its commands and options and their help, as tables.

#include "options.h"

#include "helptext.h"
#include "printable.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

struct OptionRow {
    const char* shortName; // NULL: none
    const char* longName;
    const char* value; // what it takes, in the help; NULL: nothing
    const char* description;
    const char* section; // of the help
};

constexpr const char* Gateways = "Gateways";
constexpr const char* Showing = "What is shown";
constexpr const char* Output = "How it is shown";
constexpr const char* Other = "Other options";
constexpr const char* Own = "Options"; // of a command, beside its help

constexpr OptionRow GlobalOptions[] = {
    {"-t", "--target", "HOST[:PORT]", "Gateway to ask; repeatable; default 127.0.0.1:7845", Gateways},
    {nullptr, "--connect-timeout", "TIME", "Longest time to connect; default 5s", Gateways},
    {nullptr, "--timeout", "TIME", "Longest time for all of it, each target; default 30s", Gateways},
    {nullptr, "--input", "FILE", "Read a recording or a JSON document, ask no gateway", Gateways},
    {nullptr, "--config", "FILE", "Configuration file", Gateways},
    {nullptr, "--context", "NAME", "Settings of the configuration file to use", Gateways},
    {"-I", "--include", "GLOB", "Show ids that match; repeatable, the first match of", Showing},
    {"-X", "--exclude", "GLOB", "-I and -X decides", Showing},
    {nullptr, "--regex", "RE", "Show ids in which the regular expression is found", Showing},
    {nullptr, "--sort", "KEY", "Order: name, value, rate or none (default)", Showing},
    {nullptr, "--limit", "N", "Show no more than N", Showing},
    {nullptr, "--rate", nullptr, "Show changes a second instead of values", Showing},
    {nullptr, "--delta", nullptr, "Show changes between samples instead of values", Showing},
    {nullptr, "--raw", nullptr, "Show values and no changes", Showing},
    {nullptr, "--ignore-missing", nullptr, "Ids that do not exist are no error", Showing},
    {"-o", "--output", "FORM", "Output form, see below; default table", Output},
    {nullptr, "--columns", "LIST", "Columns, as in time,target,id,value", Output},
    {nullptr, "--no-header", nullptr, "No headings", Output},
    {nullptr, "--units", "UNITS", "Numbers in tables: raw (default), si or iec", Output},
    {nullptr, "--time", "FORM", "Time of each sample: none, iso or unix", Output},
    {nullptr, "--utc", nullptr, "Times in UTC, not in local time", Output},
    {nullptr, "--color", "WHEN", "auto (default: on terminals), always or never", Output},
    {"-q", "--quiet", nullptr, "No messages but errors", Other},
    {"-v", "--verbose", nullptr, "Messages about what is done", Other},
    {nullptr, "--trace", "LEVEL", "Trace the library's work: 0 (off) to 5 (all)", Other},
    {nullptr, "--trace-file", "FILE", "Append the trace to FILE; needs --trace", Other},
};

constexpr OptionRow Interval = {"-n", "--interval", "TIME", "Time between samples; default 2s", Own};
constexpr OptionRow Pause = {"-n", "--interval", "TIME", "Time between two samples, for rates; default 1s", Own};
constexpr OptionRow Count = {"-c", "--count", "N", "End after N samples", Own};
constexpr OptionRow PingPause = {"-n", "--interval", "TIME", "Time between them; default 1s", Own};
constexpr OptionRow Times = {"-c", "--count", "N", "Ask N times; default 1", Own};
constexpr OptionRow Duration = {nullptr, "--duration", "TIME", "End after that time", Own};
constexpr OptionRow Align = {nullptr, "--align", nullptr, "Take samples at multiples of the interval", Own};
constexpr OptionRow ChangedOnly = {nullptr, "--changed-only", nullptr, "Show what has changed only", Own};
constexpr OptionRow Warn = {nullptr, "--warn", "RANGE", "WARNING unless the value is in the range", Own};
constexpr OptionRow Crit = {nullptr, "--crit", "RANGE", "CRITICAL unless the value is in the range", Own};
constexpr OptionRow Speed = {nullptr, "--speed", "FACTOR", "How fast; 0: without waiting; default 1", Own};

struct CommandRow {
    Command command;
    const char* name;
    const char* description;
    const char* argument; // NULL: takes none
    const char* argumentHelp;
    std::size_t most; // arguments
    std::vector<OptionRow> options;
};

constexpr std::size_t Any = 1000000;

const std::vector<CommandRow>& commandRows()
{
    static const std::vector<CommandRow> rows = {
        {Command::Groups, "groups", "List the ids of all groups", nullptr, "", 0, {}},
        {Command::Ids, "ids", "List the ids of statistics: all, or of groups", "GROUP", "Ids of groups", Any, {}},
        {Command::Get, "get", "Show statistics with their values", "ID",
            "Ids of statistics, or of groups to show whole", Any, {Pause}},
        {Command::Watch, "watch", "Show them again and again, with their rates", "ID",
            "Ids of statistics, or of groups to show whole", Any, {Interval, Count, Duration, Align, ChangedOnly}},
        {Command::Top, "top", "Show them on the full screen", "ID", "Ids of statistics, or of groups to show whole",
            Any, {Interval}},
        {Command::Diff, "diff", "Compare two snapshots", "SNAPSHOT", "A file, or a gateway as for --target", 2, {}},
        {Command::Check, "check", "Judge a value, as a plugin of monitoring systems", "ID", "Id of a statistic", 1,
            {Warn, Crit, Pause}},
        {Command::Record, "record", "Write a watch to a file", "FILE", "The file, - for standard output; then ids", Any,
            {Interval, Count, Duration, Align}},
        {Command::Replay, "replay", "Show a recording as watch did", "FILE", "The file, - for standard input; then ids",
            Any, {Speed, ChangedOnly}},
        {Command::Ping, "ping", "Connect and time an exchange", nullptr, "", 0, {PingPause, Times}},
        {Command::Completion, "completion", "Print what completes command lines", "SHELL", "bash, zsh or fish", 1, {}},
        {Command::Version, "version", "Show the versions of krvstat and of the library", nullptr, "", 0, {}},
        {Command::Help, "help", "Show this help, or that of a command", "COMMAND", "A command", 1, {}},
    };
    return rows;
}

// CLI11 takes an argument "[a,b]" apart as a list. No argument can contain a NUL: one at its end keeps it whole.
std::string marked(std::string argument)
{
    if (argument.starts_with('[') && argument.ends_with(']')) argument += '\0';
    return argument;
}

std::string unmarked(std::string text)
{
    std::erase(text, '\0');
    return text;
}

struct Arguments {
    std::vector<std::string> forCli11; // last one first, as it wants them
    std::vector<std::string> names;    // behind "--", which CLI11 would heed before the first name only
};

Arguments splitArguments(int argc, const char* const* argv)
{
    Arguments arguments;
    int i = 1;
    for (; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        std::string argument = argv[i];
        const bool hasEmptyValue = argument.size() > 3 && argument.starts_with("--") && argument.ends_with('=');
        if (hasEmptyValue) argument.pop_back(); // CLI11 would take the next argument for the value
        arguments.forCli11.push_back(marked(argument));
        if (hasEmptyValue) arguments.forCli11.emplace_back();
    }
    std::reverse(arguments.forCli11.begin(), arguments.forCli11.end());
    for (++i; i < argc; ++i) arguments.names.emplace_back(argv[i]);
    return arguments;
}

std::string flagNames(const OptionRow& row)
{
    return row.shortName != nullptr ? fmt::format("{},{}", row.shortName, row.longName) : row.longName;
}

void store(const std::string& name, std::string text, Options* options)
{
    if (name == "target") options->targets.push_back(std::move(text));
    else if (name == "include") options->rules.push_back({true, std::move(text)});
    else if (name == "exclude") options->rules.push_back({false, std::move(text)});
    else options->texts[name] = std::move(text);
}

void declareOption(CLI::App* app, const OptionRow& row, Options* options)
{
    const std::string name = std::string(row.longName).substr(2);
    if (row.value == nullptr) {
        app->add_flag_callback(
               flagNames(row), [=] { options->texts[name] = ""; }, row.description)
            ->group(row.section);
        return;
    }
    CLI::Option* option = app->add_option_function<std::string>(
        flagNames(row), [=](const std::string& text) { store(name, unmarked(text), options); }, row.description);
    option->type_name(row.value)->option_text(row.value)->group(row.section);
    if (name == "target" || name == "include" || name == "exclude") {
        option->trigger_on_parse(); // each in its turn, as their order matters
    }
}

void declare(CLI::App* app, Options* options, std::vector<std::string>* names)
{
    app->footer(CommandFooter); // handed down to the commands
    app->get_formatter()->column_width(28);
    app->get_formatter()->label("SUBCOMMAND", "COMMAND");
    app->get_formatter()->label("Positionals", "Arguments");
    app->set_help_flag("-h,--help", "Show this help, or that of a command")->group(Other);
    app->set_version_flag("--version", "", "Show the versions of krvstat and of the library")->group(Other);
    app->require_subcommand(1);
    app->fallthrough(); // options may also stand behind the command
    for (const CommandRow& row : commandRows()) {
        CLI::App* command = app->add_subcommand(row.name, row.description);
        command->group("Commands");
        for (const OptionRow& option : row.options) declareOption(command, option, options);
        if (row.argument != nullptr) {
            command->add_option(row.argument, *names, row.argumentHelp)->option_text(" ");
        }
    }
    for (const OptionRow& row : GlobalOptions) declareOption(app, row, options);
    app->footer(Footer);
}

std::string commandNames(const char* lastSeparator)
{
    std::string names;
    const std::vector<CommandRow>& rows = commandRows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i > 0) names += i + 1 == rows.size() ? lastSeparator : ", ";
        names += rows[i].name;
    }
    return names;
}

std::string describeUnwanted(const CommandRow& row, const std::string& argument)
{
    return fmt::format("the command {} does not take the argument {}", row.name, inQuotes(argument));
}

const CommandRow* chosenRow(const CLI::App& app)
{
    for (const CommandRow& row : commandRows()) {
        if (app.get_subcommand(row.name)->parsed()) return &row;
    }
    return nullptr;
}

// What CLI11 could not place, said of its first piece.
std::string describeRemaining(const CLI::App& app)
{
    const std::vector<std::string> remaining = app.remaining(true);
    for (const std::string& argument : remaining) {
        if (argument.size() > 1 && argument.front() == '-') {
            return fmt::format("there is no option {}", inQuotes(unmarked(argument)));
        }
    }
    const CommandRow* row = chosenRow(app);
    if (row != nullptr) return describeUnwanted(*row, unmarked(remaining.front()));
    if (remaining.empty()) return fmt::format("a command is missing: {}", commandNames(" or "));
    return fmt::format(
        "there is no command {}; there are {}", inQuotes(unmarked(remaining.front())), commandNames(" and "));
}

// Files and targets may well be named twice; ids would only be asked for twice.
bool areIds(Command command)
{
    return command != Command::Diff;
}

std::string addNames(
    const CommandRow& row, std::vector<std::string> raw, const std::vector<std::string>& behind, Options* options)
{
    for (std::string& name : raw) name = unmarked(std::move(name));
    raw.insert(raw.end(), behind.begin(), behind.end());
    if (row.argument == nullptr && !raw.empty()) return describeUnwanted(row, raw.front());
    for (std::string& name : raw) {
        std::vector<std::string>& names = options->names;
        if (areIds(row.command) && std::find(names.begin(), names.end(), name) != names.end()) continue;
        names.push_back(std::move(name));
    }
    if (options->names.size() > row.most) return describeUnwanted(row, options->names[row.most]);
    return "";
}

std::string helpOf(const CLI::App& app, const std::string& command)
{
    return app.get_formatter()->make_help(&app, command, CLI::AppFormatMode::Normal);
}

std::string findHelp(const CLI::App& app, Options* options)
{
    if (options->names.empty()) {
        options->helpText = helpOf(app, app.get_name());
        return "";
    }
    for (const CommandRow& row : commandRows()) {
        if (options->names.front() != row.name) continue;
        options->helpText = helpOf(*app.get_subcommand(row.name), fmt::format("{} {}", app.get_name(), row.name));
        return "";
    }
    return fmt::format("there is no command {}; there are {}", inQuotes(options->names.front()), commandNames(" and "));
}

OptionWords wordsOf(const OptionRow& row)
{
    return {flagNames(row), row.description, row.value != nullptr};
}

} // namespace

std::string readOptions(int argc, const char* const* argv, Options* options)
{
    CLI::App app(Description, "krvstat");
    std::vector<std::string> names;
    declare(&app, options, &names);
    Arguments arguments = splitArguments(argc, argv);
    std::string problem;
    try {
        app.parse(std::move(arguments.forCli11));
    } catch (const CLI::CallForHelp&) {
        options->helpText = app.help();
        return "";
    } catch (const CLI::CallForVersion&) {
        options->command = Command::Version;
        return "";
    } catch (const CLI::RequiredError&) { // only a command is required
        problem = describeRemaining(app);
    } catch (const CLI::ExtrasError&) {
        problem = describeRemaining(app);
    } catch (const CLI::ParseError& error) {
        problem = printable(unmarked(error.what())).text;
    }
    const CommandRow* row = chosenRow(app);
    if (row != nullptr) options->command = row->command;
    if (problem.empty()) problem = addNames(*row, std::move(names), arguments.names, options);
    if (problem.empty() && options->command == Command::Help) problem = findHelp(app, options);
    return problem;
}

const std::string* findOption(const Options& options, const std::string& name)
{
    const auto found = options.texts.find(name);
    return found != options.texts.end() ? &found->second : nullptr;
}

Vocabulary vocabulary()
{
    Vocabulary words;
    for (const OptionRow& row : GlobalOptions) words.options.push_back(wordsOf(row));
    words.options.push_back({"-h,--help", "Show this help, or that of a command", false});
    words.options.push_back({"--version", "Show the versions of krvstat and of the library", false});
    for (const CommandRow& row : commandRows()) {
        CommandWords command{row.name, row.description, {}};
        for (const OptionRow& option : row.options) command.options.push_back(wordsOf(option));
        words.commands.push_back(std::move(command));
    }
    return words;
}
