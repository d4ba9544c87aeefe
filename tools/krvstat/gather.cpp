// The only file that talks to the library about statistics.
//
// What the library hands out lives until the next query or the close: so everything is copied here, and the connection
// is closed before anything is printed. A reader of our output that dawdles keeps no gateway waiting.

#include "gather.h"

#include "krvstats.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

namespace {

std::string countedText(const char* text, int length)
{
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

// An answer, and the elements of the request that it is for, in the order in which the walk met them.
struct Walk {
    Answer answer;
    std::vector<std::string> elements;
};

// Both public records begin alike. Returns whether the record has an id behind that beginning.
template <typename PublicRecord>
bool noteElement(const PublicRecord& record, Walk* walk)
{
    std::string element = countedText(record.queryElementPtr, record.queryElementLen);
    if (record.queryElementRC < 0) walk->answer.refused.push_back({element, record.queryElementRC});
    if (walk->elements.empty() || walk->elements.back() != element) walk->elements.push_back(std::move(element));
    return record.queryElementRC >= 0;
}

int walkIds(KRV_ResultSetToken_t resultSet, Walk* walk)
{
    KRV_IdData_t id{};
    int code = getFirstId(resultSet, &id);
    while (code == KRVSTAT_OK) {
        if (noteElement(id, walk)) walk->answer.records.push_back({countedText(id.idPtr, id.idLen), ""});
        code = getNextId(resultSet, &id);
    }
    return code == KRVSTAT_RESULT_SET_EMPTY ? KRVSTAT_OK : code;
}

int walkStatistics(KRV_ResultSetToken_t resultSet, Walk* walk)
{
    KRV_StatData_t stat{};
    int code = getFirstStat(resultSet, &stat);
    while (code == KRVSTAT_OK) {
        if (noteElement(stat, walk)) {
            walk->answer.records.push_back(
                {countedText(stat.statIdPtr, stat.statIdLen), countedText(stat.statValuePtr, stat.statValueLen)});
        }
        code = getNextStat(resultSet, &stat);
    }
    return code == KRVSTAT_RESULT_SET_EMPTY ? KRVSTAT_OK : code;
}

// One request. An empty list asks for everything.
int request(KRV_GatewayToken_t gateway, Question question, std::string list, Walk* walk)
{
    KRV_ResultSetToken_t resultSet = nullptr;
    int code = KRVSTAT_OK;
    if (question == Question::Groups) {
        code = getResourceGroupIds(gateway, &resultSet);
    } else if (question == Question::Ids) {
        code =
            list.empty() ? getStatIds(gateway, &resultSet) : getStatIdsByStatGroupId(gateway, list.data(), &resultSet);
    } else { // the gateway itself tells ids of statistics and of groups apart
        code = list.empty() ? getStats(gateway, &resultSet) : getStatsByStatId(gateway, list.data(), &resultSet);
    }
    if (code != KRVSTAT_OK) return code;
    return question == Question::Statistics ? walkStatistics(resultSet, walk) : walkIds(resultSet, walk);
}

int requestAlone(KRV_GatewayToken_t gateway, Question question, const std::string& element, Answer* answer)
{
    Walk walk;
    const int code = request(gateway, question, element, &walk);
    if (code != KRVSTAT_OK) return code;
    Answer& alone = walk.answer;
    if (alone.records.empty() && alone.refused.empty()) answer->empty.push_back(element);
    std::move(alone.records.begin(), alone.records.end(), std::back_inserter(answer->records));
    std::move(alone.refused.begin(), alone.refused.end(), std::back_inserter(answer->refused));
    return KRVSTAT_OK;
}

// All names are asked for together. A walk cannot tell an element without any entries, such as an empty group, from one
// that has some: it then takes what stands behind it for an entry, and everything from there on is wrong. This shows in
// the elements that it met. At the end of an answer such an element does no harm, so each name is then asked for alone.
int ask(KRV_GatewayToken_t gateway, Question question, const std::vector<std::string>& names, Answer* answer)
{
    if (names.empty()) return requestAlone(gateway, question, "", answer);
    if (names.size() > 1) {
        Walk together;
        const int code = request(gateway, question, nameList(names), &together);
        if (code != KRVSTAT_OK) return code;
        if (together.elements == names) {
            *answer = std::move(together.answer);
            return KRVSTAT_OK;
        }
    }
    int code = KRVSTAT_OK;
    for (auto name = names.begin(); code == KRVSTAT_OK && name != names.end(); ++name) {
        code = requestAlone(gateway, question, *name, answer);
    }
    return code;
}

// After these the library has closed the connection itself.
bool hasRemovedConnection(int code)
{
    return code == KRVSTAT_GATEWAY_COMMS_FAILED || code == KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

} // namespace

GatherResult gather(const Target& target, Question question, const std::vector<std::string>& names, Answer* answer)
{
    std::string host = target.host;
    KRV_GatewayToken_t gateway = nullptr;
    char* protocolVersion = nullptr;
    int code = openRemoteGatewayConnection(host.data(), target.port, &gateway, &protocolVersion);
    if (code != KRVSTAT_OK) return {code, Stage::Connecting};

    code = ask(gateway, question, names, answer);
    if (!hasRemovedConnection(code)) {
        const int closeCode = closeGatewayConnection(&gateway);
        if (code == KRVSTAT_OK) code = closeCode;
    }
    return {code, Stage::Asking};
}

std::string nameList(const std::vector<std::string>& names)
{
    return fmt::format("{}", fmt::join(names, ":"));
}
