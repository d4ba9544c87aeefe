// What a command works with: options, environment, configuration and defaults, put together in this order.
#ifndef KRVSTAT_SETTINGS_H
#define KRVSTAT_SETTINGS_H

#include "forms.h"
#include "inquiry.h"
#include "options.h"

#include <optional>

enum class Derived { Default, Raw, Rate, Delta };
enum class TimeForm { Default, None, Iso, Unix };
enum class ColourChoice { Auto, Always, Never };
enum class Talk { Quiet, Usual, Verbose };

struct Settings {
    Command command = Command::Help;
    std::vector<std::string> names; // arguments of the command
    std::vector<Target> targets;    // one at least
    TimeLimits limits;
    Selection selection;
    Form form = Form::Table;
    std::string columns; // as given; empty: those of the command
    bool hasHeader = true;
    Derived derived = Derived::Default;
    Units units = Units::Raw;
    TimeForm time = TimeForm::Default;
    bool isUtc = false;
    ColourChoice colour = ColourChoice::Auto;
    Talk talk = Talk::Usual;
    bool ignoresMissing = false;
    std::string input; // file to read from; empty: gateways are asked
    int traceLevel = 0;
    std::string traceFile; // empty: standard error
    // of some commands
    std::optional<Milliseconds> interval;
    std::optional<std::uint64_t> count;
    std::optional<Milliseconds> duration;
    bool isAligned = false;
    bool isChangedOnly = false;
    std::string warn;
    std::string crit;
    double speed = 1;
    std::map<std::string, std::string> namedTargets; // of the configuration file
};

// Returns an empty string, or what is wrong with what was given.
std::string completeSettings(const Options& options, Settings* settings);

// A target by its name in the configuration file, or as for --target.
std::string readNamedTarget(const Settings& settings, const std::string& text, Target* target);

#endif
