// A fixed scenario from a YAML file: what is served, how values develop, what goes wrong.
//
// Every key is shown, with a comment, in scenarios/example.yaml.
#pragma once

#include "catalogue.h"
#include "misbehave.h"
#include "pattern.h"

namespace krvgw {

struct ScenarioStatistic {
    std::string id;
    Pattern pattern;
    std::int32_t rc = 0;
    std::vector<BlockCut> cuts;
};

struct ScenarioGroup {
    std::string id;
    std::int32_t rc = 0;
    std::vector<ScenarioStatistic> statistics;
};

struct Scenario {
    std::vector<ScenarioGroup> groups;
    std::vector<Misbehaviour> misbehaviours;
    std::optional<std::string> protocolVersion;
    std::optional<std::uint64_t> seed;
    std::int32_t unknownRc = UNKNOWN_ID_RC;
    std::int32_t everythingRc = 0;
    ArrayForm arrayForm = ArrayForm::WhenSeveral;
};

// On failure returns nothing and says in `complaint` what is wrong, with the line.
std::optional<Scenario> parseScenario(const std::string& yaml, std::string& complaint);
std::optional<Scenario> loadScenario(const std::string& path, std::string& complaint);

std::unique_ptr<Source> scenarioSource(const Scenario& scenario);

}  // namespace krvgw
