// The command line is CLI11's to take apart; here stand its commands and options, their help, and what a name may be.

#include "options.h"

#include "gather.h"
#include "printable.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

constexpr char NameSeparator = ':';
constexpr std::size_t LongestNameList = 32765; // bytes that the library takes in one request

constexpr const char* Description = "Shows the runtime statistics of a gateway.";

constexpr const char* CommandFooter = "The options of 'krvstat --help' may stand before or behind the command.";

constexpr const char* Footer = R"(Target
  HOST is a name, an IPv4 address or an IPv6 address. An IPv6 address stands in
  brackets if a port follows it: [::1]:7845. Without a port it is 7845.

Ids
  "krvstat groups" and "krvstat ids" list what can be asked for. "get" takes ids
  of statistics and of groups, which it shows whole. An id cannot contain ':',
  which separates ids in a request. If one begins with '-', put "--" before it.

Output
  Data goes to standard output; messages, and the trace unless it has a file, go
  to standard error. Values are texts and are shown as the gateway sent them,
  except that bytes that cannot be printed are shown as \xNN and '\' as \\. On a
  terminal, values that do not fit into the line are cut and end in "...".

Trace levels
  0 nothing, 1 exceptions, 2 also events, 3 also calls and their results, 4 and
  5 also internal detail with every byte exchanged.

Exit codes
  0  everything that was asked for has been printed; also if there was nothing
  1  the gateway answered and refused the whole request
  2  wrong usage, or the trace file cannot be opened
  4  cannot connect: the host was not found, nobody listens there, the attempt
     timed out, the network is unreachable, or no gateway answered
  6  connected, but the exchange failed: the gateway closed the connection,
     reported an error or sent a reply that cannot be read
  7  the gateway refused some of the ids that were asked for, mostly because it
     does not know them; what it told of the others has been printed
  8  standard output could not be written
  9  out of memory, or a fault of krvstat itself

Examples
  krvstat groups
      The groups of the gateway on this machine.
  krvstat --target gw1.example.com:7845 ids memory disk
      The ids of all statistics in two groups of another one.
  krvstat -t [::1]:7845 --trace 3 --trace-file krvstat.trace get memory
      All values of a group, while the library's calls are written to a file.)";

// What CLI11 fills, before it is checked.
struct RawOptions {
    std::string target;
    int traceLevel = 0;
    std::string traceFile;
    std::vector<std::string> names;
};

struct Commands {
    CLI::App* groups;
    CLI::App* ids;
    CLI::App* get;
    CLI::App* help;
    CLI::App* version;
};

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

Commands declare(CLI::App* app, RawOptions* raw)
{
    app->footer(CommandFooter); // handed down to the commands
    app->get_formatter()->column_width(26);
    app->get_formatter()->label("SUBCOMMAND", "COMMAND");
    app->get_formatter()->label("Positionals", "Arguments");
    app->set_help_flag("-h,--help", "Show this help, or that of a command");
    app->set_version_flag("--version", "", "Show the versions of krvstat and of the library");
    app->require_subcommand(1);
    app->fallthrough(); // options may also stand behind the command

    app->add_option("-t,--target", raw->target, fmt::format("Gateway to ask; default {}", targetText(Target())))
        ->type_name("HOST[:PORT]");
    CLI::Option* trace = app->add_option("--trace", raw->traceLevel, "Trace the library's work: 0 (off) to 5 (all)")
                             ->check(CLI::Range(0, 5))
                             ->type_name("LEVEL")
                             ->option_text("LEVEL"); // without the range, which the description gives
    app->add_option("--trace-file", raw->traceFile, "Append the trace to FILE; needs --trace")
        ->type_name("FILE")
        ->option_text("FILE")
        ->needs(trace);

    Commands commands{};
    commands.groups = app->add_subcommand("groups", "List the ids of all groups");
    commands.ids = app->add_subcommand("ids", "List the ids of statistics: all, or of groups");
    commands.get = app->add_subcommand("get", "Show statistics and their values: all, or those named");
    commands.help = app->add_subcommand("help", "Show this help");
    commands.version = app->add_subcommand("version", "Show the versions of krvstat and of the library");
    for (CLI::App* command : app->get_subcommands({})) command->group("Commands");
    commands.ids->add_option("GROUP", raw->names, "Ids of groups")->option_text(" ");
    commands.get->add_option("ID", raw->names, "Ids of statistics, or of groups to show whole")->option_text(" ");
    app->footer(Footer);
    return commands;
}

