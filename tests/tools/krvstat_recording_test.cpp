// Recordings written by hand: what is computed of them is known to the digit. record, replay, --input and diff.

#include "krvstat_fixture.h"

#include <filesystem>
#include <fstream>
#include <regex>

namespace {

std::string sample(int round, long long nanoseconds, const std::string& rest, const std::string& target = "gw:1")
{
    return R"({"schema_version":1,"kind":"sample","round":)" + std::to_string(round) +
           R"(,"time":"2026-01-31T12:00:0)" + std::to_string(round) + R"(.000Z","monotonic_ns":)" +
           std::to_string(nanoseconds) + R"(,"target":")" + target + "\"," + rest + "}\n";
}

std::string statistics(const std::string& counter, const std::string& text)
{
    return R"("statistics":[{"group":"g","id":"g.counter","value":")" + counter +
           R"("},{"group":"h","id":"h.text","value":")" + text + R"("}])";
}

class KrvstatRecordings : public testing::Test {
protected:
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(scratch.path(name)) << content;
        return scratch.path(name);
    }

    // 100 to 350 in 2.5 s, then a fall, then a sample that is missing, then two more in 0.5 s.
    std::string story() const
    {
        return write("story",
            sample(1, 1000000000, statistics("100", "a")) + sample(2, 3500000000, statistics("350", "a")) +
                sample(3, 4000000000, statistics("20", "b")) + sample(4, 5000000000, "\"gap\":\"cannot connect\"") +
                sample(5, 6000000000, statistics("40", "b")) + sample(6, 6500000000, statistics("41", "b")));
    }

    krvtest::ScratchFolder scratch;
};

TEST_F(KrvstatRecordings, RatesAreOfTheMonotonicTimeAndNeverOfAResetOrAGap)
{
    const ProgramRun got = runKrvstat({"replay", story(), "--speed", "0", "--utc", "-o", "csv"});
    EXPECT_EQ(got.exitCode, 3); // a sample is missing
    EXPECT_EQ(got.output, "time,id,value,delta,rate,note\n"
                          "2026-01-31T12:00:01.000Z,g.counter,100,,,\n"
                          "2026-01-31T12:00:01.000Z,h.text,a,,,\n"
                          "2026-01-31T12:00:02.000Z,g.counter,350,250,100,\n"
                          "2026-01-31T12:00:02.000Z,h.text,a,,,\n"
                          "2026-01-31T12:00:03.000Z,g.counter,20,,,reset\n"
                          "2026-01-31T12:00:03.000Z,h.text,b,,,\n"
                          "2026-01-31T12:00:04.000Z,,,,,gap\n"
                          "2026-01-31T12:00:05.000Z,g.counter,40,,,gap\n"
                          "2026-01-31T12:00:05.000Z,h.text,b,,,\n"
                          "2026-01-31T12:00:06.000Z,g.counter,41,1,2,\n"
                          "2026-01-31T12:00:06.000Z,h.text,b,,,\n");
    EXPECT_EQ(got.errors, "krvstat: gw:1: cannot connect; trying again\nkrvstat: gw:1 is back\n");
}

TEST_F(KrvstatRecordings, WatchReadsThemWithoutWaiting)
{
    EXPECT_EQ(runKrvstat({"watch", "--input", story(), "-o", "jsonl"}).output,
        runKrvstat({"replay", "--speed", "0", story(), "-o", "jsonl"}).output);
}

TEST_F(KrvstatRecordings, TablesShowResetAndGapInThePlaceOfRates)
{
    const ProgramRun got = runKrvstat({"replay", story(), "g.counter", "--speed", "0", "--utc", "-q"});
    EXPECT_EQ(got.output, "2026-01-31T12:00:01.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "g.counter  100         -\n"
                          "\n"
                          "2026-01-31T12:00:02.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "g.counter  350       100\n"
                          "\n"
                          "2026-01-31T12:00:03.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "g.counter  20      reset\n"
                          "\n"
                          "2026-01-31T12:00:04.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "-          -         gap\n"
                          "\n"
                          "2026-01-31T12:00:05.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "g.counter  40        gap\n"
                          "\n"
                          "2026-01-31T12:00:06.000Z  gw:1\n"
                          "STATISTIC  VALUE  RATE/S\n"
                          "g.counter  41          2\n");
}

