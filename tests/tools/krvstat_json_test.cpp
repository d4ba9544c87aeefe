// Everything in JSON against the published schema, by a validator that is not ours.

#include "deaf_port.h"
#include "krvstat_fixture.h"

#include <fstream>

namespace {

// Tells what does not fit, one line each; nothing if all does.
constexpr const char* Validator = R"(
import json, sys
import jsonschema
schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
text = open(sys.argv[2], "rb").read().decode("utf-8")
texts = [text] if sys.argv[3] == "document" else text.splitlines()
if not texts:
    print("there is nothing")
for each in texts:
    for error in validator.iter_errors(json.loads(each)):
        print(error.message, each)
)";

class KrvstatJson : public KrvstatWithGateway {
protected:
    std::string problems(const std::string& text, const std::string& kind) const
    {
        std::ofstream(scratch.path("validate.py")) << Validator;
        std::ofstream(scratch.path("output")) << text;
        Launch python;
        python.program = "/usr/bin/python3";
        python.arguments = {scratch.path("validate.py"), std::string(KRVSTATS_DOCS) + "/krvstat-output.schema.json",
            scratch.path("output"), kind};
        const ProgramRun got = runProgram(python);
        return got.exitCode == 0 ? got.output : got.errors;
    }

    void expectValid(std::vector<std::string> arguments)
    {
        for (const char* form : {"json", "jsonl"}) {
            std::vector<std::string> all = arguments;
            all.insert(all.end(), {"-o", form});
            const ProgramRun got = run(all);
            const bool isDocument = std::string(form) == "json";
            EXPECT_EQ(problems(got.output, isDocument ? "document" : "lines"), "") << arguments.front() << " " << form;
        }
    }

    krvtest::ScratchFolder scratch;
};

TEST_F(KrvstatJson, FitsTheSchema)
{
    serve(FixedScenario);
    const DeafPort deaf;
    std::ofstream(scratch.path("snapshot")) << run({"-o", "json", "get", "cpu"}).output;
    expectValid({"groups"});
    expectValid({"ids", "--time", "unix"});
    expectValid({"get"});
    expectValid({"get", "--columns", "time,target,group,id,value,delta,rate,note", "--time", "iso"});
    expectValid({"get", "cpu.user", "nosuch", "broken", "empty"});
    expectValid({"-t", deaf.target(), "get", "cpu"});
    expectValid({"ping"});
    expectValid({"diff", scratch.path("snapshot"), target()});
    EXPECT_EQ(problems(run({"watch", "-n", "10ms", "-c", "3", "-o", "jsonl"}).output, "lines"), "");
    EXPECT_EQ(problems(run({"-q", "record", "-", "-n", "10ms", "-c", "2"}).output, "lines"), "");
}

TEST_F(KrvstatJson, OfAWatchWithGapsAndResetsFitsTheSchema)
{
    serve("groups: [{id: g, statistics: [{id: g.w, walk: {start: 40, step: 5, min: 0, max: 100, seed: 7}}]}]\n",
        {"close-before@get-stats#4%1"});
    const ProgramRun got = run({"-q", "watch", "-n", "20ms", "-c", "5", "-o", "jsonl"});
    EXPECT_NE(got.output.find("\"note\":\"reset\""), std::string::npos);
    EXPECT_NE(got.output.find("\"note\":\"gap\""), std::string::npos);
    EXPECT_EQ(problems(got.output, "lines"), "");
    const ProgramRun recorded = run({"-q", "record", "-", "-n", "20ms", "-c", "2"});
    EXPECT_EQ(problems(recorded.output, "lines"), "");
}

TEST_F(KrvstatJson, TheValidatorFindsWhatIsWrong)
{
    serve(FixedScenario);
    EXPECT_NE(problems("{\"schema_version\":1,\"kind\":\"statistic\",\"number\":\"1\"}", "lines"), "");
    EXPECT_NE(problems("{\"schema_version\":1,\"kind\":\"statistic\",\"surprise\":1}", "lines"), "");
    EXPECT_NE(problems("{\"schema_version\":2,\"kind\":\"statistic\"}", "lines"), "");
}

struct Value {
    const char* name;
    const char* given;    // in the scenario
    const char* expected; // members behind the id
};

void PrintTo(const Value& value, std::ostream* out)
{
    *out << value.name;
}

class KrvstatJsonValues : public KrvstatWithGateway, public testing::WithParamInterface<Value> {};

TEST_P(KrvstatJsonValues, StayTextsAndNumbersOnlyIfTheySurviveARoundTrip)
{
    serve(std::string("groups: [{id: g, statistics: [{id: v, ") + GetParam().given + "}]}]\n");
    const ProgramRun got = run({"get", "-o", "jsonl", "--columns", "id,value"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output,
        std::string("{\"schema_version\":1,\"kind\":\"statistic\",\"id\":\"v\",") + GetParam().expected + "}\n");
}

INSTANTIATE_TEST_SUITE_P(Each, KrvstatJsonValues,
    testing::Values(Value{"Whole", "value: \"42\"", R"("value":"42","number":42)"},
        Value{"Negative", "value: \"-7\"", R"("value":"-7","number":-7)"},
        Value{"Decimal", "value: \"0.25\"", R"("value":"0.25","number":0.25)"},
        Value{"TrailingZero", "value: \"3.50\"", R"("value":"3.50","number":3.5)"},
        Value{"LeadingZeros", "value: \"007\"", R"("value":"007")"}, Value{"Plus", "value: \"+7\"", R"("value":"+7")"},
        Value{"MinusZero", "value: \"-0\"", R"("value":"-0")"}, Value{"Exponent", "value: \"1e3\"", R"("value":"1e3")"},
        Value{"WithUnit", "value: \"12 kB\"", R"("value":"12 kB")"},
        Value{"WithBlank", "value: \" 12\"", R"("value":" 12")"},
        Value{"NotANumber", "value: \"nan\"", R"("value":"nan")"},
        Value{"Hexadecimal", "value: \"0x10\"", R"("value":"0x10")"},
        Value{"LargestExact", "value: \"9007199254740991\"", R"("value":"9007199254740991","number":9007199254740991)"},
        Value{"TooLarge", "value: \"9007199254740993\"", R"("value":"9007199254740993")"},
        Value{"MoreDigitsThanADouble", "value: \"0.12345678901234567\"", R"("value":"0.12345678901234567")"},
        Value{"Empty", "value: \"\"", R"("value":"")"},
        Value{"Control", "hex: \"001b0a22\"", R"("value":"\u0000\u001b\n\"")"},
        Value{"InvalidUtf8", "hex: \"41ff42\"",
            "\"value\":\"A\uFFFD"
            R"(B","value_base64":"Qf9C")"},
        Value{"OnlyInvalid", "hex: \"ff\"",
            "\"value\":\"\uFFFD"
            R"(","value_base64":"/w==")"}),
    [](const testing::TestParamInfo<Value>& each) { return each.param.name; });

} // namespace
