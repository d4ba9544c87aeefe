// Selection only: nothing here knows how values come about or how they travel.
#include "catalogue.h"

#include <fmt/format.h>

#include <unordered_map>
#include <unordered_set>

namespace krvgw {
namespace {

std::vector<std::string> partsOf(std::string_view queryString)
{
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t colon = queryString.find(':'); colon != std::string_view::npos;
         colon = queryString.find(':', from)) {
        parts.emplace_back(queryString.substr(from, colon - from));
        from = colon + 1;
    }
    parts.emplace_back(queryString.substr(from));
    return parts;
}

struct Place {
    const Group* group;
    const Statistic* statistic;  // null where the id is the group's own
};

std::unordered_map<std::string_view, Place> placesOf(const Catalogue& catalogue)
{
    std::unordered_map<std::string_view, Place> places;
    for (const Group& group : catalogue.groups) places.emplace(group.id, Place{&group, nullptr});
    for (const Group& group : catalogue.groups)
        for (const Statistic& statistic : group.statistics) places.emplace(statistic.id, Place{&group, &statistic});
    return places;
}

void addElements(Response& response, const Group& group, Operation operation)
{
    if (operation == Operation::ResourceGroups)
        response.elements.push_back({group.id, "", 0, {}});
    else
        response.elements.insert(response.elements.end(), group.statistics.begin(), group.statistics.end());
}

Response answerEverything(const Catalogue& catalogue, Operation operation)
{
    Response response{"", catalogue.everythingRc, {}};
    if (response.rc < 0) return response;
    for (const Group& group : catalogue.groups) addElements(response, group, operation);
    return response;
}

Response answerPart(const Catalogue& catalogue, const std::unordered_map<std::string_view, Place>& places,
                    Operation operation, const std::string& id)
{
    const auto found = places.find(id);
    const bool isStatistic = found != places.end() && found->second.statistic != nullptr;
    if (found == places.end() || (isStatistic && operation == Operation::ResourceGroups))
        return {id, catalogue.unknownRc, {}};

    const Place& place = found->second;
    Response response{id, isStatistic ? place.statistic->rc : place.group->rc, {}};
    if (response.rc < 0) return response;
    if (isStatistic)
        response.elements.push_back(*place.statistic);
    else
        addElements(response, *place.group, operation);
    return response;
}

}  // namespace

Result answerQuery(const Catalogue& catalogue, Operation operation, std::string_view queryString)
{
    Result result;
    if (queryString.empty()) {
        result.responses.push_back(answerEverything(catalogue, operation));
    } else {
        const auto places = placesOf(catalogue);
        for (const std::string& id : partsOf(queryString))
            result.responses.push_back(answerPart(catalogue, places, operation, id));
    }
    result.isArray = catalogue.arrayForm == ArrayForm::Always || result.responses.size() > 1;
    return result;
}

std::string faultOfCatalogue(const Catalogue& catalogue)
{
    std::unordered_set<std::string_view> seen;
    for (const Group& group : catalogue.groups) {
        if (group.id.empty()) return "a group has no id";
        if (group.id.find(':') != std::string::npos) return fmt::format("the id \"{}\" holds a colon", group.id);
        if (group.id.size() > LONGEST_TEXT) return "the id of a group is longer than 32767 bytes";
        if (!seen.insert(group.id).second) return fmt::format("the id \"{}\" occurs twice", group.id);
    }
    for (const Group& group : catalogue.groups) {
        for (const Statistic& statistic : group.statistics) {
            if (statistic.id.find(':') != std::string::npos)
                return fmt::format("the id \"{}\" holds a colon", statistic.id);
            if (statistic.id.size() > LONGEST_TEXT) return "the id of a statistic is longer than 32767 bytes";
            if (statistic.value.size() > LONGEST_TEXT)
                return fmt::format("the value of \"{}\" is longer than 32767 bytes", statistic.id);
            if (!seen.insert(statistic.id).second) return fmt::format("the id \"{}\" occurs twice", statistic.id);
        }
    }
    return "";
}

}  // namespace krvgw
