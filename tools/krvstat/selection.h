// Which ids are shown, in which order, and how many.
#ifndef KRVSTAT_SELECTION_H
#define KRVSTAT_SELECTION_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <regex.h>

struct GlobRule {
    bool isInclude;
    std::string glob; // as the shell has them: * ? [...]
};

// A compiled extended regular expression.
using Regex = std::shared_ptr<const regex_t>;

enum class SortKey { None, Name, Value, Rate };

struct Selection {
    std::vector<GlobRule> rules; // in the order of the command line
    Regex regex;                 // may be empty
    SortKey sort = SortKey::None;
    std::size_t limit = 0; // 0: no limit
};

// Returns an empty string, or what is wrong with the expression.
std::string readRegex(const std::string& text, Regex* regex);

// The first rule whose glob matches decides. Where none matches, an id is shown unless there are include rules. The
// regular expression has to be found in it, too.
bool isSelected(const Selection& selection, const std::string& id);

#endif
