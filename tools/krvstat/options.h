// The command line, taken apart but not yet completed by environment and configuration.
#ifndef KRVSTAT_OPTIONS_H
#define KRVSTAT_OPTIONS_H

#include "selection.h"

#include <map>
#include <string>
#include <vector>

enum class Command { Groups, Ids, Get, Watch, Top, Diff, Check, Record, Replay, Ping, Completion, Version, Help };

struct Options {
    Command command = Command::Help;
    std::string helpText;                     // for Command::Help
    std::vector<std::string> names;           // the command's arguments; ids each once
    std::map<std::string, std::string> texts; // of the options that were given, by long name without dashes
    std::vector<std::string> targets;         // of --target
    std::vector<GlobRule> rules;              // of --include and --exclude, in order
};

// The text of an option, empty for one that takes none; NULL if it was not given.
const std::string* findOption(const Options& options, const std::string& name);

// Returns an empty string, or what is wrong with the command line.
std::string readOptions(int argc, const char* const* argv, Options* options);

// What completion offers.
struct OptionWords {
    std::string names; // "-t,--target"
    std::string description;
    bool takesValue;
};

struct CommandWords {
    std::string name;
    std::string description;
    std::vector<OptionWords> options; // of this command alone
};

struct Vocabulary {
    std::vector<CommandWords> commands;
    std::vector<OptionWords> options; // of every command
};

Vocabulary vocabulary();

#endif
