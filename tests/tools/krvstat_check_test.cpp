// check: what a monitoring system gets, and its exit codes.

#include "deaf_port.h"
#include "krvstat_fixture.h"

namespace {

struct CheckCall {
    std::vector<std::string> arguments;
    int exitCode;
    std::string output;
};

void PrintTo(const CheckCall& call, std::ostream* out)
{
    *out << call.output;
}

constexpr const char* CheckScenario = R"(
groups:
  - id: q
    statistics:
      - {id: q.length, value: "42"}
      - {id: q.level, value: "-1.50"}
      - {id: q.state, value: "up | running"}
      - {id: "it's=", value: "7"}
)";

class KrvstatCheck : public KrvstatWithGateway, public testing::WithParamInterface<CheckCall> {};

TEST_P(KrvstatCheck, SaysThis)
{
    serve(CheckScenario);
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.begin(), "check");
    const ProgramRun got = run(arguments);
    EXPECT_EQ(got.exitCode, GetParam().exitCode);
    EXPECT_EQ(got.output, "KRVSTAT " + GetParam().output + "\n");
    EXPECT_EQ(got.errors, "");
}

INSTANTIATE_TEST_SUITE_P(OfNumbers, KrvstatCheck,
    testing::Values(CheckCall{{"q.length"}, 0, "OK - q.length is 42 | 'q.length'=42;;"},
        CheckCall{{"q.length", "--warn", "50", "--crit", "100"}, 0, "OK - q.length is 42 | 'q.length'=42;50;100"},
        CheckCall{{"q.length", "--warn", "40", "--crit", "100"}, 1,
            "WARNING - q.length is 42 (warning: 40) | 'q.length'=42;40;100"},
        CheckCall{{"q.length", "--warn", "10", "--crit", "41"}, 2,
            "CRITICAL - q.length is 42 (critical: 41) | 'q.length'=42;10;41"},
        CheckCall{{"q.length", "--warn", "42:"}, 0, "OK - q.length is 42 | 'q.length'=42;42:;"},
        CheckCall{{"q.length", "--warn", "43:"}, 1, "WARNING - q.length is 42 (warning: 43:) | 'q.length'=42;43:;"},
        CheckCall{{"q.length", "--crit", "@40:45"}, 2,
            "CRITICAL - q.length is 42 (critical: @40:45) | 'q.length'=42;;@40:45"},
        CheckCall{{"q.level", "--warn", "~:0", "--crit", "-5:5"}, 0, "OK - q.level is -1.5 | 'q.level'=-1.5;~:0;-5:5"},
        CheckCall{{"q.level", "--warn", "0:"}, 1, "WARNING - q.level is -1.5 (warning: 0:) | 'q.level'=-1.5;0:;"},
        CheckCall{{"it's="}, 0, "OK - it's= is 7 | 'it''s_'=7;;"}));

INSTANTIATE_TEST_SUITE_P(OfWhatCannotBeJudged, KrvstatCheck,
    testing::Values(CheckCall{{"q.state"}, 3, "UNKNOWN - q.state is no number: up / running"},
        CheckCall{{"q.none"}, 3, "UNKNOWN - there is no statistic q.none"},
        CheckCall{{"q.length", "--warn", "ten"}, 3,
            "UNKNOWN - --warn 'ten': it is not a range, such as 10, 10:, ~:10, 10:20 or @10:20"},
        CheckCall{{"q.length", "--crit", "9:3"}, 3, "UNKNOWN - --crit '9:3': its end lies before its beginning"},
        CheckCall{{"q.length", "q.level"}, 3, "UNKNOWN - the command check does not take the argument 'q.level'"},
        CheckCall{{}, 3, "UNKNOWN - the command check needs the id of a statistic"},
        CheckCall{
            {"q.length", "--sort", "size"}, 3, "UNKNOWN - --sort 'size': it is none of name, value, rate, none"}));

class KrvstatCheckOfRates : public KrvstatWithGateway {};

TEST_F(KrvstatCheckOfRates, DeltasAreOfTwoSamples)
{
    serve("groups: [{id: g, statistics: [{id: g.polls, counter: {start: 5, step: 3}}]}]\n");
    const ProgramRun got = run({"check", "g.polls", "--delta", "-n", "10ms", "--crit", "2"});
    EXPECT_EQ(got.exitCode, 2);
    EXPECT_EQ(got.output, "KRVSTAT CRITICAL - g.polls is 3 (critical: 2) | 'g.polls'=3;;2\n");
}

TEST_F(KrvstatCheckOfRates, RatesAreJudgedASecond)
{
    serve("groups: [{id: g, statistics: [{id: g.polls, counter: {start: 5, step: 3}}]}]\n");
    const ProgramRun got = run({"check", "g.polls", "--rate", "-n", "10ms", "--crit", "~:0"});
    EXPECT_EQ(got.exitCode, 2);
    EXPECT_EQ(got.output.find("KRVSTAT CRITICAL - g.polls is "), 0U) << got.output;
    EXPECT_NE(got.output.find("/s (critical: ~:0) | 'g.polls'="), std::string::npos) << got.output;
}

TEST_F(KrvstatCheckOfRates, OfSeveralTargetsTheWorstCounts)
{
    serve("groups: [{id: g, statistics: [{id: g.a, value: \"1\"}]}]\n");
    krvtest::GatewayProcess other({}, "groups: [{id: g, statistics: [{id: g.a, value: \"9\"}]}]\n");
    const std::string second = "127.0.0.1:" + std::to_string(other.port());
    const ProgramRun got = run({"-t", second, "check", "g.a", "--warn", "5"});
    EXPECT_EQ(got.exitCode, 1);
    EXPECT_EQ(got.output, "KRVSTAT WARNING - " + target() + ": g.a is 1, " + second + ": g.a is 9 (warning: 5) | '" +
                              target() + " g.a'=1;5; '" + second + " g.a'=9;5;\n");
    EXPECT_EQ(other.stop(), 0);
}

TEST(KrvstatCheckWithoutGateway, IsUnknown)
{
    const DeafPort deaf;
    const ProgramRun got = runKrvstat({"-t", deaf.target(), "check", "a"});
    EXPECT_EQ(got.exitCode, 3);
    EXPECT_EQ(got.output,
        "KRVSTAT UNKNOWN - cannot connect to " + deaf.target() + ": connection refused; no gateway listens there\n");
}

} // namespace
