// What the iteration calls must do with a set, worked out without the library: a model of the walk that never reads
// outside of the set's stated length and a terminator that straddles it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "result_sets.h"

namespace krvtest {

// A piece of text inside the set.
struct WalkText {
    std::size_t offset = 0;
    std::int32_t length = 0;
};

// The walk's state as the token keeps it; positions are offsets in the set.
struct WalkState {
    std::size_t cursor = 0;
    std::int32_t queryCount = 0;
    std::int32_t queryIndex = 0;
    std::int32_t elementResultCount = 0;
    std::int32_t elementResultIndex = 0;
    WalkText cachedElement;
    std::int32_t cachedRc = 0;
};

struct WalkStep {
    bool found = false; // else -113, and nothing below means anything
    bool startsOver = false;
    WalkText queryElement;
    std::int32_t queryElementRc = 0;
    bool hasElement = false;
    WalkText id;
    WalkText value; // statistics only
};

// A set's bytes as far as they may be read, and how much of them is stated; stated 0 or less: no bound.
struct WalkedSet {
    Bytes bytes;
    std::int32_t stated = 0;
    bool statistics = false;
};

// Each changes the state only when it finds something.
WalkStep walkFirst(const WalkedSet& set, WalkState& state);
WalkStep walkNext(const WalkedSet& set, WalkState& state);

} // namespace krvtest
