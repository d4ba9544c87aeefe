// Times several ways to do a thing against each other: in rounds, one after the other in each, so that what else the
// machine does meets them all.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace krvbench {

struct Contender {
    std::string name;
    std::function<void()> once;
};

struct Patience {
    int rounds = 15;
    double milliseconds = 20; // of each contender in each round
};

// Writes a line of JSON to standard output: label, n and, for each contender and round, nanoseconds once takes of the
// clock and of the processor, the latter in the calling thread alone.
void runRounds(
    const std::string& label, std::size_t n, const std::vector<Contender>& contenders, const Patience& patience);

// Lets the calling thread run on this core alone.
void stayOn(int core);

} // namespace krvbench
