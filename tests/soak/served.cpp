// See served.h.
#include "served.h"

#include <algorithm>
#include <string_view>

namespace krvsoak {

namespace {

constexpr int unknownRc = -1001; // krvgwsim's own, for ids that it does not know

std::size_t upTo(std::mt19937_64& random, std::size_t most)
{
    return std::uniform_int_distribution<std::size_t>(0, most)(random);
}

bool oneIn(std::mt19937_64& random, std::size_t chances)
{
    return upTo(random, chances - 1) == 0;
}

template <typename Item>
const Item& anyOf(std::mt19937_64& random, const std::vector<Item>& items)
{
    return items[upTo(random, items.size() - 1)];
}

constexpr std::size_t severalBlocks = 200; // bytes that may need them

// Mostly short, some of several blocks, rarely of the greatest length. Where a block claims another length than it has,
// bytes of the value are taken for the code and the length of a block: none of those may do, or the reply would be a good
// one, of another value.
std::string anyValue(std::mt19937_64& random)
{
    std::size_t length = upTo(random, 40);
    if (oneIn(random, 8)) length = upTo(random, 3000);
    if (oneIn(random, 200)) length = 32767;
    std::string value(length, '\0');
    const std::size_t least = length < severalBlocks ? 0 : 128;
    for (char& each : value) each = static_cast<char>(least + upTo(random, 255 - least));
    return value;
}

std::string hexOf(const std::string& bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

// Between 1 and most.
std::string number(std::mt19937_64& random, std::size_t most)
{
    return std::to_string(1 + upTo(random, most - 1));
}

std::string anyMisbehaviour(std::mt19937_64& random)
{
    switch (upTo(random, 21)) {
    case 0: return "no-answer";
    case 1: return "delay=" + number(random, 60);
    case 2: return "byte-by-byte";
    case 3: return "split=" + number(random, 60) + "/" + number(random, 10);
    case 4: return "close-before";
    case 5: return "close-after";
    case 6: return "close-at=" + number(random, 400);
    case 7: return "reset-before";
    case 8: return "reset-after";
    case 9: return "reset-at=" + number(random, 400);
    case 10: return "stall-at=" + number(random, 400);
    case 11: return "no-body";
    case 12: return "short-body=" + number(random, 400);
    case 13: return "extra-body=" + number(random, 20);
    case 14: return "huge-claim";
    case 15: return "name=" + std::string(1 + upTo(random, 8), 'n');
    case 16: return "bad-eyecatcher";
    case 17: return "header-rc=" + number(random, 10);
    case 18: return "data-length=+" + number(random, 40);
    case 19: return "data-length=-" + number(random, 40);
    case 20: return "segment-length=+" + number(random, 30);
    default: return "segment-length=-" + number(random, 30);
    }
}

std::string anyMisbehaviourOf(std::mt19937_64& random, int connection)
{
    static const std::vector<std::string> messages = {"handshake", "auth1", "auth2", "attribute", "close"};
    static const std::vector<std::string> ofQueries = {"init", "get-stats", "stat-ids", "resource-groups"};
    const std::string where = "%" + std::to_string(connection);
    if (oneIn(random, 20)) return (oneIn(random, 2) ? "close-on-accept" : "reset-on-accept") + where;
    if (oneIn(random, 20)) return (oneIn(random, 2) ? "refuse-auth@auth1" : "refuse-admin") + where;
    if (oneIn(random, 20)) return "exception" + where;
    std::string made = anyMisbehaviour(random);
    const bool isOfSegments = made.starts_with("segment-length");
    if (isOfSegments) return made + "@get-stats#" + number(random, 4) + where;
    if (oneIn(random, 4)) return made + "@" + anyOf(random, messages) + where;
    return made + "@" + anyOf(random, ofQueries) + "#" + number(random, 8) + where;
}

std::vector<std::string> partsOf(const std::string& ids)
{
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t colon = ids.find(':'); colon != std::string::npos; colon = ids.find(':', from)) {
        parts.push_back(ids.substr(from, colon - from));
        from = colon + 1;
    }
    parts.push_back(ids.substr(from));
    return parts;
}

bool asksForGroups(Question question)
{
    return question == Question::ResourceGroupIds;
}

void addStatistic(std::vector<Element>& answer, Question question, const std::string& query, int rc,
                  const ServedStatistic& statistic)
{
    answer.push_back({query, rc, statistic.id, asksForStatistics(question) ? statistic.value : ""});
}

void addGroup(std::vector<Element>& answer, Question question, const std::string& query, int rc, const ServedGroup& group)
{
    for (const ServedStatistic& each : group.statistics) addStatistic(answer, question, query, rc, each);
}

void addPart(std::vector<Element>& answer, const Served& served, Question question, const std::string& id)
{
    for (const ServedGroup& group : served.groups) {
        if (group.id == id) {
            if (group.rc < 0) answer.push_back({id, group.rc, "", ""});
            else addGroup(answer, question, id, group.rc, group);
            return;
        }
        for (const ServedStatistic& statistic : group.statistics) {
            if (statistic.id != id) continue;
            if (statistic.rc < 0) answer.push_back({id, statistic.rc, "", ""});
            else addStatistic(answer, question, id, statistic.rc, statistic);
            return;
        }
    }
    answer.push_back({id, unknownRc, "", ""});
}

} // namespace

bool operator==(const Element& left, const Element& right)
{
    return left.query == right.query && left.rc == right.rc && left.id == right.id && left.value == right.value;
}

Served makeServed(std::mt19937_64& random, const std::string& version, int connections)
{
    Served served;
    served.version = version;
    const std::size_t groups = 2 + upTo(random, 4);
    for (std::size_t g = 0; g < groups; g++) {
        ServedGroup group;
        group.id = "group" + std::to_string(g) + std::string(upTo(random, 20), 'g');
        group.rc = oneIn(random, 8) ? -static_cast<int>(1 + upTo(random, 50)) : 0;
        const std::size_t statistics = 1 + upTo(random, 12); // a part that succeeds has something in it
        for (std::size_t s = 0; s < statistics; s++) {
            const int rc = oneIn(random, 10) ? static_cast<int>(upTo(random, 20)) - 10 : 0;
            group.statistics.push_back({group.id + "." + std::to_string(s) + std::string(upTo(random, 30), 's'), anyValue(random), rc});
        }
        served.groups.push_back(group);
    }
    for (int connection = 1; connection <= connections; connection++)
        if (oneIn(random, 2)) served.misbehaviours.push_back(anyMisbehaviourOf(random, connection));
    return served;
}

void writeScenario(std::ostream& out, const Served& served)
{
    out << "protocol: \"" << served.version << "\"\nunknown-rc: " << unknownRc << "\ngroups:\n";
    for (const ServedGroup& group : served.groups) {
        out << "  - id: \"" << group.id << "\"\n    rc: " << group.rc << "\n    statistics:\n";
        for (const ServedStatistic& statistic : group.statistics) {
            out << "      - {id: \"" << statistic.id << "\", rc: " << statistic.rc << ", hex: \"" << hexOf(statistic.value) << "\"}\n";
        }
    }
    out << "misbehave:\n";
    for (const std::string& misbehaviour : served.misbehaviours) out << "  - \"" << misbehaviour << "\"\n";
}

bool asksForStatistics(Question question)
{
    return question == Question::Stats || question == Question::StatsById || question == Question::StatsByGroup;
}

std::string someIds(std::mt19937_64& random, const Served& served, Question question)
{
    const bool byGroup = question == Question::StatIdsByGroup || question == Question::StatsByGroup;
    if (!byGroup && question != Question::StatsById) return "";
    std::string ids;
    const std::size_t parts = 1 + upTo(random, 4);
    for (std::size_t i = 0; i < parts; i++) {
        const ServedGroup& group = anyOf(random, served.groups);
        std::string id = byGroup ? group.id : anyOf(random, group.statistics).id;
        if (oneIn(random, 10)) id = "nobody.knows.this";
        ids += (ids.empty() ? "" : ":") + id;
    }
    return ids;
}

std::vector<Element> rightAnswer(const Served& served, Question question, const std::string& ids)
{
    std::vector<Element> answer;
    if (ids.empty()) {
        for (const ServedGroup& group : served.groups) {
            if (asksForGroups(question)) answer.push_back({"", 0, group.id, ""});
            else addGroup(answer, question, "", 0, group);
        }
        return answer;
    }
    for (const std::string& id : partsOf(ids)) addPart(answer, served, question, id);
    return answer;
}

} // namespace krvsoak
