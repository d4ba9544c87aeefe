// What a query string selects.
#include "catalogue.h"

#include <gtest/gtest.h>

using krvgw::answerQuery;
using krvgw::Catalogue;
using krvgw::Operation;
using krvgw::Result;

namespace {

Catalogue twoGroups()
{
    Catalogue catalogue;
    catalogue.groups = {
        {"cpu", {{"cpu.user", "1", 0, {}}, {"cpu.idle", "2", -9, {}}}, 0},
        {"memory", {{"memory.free", "3", 5, {}}}, 6},
        {"broken", {{"broken.one", "4", 0, {}}}, -7},
    };
    return catalogue;
}

// "cpu rc 0: cpu.user=1 cpu.idle=2; ..." with a leading "array" where it is one.
std::string pictureOf(const Result& result)
{
    std::string picture = result.isArray ? "array" : "single";
    for (const krvgw::Response& response : result.responses) {
        picture += "; \"" + response.queryElement + "\" rc " + std::to_string(response.rc) + ":";
        for (const krvgw::Statistic& each : response.elements) picture += " " + each.id + "=" + each.value;
    }
    return picture;
}

std::string answer(Operation operation, std::string_view queryString)
{
    return pictureOf(answerQuery(twoGroups(), operation, queryString));
}

}  // namespace

TEST(Catalogue, TheEmptyQueryYieldsEverythingInOneResponse)
{
    EXPECT_EQ(answer(Operation::GetStats, ""),
              "single; \"\" rc 0: cpu.user=1 cpu.idle=2 memory.free=3 broken.one=4");
    EXPECT_EQ(answer(Operation::StatIds, ""),
              "single; \"\" rc 0: cpu.user=1 cpu.idle=2 memory.free=3 broken.one=4");
    EXPECT_EQ(answer(Operation::ResourceGroups, ""), "single; \"\" rc 0: cpu= memory= broken=");
}

TEST(Catalogue, AGroupYieldsItsStatisticsWithItsCode)
{
    EXPECT_EQ(answer(Operation::GetStats, "memory"), "single; \"memory\" rc 6: memory.free=3");
    EXPECT_EQ(answer(Operation::ResourceGroups, "memory"), "single; \"memory\" rc 6: memory=");
}

TEST(Catalogue, AStatisticYieldsItselfWithItsCode)
{
    EXPECT_EQ(answer(Operation::GetStats, "memory.free"), "single; \"memory.free\" rc 5: memory.free=3");
    EXPECT_EQ(answer(Operation::StatIds, "cpu.user"), "single; \"cpu.user\" rc 0: cpu.user=1");
}

TEST(Catalogue, NegativeCodesComeWithoutElements)
{
    EXPECT_EQ(answer(Operation::GetStats, "cpu.idle:broken"),
              "array; \"cpu.idle\" rc -9:; \"broken\" rc -7:");
}

TEST(Catalogue, UnknownIdsYieldANegativeCode)
{
    EXPECT_EQ(answer(Operation::GetStats, "nothing"), "single; \"nothing\" rc -1001:");
    EXPECT_EQ(answer(Operation::ResourceGroups, "cpu.user"), "single; \"cpu.user\" rc -1001:");
    EXPECT_EQ(answer(Operation::GetStats, "CPU"), "single; \"CPU\" rc -1001:");
}

TEST(Catalogue, EachPartBetweenColonsHasAResponseInItsPlace)
{
    EXPECT_EQ(answer(Operation::GetStats, "memory.free:x:memory.free"),
              "array; \"memory.free\" rc 5: memory.free=3; \"x\" rc -1001:; \"memory.free\" rc 5: memory.free=3");
    EXPECT_EQ(answer(Operation::GetStats, ":cpu.user:"),
              "array; \"\" rc -1001:; \"cpu.user\" rc 0: cpu.user=1; \"\" rc -1001:");
}

TEST(Catalogue, AnArrayCanBeAskedForOneResponse)
{
    Catalogue catalogue = twoGroups();
    catalogue.arrayForm = krvgw::ArrayForm::Always;
    EXPECT_EQ(pictureOf(answerQuery(catalogue, Operation::GetStats, "memory")),
              "array; \"memory\" rc 6: memory.free=3");
}

TEST(Catalogue, EverythingCanBeRefused)
{
    Catalogue catalogue = twoGroups();
    catalogue.everythingRc = -3;
    EXPECT_EQ(pictureOf(answerQuery(catalogue, Operation::StatIds, "")), "single; \"\" rc -3:");
}

TEST(Catalogue, IdsThatCannotBeAskedForAreFound)
{
    EXPECT_EQ(krvgw::faultOfCatalogue(twoGroups()), "");
    Catalogue twice = twoGroups();
    twice.groups[1].statistics.push_back({"cpu.user", "", 0, {}});
    EXPECT_EQ(krvgw::faultOfCatalogue(twice), "the id \"cpu.user\" occurs twice");
    Catalogue groupAndStatistic = twoGroups();
    groupAndStatistic.groups[1].statistics.push_back({"cpu", "", 0, {}});
    EXPECT_EQ(krvgw::faultOfCatalogue(groupAndStatistic), "the id \"cpu\" occurs twice");
    Catalogue colon = twoGroups();
    colon.groups[0].statistics[0].id = "cpu:user";
    EXPECT_EQ(krvgw::faultOfCatalogue(colon), "the id \"cpu:user\" holds a colon");
    Catalogue longValue = twoGroups();
    longValue.groups[0].statistics[0].value = std::string(32768, 'v');
    EXPECT_EQ(krvgw::faultOfCatalogue(longValue), "the value of \"cpu.user\" is longer than 32767 bytes");
    Catalogue longId = twoGroups();
    longId.groups[0].statistics[0].id = std::string(32768, 'i');
    EXPECT_EQ(krvgw::faultOfCatalogue(longId), "the id of a statistic is longer than 32767 bytes");
    Catalogue noId = twoGroups();
    noId.groups[0].id = "";
    EXPECT_EQ(krvgw::faultOfCatalogue(noId), "a group has no id");
}
