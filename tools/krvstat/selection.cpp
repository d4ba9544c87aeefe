#include "selection.h"

#include <algorithm>

#include <fnmatch.h>

namespace {

bool passesRules(const std::vector<GlobRule>& rules, const std::string& id)
{
    for (const GlobRule& rule : rules) {
        if (fnmatch(rule.glob.c_str(), id.c_str(), 0) == 0) return rule.isInclude;
    }
    return std::none_of(rules.begin(), rules.end(), [](const GlobRule& rule) { return rule.isInclude; });
}

void deleteRegex(regex_t* regex)
{
    regfree(regex);
    delete regex;
}

} // namespace

std::string readRegex(const std::string& text, Regex* regex)
{
    auto compiled = std::make_unique<regex_t>();
    const int problem = regcomp(compiled.get(), text.c_str(), REG_EXTENDED | REG_NOSUB);
    if (problem != 0) {
        char words[128];
        regerror(problem, compiled.get(), words, sizeof words);
        return words;
    }
    *regex = Regex(compiled.release(), deleteRegex);
    return "";
}

bool isSelected(const Selection& selection, const std::string& id)
{
    if (!passesRules(selection.rules, id)) return false;
    return !selection.regex || regexec(selection.regex.get(), id.c_str(), 0, nullptr, 0) == 0;
}
