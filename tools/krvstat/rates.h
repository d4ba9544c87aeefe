// What became of each statistic since the last time it was seen.
//
// Everything that a gateway answered is observed, whatever is shown of it, so that filters, order and limits change no
// number. Time is that of receipt on the monotonic clock.
#ifndef KRVSTAT_RATES_H
#define KRVSTAT_RATES_H

#include "number.h"
#include "sample.h"

#include <cstdint>
#include <string>
#include <unordered_map>

enum class Note { None, Reset, Gap };

struct Change {
    std::optional<Number> delta; // none: first time, no number, or a note says why
    std::optional<Number> rate;  // a second
    Note note = Note::None;      // Reset: the number has fallen. Gap: the sample before this one is missing
    bool isOther = true;         // the value differs from the one before, or there is none before
};

struct Observed {
    std::string value;
    std::optional<Number> number;
    std::chrono::nanoseconds monotonic{};
    std::uint64_t round = 0;
    Change change;
};

// Of one target.
struct RateBook {
    std::uint64_t round = 0; // the present one, counted from 1
    std::unordered_map<std::string, Observed> byId;
};

// Begins a round; to be called also for one without a sample.
void beginRound(RateBook* book);

// Notes a record of the present round and returns what became of it. If an id comes twice in a round, its first value
// counts.
const Change& observe(RateBook* book, const Record& record, std::chrono::nanoseconds monotonic);

// "reset", "gap" or "".
const char* noteText(Note note);

#endif
