#include "session.h"

#include "lookup.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

namespace {

constexpr std::size_t LongestNameList = 32765; // bytes that the library takes in one request

std::string countedText(const char* text, int length)
{
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

// An answer, and the elements of the request that it is for, in the order in which the walk met them.
struct Walk {
    Sample answer;
    std::vector<std::string> elements;
    std::vector<std::string> elementOf; // of each record
};

// Both public records begin alike. Returns whether the record has an id behind that beginning.
template <typename PublicRecord>
bool noteElement(const PublicRecord& record, Walk* walk)
{
    std::string element = countedText(record.queryElementPtr, record.queryElementLen);
    if (record.queryElementRC < 0) walk->answer.refused.push_back({element, record.queryElementRC, false, ""});
    else walk->elementOf.push_back(element);
    if (walk->elements.empty() || walk->elements.back() != element) walk->elements.push_back(std::move(element));
    return record.queryElementRC >= 0;
}

int walkIds(KRV_ResultSetToken_t resultSet, Walk* walk)
{
    KRV_IdData_t id{};
    int code = getFirstId(resultSet, &id);
    while (code == KRVSTAT_OK) {
        if (noteElement(id, walk)) walk->answer.records.push_back({countedText(id.idPtr, id.idLen), "", ""});
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
                {countedText(stat.statIdPtr, stat.statIdLen), countedText(stat.statValuePtr, stat.statValueLen), ""});
        }
        code = getNextStat(resultSet, &stat);
    }
    return code == KRVSTAT_RESULT_SET_EMPTY ? KRVSTAT_OK : code;
}

struct Asking {
    Session* session;
    Question question;
    Deadline deadline;
};

// After these the library has closed the connection itself.
bool hasRemovedConnection(int code)
{
    return code == KRVSTAT_GATEWAY_COMMS_FAILED || code == KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

// One request. An empty list asks for everything. Once the deadline has passed nothing is sent: the connection, which
// is still good, then stays open.
CallResult request(const Asking& asking, std::string list, Walk* walk)
{
    const int left = millisecondsLeft(asking.deadline);
    if (left == 0) return {KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Asking, true};
    setCallDeadline(left);

    const KRV_GatewayToken_t gateway = asking.session->gateway;
    KRV_ResultSetToken_t resultSet = nullptr;
    int code = KRVSTAT_OK;
    if (asking.question == Question::Groups) {
        code = getResourceGroupIds(gateway, &resultSet);
    } else if (asking.question == Question::Ids) {
        code =
            list.empty() ? getStatIds(gateway, &resultSet) : getStatIdsByStatGroupId(gateway, list.data(), &resultSet);
    } else { // the gateway itself tells ids of statistics and of groups apart
        code = list.empty() ? getStats(gateway, &resultSet) : getStatsByStatId(gateway, list.data(), &resultSet);
    }
    if (hasRemovedConnection(code)) asking.session->gateway = nullptr;
    if (code != KRVSTAT_OK) return {code, Stage::Asking, hasPassed(asking.deadline)};
    walk->answer.time = std::chrono::system_clock::now();
    walk->answer.monotonic = std::chrono::steady_clock::now().time_since_epoch();
    return {asking.question == Question::Statistics ? walkStatistics(resultSet, walk) : walkIds(resultSet, walk),
        Stage::Asking, false};
}

template <typename Element>
void moveBehind(std::vector<Element>* all, std::vector<Element>* more)
{
    std::move(more->begin(), more->end(), std::back_inserter(*all));
}

void addAnswer(Walk* walk, Sample* sample)
{
    sample->time = walk->answer.time;
    sample->monotonic = walk->answer.monotonic;
    moveBehind(&sample->records, &walk->answer.records);
    moveBehind(&sample->refused, &walk->answer.refused);
}

CallResult requestAlone(const Asking& asking, const std::string& element, Sample* sample)
{
    Walk walk;
    const CallResult result = request(asking, element, &walk);
    if (result.code != KRVSTAT_OK) return result;
    if (walk.answer.records.empty() && walk.answer.refused.empty()) sample->empty.push_back(element);
    if (asking.question == Question::Ids && !element.empty()) {
        for (Record& record : walk.answer.records) record.group = element;
    }
    addAnswer(&walk, sample);
    return result;
}

using NameIterator = std::vector<std::string>::const_iterator;

std::string nameList(NameIterator first, NameIterator last)
{
    std::string list;
    for (; first != last; ++first) {
        if (!list.empty()) list += ':';
        list += *first;
    }
    return list;
}

// All names are asked for together. A walk cannot tell an element without any entries, such as an empty group, from one
// that has some: it then takes what stands behind it for an entry, and everything from there on is wrong. This shows in
// the elements that it met. At the end of an answer such an element does no harm, so each name is then asked for alone.
CallResult requestTogether(const Asking& asking, NameIterator first, NameIterator last, Sample* sample)
{
    if (last - first > 1) {
        Walk together;
        const CallResult result = request(asking, nameList(first, last), &together);
        if (result.code != KRVSTAT_OK) return result;
        if (std::equal(first, last, together.elements.begin(), together.elements.end())) {
            if (asking.question == Question::Ids) {
                for (std::size_t i = 0; i < together.elementOf.size(); ++i) {
                    together.answer.records[i].group = together.elementOf[i];
                }
            }
            addAnswer(&together, sample);
            return result;
        }
    }
    CallResult result;
    for (; result.code == KRVSTAT_OK && first != last; ++first) result = requestAlone(asking, *first, sample);
    return result;
}

// How far names fit into one request. One alone always does: longer ones were refused with the command line.
NameIterator endOfList(NameIterator first, NameIterator last)
{
    std::size_t length = first->size();
    for (++first; first != last && length + 1 + first->size() <= LongestNameList; ++first) length += 1 + first->size();
    return first;
}

void fillGroups(const Session& session, Sample* sample)
{
    if (session.groupOf.empty()) return;
    for (Record& record : sample->records) {
        const auto known = session.groupOf.find(record.id);
        if (known != session.groupOf.end()) record.group = known->second;
    }
}

} // namespace

