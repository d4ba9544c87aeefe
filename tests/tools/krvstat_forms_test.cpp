// The output forms and the options that choose what is shown and how, against what they print.

#include "krvstat_fixture.h"

#include <algorithm>
#include <regex>

namespace {

constexpr const char* FormsScenario = R"(
groups:
  - id: cpu
    statistics:
      - {id: cpu.user, value: "1200"}
      - {id: cpu.load, value: "3.50"}
      - {id: cpu.model, value: 'a "quoted", text'}
  - id: memory
    statistics:
      - {id: memory.total, value: "8388608"}
      - {id: memory.note, value: ""}
)";

struct Call {
    const char* name; // of the test
    std::vector<std::string> arguments;
    std::string output; // TARGET stands for the target
};

void PrintTo(const Call& call, std::ostream* out)
{
    *out << call.name;
}

std::string withTarget(std::string text, const std::string& target)
{
    return std::regex_replace(text, std::regex("TARGET:PORT"), target);
}

class KrvstatForms : public KrvstatWithGateway, public testing::WithParamInterface<Call> {};

TEST_P(KrvstatForms, PrintThis)
{
    serve(FormsScenario);
    const ProgramRun got = run(GetParam().arguments);
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(std::regex_replace(got.output, std::regex("[0-9-]{10}T[0-9:.]{12}(Z|[+-][0-9:]{5})"), "TIME"),
        withTarget(GetParam().output, target()));
    EXPECT_EQ(got.errors, "");
}

std::string nameOf(const testing::TestParamInfo<Call>& each)
{
    return each.param.name;
}

