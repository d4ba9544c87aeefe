// watch while things happen: readers that leave, signals, gateways that drop the connection or go and come back.

#include "deaf_port.h"
#include "krvstat_fixture.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>

namespace {

constexpr const char* PollsScenario =
    "groups: [{id: g, statistics: [{id: g.polls, counter: {start: 5, step: 3}}, {id: g.text, value: \"x\"}]}]\n";

class KrvstatWatch : public KrvstatWithGateway {};

TEST_F(KrvstatWatch, ShowsSoManySamplesAndWhatChangedBetweenThem)
{
    serve(PollsScenario);
    const ProgramRun got =
        run({"watch", "-n", "10ms", "-c", "3", "-o", "csv", "--columns", "id,value,delta", "g.polls"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "id,value,delta\ng.polls,5,\ng.polls,8,3\ng.polls,11,3\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatWatch, EndsAfterItsDuration)
{
    serve(PollsScenario);
    const auto start = std::chrono::steady_clock::now();
    const ProgramRun got = run({"watch", "--interval", "20ms", "--duration", "2s", "-o", "value", "g.polls"});
    // Not before the last sample that has a place in it.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1980));
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output.substr(0, 4), "5\n8\n");
}

TEST_F(KrvstatWatch, AlignedSamplesWaitForAMultipleOfTheInterval)
{
    serve(PollsScenario);
    const auto start =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    const ProgramRun got = run({"watch", "-n", "2s", "-c", "1", "--align", "--time", "unix", "-o", "csv", "--columns",
        "time", "--no-header", "g.polls"});
    EXPECT_EQ(got.exitCode, 0);
    ASSERT_TRUE(std::regex_match(got.output, std::regex("[0-9]{10}\\.[0-9]{3}\n"))) << got.output;
    EXPECT_GE(std::stoll(got.output.substr(0, 10)), start.count() / 2000 * 2 + 2);
}

TEST_F(KrvstatWatch, RatesAreNumbersASecond)
{
    serve(PollsScenario);
    const ProgramRun got = run({"get", "--rate", "-n", "20ms", "-o", "csv", "g.polls"});
    EXPECT_EQ(got.exitCode, 0);
    std::smatch parts;
    ASSERT_TRUE(std::regex_search(got.output, parts, std::regex("time,id,rate,note\n[^,]+,g\\.polls,([0-9.]+),\n")))
        << got.output;
    EXPECT_GT(std::stod(parts[1]), 0);
}

TEST_F(KrvstatWatch, EverySampleIsWrittenAtOnce)
{
    serve(PollsScenario);
    RunningProgram watch(launch({"watch", "-n", "50ms", "-o", "value", "g.polls"}));
    EXPECT_TRUE(watch.awaitOutput("5\n8\n11\n"));
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 130);
}

TEST_F(KrvstatWatch, AnInterruptionIsSummedUp)
{
    serve(PollsScenario);
    RunningProgram watch(launch({"watch", "-n", "1h"}));
    EXPECT_TRUE(watch.awaitOutput("g.text"));
    watch.send(SIGINT);
    const ProgramRun got = watch.finish();
    EXPECT_EQ(got.exitCode, 130);
    EXPECT_EQ(got.signal, 0);
    EXPECT_TRUE(std::regex_match(
        got.errors, std::regex("krvstat: interrupted after 1 samples in [0-9.]+ seconds; 0 gaps, 0 resets\n")))
        << got.errors;
}

TEST_F(KrvstatWatch, ATerminationEndsItAsASignalWould)
{
    serve(PollsScenario);
    RunningProgram watch(launch({"watch", "-n", "1h"}));
    EXPECT_TRUE(watch.awaitOutput("g.text"));
    watch.send(SIGTERM);
    EXPECT_EQ(watch.finish().exitCode, 128 + SIGTERM);
}

TEST_F(KrvstatWatch, AnInterruptionEndsAWaitForTheGateway)
{
    serve(PollsScenario, {"no-answer@get-stats"});
    RunningProgram watch(launch({"watch", "--timeout", "1h"}));
    EXPECT_TRUE(gateway->awaitTranscript("C>G get-stats"));
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 130);
}

// An hour would pass until it noticed by writing.
TEST_F(KrvstatWatch, HeadGetsItsLineAndTheWatchEndsWithNothingToComplainAbout)
{
    serve(PollsScenario);
    Launch pipeline;
    pipeline.program = "/bin/bash";
    pipeline.arguments = {
        "-c", "\"$0\" -t \"$1\" watch -n 1h | head -n 1 >&2; echo \"${PIPESTATUS[@]}\"", KRVSTAT_PROGRAM, target()};
    const ProgramRun got = runProgram(pipeline);
    EXPECT_EQ(got.output, "0 0\n");
}

TEST_F(KrvstatWatch, ALostConnectionIsSaidMarkedAndMadeAnew)
{
    serve(PollsScenario, {"close-before@get-stats#3%1"});
    RunningProgram watch(launch({"watch", "-n", "100ms", "-o", "csv", "--columns", "id,value,delta,note", "g.polls"}));
    EXPECT_TRUE(watch.awaitErrors(" is back\n"));
    EXPECT_TRUE(watch.awaitOutput("g.polls,8,3,\n,,,gap\n"));
    EXPECT_TRUE(watch.awaitOutput("\ng.polls,5,,gap\ng.polls,8,3,\n"));
    watch.send(SIGINT);
    const ProgramRun got = watch.finish();
    EXPECT_EQ(got.exitCode, 130);
    EXPECT_EQ(got.output.find("id,value,delta,note\ng.polls,5,,\ng.polls,8,3,\n,,,gap\n"), 0U) << got.output;
    EXPECT_EQ(got.errors.find("krvstat: the request to " + target() +
                              " failed: the gateway closed the connection, reported an error or sent a bad reply; "
                              "trying again\nkrvstat: " +
                              target() + " is back\n"),
        0U)
        << got.errors;
}

TEST_F(KrvstatWatch, AGatewayThatGoesAndComesBackIsFoundAgain)
{
    krvtest::ScratchFolder scratch;
    std::ofstream(scratch.path("scenario")) << PollsScenario;
    serve(PollsScenario); // for the path of the program and a free port
    const int port = gateway->port();
    RunningProgram watch(launch({"watch", "-n", "100ms", "-o", "jsonl"}));
    EXPECT_TRUE(watch.awaitOutput("g.text"));
    EXPECT_EQ(gateway->stop(), 0);
    EXPECT_TRUE(watch.awaitErrors("trying again"));
    Launch again;
    again.program = KRVSTATS_GATEWAY_PROGRAM;
    again.arguments = {"--port", std::to_string(port), "--scenario", scratch.path("scenario")};
    RunningProgram second(again);
    EXPECT_TRUE(watch.awaitErrors(" is back"));
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 130);
    second.send(SIGTERM);
    EXPECT_EQ(second.finish().exitCode, 0);
    serve(PollsScenario); // the one that is stopped at the end
}

