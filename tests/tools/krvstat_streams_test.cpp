// Where krvstat's data, messages and trace go, and what happens where they cannot.

#include "krvstat_fixture.h"
#include "terminal.h"

#include <cstdlib>
#include <filesystem>
#include <regex>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char* OneStatistic = "STATISTIC  VALUE\ncpu.user   1200\n";

class KrvstatStreams : public KrvstatWithFixedGateway {};
class KrvstatBulk : public KrvstatWithGateway {};
class KrvstatTrace : public KrvstatWithFixedGateway {
protected:
    std::vector<std::string> traceLines() const
    {
        return krvtest::splitLines(krvtest::readWholeFile(file));
    }

    krvtest::ScratchFolder scratch;
    const std::string file = scratch.path("trace");
};

// Lines with this part.
int countLines(const std::vector<std::string>& lines, const std::string& part)
{
    int count = 0;
    for (const std::string& line : lines) count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
}

TEST_F(KrvstatStreams, AClosedStandardOutputIsAFailure)
{
    Launch closed = launch({"get", "cpu.user"});
    closed.standardOutput = Closed;
    const ProgramRun got = runProgram(closed); // nothing strange reaches the gateway either: TearDown looks
    EXPECT_EQ(got.exitCode, 8);
    EXPECT_EQ(got.errors, "krvstat: cannot write to standard output: Bad file descriptor\n");
}

TEST_F(KrvstatStreams, AFullDiskIsAFailure)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    for (const std::vector<std::string>& arguments :
        {std::vector<std::string>{"get", "cpu.user"}, {"groups"}, {"ids"}, {"help"}, {"version"}}) {
        Launch onFull = launch(arguments);
        onFull.standardOutput = full;
        const ProgramRun got = runProgram(onFull);
        EXPECT_EQ(got.exitCode, 8) << arguments.front();
        EXPECT_EQ(got.errors, "krvstat: cannot write to standard output: No space left on device\n");
    }
    close(full);
}

TEST_F(KrvstatStreams, AFailureToWriteOutweighsAnUnknownId)
{
    Launch closed = launch({"get", "cpu.user", "nosuch"});
    closed.standardOutput = Closed;
    const ProgramRun got = runProgram(closed);
    EXPECT_EQ(got.exitCode, 8);
    EXPECT_EQ(got.errors, "krvstat: the gateway " + target() +
                              " has no statistic or group 'nosuch'\n"
                              "krvstat: cannot write to standard output: Bad file descriptor\n");
}

TEST_F(KrvstatStreams, AReaderThatHasLeftIsNoFailure)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    Launch left = launch({"get"});
    left.standardOutput = ends[1];
    const ProgramRun got = runProgram(left);
    close(ends[1]);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.signal, 0);
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatStreams, AClosedStandardErrorChangesNothing)
{
    Launch closed = launch({"get", "cpu.user", "nosuch"});
    closed.standardError = Closed;
    const ProgramRun got = runProgram(closed);
    EXPECT_EQ(got.exitCode, 7);
    EXPECT_EQ(got.output, OneStatistic);
}

// The connection would otherwise be descriptor 2, and the gateway would get the trace.
TEST_F(KrvstatStreams, NoTraceGoesToTheGatewayWhereStandardErrorIsClosed)
{
    Launch closed = launch({"--trace", "4", "get", "cpu.user"});
    closed.standardError = Closed;
    const ProgramRun got = runProgram(closed);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, OneStatistic);
}

TEST_F(KrvstatStreams, EverythingClosedChangesNothingButTheExitCode)
{
    Launch closed = launch({"get", "cpu.user", "nosuch"});
    closed.standardOutput = Closed;
    closed.standardError = Closed;
    EXPECT_EQ(runProgram(closed).exitCode, 8);
}

std::string onTerminal(const Launch& launch, unsigned short columns)
{
    Terminal terminal(24, columns);
    return terminal.run(launch);
}

TEST_F(KrvstatStreams, ValuesAreCutToATerminalAndOnlyThere)
{
    const Launch asked = launch({"get", "cpu"});
    EXPECT_EQ(onTerminal(asked, 24), "STATISTIC  VALUE\n"
                                     "cpu.user   1200\n"
                                     "cpu.model  Example 90...\n");
    EXPECT_EQ(onTerminal(asked, 80), "STATISTIC  VALUE\n"
                                     "cpu.user   1200\n"
                                     "cpu.model  Example 9000, 3.2 GHz\n");
    EXPECT_EQ(onTerminal(asked, 0), runProgram(asked).output); // a terminal that does not know its size
}