TEST_F(KrvstatRecordings, DerivedColumnsDoNotDependOnWhatIsShown)
{
    const std::vector<std::string> all = {"replay", story(), "--speed", "0", "-o", "jsonl", "--columns", "rate,note"};
    std::vector<std::string> shown = all;
    shown.insert(shown.end(), {"-X", "h.text"});
    std::vector<std::string> changed = shown;
    changed.emplace_back("--changed-only"); // the counter changes each time
    EXPECT_EQ(runKrvstat(changed).output, runKrvstat(shown).output);
    EXPECT_NE(runKrvstat(shown).output.find("\"rate\":100}"), std::string::npos);
}

TEST_F(KrvstatRecordings, ChangedOnlyLeavesOutWhatStaysTheSame)
{
    const ProgramRun got = runKrvstat(
        {"replay", story(), "--speed", "0", "--changed-only", "-o", "csv", "--columns", "id,value", "h.text", "-q"});
    EXPECT_EQ(got.output, "id,value\nh.text,a\nh.text,b\n,\n");
}

TEST_F(KrvstatRecordings, RawRateAndDeltaChooseTheColumns)
{
    const auto header = [&](const char* option) {
        const std::string output = runKrvstat({"replay", story(), "--speed", "0", "-o", "csv", option}).output;
        return output.substr(0, output.find('\n'));
    };
    EXPECT_EQ(header("--raw"), "time,id,value");
    EXPECT_EQ(header("--rate"), "time,id,rate,note");
    EXPECT_EQ(header("--delta"), "time,id,delta,note");
}

TEST_F(KrvstatRecordings, ReadingCommandsTakeTheLastSample)
{
    const std::string file = story();
    EXPECT_EQ(runKrvstat({"--input", file, "groups"}).output, "GROUP\ng\nh\n");
    EXPECT_EQ(runKrvstat({"--input", file, "ids", "h"}).output, "STATISTIC\nh.text\n");
    EXPECT_EQ(runKrvstat({"--input", file, "get"}).output, "STATISTIC  VALUE\ng.counter  41\nh.text     b\n");
    EXPECT_EQ(
        runKrvstat({"--input", file, "get", "--rate", "g.counter"}).output, "STATISTIC  RATE/S\ng.counter       2\n");
    EXPECT_EQ(runKrvstat({"--input", file, "check", "g.counter", "--warn", "40"}).output,
        "KRVSTAT WARNING - g.counter is 41 (warning: 40) | 'g.counter'=41;40;\n");
    const ProgramRun misspelt = runKrvstat({"--input", file, "get", "g.conter"});
    EXPECT_EQ(misspelt.exitCode, 7);
    EXPECT_EQ(
        misspelt.errors, "krvstat: the gateway gw:1 has no statistic or group 'g.conter'; did you mean 'g.counter'?\n");
}

TEST_F(KrvstatRecordings, ALineThatWasCutOffIsLeftOut)
{
    const std::string file =
        write("cut", sample(1, 1, statistics("1", "a")) + sample(2, 2, statistics("2", "b")).substr(0, 90));
    EXPECT_EQ(runKrvstat({"--input", file, "-o", "value", "get"}).output, "1\na\n");
}

TEST_F(KrvstatRecordings, AFileThatIsNoneIsWrongUsage)
{
    const std::string text = write("text", "hello\n");
    EXPECT_EQ(runKrvstat({"replay", text}).errors,
        "krvstat: the file '" + text + "': line 1: it is no sample of a recording\n");
    EXPECT_EQ(runKrvstat({"replay", text}).exitCode, 2);
    const std::string newer = write("newer", "{\"schema_version\":2,\"kind\":\"sample\"}\n");
    EXPECT_EQ(runKrvstat({"--input", newer, "get"}).exitCode, 2);
    const std::string empty = write("empty", "");
    EXPECT_EQ(runKrvstat({"--input", empty, "get"}).errors, "krvstat: the file '" + empty + "': it holds no sample\n");
    const ProgramRun none = runKrvstat({"--input", scratch.path("none"), "get"});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_EQ(none.errors, "krvstat: the file '" + scratch.path("none") + "': No such file or directory\n");
}

