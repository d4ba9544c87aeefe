// The configuration file, YAML: named targets, settings for all, and named contexts with settings of their own.
//
//     context: test                  # which context is used where none is asked for
//     targets:
//       gw1: gw1.example.com:7845
//     timeout: 10s                   # settings for all
//     contexts:
//       test:
//         targets: [gw1, 127.0.0.1]  # names of targets, or as for --target
//         output: wide               # settings of this context, before those for all
#ifndef KRVSTAT_CONFIG_H
#define KRVSTAT_CONFIG_H

#include <map>
#include <optional>
#include <string>
#include <vector>

// Settings have the names of options.
struct ConfigSettings {
    std::vector<std::string> targets; // of a context
    std::map<std::string, std::string> texts;
};

struct Config {
    std::optional<std::string> context;
    std::map<std::string, std::string> targets; // HOST[:PORT] by name
    ConfigSettings settings;
    std::map<std::string, ConfigSettings> contexts;
};

// Returns an empty string, or what is wrong with the file.
std::string readConfig(const std::string& path, Config* config);

#endif