TEST_F(KrvstatStreams, NoControlCharacterReachesATerminal)
{
    const std::string shown = onTerminal(launch({"get", "odd"}), 80);
    EXPECT_EQ(shown.find_first_not_of("\n !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                                      "abcdefghijklmnopqrstuvwxyz{|}~"),
        std::string::npos);
    EXPECT_NE(shown.find("\\x1b[2Jok"), std::string::npos);
}

TEST_F(KrvstatBulk, HeadGetsItsLineAndNobodyComplains)
{
    serve("groups: [{id: bulk, statistics: [{id: \"bulk.{n}\", value: \"v{n}\", repeat: {count: 100000}}]}]\n");
    Launch pipeline;
    pipeline.program = "/bin/bash";
    pipeline.arguments = {
        "-c", "\"$0\" --target \"$1\" get | head -n 1; echo \"${PIPESTATUS[@]}\"", KRVSTAT_PROGRAM, target()};
    const ProgramRun got = runProgram(pipeline);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC    VALUE\n0 0\n");
    EXPECT_EQ(got.errors, "");
}

// "*** dd/mm/yy QAL Korvane KRVSTATS DLL trace V1.0.0.0 API V1_1_0_1 Build Level x ***"
const std::regex TraceHeading("\\*\\*\\* [0-9]{2}/[0-9]{2}/[0-9]{2} QAL Korvane KRVSTATS DLL trace V[0-9.]+ "
                              "API V1_1_0_1 Build Level .+ \\*\\*\\*");

TEST_F(KrvstatTrace, GoesToItsFile)
{
    const ProgramRun got = run({"--trace", "3", "--trace-file", file, "get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, OneStatistic);
    EXPECT_EQ(got.errors, "");

    const std::vector<std::string> lines = traceLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(std::regex_match(lines.front(), TraceHeading)) << lines.front();
    EXPECT_EQ(countLines(lines, "QAL Korvane KRVSTATS DLL trace"), 1);
    EXPECT_EQ(countLines(lines,
                  "ENTRY  API.openRemoteGatewayConnection(hostname=127.0.0.1, port=" + std::to_string(gateway->port())),
        1);
    EXPECT_EQ(countLines(lines, "API.getStatsByStatId Getting Stats for Stat Ids cpu.user"), 1);
    EXPECT_EQ(countLines(lines, "API.closeGatewayConnection Closed Gateway connection"), 1);
}

TEST_F(KrvstatTrace, IsAppendedToItsFile)
{
    EXPECT_EQ(run({"--trace", "1", "--trace-file", file, "get", "cpu.user"}).exitCode, 0);
    EXPECT_EQ(traceLines().size(), 1U); // the heading: there was no exception
    EXPECT_EQ(run({"get", "cpu.user", "--trace-file", file, "--trace", "1"}).exitCode, 0);
    EXPECT_EQ(traceLines().size(), 2U);
}

TEST_F(KrvstatTrace, RisesWithItsLevel)
{
    std::size_t before = 0;
    for (const char* level : {"1", "2", "3", "4"}) {
        std::filesystem::remove(file);
        EXPECT_EQ(run({"--trace", level, "--trace-file", file, "get", "cpu.user"}).exitCode, 0);
        EXPECT_GT(traceLines().size(), before) << level;
        before = traceLines().size();
    }
}

TEST_F(KrvstatTrace, HasNothingToSayAtLevelZero)
{
    const ProgramRun got = run({"--trace", "0", "--trace-file", file, "get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.errors, "");
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(traceLines().size(), 0U);
}

TEST_F(KrvstatTrace, GoesToStandardErrorWithoutAFile)
{
    const ProgramRun got = run({"--trace", "2", "get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, OneStatistic);
    EXPECT_TRUE(std::regex_match(got.errors.substr(0, got.errors.find('\n')), TraceHeading)) << got.errors;
    EXPECT_NE(got.errors.find("API.getStatsByStatId Getting Stats for Stat Ids cpu.user"), std::string::npos);
}

// The file would otherwise be descriptor 1.
TEST_F(KrvstatTrace, HoldsNoDataWhereStandardOutputIsClosed)
{
    Launch closed = launch({"--trace", "1", "--trace-file", file, "get", "cpu.user"});
    closed.standardOutput = Closed;
    EXPECT_EQ(runProgram(closed).exitCode, 8);
    EXPECT_EQ(traceLines().size(), 1U); // the heading
}

TEST_F(KrvstatTrace, AFileThatCannotBeOpenedIsWrongUsage)
{
    const std::string nowhere = scratch.path("no/such/file");
    const ProgramRun got = run({"--trace", "1", "--trace-file", nowhere, "get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 2);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors, "krvstat: cannot append to the trace file '" + nowhere + "'\n");
}

} // namespace
