// What krvstat prints of what a gateway answers.

#include "krvstat_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

class KrvstatAnswers : public KrvstatWithFixedGateway {};
class KrvstatOddAnswers : public KrvstatWithGateway {};

TEST_F(KrvstatAnswers, GroupsAreListed)
{
    const ProgramRun got = run({"groups"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "GROUP\n"
                          "cpu\n"
                          "memory\n"
                          "odd\n"
                          "broken\n"
                          "empty\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, IdsOfAllStatisticsAreListed)
{
    const ProgramRun got = run({"ids"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC\n"
                          "cpu.user\n"
                          "cpu.model\n"
                          "memory.total\n"
                          "odd.empty\n"
                          "odd.escape\n"
                          "odd\\x09id\n"
                          "odd.utf8\n"
                          "[odd]\n"
                          "-odd\n"
                          "ids\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, IdsOfGroupsAreListedInTheOrderAskedFor)
{
    const ProgramRun got = run({"ids", "memory", "cpu"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC\n"
                          "memory.total\n"
                          "cpu.user\n"
                          "cpu.model\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, GetShowsEverythingAligned)
{
    const ProgramRun got = run({"get"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "cpu.user      1200\n"
                          "cpu.model     Example 9000, 3.2 GHz\n"
                          "memory.total  0008388608 kB\n"
                          "odd.empty\n"
                          "odd.escape    \\x1b[2Jok\\x0d\\x0a\n"
                          "odd\\x09id     C:\\\\temp\n"
                          "odd.utf8      Z\\xc3\\xbcrich\\xff\n"
                          "[odd]          1, 2 \n"
                          "-odd          dash\n"
                          "ids           named like a command\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, GetTakesStatisticsAndGroupsInOneRequest)
{
    const ProgramRun got = run({"get", "memory.total", "cpu", "odd.empty"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "memory.total  0008388608 kB\n"
                          "cpu.user      1200\n"
                          "cpu.model     Example 9000, 3.2 GHz\n"
                          "odd.empty\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, IdsReachTheGatewayAsTheyStandOnTheCommandLine)
{
    const ProgramRun got = run({"get", "ids", "[odd]", "odd\tid", "--", "-odd"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\n"
                          "ids        named like a command\n"
                          "[odd]       1, 2 \n"
                          "odd\\x09id  C:\\\\temp\n"
                          "-odd       dash\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatAnswers, CharactersOfTheLocaleAreShown)
{
    Launch utf8 = launch({"get", "odd.utf8", "cpu.user"});
    utf8.environment = {{"LC_ALL", "C.UTF-8"}};
    const ProgramRun got = runProgram(utf8);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\n"
                          "odd.utf8   Z\u00fcrich\\xff\n"
                          "cpu.user   1200\n");
}

TEST_F(KrvstatAnswers, OptionsMayStandBehindTheCommand)
{
    const ProgramRun got = runKrvstat({"get", "cpu.user", "-t", target()});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\n"
                          "cpu.user   1200\n");
    const ProgramRun joined = runKrvstat({"--target=" + target(), "get", "cpu.user"});
    EXPECT_EQ(joined.exitCode, 0);
    EXPECT_EQ(joined.output, got.output);
}

TEST_F(KrvstatAnswers, UnknownIdsAreSaidWhileTheOthersAreShown)
{
    const ProgramRun got = run({"get", "nosuch", "cpu.user", "broken", "memory", "no\x1bsuch"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "cpu.user      1200\n"
                          "memory.total  0008388608 kB\n");
    EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has no statistic or group 'nosuch'\n" +
                              "krvstat: the gateway " + target() + " refuses to tell about 'broken' (its code -5)\n" +
                              "krvstat: the gateway " + target() + " has no statistic or group 'no\\x1bsuch'\n");
}

TEST_F(KrvstatAnswers, NothingIsPrintedWhereNoIdIsKnown)
{
    for (const char* command : {"ids", "get"}) {
        const ProgramRun got = run({command, "nosuch"});
        EXPECT_EQ(got.exitCode, 7);
        EXPECT_EQ(got.output, "");
        EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has no " +
                                  (std::string(command) == "ids" ? "group" : "statistic or group") + " 'nosuch'\n");
    }
}

TEST_F(KrvstatAnswers, UnknownGroupsAreSaidWhileTheOthersAreShown)
{
    const ProgramRun got = run({"ids", "nosuch", "memory"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC\nmemory.total\n");
    EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has no group 'nosuch'\n");
}

TEST_F(KrvstatAnswers, AnEmptyGroupIsSaidAndNoError)
{
    for (const char* command : {"ids", "get"}) {
        const ProgramRun got = run({command, "empty"});
        EXPECT_EQ(got.exitCode, 0);
        EXPECT_EQ(got.output, "");
        EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has nothing to show for 'empty'\n");
    }
}

TEST_F(KrvstatAnswers, AnEmptyGroupDoesNotHideWhatIsAskedForBehindIt)
{
    const ProgramRun got = run({"get", "memory", "empty", "cpu.user", "nosuch"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "memory.total  0008388608 kB\n"
                          "cpu.user      1200\n");
    EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has nothing to show for 'empty'\n" +
                              "krvstat: the gateway " + target() + " has no statistic or group 'nosuch'\n");

    const ProgramRun ids = run({"ids", "empty", "cpu"});
    EXPECT_EQ(ids.exitCode, 0);
    EXPECT_EQ(ids.output, "STATISTIC\n"
                          "cpu.user\n"
                          "cpu.model\n");
    EXPECT_EQ(ids.errors, "krvstat: the gateway " + target() + " has nothing to show for 'empty'\n");
}

TEST_F(KrvstatAnswers, WhatIsAskedForTwiceIsShownOnce)
{
    const ProgramRun got = run({"get", "cpu.user", "memory", "cpu.user", "--", "memory"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "cpu.user      1200\n"
                          "memory.total  0008388608 kB\n");
}

TEST_F(KrvstatAnswers, TheLongestIdIsSentAndOneByteMoreIsRefused)
{
    const std::string longest(32765, 'x');
    const ProgramRun sent = run({"get", longest});
    EXPECT_EQ(sent.exitCode, 7);
    EXPECT_EQ(sent.output, "");
    EXPECT_EQ(sent.errors, "krvstat: the gateway " + target() + " has no statistic or group '" + longest + "'\n");

    const ProgramRun refused = run({"get", longest + "x"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.output, "");
    EXPECT_EQ(refused.errors, "krvstat: an id is 32766 bytes long; one request holds 32765\n"
                              "krvstat: try 'krvstat --help'\n");
}

TEST_F(KrvstatAnswers, IdsThatDoNotFitIntoOneRequestAreSentInSeveral)
{
    const std::string filling(32765 - 9, 'x'); // "cpu.user:" is before it
    const ProgramRun got = run({"get", "cpu.user", filling, "memory.total"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\n"
                          "cpu.user      1200\n"
                          "memory.total  0008388608 kB\n");
}

TEST_F(KrvstatOddAnswers, AGatewayWithoutGroupsIsSaidToBeEmpty)
{
    serve("groups: []\n");
    for (const char* command : {"groups", "ids", "get"}) {
        const ProgramRun got = run({command});
        EXPECT_EQ(got.exitCode, 0) << command;
        EXPECT_EQ(got.output, "") << command;
        EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " has nothing to show\n") << command;
    }
}

TEST_F(KrvstatOddAnswers, ARequestThatIsRefusedAsAWholeHasAnExitCodeOfItsOwn)
{
    serve("all-rc: -9\ngroups: [{id: cpu, statistics: [{id: cpu.user, value: \"1\"}]}]\n");
    for (const char* command : {"groups", "ids", "get"}) {
        const ProgramRun got = run({command});
        EXPECT_EQ(got.exitCode, 1) << command;
        EXPECT_EQ(got.output, "") << command;
        EXPECT_EQ(got.errors, "krvstat: the gateway " + target() + " refused the request (its code -9)\n") << command;
    }
}

TEST_F(KrvstatOddAnswers, ACodeAboveZeroIsNoRefusal)
{
    serve("groups: [{id: cpu, rc: 4, statistics: [{id: cpu.user, value: \"1\"}]}]\n");
    const ProgramRun got = run({"get", "cpu"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\ncpu.user   1\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatOddAnswers, AHundredThousandStatisticsAreAllShown)
{
    serve("groups: [{id: bulk, statistics: [{id: \"bulk.{n}\", value: \"v{n}\", repeat: {count: 100000}}]}]\n");
    const ProgramRun got = run({"get"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(std::count(got.output.begin(), got.output.end(), '\n'), 100001);
    EXPECT_TRUE(got.output.starts_with("STATISTIC    VALUE\nbulk.1       v1\nbulk.2       v2\n"));
    EXPECT_TRUE(got.output.ends_with("\nbulk.99999   v99999\nbulk.100000  v100000\n"));
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatOddAnswers, LongValuesAreNotCut)
{
    serve("groups: [{id: long, statistics: [{id: long.value, text: {repeat: \"0123456789\", length: 32767}}]}]\n");
    const ProgramRun got = run({"get"});
    EXPECT_EQ(got.exitCode, 0);
    std::string value;
    while (value.size() < 32767) value += "0123456789";
    value.resize(32767);
    EXPECT_EQ(got.output, "STATISTIC   VALUE\nlong.value  " + value + "\n");
}

// A program that starts the gateway on ::1; the gateway of a test listens on 127.0.0.1 by itself.
std::string writeIpv6Gateway(const krvtest::ScratchFolder& scratch)
{
    const char* named = std::getenv("KRVSTATS_GATEWAY_PROGRAM");
    const std::string program = named != nullptr && *named != '\0' ? named : KRVSTATS_GATEWAY_PROGRAM;
    const std::string script = scratch.path("gateway-on-ipv6");
    std::ofstream(script) << "#!/bin/sh\nexec '" << program << "' --bind ::1 \"$@\"\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    return script;
}

class KrvstatOverIpv6 : public KrvstatWithGateway {
protected:
    void SetUp() override
    {
        setenv("KRVSTATS_GATEWAY_PROGRAM", writeIpv6Gateway(scratch).c_str(), 1);
        serve(FixedScenario);
    }

    void TearDown() override
    {
        if (before) setenv("KRVSTATS_GATEWAY_PROGRAM", before->c_str(), 1);
        else unsetenv("KRVSTATS_GATEWAY_PROGRAM");
        KrvstatWithGateway::TearDown();
    }

    krvtest::ScratchFolder scratch;
    const char* const inherited = std::getenv("KRVSTATS_GATEWAY_PROGRAM");
    const std::optional<std::string> before =
        inherited != nullptr ? std::optional<std::string>(inherited) : std::nullopt;
};

TEST_F(KrvstatOverIpv6, GatewaysAreAsked)
{
    const std::string target6 = "[::1]:" + std::to_string(gateway->port());
    const ProgramRun got = runKrvstat({"--target", target6, "get", "cpu.user", "nosuch"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\ncpu.user   1200\n");
    EXPECT_EQ(got.errors, "krvstat: the gateway " + target6 + " has no statistic or group 'nosuch'\n");
}

} // namespace
