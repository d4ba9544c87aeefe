// Scenario files: every key, and every refusal with its line.
#include "scenario.h"

#include <gtest/gtest.h>

using krvgw::Catalogue;
using krvgw::parseScenario;
using krvgw::Scenario;

namespace {

Scenario parsed(const std::string& yaml)
{
    std::string complaint;
    const auto scenario = parseScenario(yaml, complaint);
    EXPECT_TRUE(scenario.has_value()) << complaint;
    return scenario.value_or(Scenario{});
}

std::string refusalOf(const std::string& yaml)
{
    std::string complaint;
    EXPECT_FALSE(parseScenario(yaml, complaint).has_value());
    return complaint;
}

// "group rc: id=value ..." of the n-th read of a fresh session, the first one being 1.
std::string served(const Scenario& scenario, int nth)
{
    const auto source = krvgw::scenarioSource(scenario);
    const auto session = source->openSession();
    Catalogue catalogue;
    for (int i = 0; i < nth; ++i) catalogue = session->read(true);
    std::string picture;
    for (const krvgw::Group& group : catalogue.groups) {
        picture += group.id + " " + std::to_string(group.rc) + ":";
        for (const krvgw::Statistic& each : group.statistics) picture += " " + each.id + "=" + each.value;
        picture += "\n";
    }
    return picture;
}

}  // namespace

TEST(Scenario, GroupsAndConstantsAreServedInTheirOrder)
{
    const Scenario scenario = parsed("groups:\n"
                                     "  - id: b\n"
                                     "    rc: -3\n"
                                     "    statistics:\n"
                                     "      - { id: b.two, value: text }\n"
                                     "      - { id: b.one, value: 17 }\n"
                                     "  - id: a\n");
    EXPECT_EQ(served(scenario, 1), "b -3: b.two=text b.one=17\na 0:\n");
}

TEST(Scenario, AnEmptyFileServesNothing)
{
    EXPECT_EQ(served(parsed("{}"), 1), "");
}

TEST(Scenario, TopLevelKeysAreTaken)
{
    const Scenario scenario = parsed("protocol: '9.9'\nseed: 77\narray: always\nunknown-rc: -2\nall-rc: -4\n"
                                     "misbehave: [no-answer, 'gateway-rc=3@init#2%1']\n");
    EXPECT_EQ(scenario.protocolVersion, "9.9");
    EXPECT_EQ(scenario.seed, 77u);
    EXPECT_EQ(scenario.arrayForm, krvgw::ArrayForm::Always);
    EXPECT_EQ(scenario.unknownRc, -2);
    EXPECT_EQ(scenario.everythingRc, -4);
    ASSERT_EQ(scenario.misbehaviours.size(), 2u);
    EXPECT_EQ(scenario.misbehaviours[1].written, "gateway-rc=3@init#2%1");
    const Catalogue catalogue = krvgw::scenarioSource(scenario)->openSession()->read(true);
    EXPECT_EQ(catalogue.unknownRc, -2);
    EXPECT_EQ(catalogue.everythingRc, -4);
    EXPECT_EQ(catalogue.arrayForm, krvgw::ArrayForm::Always);
}

TEST(Scenario, CountersAndWalksGoByTheQueriesOfTheirConnection)
{
    const Scenario scenario = parsed("groups:\n"
                                     "  - id: g\n"
                                     "    statistics:\n"
                                     "      - { id: c, counter: { start: 5, step: 2 } }\n"
                                     "      - { id: w, walk: { start: 9, step: 0 } }\n");
    EXPECT_EQ(served(scenario, 1), "g 0: c=5 w=9\n");
    EXPECT_EQ(served(scenario, 3), "g 0: c=9 w=9\n");

    const auto source = krvgw::scenarioSource(scenario);
    const auto first = source->openSession();
    first->read(true);
    EXPECT_EQ(first->read(false).groups[0].statistics[0].value, "7");
    EXPECT_EQ(first->read(true).groups[0].statistics[0].value, "7");
    EXPECT_EQ(first->read(true).groups[0].statistics[0].value, "9");
    EXPECT_EQ(source->openSession()->read(true).groups[0].statistics[0].value, "5");
}

TEST(Scenario, LongTextsAndBytesCanBeWrittenShort)
{
    const Scenario scenario = parsed("groups:\n"
                                     "  - id: g\n"
                                     "    statistics:\n"
                                     "      - { id: t, text: { repeat: abc, length: 7 } }\n"
                                     "      - { id: h, hex: '41ff00' }\n"
                                     "      - { id: e, text: { repeat: x, length: 0 } }\n"
                                     "      - { id: m, text: { repeat: x, length: 32767 } }\n");
    const Catalogue catalogue = krvgw::scenarioSource(scenario)->openSession()->read(true);
    EXPECT_EQ(catalogue.groups[0].statistics[0].value, "abcabca");
    EXPECT_EQ(catalogue.groups[0].statistics[1].value, std::string("A\xFF\0", 3));
    EXPECT_EQ(catalogue.groups[0].statistics[2].value, "");
    EXPECT_EQ(catalogue.groups[0].statistics[3].value, std::string(32767, 'x'));
}

TEST(Scenario, GroupsAndStatisticsCanBeRepeated)
{
    const Scenario scenario = parsed("groups:\n"
                                     "  - id: 'g{g}'\n"
                                     "    repeat: { count: 2, from: 8 }\n"
                                     "    statistics:\n"
                                     "      - { id: 'g{g}.s{n}', value: 'v{g}/{n}', repeat: { count: 2 } }\n");
    EXPECT_EQ(served(scenario, 1), "g8 0: g8.s1=v8/1 g8.s2=v8/2\ng9 0: g9.s1=v9/1 g9.s2=v9/2\n");
}