TEST_F(KrvstatRecordings, DiffComparesFilesAndEndsWithOneWhereTheyDiffer)
{
    const std::string before = write("before",
        sample(1, 1, R"("statistics":[{"id":"a","value":"1"},{"id":"b","value":"x"},{"id":"c","value":"same"}])"));
    const std::string after = write("after",
        sample(1, 2, R"("statistics":[{"id":"a","value":"3.5"},{"id":"c","value":"same"},{"id":"d","value":""}])"));
    const ProgramRun got = runKrvstat({"diff", before, after});
    EXPECT_EQ(got.exitCode, 1);
    EXPECT_EQ(got.output, "STATISTIC  CHANGE   BEFORE  AFTER  DELTA\n"
                          "a          changed  1       3.5      2.5\n"
                          "b          removed  x       -\n"
                          "d          added    -\n");
    EXPECT_EQ(runKrvstat({"diff", before, after, "-o", "csv"}).output, "id,change,before,after,delta\n"
                                                                       "a,changed,1,3.5,2.5\n"
                                                                       "b,removed,x,,\n"
                                                                       "d,added,,\"\",\n");
    EXPECT_EQ(runKrvstat({"diff", before, after, "-o", "name", "-X", "b"}).output, "a\nd\n");
    EXPECT_EQ(runKrvstat({"diff", before, after, "--columns", "id,delta", "-I", "a"}).output,
        "STATISTIC  DELTA\na            2.5\n");
    const ProgramRun same = runKrvstat({"diff", before, before});
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_EQ(same.output, "");
    EXPECT_EQ(runKrvstat({"diff", before}).exitCode, 2);
    EXPECT_EQ(runKrvstat({"diff", before, "no such file"}).exitCode, 2);
}

class KrvstatRecord : public KrvstatWithGateway {
protected:
    krvtest::ScratchFolder scratch;
};

TEST_F(KrvstatRecord, WritesWhatReplayShows)
{
    serve("groups: [{id: g, statistics: [{id: g.polls, counter: {start: 5, step: 3}}]}]\n");
    const std::string file = scratch.path("record");
    const ProgramRun recorded = run({"record", file, "-n", "10ms", "-c", "3"});
    EXPECT_EQ(recorded.exitCode, 0);
    EXPECT_EQ(recorded.output, "");
    EXPECT_EQ(recorded.errors, "krvstat: 3 samples recorded, 0 gaps\n");
    EXPECT_EQ(krvtest::splitLines(krvtest::readWholeFile(file)).size(), 3U);
    const ProgramRun got = runKrvstat({"replay", file, "-o", "csv", "--columns", "group,id,value,delta"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "group,id,value,delta\ng,g.polls,5,\ng,g.polls,8,3\ng,g.polls,11,3\n");
}

TEST_F(KrvstatRecord, GoesToStandardOutputAndIsReadFromStandardInput)
{
    serve("groups: [{id: g, statistics: [{id: g.a, hex: \"41ff42\"}, {id: g.b, value: \"1\"}]}]\n");
    Launch pipeline;
    pipeline.program = "/bin/sh";
    pipeline.arguments = {
        "-c", "\"$0\" -q -t \"$1\" record - -c 1 g.a | \"$0\" replay - -o value", KRVSTAT_PROGRAM, target()};
    const ProgramRun got = runProgram(pipeline);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "A\xff"
                          "B\n"); // every byte survives
    EXPECT_EQ(got.errors, "");
}

TEST_F(KrvstatRecord, DiffComparesADocumentWithALiveGateway)
{
    serve("groups: [{id: g, statistics: [{id: g.polls, counter: {start: 5, step: 3}}, {id: g.b, value: \"1\"}]}]\n");
    std::ofstream(scratch.path("snapshot")) << run({"-o", "json", "get"}).output;
    const ProgramRun same = runKrvstat({"diff", scratch.path("snapshot"), target()});
    EXPECT_EQ(same.exitCode, 0);
    krvtest::GatewayProcess other({}, "groups: [{id: g, statistics: [{id: g.polls, value: \"7\"}]}]\n");
    const std::string otherTarget = "127.0.0.1:" + std::to_string(other.port());
    const ProgramRun got = runKrvstat({"diff", scratch.path("snapshot"), otherTarget, "-o", "tsv"});
    EXPECT_EQ(got.exitCode, 1);
    EXPECT_EQ(got.output, "id\tchange\tbefore\tafter\tdelta\ng.polls\tchanged\t5\t7\t2\ng.b\tremoved\t1\t\\N\t\\N\n");
    EXPECT_EQ(other.stop(), 0);
    EXPECT_EQ(runKrvstat({"diff", scratch.path("snapshot"), otherTarget}).exitCode, 4);
}

} // namespace
