// Completion as the shells do it, with ids of a gateway that is there, and without one.

#include "deaf_port.h"
#include "krvstat_fixture.h"

#include <filesystem>

namespace {

constexpr const char* CompletionScenario = R"(
groups:
  - id: cpu
    statistics: [{id: cpu.user, value: "1"}, {id: cpu.idle, value: "2"}]
  - id: memory
    statistics: [{id: memory.total, value: "3"}]
)";

// What follows a line that is typed: prepare the functions, print the words that are offered, one line each.
constexpr const char* InBash = R"(
source <("$KRVSTAT" completion bash) || exit 9
krvstat() { "$KRVSTAT" "$@"; }
COMP_LINE=$LINE COMP_POINT=${#LINE}
read -ra COMP_WORDS <<<"$LINE"
case $LINE in *" ") COMP_WORDS+=("") ;; esac
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_krvstat
printf '%s\n' "${COMPREPLY[@]}"
)";

constexpr const char* InZsh = R"(
source <("$KRVSTAT" completion zsh) || exit 9
krvstat() { "$KRVSTAT" "$@"; }
words=(${=LINE})
case $LINE in *" ") words+=("") ;; esac
CURRENT=${#words}
compadd() { shift; print -rl -- "${(@M)@:#${words[CURRENT]}*}"; }
_files() { :; }
_krvstat
)";

constexpr const char* InFish = R"(
$KRVSTAT completion fish | source; or exit 9
function krvstat; $KRVSTAT $argv; end
complete -C "$LINE" | string replace -r '\t.*' ''
true
)";

struct Shell {
    const char* name;
    const char* program;
    const char* script;
};

void PrintTo(const Shell& shell, std::ostream* out)
{
    *out << shell.name;
}

class KrvstatCompletion : public KrvstatWithGateway, public testing::WithParamInterface<Shell> {
protected:
    void SetUp() override
    {
        serve(CompletionScenario);
    }

    // The words offered, between newlines.
    std::string offered(const std::string& line) const
    {
        Launch shell = krvstatLaunch({});
        shell.program = GetParam().program;
        if (std::string(GetParam().name) == "Zsh") shell.arguments = {"-f", "-c", GetParam().script};
        else if (std::string(GetParam().name) == "Fish") shell.arguments = {"--no-config", "-c", GetParam().script};
        else shell.arguments = {"--norc", "-c", GetParam().script};
        shell.environment.insert(
            shell.environment.end(), {{"KRVSTAT", KRVSTAT_PROGRAM}, {"LINE", line}, {"HOME", scratch.folder},
                                         {"XDG_CONFIG_HOME", scratch.folder}});
        const ProgramRun got = runProgram(shell);
        EXPECT_EQ(got.exitCode, 0) << got.errors;
        EXPECT_EQ(got.errors, "") << line;
        return "\n" + got.output;
    }

    void expectOffered(const std::string& line, const std::vector<std::string>& words) const
    {
        const std::string all = offered(line);
        for (const std::string& word : words) {
            EXPECT_NE(all.find("\n" + word + "\n"), std::string::npos) << line << ": " << word << " is not in" << all;
        }
    }

    void expectNotOffered(const std::string& line, const std::vector<std::string>& words) const
    {
        const std::string all = offered(line);
        for (const std::string& word : words) {
            EXPECT_EQ(all.find("\n" + word + "\n"), std::string::npos) << line << ": " << word << " is in" << all;
        }
    }

    krvtest::ScratchFolder scratch;
};

TEST_P(KrvstatCompletion, OffersCommandsAndOptions)
{
    expectOffered("krvstat wa", {"watch"});
    expectNotOffered("krvstat wa", {"get"});
    expectOffered("krvstat --con", {"--connect-timeout", "--config", "--context"});
    expectOffered("krvstat watch --ch", {"--changed-only"});
    expectNotOffered("krvstat get --ch", {"--changed-only"});
    expectOffered("krvstat get -o js", {"json", "jsonl"});
    expectOffered("krvstat completion ", {"bash", "zsh", "fish"});
    expectOffered("krvstat help gr", {"groups"});
}

TEST_P(KrvstatCompletion, OffersIdsAndGroupsOfTheGateway)
{
    const std::string asked = "krvstat -t " + target();
    expectOffered(asked + " get cpu", {"cpu", "cpu.user", "cpu.idle"});
    expectNotOffered(asked + " get cpu", {"memory.total"});
    expectOffered(asked + " watch mem", {"memory", "memory.total"});
    expectOffered(asked + " ids c", {"cpu"});
    expectNotOffered(asked + " ids c", {"cpu.user"});
}

TEST_P(KrvstatCompletion, IsSilentWhereThereIsNoGateway)
{
    const DeafPort deaf;
    expectNotOffered("krvstat -t " + deaf.target() + " get cpu", {"cpu", "cpu.user"});
}

INSTANTIATE_TEST_SUITE_P(Each, KrvstatCompletion,
    testing::Values(Shell{"Bash", "/bin/bash", InBash}, Shell{"Zsh", "/usr/bin/zsh", InZsh},
        Shell{"Fish", "/usr/bin/fish", InFish}),
    [](const testing::TestParamInfo<Shell>& each) { return each.param.name; });

} // namespace
