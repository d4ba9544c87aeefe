// completion: scripts for shells, made from the tables of commands and options. What the gateway has is asked when it
// is needed, by krvstat itself: for two seconds at most, and without a word if that fails.

#include "commands.h"

#include "output.h"
#include "printable.h"

#include <fmt/format.h>

#include <string_view>

namespace {

// Runs in all three shells: ids and groups of the gateway that the command line names.
constexpr const char* LiveOptions = "--quiet --connect-timeout 1s --timeout 2s --output name";

struct ValueRow {
    std::string_view option; // long name
    const char* words;
};

constexpr ValueRow Values[] = {
    {"--output", "table wide json jsonl csv tsv prom value name"},
    {"--sort", "name value rate none"},
    {"--units", "raw si iec"},
    {"--time", "none iso unix"},
    {"--color", "auto always never"},
    {"--trace", "0 1 2 3 4 5"},
};

const char* valuesOf(std::string_view longName)
{
    for (const ValueRow& row : Values) {
        if (row.option == longName) return row.words;
    }
    return "";
}

struct Names {
    std::string shortName; // "-t"; empty: none
    std::string longName;
};

Names namesOf(const OptionWords& option)
{
    const std::size_t comma = option.names.find(',');
    if (comma == std::string::npos) return {"", option.names};
    return {option.names.substr(0, comma), option.names.substr(comma + 1)};
}

std::string joined(const std::vector<OptionWords>& options)
{
    std::string words;
    for (const OptionWords& option : options) {
        const Names names = namesOf(option);
        for (const std::string& name : {names.shortName, names.longName}) {
            if (!name.empty()) words += (words.empty() ? "" : " ") + name;
        }
    }
    return words;
}

// "-t|--target|...": the options that take the next word.
std::string takingPattern(const Vocabulary& words)
{
    std::vector<OptionWords> all = words.options;
    for (const CommandWords& command : words.commands) {
        all.insert(all.end(), command.options.begin(), command.options.end());
    }
    std::string pattern;
    for (const OptionWords& option : all) {
        if (!option.takesValue) continue;
        const Names names = namesOf(option);
        for (const std::string& name : {names.shortName, names.longName}) {
            const bool isNew = !name.empty() && ("|" + pattern + "|").find("|" + name + "|") == std::string::npos;
            if (isNew) pattern += (pattern.empty() ? "" : "|") + name;
        }
    }
    return pattern;
}

std::string commandNames(const Vocabulary& words)
{
    std::string names;
    for (const CommandWords& command : words.commands) names += (names.empty() ? "" : " ") + command.name;
    return names;
}

// What bash and zsh have in common: from the words before the cursor to the words that fit. @TAKING@ and the like are
// replaced.
constexpr std::string_view CommonFunctions = R"sh(
# Prints what can stand behind the given words, the first of which is krvstat itself.
__krvstat_words() {
    local program=$1 command= argument= previous= word=
    local -a gateway
    shift
    gateway=()
    for word in "$@"; do
        case $previous in
            @TAKING@)
                case $previous in
                    -t|--target|--config|--context) gateway+=("$previous" "$word") ;;
                esac
                previous=
                continue ;;
        esac
        previous=$word
        case $word in
            --target=*|--config=*|--context=*) gateway+=("$word") ;;
            -*) ;;
            *) if [ -z "$command" ]; then command=$word; else argument=$word; fi ;;
        esac
    done
    case $previous in
@VALUES@        @TAKING@) return ;;
    esac
    if [ -z "$command" ]; then
        echo "@COMMANDS@"
        echo "@OPTIONS@"
        return
    fi
    echo "@OPTIONS@"
    case $command in
@COMMANDOPTIONS@    esac
    case $command in
        ids) "$program" groups "${gateway[@]}" @LIVE@ 2>/dev/null ;;
        get|watch|top|check)
            "$program" groups "${gateway[@]}" @LIVE@ 2>/dev/null
            "$program" ids "${gateway[@]}" @LIVE@ 2>/dev/null ;;
        record|replay)
            if [ -n "$argument" ]; then "$program" ids "${gateway[@]}" @LIVE@ 2>/dev/null; fi ;;
        completion) echo "bash zsh fish" ;;
        help) echo "@COMMANDS@" ;;
    esac
}
)sh";

constexpr std::string_view BashScript = R"sh(# bash completion for krvstat: source <(krvstat completion bash)
@COMMON@
_krvstat() {
    local current=${COMP_WORDS[COMP_CWORD]} line=${COMP_LINE:0:COMP_POINT} id=
    local -a before
    # bash takes "host:port" for three words; blanks alone part ours
    read -ra before <<<"$line"
    case $line in *[[:space:]]) ;; *) unset 'before[${#before[@]}-1]' ;; esac
    COMPREPLY=()
    while IFS= read -r id; do
        case $id in "$current"*) COMPREPLY+=("$(printf '%q' "$id")") ;; esac
    done < <(__krvstat_words "${before[@]}" | __krvstat_lines)
}

# Lists in a line become lines; a line with an id stays as it is.
__krvstat_lines() {
    local line= word=
    while IFS= read -r line; do
        case $line in
            *" "*) for word in $line; do printf '%s\n' "$word"; done ;;
            *) printf '%s\n' "$line" ;;
        esac
    done
}

