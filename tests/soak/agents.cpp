// See agents.h.
#include "agents.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <thread>

#include "krvstats.h"
#include "krvstats_ext.h"

namespace krvsoak {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenReplacements{1500};
constexpr std::chrono::milliseconds betweenInterruptions{40};

// Of the connections that are open, for those who disturb: whoever looks a token up may be late.
using Board = std::array<std::atomic<KRV_GatewayToken_t>, agents * connectionsEach>;

std::size_t upTo(std::mt19937_64& random, std::size_t most)
{
    return std::uniform_int_distribution<std::size_t>(0, most)(random);
}

bool isOneOf(int rc, std::initializer_list<int> codes)
{
    return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

struct Connection {
    KRV_GatewayToken_t token = nullptr;
    std::shared_ptr<const Served> served;
};

std::string counted(const char* text, int length)
{
    return std::string(text, static_cast<std::size_t>(length));
}

std::vector<Element> walkStatistics(KRV_ResultSetToken_t set)
{
    std::vector<Element> answer;
    KRV_StatData_t stat = {};
    for (int rc = getFirstStat(set, &stat); rc == KRVSTAT_OK; rc = getNextStat(set, &stat)) {
        Element element{counted(stat.queryElementPtr, stat.queryElementLen), stat.queryElementRC, "", ""};
        if (element.rc >= 0) {
            element.id = counted(stat.statIdPtr, stat.statIdLen);
            element.value = counted(stat.statValuePtr, stat.statValueLen);
        }
        answer.push_back(element);
    }
    return answer;
}

std::vector<Element> walkIds(KRV_ResultSetToken_t set)
{
    std::vector<Element> answer;
    KRV_IdData_t id = {};
    for (int rc = getFirstId(set, &id); rc == KRVSTAT_OK; rc = getNextId(set, &id)) {
        Element element{counted(id.queryElementPtr, id.queryElementLen), id.queryElementRC, "", ""};
        if (element.rc >= 0) element.id = counted(id.idPtr, id.idLen);
        answer.push_back(element);
    }
    return answer;
}

std::vector<Element> walk(KRV_ResultSetToken_t set, Question question)
{
    return asksForStatistics(question) ? walkStatistics(set) : walkIds(set);
}

int ask(KRV_GatewayToken_t token, Question question, std::string& ids, KRV_ResultSetToken_t* set)
{
    switch (question) {
    case Question::ResourceGroupIds: return getResourceGroupIds(token, set);
    case Question::StatIds: return getStatIds(token, set);
    case Question::StatIdsByGroup: return getStatIdsByStatGroupId(token, ids.data(), set);
    case Question::Stats: return getStats(token, set);
    case Question::StatsById: return getStatsByStatId(token, ids.data(), set);
    default: return getStatsByStatGroupId(token, ids.data(), set);
    }
}

class Agent {
public:
    Agent(Gateways& itsGateways, Tally& itsTally, Board& itsBoard, int itsNumber, std::uint64_t seed, int itsPatience)
        : gateways(itsGateways), tally(itsTally), board(itsBoard), number(itsNumber), patience(itsPatience), random(seed)
    {
    }

    void work(Clock::time_point until)
    {
        while (Clock::now() < until) {
            setCallDeadline(patience * static_cast<int>(100 + upTo(random, 400)));
            const std::size_t place = upTo(random, connectionsEach - 1);
            if (!connections[place].token) open(place);
            else if (upTo(random, 19) == 0) close(place);
            else query(place);
        }
        setCallDeadline(patience * 200);
        for (std::size_t place = 0; place < connectionsEach; place++)
            if (connections[place].token) close(place);
    }

private:
    void note(std::size_t place, KRV_GatewayToken_t token)
    {
        connections[place].token = token;
        board[static_cast<std::size_t>(number) * connectionsEach + place] = token;
        tally.countConnection(token ? 1 : -1);
    }

    void open(std::size_t place)
    {
        const Gateway gateway = gateways.any(random);
        KRV_GatewayToken_t token = nullptr;
        char* version = nullptr;
        const int rc = openGatewayConnection(gateway.port, &token, &version);
        tally.countCode(rc);
        if (rc != KRVSTAT_OK) {
            if (!isOneOf(rc, {KRVSTAT_GATEWAY_COMMS_FAILED, KRVSTAT_CONNECT_FAILED, KRVSTAT_GATEWAY_PROTOCOL_ERROR,
                              KRVSTAT_CONNECT_TIMEOUT, KRVSTAT_CONNECTION_REFUSED}))
                tally.complain("an open gave " + std::to_string(rc));
            return;
        }
        connections[place].served = gateway.served;
        note(place, token);
        if (version == gateway.served->version) return;
        // Its port was given to another gateway after it had been replaced.
        if (std::string(version).find("soak-") != 0) tally.complain("the version is \"" + std::string(version) + "\"");
        close(place);
    }

    void close(std::size_t place)
    {
        KRV_GatewayToken_t token = connections[place].token;
        int rc = closeGatewayConnection(&token);
        while (rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR) rc = closeGatewayConnection(&token); // the list was not free in time
        if (rc != KRVSTAT_OK) tally.complain("a close gave " + std::to_string(rc));
        note(place, nullptr);
    }

    void query(std::size_t place)
    {
        const Question question = static_cast<Question>(upTo(random, questions - 1));
        std::string ids = someIds(random, *connections[place].served, question);
        KRV_ResultSetToken_t set = nullptr;
        if (!asked(place, question, ids, &set)) return;
        const std::size_t also = upTo(random, 9);
        if (also == 0) copyAndGoOn(place, question, ids, set);
        if (also == 1) askForTheIdsOf(place, question, set);
    }

    // False if the query failed and its connection is gone.
    bool asked(std::size_t place, Question question, std::string& ids, KRV_ResultSetToken_t* set)
    {
        const Connection& connection = connections[place];
        const int rc = ask(connection.token, question, ids, set);
        tally.countCode(rc);
        if (rc == KRVSTAT_OK) {
            compare(walk(*set, question), place, question, ids, "answer");
            return true;
        }
        if (!isOneOf(rc, {KRVSTAT_GATEWAY_COMMS_FAILED, KRVSTAT_GATEWAY_PROTOCOL_ERROR}))
            tally.complain("a query gave " + std::to_string(rc));
        note(place, nullptr);
        return false;
    }

    void compare(const std::vector<Element>& answer, std::size_t place, Question question, const std::string& ids, const char* what)
    {
        const Served& served = *connections[place].served;
        const std::vector<Element> right = rightAnswer(served, question, ids);
        if (answer == right) {
            tally.countRightAnswer();
            return;
        }
        std::size_t same = 0;
        while (same < answer.size() && same < right.size() && answer[same] == right[same]) same++;
        tally.complain(std::string("a wrong ") + what + " of " + served.version + " to question "
                       + std::to_string(static_cast<int>(question)) + " \"" + ids + "\": " + std::to_string(answer.size())
                       + " records for " + std::to_string(right.size()) + ", different from number " + std::to_string(same)
                       + " on");
    }

    // A copy outlives the next query and the connection.
    void copyAndGoOn(std::size_t place, Question question, const std::string& ids, KRV_ResultSetToken_t set)
    {
        KRV_ResultSetToken_t copy = nullptr;
        const int rc = copyResultSet(set, &copy);
        if (rc != KRVSTAT_OK) {
            tally.complain("a copy gave " + std::to_string(rc));
            return;
        }
        const std::shared_ptr<const Served> served = connections[place].served;
        if (upTo(random, 1) == 0) {
            KRV_ResultSetToken_t other = nullptr;
            std::string all;
            asked(place, Question::StatIds, all, &other);
        } else {
            close(place);
        }
        connections[place].served = served;
        compare(walk(copy, question), place, question, ids, "copy");
        if (freeResultSet(&copy) != KRVSTAT_OK || copy) tally.complain("a copy was not freed");
    }

    void askForTheIdsOf(std::size_t place, Question question, KRV_ResultSetToken_t set)
    {
        char* text = nullptr;
        const int rc = getIdQuery(set, &text);
        if (rc == KRVSTAT_ID_QUERY_FAILED) return; // every part of it had failed
        if (rc != KRVSTAT_OK) {
            tally.complain("getIdQuery gave " + std::to_string(rc));
            return;
        }
        std::string ids = text;
        KRV_ResultSetToken_t other = nullptr;
        asked(place, question == Question::ResourceGroupIds ? Question::StatsByGroup : Question::StatsById, ids, &other);
    }

    Gateways& gateways;
    Tally& tally;
    Board& board;
    const int number;
    const int patience;
    std::mt19937_64 random;
    std::array<Connection, connectionsEach> connections;
};

// Interrupts connections of all agents, in calls and between them, and replaces gateways.
void disturb(Gateways& gateways, Tally& tally, const Board& board, std::uint64_t seed, Clock::time_point until)
{
    std::mt19937_64 random(seed);
    Clock::time_point replaced = Clock::now();
    while (Clock::now() < until) {
        const KRV_GatewayToken_t token = board[upTo(random, board.size() - 1)];
        if (token) {
            const int rc = interruptGatewayConnection(token);
            if (rc == KRVSTAT_OK) tally.countInterruption();
            else if (rc != KRVSTAT_GATEWAY_TOKEN_NOT_FOUND) tally.complain("an interruption gave " + std::to_string(rc));
        }
        if (Clock::now() - replaced > betweenReplacements) {
            if (!gateways.replaceOne()) tally.complain("a gateway had ended by itself");
            replaced = Clock::now();
        }
        std::this_thread::sleep_for(betweenInterruptions);
    }
}

} // namespace

void Tally::countCode(int rc)
{
    const std::size_t place = static_cast<std::size_t>(-rc);
    if (rc > 0 || place >= mostCodes) complain("the code " + std::to_string(rc) + " is none of the table");
    else codes[place]++;
}

void Tally::countConnection(int change)
{
    const int now = open += change;
    int most = mostOpen;
    while (now > most && !mostOpen.compare_exchange_weak(most, now)) continue;
}

void Tally::complain(const std::string& what)
{
    const std::lock_guard held(changes);
    if (said.size() < mostComplaints) said.push_back(what);
}

std::set<int> Tally::codesGiven() const
{
    std::set<int> given;
    for (std::size_t place = 0; place < mostCodes; place++)
        if (codes[place] > 0) given.insert(-static_cast<int>(place));
    return given;
}

std::string Tally::summary() const
{
    std::string text = std::to_string(mostOpen) + " connections at most, " + std::to_string(right) + " right answers, "
        + std::to_string(interrupted) + " interruptions; codes";
    for (std::size_t place = 0; place < mostCodes; place++)
        if (codes[place] > 0) text += " " + std::to_string(-static_cast<int>(place)) + ": " + std::to_string(codes[place]) + ",";
    text.pop_back();
    return text;
}

std::vector<std::string> Tally::complaints() const
{
    const std::lock_guard held(changes);
    return said;
}

void letAgentsWork(Gateways& gateways, Tally& tally, std::uint64_t seed, int patience, Clock::time_point until)
{
    const auto board = std::make_unique<Board>();
    std::vector<std::thread> threads;
    for (int number = 0; number < agents; number++) {
        threads.emplace_back([&, number] {
            Agent(gateways, tally, *board, number, seed + 1 + static_cast<std::uint64_t>(number), patience).work(until);
        });
    }
    disturb(gateways, tally, *board, seed, until);
    for (std::thread& each : threads) each.join();
}

} // namespace krvsoak