TEST_F(KrvstatWatch, ASampleThatIsMissingMakesItPartial)
{
    serve(PollsScenario, {"close-before@get-stats#2%1"});
    const ProgramRun got =
        run({"-q", "watch", "-n", "20ms", "-c", "2", "-o", "csv", "--columns", "value,note", "g.polls"});
    EXPECT_EQ(got.exitCode, 3);
    EXPECT_EQ(got.output, "value,note\n5,\n,gap\n");
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatWatch, ASlowGatewayDoesNotHoldUpTheOthers)
{
    serve(PollsScenario);
    krvtest::GatewayProcess slow({"no-answer@get-stats#2"}, PollsScenario);
    const std::string slowTarget = "127.0.0.1:" + std::to_string(slow.port());
    RunningProgram watch(
        launch({"-t", slowTarget, "watch", "-n", "100ms", "-o", "csv", "--columns", "target,value,note", "g.polls"}));
    EXPECT_TRUE(watch.awaitOutput(slowTarget + ",,gap\n"));
    EXPECT_TRUE(watch.awaitOutput(target() + ",11,"));
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 130);
    EXPECT_EQ(slow.stop(), 0);
}

TEST_F(KrvstatWatch, AMisspeltIdEndsItAtOnce)
{
    serve(PollsScenario);
    const ProgramRun got = run({"watch", "-n", "1h", "g.pols"});
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors,
        "krvstat: the gateway " + target() + " has no statistic or group 'g.pols'; did you mean 'g.polls'?\n");
}

TEST(KrvstatWatchWithoutGateway, EndsAtOnce)
{
    const DeafPort deaf;
    EXPECT_EQ(runKrvstat({"-t", deaf.target(), "watch", "-n", "1h"}).exitCode, 4);
}

class KrvstatPing : public KrvstatWithGateway {};

TEST_F(KrvstatPing, TimesConnectingAndAnExchange)
{
    serve(PollsScenario);
    const ProgramRun got = run({"ping", "-c", "2", "-n", "10ms", "-o", "csv"});
    EXPECT_EQ(got.exitCode, 0);
    const std::string line = "127\\.0\\.0\\.1:[0-9]+,1\\.1\\.0,[0-9]+\\.[0-9]{3},[0-9]+\\.[0-9]{3}\n";
    EXPECT_TRUE(std::regex_match(got.output, std::regex("target,protocol,connect_ms,exchange_ms\n" + line + line)))
        << got.output;
}

TEST_F(KrvstatPing, SaysWhereNobodyAnswers)
{
    serve(PollsScenario, {"no-answer@resource-groups"});
    const ProgramRun got = run({"ping", "--timeout", "300ms"});
    EXPECT_EQ(got.exitCode, 5);
    EXPECT_EQ(got.output, "");
    const DeafPort deaf;
    EXPECT_EQ(runKrvstat({"-t", deaf.target(), "ping"}).exitCode, 4);
}

} // namespace
