// The command line, read.
#ifndef KRVSTAT_OPTIONS_H
#define KRVSTAT_OPTIONS_H

#include "target.h"

#include <string>
#include <vector>

enum class Command { Groups, Ids, Get, Help, Version };

struct Options {
    Command command = Command::Help;
    std::string helpText; // for Command::Help
    Target target;
    int traceLevel = 0;
    std::string traceFile;          // empty: standard error
    std::vector<std::string> names; // of groups (ids) or of statistics and groups (get), each once; none: all
};

// Returns an empty string, or what is wrong with the command line.
std::string readOptions(int argc, const char* const* argv, Options* options);

#endif