TEST(Scenario, BracesArePlainTextWhereNothingIsRepeated)
{
    const Scenario scenario = parsed("groups: [{ id: 'g{g}', statistics: [{ id: 's{n}', value: '{n}{g}' }] }]");
    EXPECT_EQ(served(scenario, 1), "g{g} 0: s{n}={n}{g}\n");
}

TEST(Scenario, AHundredThousandStatisticsAreServed)
{
    const Scenario scenario =
        parsed("groups: [{ id: g, statistics: [{ id: 's{n}', value: 'v{n}', repeat: { count: 100000 } }] }]");
    const Catalogue catalogue = krvgw::scenarioSource(scenario)->openSession()->read(true);
    ASSERT_EQ(catalogue.groups[0].statistics.size(), 100000u);
    EXPECT_EQ(catalogue.groups[0].statistics.back().value, "v100000");
}

TEST(Scenario, BlocksAreTakenWithTheirForm)
{
    const Scenario scenario =
        parsed("groups: [{ id: g, statistics: [{ id: s, value: v, rc: -8, blocks: [z20, 300, 200, w7] }] }]");
    const auto& statistic = scenario.groups[0].statistics[0];
    EXPECT_EQ(statistic.rc, -8);
    ASSERT_EQ(statistic.cuts.size(), 4u);
    EXPECT_TRUE(statistic.cuts[0].isLong);
    EXPECT_EQ(statistic.cuts[0].size, 20u);
    EXPECT_TRUE(statistic.cuts[1].isLong);
    EXPECT_FALSE(statistic.cuts[2].isLong);
    EXPECT_EQ(statistic.cuts[2].size, 200u);
    EXPECT_FALSE(statistic.cuts[3].isLong);
    EXPECT_EQ(statistic.cuts[3].size, 7u);
}

TEST(Scenario, MistakesAreNamedWithTheirLine)
{
    const std::string start = "groups:\n  - id: g\n    statistics:\n      - ";
    EXPECT_EQ(refusalOf("protocl: x"), "line 1: a scenario has no key \"protocl\"");
    EXPECT_EQ(refusalOf("groups:\n  - statistics: []"), "line 2: id is missing");
    EXPECT_EQ(refusalOf("groups:\n  - id: g\n    colour: red"), "line 3: a group has no key \"colour\"");
    EXPECT_EQ(refusalOf(start + "{ value: v }"), "line 4: id is missing");
    EXPECT_EQ(refusalOf(start + "{ id: s }"),
              "line 4: a statistic needs exactly one of value, text, hex, counter, walk");
    EXPECT_EQ(refusalOf(start + "{ id: s, value: v, hex: '00' }"),
              "line 4: a statistic needs exactly one of value, text, hex, counter, walk");
    EXPECT_EQ(refusalOf(start + "{ id: s, hex: '0' }"), "line 4: hex must be pairs of hexadecimal digits");
    EXPECT_EQ(refusalOf(start + "{ id: s, counter: { start: 1 } }"),
              "line 4: counter needs either a rate (a second) or a step (a query)");
    EXPECT_EQ(refusalOf(start + "{ id: s, walk: { min: 5, max: 4 } }"), "line 4: min is above max");
    EXPECT_EQ(refusalOf(start + "{ id: s, text: { repeat: x, length: 32768 } }"),
              "line 4: length must be a whole number from 0 to 32767");
    EXPECT_EQ(refusalOf(start + "{ id: s, value: v, blocks: [w5] }"),
              "line 4: the first of several blocks must be a z block");
    EXPECT_EQ(refusalOf(start + "{ id: s, value: v, blocks: [z4] }"),
              "line 4: the first block must hold the id and 4 bytes more");
    EXPECT_EQ(refusalOf(start + "{ id: s, value: v, blocks: [z9, w9, z9] }"),
              "line 4: no z block may follow a w block");
    EXPECT_EQ(refusalOf(start + "{ id: s, value: v, blocks: [w256] }"),
              "line 4: a w block holds no more than 255 bytes");
    EXPECT_EQ(refusalOf("misbehave: [nonsense]"), "line 1: no misbehaviour is named \"nonsense\"");
    EXPECT_EQ(refusalOf("array: never"), "line 1: array must be when-several or always");
    EXPECT_EQ(refusalOf("groups: [{ id: g }, { id: g }]"), "the id \"g\" occurs twice");
}

TEST(Scenario, FilesThatAreNoScenarioAreRefused)
{
    std::string complaint;
    EXPECT_FALSE(krvgw::loadScenario("/nonexistent/scenario.yaml", complaint).has_value());
    EXPECT_EQ(complaint, "cannot read /nonexistent/scenario.yaml");
    EXPECT_NE(refusalOf("groups: [unclosed"), "");
    EXPECT_EQ(refusalOf("- a list"), "line 1: a scenario must be a map");
}

TEST(Scenario, TheExamplesLoad)
{
    for (const char* name : {"example.yaml", "tests.yaml"}) {
        std::string complaint;
        const auto scenario = krvgw::loadScenario(std::string(KRVGW_SCENARIOS "/") + name, complaint);
        ASSERT_TRUE(scenario.has_value()) << complaint;
        EXPECT_GE(scenario->groups.size(), 5u);
    }
}