complete -o default -F _krvstat krvstat
)sh";

constexpr std::string_view ZshScript = R"sh(#compdef krvstat
# zsh completion for krvstat: source <(krvstat completion zsh)
@COMMON@
_krvstat() {
    emulate -L zsh
    local -a found
    local line
    __krvstat_words "${(@)words[1,CURRENT-1]}" | while IFS= read -r line; do
        found+=(${=line})
    done
    if (( ${#found} )); then compadd -- "${found[@]}"; else _files; fi
}

if [ -n "$functions[compdef]" ]; then compdef _krvstat krvstat; fi
)sh";

std::string replaced(std::string text, std::string_view mark, const std::string& by)
{
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + by.size())) {
        text.replace(at, mark.size(), by);
    }
    return text;
}

std::string valueCases(const Vocabulary& words)
{
    std::string cases;
    for (const OptionWords& option : words.options) {
        const Names names = namesOf(option);
        const char* const values = valuesOf(names.longName);
        if (*values == '\0') continue;
        cases += fmt::format("        {}{}{}) echo \"{}\"; return ;;\n", names.shortName,
            names.shortName.empty() ? "" : "|", names.longName, values);
    }
    return cases;
}

std::string commandCases(const Vocabulary& words)
{
    std::string cases;
    for (const CommandWords& command : words.commands) {
        if (command.options.empty()) continue;
        cases += fmt::format("        {}) echo \"{}\" ;;\n", command.name, joined(command.options));
    }
    return cases;
}

std::string posixScript(std::string_view script, const Vocabulary& words)
{
    std::string text = replaced(std::string(script), "@COMMON@", std::string(CommonFunctions));
    text = replaced(text, "@TAKING@", takingPattern(words));
    text = replaced(text, "@VALUES@", valueCases(words));
    text = replaced(text, "@COMMANDOPTIONS@", commandCases(words));
    text = replaced(text, "@COMMANDS@", commandNames(words));
    text = replaced(text, "@OPTIONS@", joined(words.options));
    return replaced(text, "@LIVE@", LiveOptions);
}

// ---- fish, which takes one line an option ----

std::string fishQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '\'';
}

std::string fishOption(const OptionWords& option, const std::string& condition)
{
    const Names names = namesOf(option);
    std::string line = "complete -c krvstat" + condition;
    if (!names.shortName.empty()) line += " -s " + names.shortName.substr(1);
    line += " -l " + names.longName.substr(2);
    if (option.takesValue) line += " -r";
    const char* const values = valuesOf(names.longName);
    if (*values != '\0') line += fmt::format(" -f -a '{}'", values);
    return line + " -d " + fishQuoted(option.description) + '\n';
}

constexpr std::string_view FishFunctions = R"sh(# fish completion for krvstat: krvstat completion fish | source

# Prints the ids or groups of the gateway that the command line names.
function __krvstat_live
    set -l words (commandline -opc)
    set -l gateway
    for i in (seq 2 (count $words))
        switch $words[$i]
            case -t --target --config --context
                test $i -lt (count $words); and set -a gateway $words[$i] $words[(math $i + 1)]
            case '--target=*' '--config=*' '--context=*'
                set -a gateway $words[$i]
        end
    end
    $words[1] $argv $gateway @LIVE@ 2>/dev/null
end

complete -c krvstat -f
)sh";

std::string fishScript(const Vocabulary& words)
{
    const std::string names = commandNames(words);
    std::string text = replaced(std::string(FishFunctions), "@LIVE@", LiveOptions);
    for (const CommandWords& command : words.commands) {
        text += fmt::format("complete -c krvstat -n 'not __fish_seen_subcommand_from {}' -a {} -d {}\n", names,
            command.name, fishQuoted(command.description));
    }
    for (const OptionWords& option : words.options) text += fishOption(option, "");
    for (const CommandWords& command : words.commands) {
        for (const OptionWords& option : command.options) {
            text += fishOption(option, fmt::format(" -n '__fish_seen_subcommand_from {}'", command.name));
        }
    }
    text +=
        "complete -c krvstat -n '__fish_seen_subcommand_from ids' -a '(__krvstat_live groups)'\n"
        "complete -c krvstat -n '__fish_seen_subcommand_from get watch top check' -a '(__krvstat_live groups)'\n"
        "complete -c krvstat -n '__fish_seen_subcommand_from get watch top check record' -a '(__krvstat_live ids)'\n"
        "complete -c krvstat -n '__fish_seen_subcommand_from completion' -a 'bash zsh fish'\n";
    return text + fmt::format("complete -c krvstat -n '__fish_seen_subcommand_from help' -a '{}'\n", names);
}

} // namespace

int runCompletion(const Settings& settings)
{
    if (settings.names.empty()) return refuseUsage("the command completion needs a shell: bash, zsh or fish");
    const std::string& shell = settings.names.front();
    const Vocabulary words = vocabulary();
    std::string script;
    if (shell == "bash") script = posixScript(BashScript, words);
    else if (shell == "zsh") script = posixScript(ZshScript, words);
    else if (shell == "fish") script = fishScript(words);
    else
        return refuseUsage(fmt::format("there is no completion for {}; there are bash, zsh and fish", inQuotes(shell)));
    return exitCodeOf(writeData(script));
}
