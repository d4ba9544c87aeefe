// Each exit code by a situation that has it. Those of check are in krvstat_check_test.cpp, 130 is in
// krvstat_watch_test.cpp.

#include "deaf_port.h"
#include "krvstat_fixture.h"

namespace {

class KrvstatExitCodes : public KrvstatWithGateway {};

TEST_F(KrvstatExitCodes, ZeroWhereAllIsDelivered)
{
    serve(FixedScenario);
    EXPECT_EQ(run({"get", "cpu"}).exitCode, 0);
    EXPECT_EQ(run({"get", "cpu", "empty"}).exitCode, 0);
}

TEST_F(KrvstatExitCodes, OneWhereTheGatewayRefusesTheWholeRequest)
{
    serve("all-rc: -9\ngroups: [{id: cpu, rc: -5, statistics: [{id: cpu.user, value: \"1\"}]}]\n");
    EXPECT_EQ(run({"get"}).exitCode, 1);
    EXPECT_EQ(run({"get", "cpu"}).exitCode, 1);
}

TEST_F(KrvstatExitCodes, TwoForWrongUsage)
{
    serve(FixedScenario);
    EXPECT_EQ(run({"get", "--sort", "size"}).exitCode, 2);
}

TEST_F(KrvstatExitCodes, ThreeWhereAGroupOrATargetFailedAndTheRestIsPrinted)
{
    serve(FixedScenario);
    const ProgramRun group = run({"get", "cpu.user", "broken"});
    EXPECT_EQ(group.exitCode, 3);
    EXPECT_EQ(group.output, "STATISTIC  VALUE\ncpu.user   1200\n");
    const DeafPort deaf;
    const ProgramRun other = run({"-t", deaf.target(), "-o", "value", "get", "cpu.user"});
    EXPECT_EQ(other.exitCode, 3);
    EXPECT_EQ(other.output, "1200\n");
    EXPECT_EQ(other.errors,
        "krvstat: cannot connect to " + deaf.target() + ": connection refused; no gateway listens there\n");
}

TEST_F(KrvstatExitCodes, FourWhereNobodyListens)
{
    serve(FixedScenario);
    const DeafPort deaf;
    const DeafPort other;
    EXPECT_EQ(runKrvstat({"-t", deaf.target(), "get"}).exitCode, 4);
    EXPECT_EQ(runKrvstat({"-t", deaf.target(), "-t", other.target(), "get"}).exitCode, 4);
}

TEST_F(KrvstatExitCodes, FiveWhereTheGatewayDoesNotAnswerInTime)
{
    serve(FixedScenario, {"no-answer@get-stats"});
    const ProgramRun got = run({"--timeout", "3s", "get"});
    EXPECT_EQ(got.exitCode, 5);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors, "krvstat: " + target() + " did not answer within the time given\n");
}

TEST_F(KrvstatExitCodes, FiveWhereConnectingTakesTooLong)
{
    serve(FixedScenario, {"no-answer@handshake"});
    const ProgramRun got = run({"--connect-timeout", "300ms", "get"});
    EXPECT_EQ(got.exitCode, 5);
    EXPECT_EQ(got.errors, "krvstat: cannot connect to " + target() + ": no answer within the time given\n");
}

TEST_F(KrvstatExitCodes, SixWhereTheReplyCannotBeRead)
{
    serve(FixedScenario, {"bad-eyecatcher@get-stats"});
    EXPECT_EQ(run({"get"}).exitCode, 6);
}

TEST_F(KrvstatExitCodes, SevenWhereAnIdOrGroupDoesNotExistUnlessThatIsIgnored)
{
    serve(FixedScenario);
    const ProgramRun got = run({"get", "cpu.usr", "memory.total"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "STATISTIC     VALUE\nmemory.total  0008388608 kB\n");
    EXPECT_EQ(got.errors,
        "krvstat: the gateway " + target() + " has no statistic or group 'cpu.usr'; did you mean 'cpu.user'?\n");
    EXPECT_EQ(run({"ids", "memroy"}).errors,
        "krvstat: the gateway " + target() + " has no group 'memroy'; did you mean 'memory'?\n");
    EXPECT_EQ(run({"get", "--ignore-missing", "cpu.usr", "memory.total"}).exitCode, 0);
    EXPECT_EQ(run({"ids", "--ignore-missing", "memroy"}).exitCode, 0);
}

// Names are looked up by a library that is loaded before the C library; and, in a sanitized build, before the sanitizer's,
// which has to put up with that.
void playLookups(Launch& launch)
{
    launch.environment.emplace_back("LD_PRELOAD", KRVSTAT_SLOW_LOOKUP);
    launch.environment.emplace_back("ASAN_OPTIONS", "verify_asan_link_order=0");
}

TEST_F(KrvstatExitCodes, FiveWhereTheNameIsNotLookedUpInTime)
{
    serve(FixedScenario);
    Launch slow = krvstatLaunch({"-t", "slow.example:1", "--connect-timeout", "200ms", "get"});
    playLookups(slow);
    const ProgramRun got = runProgram(slow);
    EXPECT_EQ(got.exitCode, 5);
    EXPECT_EQ(
        got.errors, "krvstat: cannot connect to slow.example:1: its name was not looked up within the time given\n");
}

TEST_F(KrvstatExitCodes, TheSecondAddressOfANameIsTriedWhereNobodyListensAtTheFirst)
{
    serve(FixedScenario);
    Launch named =
        krvstatLaunch({"-t", "two.example:" + std::to_string(gateway->port()), "-o", "value", "get", "cpu.user"});
    playLookups(named);
    const ProgramRun got = runProgram(named);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "1200\n");
}

TEST_F(KrvstatExitCodes, OfSeveralTargetsTheFirstFailureCountsWhereNothingIsDelivered)
{
    serve(FixedScenario, {"bad-eyecatcher@get-stats"});
    const DeafPort deaf;
    EXPECT_EQ(runKrvstat({"-t", deaf.target(), "-t", target(), "get"}).exitCode, 4);
    EXPECT_EQ(runKrvstat({"-t", target(), "-t", deaf.target(), "get"}).exitCode, 6);
}

} // namespace