INSTANTIATE_TEST_SUITE_P(OfGet, KrvstatForms,
    testing::Values(Call{"Table", {"get", "cpu"},
                        "STATISTIC  VALUE\n"
                        "cpu.user   1200\n"
                        "cpu.load   3.50\n"
                        "cpu.model  a \"quoted\", text\n"},
        Call{"Wide", {"-o", "wide", "get", "memory", "cpu.user"},
            "GROUP   STATISTIC     VALUE\n"
            "memory  memory.total  8388608\n"
            "memory  memory.note\n"
            "cpu     cpu.user      1200\n"},
        Call{"Csv", {"--output", "csv", "get"},
            "id,value\n"
            "cpu.user,1200\n"
            "cpu.load,3.50\n"
            "cpu.model,\"a \"\"quoted\"\", text\"\n"
            "memory.total,8388608\n"
            "memory.note,\"\"\n"},
        Call{"CsvTellsAbsentFromEmpty", {"--output", "csv", "--columns", "id,value,note", "get", "memory"},
            "id,value,note\n"
            "memory.total,8388608,\n"
            "memory.note,\"\",\n"},
        Call{"Tsv", {"--output", "tsv", "--columns", "id,value,note", "get", "memory"},
            "id\tvalue\tnote\n"
            "memory.total\t8388608\t\\N\n"
            "memory.note\t\t\\N\n"},
        Call{"Value", {"-o", "value", "get", "cpu"}, "1200\n3.50\na \"quoted\", text\n"},
        Call{"Name", {"-o", "name", "get", "cpu"}, "cpu.user\ncpu.load\ncpu.model\n"},
        Call{"Prometheus", {"-o", "prom", "get", "cpu"},
            "# HELP krvstat_value Statistics of a gateway whose values are numbers.\n"
            "# TYPE krvstat_value untyped\n"
            "krvstat_value{target=\"TARGET:PORT\",id=\"cpu.user\"} 1200\n"
            "krvstat_value{target=\"TARGET:PORT\",id=\"cpu.load\"} 3.50\n"
            "# HELP krvstat_info Statistics of a gateway whose values are texts.\n"
            "# TYPE krvstat_info gauge\n"
            "krvstat_info{target=\"TARGET:PORT\",id=\"cpu.model\",value=\"a \\\"quoted\\\", text\"} 1\n"},
        Call{"JsonLines", {"-o", "jsonl", "get", "cpu.load", "cpu.model"},
            "{\"schema_version\":1,\"kind\":\"statistic\",\"target\":\"TARGET:PORT\",\"id\":\"cpu.load\","
            "\"value\":\"3.50\",\"number\":3.5}\n"
            "{\"schema_version\":1,\"kind\":\"statistic\",\"target\":\"TARGET:PORT\",\"id\":\"cpu.model\","
            "\"value\":\"a \\\"quoted\\\", text\"}\n"},
        Call{"Json", {"-o", "json", "get", "cpu.user"},
            "{\n"
            "  \"schema_version\": 1,\n"
            "  \"kind\": \"statistics\",\n"
            "  \"time\": \"TIME\",\n"
            "  \"records\": [\n"
            "    {\"target\":\"TARGET:PORT\",\"id\":\"cpu.user\",\"value\":\"1200\",\"number\":1200}\n"
            "  ],\n"
            "  \"failures\": []\n"
            "}\n"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(OfLists, KrvstatForms,
    testing::Values(Call{"GroupsCsv", {"groups", "-o", "csv"}, "group\ncpu\nmemory\n"},
        Call{"GroupsName", {"groups", "-o", "name"}, "cpu\nmemory\n"},
        Call{"GroupsJsonLines", {"groups", "-o", "jsonl"},
            "{\"schema_version\":1,\"kind\":\"group\",\"target\":\"TARGET:PORT\",\"group\":\"cpu\"}\n"
            "{\"schema_version\":1,\"kind\":\"group\",\"target\":\"TARGET:PORT\",\"group\":\"memory\"}\n"},
        Call{"IdsWide", {"ids", "memory", "-o", "wide"},
            "GROUP   STATISTIC\n"
            "memory  memory.total\n"
            "memory  memory.note\n"},
        Call{"IdsTsv", {"ids", "memory", "-o", "tsv"}, "id\nmemory.total\nmemory.note\n"},
        Call{"IdsFiltered", {"ids", "-X", "memory.*"}, "STATISTIC\ncpu.user\ncpu.load\ncpu.model\n"},
        Call{"GroupsFiltered", {"groups", "-I", "c*"}, "GROUP\ncpu\n"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(OfOptions, KrvstatForms,
    testing::Values(Call{"NoHeader", {"--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"NoHeaderCsv", {"--no-header", "-o", "csv", "get", "cpu.user"}, "cpu.user,1200\n"},
        Call{"Columns", {"--columns", "value,id,target", "get", "cpu.user"},
            "VALUE  STATISTIC  TARGET\n"
            "1200   cpu.user   TARGET:PORT\n"},
        Call{"GroupColumn", {"--columns", "group,id", "get", "memory.total"},
            "GROUP   STATISTIC\n"
            "memory  memory.total\n"},
        Call{"TimeIso", {"--time", "iso", "get", "cpu.user"},
            "TIME                           STATISTIC  VALUE\n"
            "TIME  cpu.user   1200\n"},
        Call{"TimeIsoUtc", {"--time", "iso", "--utc", "--no-header", "get", "cpu.user"}, "TIME  cpu.user  1200\n"},
        Call{"TimeNone", {"--time", "none", "--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"UnitsSi", {"--units", "si", "get", "memory.total", "cpu.load", "memory.note"},
            "STATISTIC     VALUE\n"
            "memory.total  8.39M\n"
            "cpu.load      3.5\n"
            "memory.note\n"},
        Call{"UnitsIec", {"--units", "iec", "get", "memory.total"}, "STATISTIC     VALUE\nmemory.total  8Mi\n"},
        Call{"UnitsRaw", {"--units", "raw", "get", "memory.total"}, "STATISTIC     VALUE\nmemory.total  8388608\n"},
        Call{"UnitsAreForPeople", {"--units", "si", "-o", "csv", "get", "memory.total"},
            "id,value\nmemory.total,8388608\n"},
        Call{"SortName", {"--sort", "name", "--no-header", "get"},
            "cpu.load      3.50\n"
            "cpu.model     a \"quoted\", text\n"
            "cpu.user      1200\n"
            "memory.note\n"
            "memory.total  8388608\n"},
        Call{"SortValue", {"--sort", "value", "--no-header", "get"},
            "memory.total  8388608\n"
            "cpu.user      1200\n"
            "cpu.load      3.50\n"
            "memory.note\n"
            "cpu.model     a \"quoted\", text\n"},
        Call{"SortNone", {"--sort", "none", "--limit", "1", "--no-header", "get"}, "cpu.user  1200\n"},
        Call{"LimitComesBehindSort", {"--sort", "value", "--limit", "2", "--no-header", "get"},
            "memory.total  8388608\n"
            "cpu.user      1200\n"},
        Call{"Include", {"-I", "*.total", "-I", "cpu.u*", "--no-header", "get"},
            "cpu.user      1200\n"
            "memory.total  8388608\n"},
        Call{"Exclude", {"-X", "cpu.[lm]*", "--exclude", "*note", "--no-header", "get"},
            "cpu.user      1200\n"
            "memory.total  8388608\n"},
        Call{"TheFirstMatchDecides", {"-X", "cpu.user", "-I", "cpu.*", "-o", "name", "get"}, "cpu.load\ncpu.model\n"},
        Call{"TheirOrderIsThatOfTheCommandLine", {"--include", "cpu.*", "get", "-X", "cpu.user", "-o", "name"},
            "cpu.user\ncpu.load\ncpu.model\n"},
        Call{"Regex", {"--regex", "^(cpu\\.l|mem.*l$)", "-o", "name", "get"}, "cpu.load\nmemory.total\n"},
        Call{"Raw", {"--raw", "--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"ColorAlways", {"--color", "always", "get", "cpu.user"},
            "\x1b[1mSTATISTIC\x1b[0m  \x1b[1mVALUE\x1b[0m\ncpu.user   1200\n"},
        Call{"ColorNever", {"--color", "never", "--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"ColorAuto", {"--color", "auto", "--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"Quiet", {"-q", "--no-header", "get", "cpu.user"}, "cpu.user  1200\n"},
        Call{"Timeouts", {"--connect-timeout", "1m", "--timeout", "1.5h", "--no-header", "get", "cpu.user"},
            "cpu.user  1200\n"}),
    nameOf);

class KrvstatFormsOfTimes : public KrvstatWithFixedGateway {};

TEST_F(KrvstatFormsOfTimes, UnixTimesAreSecondsWithMilliseconds)
{
    const ProgramRun got = run({"--time", "unix", "-o", "csv", "get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_TRUE(std::regex_match(got.output, std::regex("time,id,value\n[0-9]{10}\\.[0-9]{3},cpu\\.user,1200\n")))
        << got.output;
}

TEST_F(KrvstatFormsOfTimes, LocalTimesHaveTheirDistanceFromUtc)
{
    Launch there = launch({"--time", "iso", "-o", "csv", "--no-header", "get", "cpu.user"});
    there.environment.emplace_back("TZ", "ABC-05:30");
    EXPECT_TRUE(std::regex_match(
        runProgram(there).output, std::regex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}\\+05:30,cpu\\.user,1200\n")));
    there.arguments.push_back("--utc");
    EXPECT_TRUE(
        std::regex_match(runProgram(there).output, std::regex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}Z,cpu\\.user,1200\n")));
}

TEST_F(KrvstatFormsOfTimes, VerboseMessagesAndWhatIsMissingDoNotTouchTheData)
{
    const ProgramRun got = run({"-v", "--ignore-missing", "-o", "name", "get", "cpu.user", "cpu.usr"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "cpu.user\n");
    EXPECT_EQ(got.errors, "krvstat: connected to " + target() +
                              " at 127.0.0.1, protocol 1.1.0\n"
                              "krvstat: the gateway " +
                              target() + " has no statistic or group 'cpu.usr'; did you mean 'cpu.user'?\n");
    EXPECT_EQ(run({"-q", "get", "cpu.user", "empty"}).errors, "");
}

class KrvstatSeveralTargets : public KrvstatWithGateway {};

TEST_F(KrvstatSeveralTargets, MakeOneTableWithAColumnForThem)
{
    serve("groups: [{id: a, statistics: [{id: a.one, value: \"1\"}]}]\n");
    krvtest::GatewayProcess other({}, "groups: [{id: a, statistics: [{id: a.one, value: \"22\"}]}]\n");
    const std::string otherTarget = "127.0.0.1:" + std::to_string(other.port());
    const ProgramRun got = run({"-t", otherTarget, "-t", target(), "-o", "csv", "get"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "target,id,value\n" + target() + ",a.one,1\n" + otherTarget + ",a.one,22\n");
    EXPECT_EQ(other.stop(), 0);
}

class KrvstatBulkForms : public KrvstatWithGateway, public testing::WithParamInterface<const char*> {};

TEST_P(KrvstatBulkForms, HoldAHundredThousandStatistics)
{
    serve("groups: [{id: bulk, statistics: [{id: \"bulk.{n}\", value: \"{n}\", repeat: {count: 100000}}]}]\n");
    const ProgramRun got = run({"-o", GetParam(), "--no-header", "get"});
    EXPECT_EQ(got.exitCode, 0);
    const std::ptrdiff_t around = std::string(GetParam()) == "json" ? 8 : 0; // lines of the document itself
    EXPECT_EQ(std::count(got.output.begin(), got.output.end(), '\n'), 100000 + around);
    EXPECT_NE(got.output.find("100000"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Each, KrvstatBulkForms, testing::Values("table", "wide", "json", "jsonl", "csv", "tsv", "prom", "value", "name"));

} // namespace