CallResult openSession(const Target& target, Deadline deadline, Session* session)
{
    std::vector<std::string> addresses;
    const LookupEnd lookup = lookUp(target.host, deadline, &addresses);
    if (lookup != LookupEnd::Found) {
        return {KRVSTAT_HOST_NOT_RESOLVED, Stage::LookingUp, lookup == LookupEnd::Late};
    }
    CallResult result{KRVSTAT_CONNECT_TIMEOUT, Stage::Connecting, true};
    for (auto address = addresses.begin(); address != addresses.end() && !hasPassed(deadline); ++address) {
        setCallDeadline(std::max(1, millisecondsLeft(deadline)));
        char* protocol = nullptr;
        const int code = openRemoteGatewayConnection(address->data(), target.port, &session->gateway, &protocol);
        result = {code, Stage::Connecting, code != KRVSTAT_OK && hasPassed(deadline)};
        if (code == KRVSTAT_OK) {
            session->address = *address;
            session->protocol = protocol != nullptr ? protocol : "";
            return result;
        }
        session->gateway = nullptr;
    }
    return result;
}

CallResult ask(
    Session* session, Question question, const std::vector<std::string>& names, Deadline deadline, Sample* sample)
{
    const Asking asking{session, question, deadline};
    CallResult result;
    if (names.empty() || question == Question::Groups) {
        result = requestAlone(asking, "", sample);
    } else {
        for (auto first = names.begin(); result.code == KRVSTAT_OK && first != names.end();) {
            const auto last = endOfList(first, names.end());
            result = requestTogether(asking, first, last, sample);
            first = last;
        }
    }
    if (result.code == KRVSTAT_OK) fillGroups(*session, sample);
    return result;
}

CallResult learnGroups(Session* session, Deadline deadline)
{
    Sample groups;
    CallResult result = ask(session, Question::Groups, {}, deadline, &groups);
    std::vector<std::string> names;
    std::unordered_set<std::string> seen; // a gateway may name a group twice; a request must not
    for (Record& group : groups.records) {
        // what cannot be asked for: such a group stays unknown
        const bool canBeNamed = !group.id.empty() && group.id.find(':') == std::string::npos &&
                                group.id.find('\0') == std::string::npos && group.id.size() <= LongestNameList;
        if (canBeNamed && seen.insert(group.id).second) names.push_back(group.id);
    }
    Sample ids;
    if (result.code == KRVSTAT_OK && !names.empty()) result = ask(session, Question::Ids, names, deadline, &ids);
    if (result.code != KRVSTAT_OK) return result;
    session->groupOf.clear();
    for (Record& record : ids.records) session->groupOf.emplace(std::move(record.id), std::move(record.group));
    return result;
}

void closeSession(Session* session, Deadline deadline)
{
    if (session->gateway == nullptr) return;
    setCallDeadline(std::max(1, millisecondsLeft(deadline)));
    closeGatewayConnection(&session->gateway); // whatever it returns, the token is gone
    session->gateway = nullptr;
}
