// How a value in a scenario develops: it stays, counts, or walks at random.
//
// A pattern goes by the queries of a connection or by the seconds since the gateway started. The first kind gives
// the same values in every run, the second kind lives.
#pragma once

#include <cstdint>
#include <string>

namespace krvgw {

enum class PatternKind { Constant, Counter, Walk };

struct Pattern {
    PatternKind kind = PatternKind::Constant;
    std::string text;            // Constant
    std::int64_t start = 0;
    std::int64_t step = 0;       // Counter: added by each query. Walk: the most that one step moves
    double rate = 0;             // Counter: added by each second
    double secondsEach = 0;      // Walk: 0 for one step a query
    std::int64_t least = 0;      // Walk
    std::int64_t most = 0;       // Walk
    std::uint64_t seed = 0;      // Walk
};

// How far a walk has come. A fresh one stands at the start.
struct WalkState {
    bool isStarted = false;
    std::uint64_t steps = 0;
    std::int64_t value = 0;
    std::uint64_t random = 0;
};

// `queries` counts those before this one.
std::string valueOf(const Pattern& pattern, WalkState& state, std::uint64_t queries, double seconds);

}  // namespace krvgw
