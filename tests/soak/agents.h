// The application: threads that open connections, ask, compare each answer with what the gateway was told to serve,
// close, and disturb each other.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "gateways.h"

namespace krvsoak {

constexpr int agents = 25;
constexpr int connectionsEach = 10;

// What all agents saw. Return codes stand by their negative number.
class Tally {
public:
    void countCode(int rc);
    void countConnection(int change);
    void complain(const std::string& what);

    std::uint64_t rightAnswers() const { return right; }
    int mostConnections() const { return mostOpen; }
    std::set<int> codesGiven() const;
    void countRightAnswer() { right++; }
    void countInterruption() { interrupted++; }

    // One line.
    std::string summary() const;
    std::vector<std::string> complaints() const;

private:
    static constexpr std::size_t mostCodes = 200;
    static constexpr std::size_t mostComplaints = 20;

    std::atomic<std::uint64_t> right{0};
    std::atomic<std::uint64_t> interrupted{0};
    std::array<std::atomic<std::uint64_t>, mostCodes> codes{};
    std::atomic<int> open{0};
    std::atomic<int> mostOpen{0};
    mutable std::mutex changes;
    std::vector<std::string> said;
};

// Lets the agents work until then; every connection is closed when this returns. Their calls have deadlines of some
// hundred milliseconds, `patience` times that.
void letAgentsWork(Gateways& gateways, Tally& tally, std::uint64_t seed, int patience,
                   std::chrono::steady_clock::time_point until);

} // namespace krvsoak
