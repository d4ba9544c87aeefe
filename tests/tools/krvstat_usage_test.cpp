// The command line: help, versions, and what is wrong usage. No gateway is needed, and none is asked.

#include "run_program.h"
#include "trace_capture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string golden(const std::string& name)
{
    const std::string text = krvtest::readWholeFile(std::string(KRVSTAT_GOLDEN) + "/" + name);
    EXPECT_FALSE(text.empty()) << name;
    return text;
}

struct HelpCall {
    std::vector<std::string> arguments;
    const char* goldenFile;
};

void PrintTo(const HelpCall& call, std::ostream* out)
{
    *out << call.goldenFile;
}

class KrvstatHelp : public testing::TestWithParam<HelpCall> {};

TEST_P(KrvstatHelp, IsData)
{
    const ProgramRun got = runKrvstat(GetParam().arguments);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, golden(GetParam().goldenFile));
    EXPECT_EQ(got.errors, "");
}

INSTANTIATE_TEST_SUITE_P(All, KrvstatHelp,
    testing::Values(HelpCall{{"help"}, "help.txt"}, HelpCall{{"--help"}, "help.txt"}, HelpCall{{"-h"}, "help.txt"},
        HelpCall{{"groups", "--help"}, "help-groups.txt"}, HelpCall{{"ids", "-h"}, "help-ids.txt"},
        HelpCall{{"get", "--help"}, "help-get.txt"}, HelpCall{{"help", "--help"}, "help-help.txt"},
        HelpCall{{"version", "--help"}, "help-version.txt"}, HelpCall{{"watch", "--help"}, "help-watch.txt"},
        HelpCall{{"top", "--help"}, "help-top.txt"}, HelpCall{{"diff", "--help"}, "help-diff.txt"},
        HelpCall{{"check", "--help"}, "help-check.txt"}, HelpCall{{"record", "--help"}, "help-record.txt"},
        HelpCall{{"replay", "--help"}, "help-replay.txt"}, HelpCall{{"ping", "--help"}, "help-ping.txt"},
        HelpCall{{"completion", "--help"}, "help-completion.txt"}));

TEST(KrvstatHelpText, FitsIntoEightyColumns)
{
    std::istringstream lines(runKrvstat({"help"}).output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 80U) << line;
    EXPECT_GT(count, 50);
}

TEST(KrvstatHelpText, OfEachCommandIsHadInTwoWays)
{
    for (const char* command : {"groups", "ids", "get", "watch", "top", "diff", "check", "record", "replay", "ping",
             "completion", "version"}) {
        const ProgramRun got = runKrvstat({"help", command});
        EXPECT_EQ(got.exitCode, 0) << command;
        EXPECT_EQ(got.output, runKrvstat({command, "--help"}).output) << command;
        EXPECT_NE(got.output.find(std::string("Usage: krvstat ") + command), std::string::npos) << got.output;
    }
}

TEST(KrvstatVersion, NamesTheToolAndTheInterface)
{
    for (const char* way : {"version", "--version"}) {
        const ProgramRun got = runKrvstat({way});
        EXPECT_EQ(got.exitCode, 0);
        EXPECT_EQ(got.output, "krvstat " KRVSTAT_VERSION "\nstatistics API 1_1_0_1\n");
        EXPECT_EQ(got.errors, "");
    }
}

struct WrongUsage {
    std::vector<std::string> arguments;
    std::string sentence;
};

void PrintTo(const WrongUsage& usage, std::ostream* out)
{
    *out << usage.sentence;
}

constexpr const char* Missing =
    "a command is missing: groups, ids, get, watch, top, diff, check, record, replay, ping, "
    "completion, version or help";

std::string noCommand(const std::string& shown)
{
    return "there is no command '" + shown +
           "'; there are groups, ids, get, watch, top, diff, check, record, replay, ping, completion, version and help";
}

class KrvstatWrongUsage : public testing::TestWithParam<WrongUsage> {};

