// Where settings come from: option over environment over configuration file over default.

#include "krvstat_fixture.h"

#include <filesystem>
#include <fstream>

namespace {

class KrvstatSettings : public KrvstatWithFixedGateway {
protected:
    std::string write(const std::string& name, const std::string& content) const
    {
        std::filesystem::create_directories(std::filesystem::path(scratch.path(name)).parent_path());
        std::ofstream(scratch.path(name)) << content;
        return scratch.path(name);
    }

    static ProgramRun runWith(
        std::vector<std::pair<std::string, std::string>> environment, std::vector<std::string> arguments)
    {
        Launch launch = krvstatLaunch(std::move(arguments));
        launch.environment.insert(launch.environment.end(), environment.begin(), environment.end());
        return runProgram(launch);
    }

    krvtest::ScratchFolder scratch;
};

TEST_F(KrvstatSettings, TheEnvironmentGivesTargetOutputAndTimeout)
{
    EXPECT_EQ(
        runWith({{"KRVSTAT_TARGET", target()}, {"KRVSTAT_OUTPUT", "value"}}, {"get", "cpu.user"}).output, "1200\n");
    EXPECT_EQ(runWith({{"KRVSTAT_TARGET", target()}, {"KRVSTAT_TIMEOUT", "soon"}}, {"get"}).errors,
        "krvstat: in the environment, timeout 'soon': it is not a length of time, such as 2s, 500ms or 1m\n"
        "krvstat: try 'krvstat --help'\n");
}

TEST_F(KrvstatSettings, SeveralTargetsOfTheEnvironmentStandBetweenBlanks)
{
    const std::string second = "localhost:" + std::to_string(gateway->port());
    const ProgramRun got =
        runWith({{"KRVSTAT_TARGET", target() + "  " + second}}, {"get", "cpu.user", "-o", "csv", "--no-header"});
    EXPECT_EQ(got.output, target() + ",cpu.user,1200\n" + second + ",cpu.user,1200\n");
}

TEST_F(KrvstatSettings, OptionsGoBeforeTheEnvironmentAndThatBeforeTheFile)
{
    const std::string file =
        write("config.yaml", "context: c\noutput: csv\ncontexts: {c: {targets: ['" + target() + "'], output: name}}\n");
    const std::pair<std::string, std::string> config{"KRVSTAT_CONFIG", file};
    EXPECT_EQ(runWith({config}, {"get", "cpu.user"}).output, "cpu.user\n"); // the context before the settings for all
    EXPECT_EQ(runWith({config, {"KRVSTAT_OUTPUT", "value"}}, {"get", "cpu.user"}).output, "1200\n");
    EXPECT_EQ(runWith({config, {"KRVSTAT_OUTPUT", "value"}}, {"get", "cpu.user", "-o", "tsv"}).output,
        "id\tvalue\ncpu.user\t1200\n");
}

TEST_F(KrvstatSettings, AContextIsChosenByOptionEnvironmentOrTheFileItself)
{
    const std::string file = write("config.yaml", "context: table\ntargets: {gw: '" + target() +
                                                      "'}\ncontexts:\n"
                                                      "  table: {targets: [gw]}\n"
                                                      "  value: {targets: [gw], output: value}\n"
                                                      "  name: {targets: [gw], output: name}\n");
    EXPECT_EQ(runWith({}, {"--config", file, "get", "cpu.user"}).output, "STATISTIC  VALUE\ncpu.user   1200\n");
    EXPECT_EQ(runWith({{"KRVSTAT_CONTEXT", "value"}}, {"--config", file, "get", "cpu.user"}).output, "1200\n");
    EXPECT_EQ(
        runWith({{"KRVSTAT_CONTEXT", "value"}}, {"--config", file, "--context", "name", "get", "cpu.user"}).output,
        "cpu.user\n");
    const ProgramRun unknown = runWith({}, {"--config", file, "--context", "other", "get"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.errors, "krvstat: there is no context 'other'\nkrvstat: try 'krvstat --help'\n");
}

TEST_F(KrvstatSettings, AContextOfTheCommandLineGoesBeforeTheEnvironment)
{
    const std::string file = write("config.yaml", "contexts: {c: {targets: ['" + target() + "']}}\n");
    const ProgramRun got = runWith(
        {{"KRVSTAT_TARGET", "127.0.0.1:1"}}, {"--config", file, "--context", "c", "-o", "value", "get", "cpu.user"});
    EXPECT_EQ(got.output, "1200\n");
}

TEST_F(KrvstatSettings, TargetsMayBeNamed)
{
    const std::string file = write("config.yaml", "targets:\n  here: " + target() + "\n");
    EXPECT_EQ(runWith({}, {"--config", file, "-t", "here", "-o", "value", "get", "cpu.user"}).output, "1200\n");
}

TEST_F(KrvstatSettings, TheFileIsLookedForAtHome)
{
    write("home/.config/krvstat/config.yaml", "output: value\n");
    write("xdg/krvstat/config.yaml", "output: name\n");
    EXPECT_EQ(runWith({{"HOME", scratch.path("home")}}, {"-t", target(), "get", "cpu.user"}).output, "1200\n");
    EXPECT_EQ(runWith({{"HOME", scratch.path("home")}, {"XDG_CONFIG_HOME", scratch.path("xdg")}},
                  {"-t", target(), "get", "cpu.user"})
                  .output,
        "cpu.user\n");
}

TEST_F(KrvstatSettings, WhatIsWrongWithTheFileIsSaid)
{
    const auto problemOf = [&](const std::string& content) {
        const std::string file = write("config.yaml", content);
        const ProgramRun got = runWith({}, {"--config", file, "get"});
        EXPECT_EQ(got.exitCode, 2);
        const std::string before = "krvstat: the configuration file '" + file + "': ";
        EXPECT_EQ(got.errors.find(before), 0U) << got.errors;
        return got.errors.substr(before.size(), got.errors.find('\n') - before.size());
    };
    EXPECT_EQ(problemOf("- a\n"), "it has to be a map");
    EXPECT_EQ(problemOf("\noutptu: csv\n"), "line 2: there is no setting 'outptu'");
    EXPECT_EQ(problemOf("output: [csv]\n"), "line 1: 'output' has to be a single text");
    EXPECT_EQ(problemOf("targets: gw\n"), "line 1: targets have to be a map of names");
    EXPECT_EQ(problemOf("contexts: {c: {password: x}}\n"), "line 1: there is no setting 'password'");
    EXPECT_NE(problemOf("a: [\n"), "");
    const ProgramRun none = runWith({}, {"--config", scratch.path("none"), "get"});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_EQ(none.errors, "krvstat: the configuration file '" + scratch.path("none") +
                               "': No such file or directory\nkrvstat: try 'krvstat --help'\n");
}

struct WrongSetting {
    std::vector<std::string> arguments;
    std::string sentence;
};

void PrintTo(const WrongSetting& setting, std::ostream* out)
{
    *out << setting.sentence;
}

class KrvstatWrongSettings : public testing::TestWithParam<WrongSetting> {};

TEST_P(KrvstatWrongSettings, AreSaidAndEndWithTwo)
{
    std::vector<std::string> arguments = GetParam().arguments;
    const ProgramRun got = runKrvstat(arguments);
    EXPECT_EQ(got.exitCode, 2);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors.substr(0, got.errors.find('\n')), "krvstat: " + GetParam().sentence);
}

constexpr const char* NoTime = ": it is not a length of time, such as 2s, 500ms or 1m";

INSTANTIATE_TEST_SUITE_P(Each, KrvstatWrongSettings,
    testing::Values(WrongSetting{{"get", "--timeout", "-1"}, std::string("--timeout '-1'") + NoTime},
        WrongSetting{{"get", "--connect-timeout", "2 s"}, std::string("--connect-timeout '2 s'") + NoTime},
        WrongSetting{{"get", "--timeout", "0"}, "--timeout '0': it is not between 1ms and 24 days"},
        WrongSetting{{"watch", "-n", "x"}, std::string("--interval 'x'") + NoTime},
        WrongSetting{{"watch", "-c", "0"}, "--count '0': it is not a whole number from 1 on"},
        WrongSetting{{"get", "--limit", "x"}, "--limit 'x': it is not a whole number from 1 on"},
        WrongSetting{{"get", "-o", "xml"},
            "--output 'xml': it is none of table, wide, json, jsonl, csv, tsv, prom, value, name"},
        WrongSetting{{"get", "--units", "x"}, "--units 'x': it is none of raw, si, iec"},
        WrongSetting{{"get", "--time", "x"}, "--time 'x': it is none of none, iso, unix"},
        WrongSetting{{"get", "--color", "x"}, "--color 'x': it is none of auto, always, never"},
        WrongSetting{{"get", "--rate", "--delta"}, "only one of --raw, --rate and --delta can be wanted"},
        WrongSetting{{"get", "-q", "-v"}, "only one of --quiet and --verbose can be wanted"},
        WrongSetting{{"get", "--regex", "("}, "--regex '(': Unmatched ( or \\("},
        WrongSetting{{"get", "--columns", "id,size"},
            "--columns: there is no column 'size'; there are time, target, group, id, value, delta, rate, note"},
        WrongSetting{{"get", "--columns", "id,id"}, "--columns: the column 'id' occurs twice"},
        WrongSetting{
            {"groups", "--columns", "value"}, "--columns: there is no column 'value'; there are time, target, group"},
        WrongSetting{{"groups", "-o", "prom"}, "--output 'prom': there are no values to show"},
        WrongSetting{{"ids", "-o", "value"}, "--output 'value': there are no values to show"},
        WrongSetting{{"get", "-o", "name", "--columns", "id"}, "--columns: this output form has columns of its own"},
        WrongSetting{{"replay", "f", "--speed", "-1"}, "--speed '-1': it is not a number from 0 on"},
        WrongSetting{{"replay"}, "the command replay needs a file to read, or -"},
        WrongSetting{{"record"}, "the command record needs a file to write, or -"},
        WrongSetting{{"record", "/no/such/folder/file"},
            "cannot write the file '/no/such/folder/file': No such file or directory"},
        WrongSetting{{"diff", "a"}, "the command diff needs two snapshots: files or gateways"},
        WrongSetting{{"completion"}, "the command completion needs a shell: bash, zsh or fish"},
        WrongSetting{{"completion", "tcsh"}, "there is no completion for 'tcsh'; there are bash, zsh and fish"},
        WrongSetting{{"top"}, "the command top needs a terminal"}));

} // namespace
