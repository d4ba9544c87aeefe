// Whole numbers throughout; sums wrap instead of overflowing.
#include "pattern.h"

#include "random.h"

#include <algorithm>

namespace krvgw {
namespace {

std::int64_t sum(std::int64_t a, std::uint64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + b);
}

std::int64_t counted(const Pattern& pattern, std::uint64_t queries, double seconds)
{
    const std::int64_t byTime = static_cast<std::int64_t>(pattern.rate * seconds);
    const std::int64_t byQueries = sum(pattern.start, static_cast<std::uint64_t>(pattern.step) * queries);
    return sum(byQueries, static_cast<std::uint64_t>(byTime));
}

std::int64_t walked(const Pattern& pattern, WalkState& state, std::uint64_t queries, double seconds)
{
    if (!state.isStarted) state = {true, 0, std::clamp(pattern.start, pattern.least, pattern.most), pattern.seed};
    const bool isByQueries = pattern.secondsEach <= 0;
    const std::uint64_t wanted = isByQueries ? queries : static_cast<std::uint64_t>(seconds / pattern.secondsEach);
    const std::uint64_t directions = 2 * static_cast<std::uint64_t>(pattern.step) + 1;
    for (; state.steps < wanted; ++state.steps) {
        const std::uint64_t offset = nextRandom(state.random) % directions;
        state.value = std::clamp(sum(state.value, offset) - pattern.step, pattern.least, pattern.most);
    }
    return state.value;
}

}  // namespace

std::string valueOf(const Pattern& pattern, WalkState& state, std::uint64_t queries, double seconds)
{
    switch (pattern.kind) {
    case PatternKind::Constant: return pattern.text;
    case PatternKind::Counter: return std::to_string(counted(pattern, queries, seconds));
    case PatternKind::Walk: return std::to_string(walked(pattern, state, queries, seconds));
    }
    return "";
}

}  // namespace krvgw
