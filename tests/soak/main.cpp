// krvsoak SECONDS SEED [PATIENCE]: an agent with many connections to many gateways that misbehave at random, for that
// long. Where everything takes longer, in an emulator say, PATIENCE makes the deadlines of the calls that many times as
// long.
//
// In rounds, each with gateways and threads of its own: behind a round everything is closed, and memory, descriptors and
// threads must be what they were behind the first. A run of 10 seconds or more (that many times PATIENCE) must also have
// had 200 connections open at a time, and have met each way for a gateway to fail. Ends with 0 if that is so and every
// answer was right, else with 1 and what was found; the same seed gives the same gateways and questions.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <set>

#include "account.h"
#include "agents.h"
#include "krvstats.h"

namespace {

using namespace krvsoak;

constexpr int gatewayCount = 24;
constexpr int longestRound = 30; // seconds
constexpr int warmUp = 3;        // seconds of the first one, in which caches fill

// What a run has to meet, or it proves little. On a busy machine three seconds are enough for that.
constexpr int provingSeconds = 10;
constexpr int leastConnections = 200;
constexpr int failures[] = {KRVSTAT_GATEWAY_COMMS_FAILED, KRVSTAT_CONNECT_FAILED, KRVSTAT_GATEWAY_PROTOCOL_ERROR,
                            KRVSTAT_CONNECT_TIMEOUT};

struct Order {
    int seconds = 0;
    std::uint64_t seed = 0;
    int patience = 1;
};

struct Outcome {
    std::uint64_t rightAnswers = 0;
    int mostConnections = 0;
    std::set<int> codes;
    std::vector<std::string> found;
};

Outcome runRound(const Order& order)
{
    Tally tally;
    {
        Gateways gateways(gatewayCount, order.seed);
        letAgentsWork(gateways, tally, order.seed, order.patience,
                      std::chrono::steady_clock::now() + std::chrono::seconds(order.seconds));
    }
    std::printf("soak: %d s: %s\n", order.seconds, tally.summary().c_str());
    return {tally.rightAnswers(), tally.mostConnections(), tally.codesGiven(), tally.complaints()};
}

void print(const Account& account)
{
    std::printf("soak: memory in use %zu bytes, resident %zu, %zu descriptors, %zu threads\n", account.heapBytes,
                account.residentBytes, account.descriptors.size(), account.threads);
    std::fflush(stdout);
}

// In a thread of its own: what malloc keeps for a thread is given back at its end.
Outcome roundOfItsOwn(const Order& order)
{
    return std::async(std::launch::async, runRound, order).get();
}

// What the whole run should have met and did not.
std::vector<std::string> missed(const Outcome& all)
{
    std::vector<std::string> found;
    if (all.mostConnections < leastConnections)
        found.push_back("only " + std::to_string(all.mostConnections) + " connections were open at a time");
    for (int rc : failures)
        if (all.codes.count(rc) == 0) found.push_back("no call gave " + std::to_string(rc));
    return found;
}

int runRounds(Order order)
{
    const int seconds = order.seconds;
    order.seconds = std::min(warmUp, seconds);
    Outcome all = roundOfItsOwn(order);
    const Account start = takeAccount();
    print(start);
    for (int left = seconds - warmUp; left > 0 && all.found.empty(); left -= longestRound) {
        order.seconds = std::min(left, longestRound);
        order.seed++;
        const Outcome round = roundOfItsOwn(order);
        all.rightAnswers += round.rightAnswers;
        all.mostConnections = std::max(all.mostConnections, round.mostConnections);
        all.codes.insert(round.codes.begin(), round.codes.end());
        all.found = round.found;
        const Account now = takeAccount();
        print(now);
        const std::vector<std::string> grown = grownSince(start, now);
        all.found.insert(all.found.end(), grown.begin(), grown.end());
    }
    if (all.found.empty() && seconds / order.patience >= provingSeconds) all.found = missed(all);
    if (all.rightAnswers == 0) all.found.push_back("there was no right answer at all");
    for (const std::string& each : all.found) std::printf("soak: %s\n", each.c_str());
    std::printf(all.found.empty() ? "soak: nothing found\n" : "soak: failed\n");
    return all.found.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    Order order;
    if (argc == 3 || argc == 4) {
        order.seconds = std::atoi(argv[1]);
        order.seed = std::strtoull(argv[2], nullptr, 10);
    }
    if (argc == 4) order.patience = std::atoi(argv[3]);
    if (order.seconds < 1 || order.patience < 1) {
        std::fprintf(stderr, "krvsoak SECONDS SEED [PATIENCE]\n");
        return 2;
    }
    std::printf("soak: %d seconds, seed %llu\n", order.seconds, static_cast<unsigned long long>(order.seed));
    try {
        return runRounds(order);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