TEST_P(KrvstatWrongUsage, IsSaidAndEndsWithTwo)
{
    const ProgramRun got = runKrvstat(GetParam().arguments);
    EXPECT_EQ(got.exitCode, 2);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors, std::string("krvstat: ") + GetParam().sentence + "\nkrvstat: try 'krvstat --help'\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, KrvstatWrongUsage,
    testing::Values(WrongUsage{{}, Missing}, WrongUsage{{"-t", "gw"}, Missing},
        WrongUsage{{"status"}, noCommand("status")}, WrongUsage{{"\x1b[2J"}, noCommand("\\x1b[2J")},
        WrongUsage{{"[get]"}, noCommand("[get]")}, WrongUsage{{""}, noCommand("")},
        WrongUsage{{"--all"}, "there is no option '--all'"},
        WrongUsage{{"get", "cpu", "--all"}, "there is no option '--all'"},
        WrongUsage{{"--all=", "get"}, "there is no option '--all'"},
        WrongUsage{{"get", "-x"}, "there is no option '-x'"},
        WrongUsage{{"groups", "cpu"}, "the command groups does not take the argument 'cpu'"},
        WrongUsage{{"groups", "[cpu]"}, "the command groups does not take the argument '[cpu]'"},
        WrongUsage{{"groups", "get"}, "the command groups does not take the argument 'get'"},
        WrongUsage{{"groups", "--", "-x"}, "the command groups does not take the argument '-x'"},
        WrongUsage{{"--", "get"}, Missing}, WrongUsage{{"help", "status"}, noCommand("status")},
        WrongUsage{{"help", "get", "ids"}, "the command help does not take the argument 'ids'"},
        WrongUsage{{"version", "1"}, "the command version does not take the argument '1'"}));

INSTANTIATE_TEST_SUITE_P(Options, KrvstatWrongUsage,
    testing::Values(WrongUsage{{"get", "--target"}, "--target: 1 required HOST[:PORT] missing"},
        WrongUsage{{"--limit", "1", "--limit", "2", "get"}, "--limit: At Most 1 required but received 2"},
        WrongUsage{{"--trace", "6", "get"}, "--trace '6': it is not a level from 0 to 5"},
        WrongUsage{{"--trace", "-1", "get"}, "--trace '-1': it is not a level from 0 to 5"},
        WrongUsage{{"--trace", "all", "get"}, "--trace 'all': it is not a level from 0 to 5"},
        WrongUsage{{"--trace-file", "f", "get"}, "--trace-file needs --trace"},
        WrongUsage{{"--trace", "1", "--trace-file", "", "get"}, "--trace-file: it is empty"},
        WrongUsage{{"--trace", "1", "--trace-file=", "get"}, "--trace-file: it is empty"}));

INSTANTIATE_TEST_SUITE_P(Targets, KrvstatWrongUsage,
    testing::Values(WrongUsage{{"-t", "", "get"}, "--target '': the host is missing"},
        WrongUsage{{"--target=", "get"}, "--target '': the host is missing"},
        WrongUsage{{"-t", ":7845", "get"}, "--target ':7845': the host is missing"},
        WrongUsage{{"-t", "gw:0", "get"}, "--target 'gw:0': the port is not in the range 1 to 65535"},
        WrongUsage{{"-t", "gw:65536", "get"}, "--target 'gw:65536': the port is not in the range 1 to 65535"},
        WrongUsage{{"-t", "gw:80x", "get"}, "--target 'gw:80x': the port is not a number"},
        WrongUsage{{"-t", "[::1]80", "get"}, "--target '[::1]80': behind ']' only ':' and a port may follow"},
        WrongUsage{{"-t", "[gw]", "get"}, "--target '[gw]': what stands between '[' and ']' is not an IPv6 address"},
        WrongUsage{
            {"-t", "g\nw", "get"}, "--target 'g\\x0aw': a host name consists of letters, digits, '.', '-' and '_'"},
        WrongUsage{{"-t", "a", "-t", "b:0", "get"}, "--target 'b:0': the port is not in the range 1 to 65535"},
        WrongUsage{{"version", "-t", "gw:"}, "--target 'gw:': the port behind ':' is missing"}));

INSTANTIATE_TEST_SUITE_P(Ids, KrvstatWrongUsage,
    testing::Values(WrongUsage{{"get", "a:b"},
                        "the id 'a:b' contains ':', which separates ids; give each id as an argument of its own"},
        WrongUsage{{"ids", "cpu", ":"},
            "the id ':' contains ':', which separates ids; give each id as an argument of its own"},
        WrongUsage{{"get", "cpu", ""}, "an id is empty"},
        WrongUsage{{"get", "--", "-a:b"},
            "the id '-a:b' contains ':', which separates ids; give each id as an argument of its own"}));

} // namespace
