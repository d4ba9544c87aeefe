// What one simulated gateway is told to serve, and where it shall go wrong; made from a seed, told as a scenario file,
// and known here as the answers that a client must get.
#pragma once

#include <cstddef>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace krvsoak {

struct ServedStatistic {
    std::string id;
    std::string value; // any bytes
    int rc = 0;        // of a question for this statistic alone
};

struct ServedGroup {
    std::string id;
    int rc = 0; // of a question for this group
    std::vector<ServedStatistic> statistics;
};

struct Served {
    std::string version; // tells this gateway from all others
    std::vector<ServedGroup> groups;
    // None of them lets a wrong answer be told in the right form: what a client is told with code 0 can be compared.
    std::vector<std::string> misbehaviours;
};

// With a misbehaviour for about every other one of the first `connections` connections.
Served makeServed(std::mt19937_64& random, const std::string& version, int connections);

// The scenario, as krvgwsim reads it.
void writeScenario(std::ostream& out, const Served& served);

enum class Question { ResourceGroupIds, StatIds, StatIdsByGroup, Stats, StatsById, StatsByGroup };
constexpr int questions = 6;

bool asksForStatistics(Question question);

// The ids to ask for in such a question, joined by ":"; empty for those that ask for everything.
std::string someIds(std::mt19937_64& random, const Served& served, Question question);

// One record of a walk. Of a part that failed there is no id and no value.
struct Element {
    std::string query;
    int rc = 0;
    std::string id;
    std::string value;
};

bool operator==(const Element& left, const Element& right);

std::vector<Element> rightAnswer(const Served& served, Question question, const std::string& ids);

} // namespace krvsoak