Command chosenCommand(const Commands& commands)
{
    if (commands.groups->parsed()) return Command::Groups;
    if (commands.ids->parsed()) return Command::Ids;
    if (commands.get->parsed()) return Command::Get;
    if (commands.version->parsed()) return Command::Version;
    return Command::Help;
}

std::string describeUnwanted(const CLI::App& app, const std::string& argument)
{
    return fmt::format(
        "the command {} does not take the argument {}", app.get_subcommands().front()->get_name(), inQuotes(argument));
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
    if (!app.get_subcommands().empty()) return describeUnwanted(app, unmarked(remaining.front()));
    if (remaining.empty()) return "a command is missing: groups, ids, get, help or version";
    return fmt::format(
        "there is no command {}; there are groups, ids, get, help and version", inQuotes(unmarked(remaining.front())));
}

void addName(std::string name, std::vector<std::string>* names)
{
    if (std::find(names->begin(), names->end(), name) == names->end()) names->push_back(std::move(name));
}

std::string checkNames(const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        if (name.empty()) return "an id is empty";
        if (name.find(NameSeparator) != std::string::npos) {
            return fmt::format("the id {} contains '{}', which separates ids; give each id as an argument of its own",
                inQuotes(name), NameSeparator);
        }
    }
    const std::size_t length = nameList(names).size();
    if (length > LongestNameList) {
        return fmt::format("the ids are {} bytes long together; one request holds {}", length, LongestNameList);
    }
    return "";
}

std::string checkOptions(const CLI::App& app, const RawOptions& raw, Options* options)
{
    if (app.count("--target") > 0) {
        const std::string text = unmarked(raw.target);
        const std::string problem = readTarget(text, &options->target);
        if (!problem.empty()) return fmt::format("--target {}: {}", inQuotes(text), problem);
    }
    options->traceLevel = raw.traceLevel;
    options->traceFile = unmarked(raw.traceFile);
    if (app.count("--trace-file") > 0 && options->traceFile.empty()) return "--trace-file: the name is empty";
    return checkNames(options->names);
}

} // namespace

std::string readOptions(int argc, const char* const* argv, Options* options)
{
    CLI::App app(Description, "krvstat");
    RawOptions raw;
    const Commands commands = declare(&app, &raw);
    Arguments arguments = splitArguments(argc, argv);
    try {
        app.parse(std::move(arguments.forCli11));
    } catch (const CLI::CallForHelp&) {
        options->helpText = app.help();
        return "";
    } catch (const CLI::CallForVersion&) {
        options->command = Command::Version;
        return "";
    } catch (const CLI::RequiredError&) { // only a command is required
        return describeRemaining(app);
    } catch (const CLI::ExtrasError&) {
        return describeRemaining(app);
    } catch (const CLI::ParseError& error) {
        return printable(unmarked(error.what())).text;
    }
    options->command = chosenCommand(commands);
    if (options->command == Command::Help) {
        options->helpText = app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
    }
    const bool takesNames = options->command == Command::Ids || options->command == Command::Get;
    if (!takesNames && !arguments.names.empty()) return describeUnwanted(app, arguments.names.front());
    for (const std::string& name : raw.names) addName(unmarked(name), &options->names);
    for (const std::string& name : arguments.names) addName(name, &options->names);
    return checkOptions(app, raw, options);
}
