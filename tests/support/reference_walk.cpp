// See reference_walk.h.
#include "reference_walk.h"

#include <cstring>
#include <stdexcept>

namespace krvtest {

namespace {

constexpr std::int32_t terminator = 0x0E0F0E0F;

struct Walker {
    const WalkedSet& set;
    std::size_t at;
    bool refused = false;
};

std::size_t endOf(const WalkedSet& set)
{
    return set.stated > 0 ? static_cast<std::size_t>(set.stated) : set.bytes.size();
}

std::int32_t hostWordAt(const WalkedSet& set, std::size_t at)
{
    if (at + 4 > set.bytes.size()) throw std::out_of_range("the model was given too few bytes");
    std::int32_t value;
    std::memcpy(&value, set.bytes.data() + at, sizeof value);
    return value;
}

// A terminator may straddle the stated length or stand right behind it.
bool terminatorAt(const WalkedSet& set, std::size_t at)
{
    return at <= endOf(set) && at + 4 <= set.bytes.size() && hostWordAt(set, at) == terminator;
}

std::int32_t readWord(Walker& walker)
{
    if (walker.refused || walker.at + 4 > endOf(walker.set)) {
        walker.refused = true;
        return 0;
    }
    walker.at += 4;
    return hostWordAt(walker.set, walker.at - 4);
}

WalkText readText(Walker& walker)
{
    if (!walker.refused && terminatorAt(walker.set, walker.at)) walker.refused = true;
    WalkText found;
    found.length = readWord(walker);
    found.offset = walker.at;
    if (walker.refused) return found;
    if (found.length < 0 || static_cast<std::size_t>(found.length) > endOf(walker.set) - walker.at) {
        walker.refused = true;
        return found;
    }
    walker.at += static_cast<std::size_t>(found.length);
    return found;
}

void readHeader(Walker& walker, WalkState& state)
{
    state.cachedElement = readText(walker);
    state.cachedRc = readWord(walker);
    if (state.cachedRc < 0) {
        state.elementResultIndex = 0;
        state.queryIndex++;
    } else {
        state.elementResultCount = readWord(walker);
        state.elementResultIndex = 1;
    }
}

// From a header, or from inside a subset, to the end of the element.
WalkStep finish(Walker& walker, WalkState& state, WalkState& target)
{
    WalkStep step;
    step.startsOver = target.queryIndex == 0;
    if (state.elementResultIndex == 0) readHeader(walker, state);
    step.queryElement = state.cachedElement;
    step.queryElementRc = state.cachedRc;
    if (state.cachedRc >= 0) {
        step.hasElement = true;
        step.id = readText(walker);
        if (walker.set.statistics) step.value = readText(walker);
        state.elementResultIndex++;
        if (state.elementResultIndex > state.elementResultCount) {
            state.elementResultIndex = 0;
            state.queryIndex++;
        }
    }
    if (walker.refused) return WalkStep{};
    step.found = true;
    state.cursor = walker.at;
    target = state;
    return step;
}

WalkStep startOver(const WalkedSet& set, WalkState& target)
{
    Walker walker{set, 8};
    WalkState state = target;
    if (terminatorAt(set, walker.at)) return WalkStep{};
    state.queryCount = readWord(walker);
    state.queryIndex = 1;
    state.elementResultIndex = 0;
    if (walker.refused || terminatorAt(set, walker.at)) return WalkStep{};
    WalkStep step = finish(walker, state, target);
    step.startsOver = true;
    return step;
}

} // namespace

WalkStep walkFirst(const WalkedSet& set, WalkState& state)
{
    return startOver(set, state);
}

WalkStep walkNext(const WalkedSet& set, WalkState& state)
{
    if (state.queryIndex == 0) return startOver(set, state);
    Walker walker{set, state.cursor};
    if (terminatorAt(set, walker.at)) return WalkStep{};
    WalkState next = state;
    return finish(walker, next, state);
}

} // namespace krvtest
