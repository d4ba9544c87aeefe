// The loop of the commands that repeat: when a round begins, what it brought, when it is over.
#ifndef KRVSTAT_ROUNDS_H
#define KRVSTAT_ROUNDS_H

#include "events.h"
#include "inquiry.h"
#include "settings.h"

#include <functional>
#include <vector>

struct Schedule {
    Milliseconds interval{2000};
    std::optional<std::uint64_t> count;
    std::optional<Milliseconds> duration;
    bool isAligned = false; // rounds begin at multiples of the interval on the wall clock
};

Schedule scheduleOf(const Settings& settings, Milliseconds usualInterval);

enum class RoundsEnd { Done, Stopped, Interrupted, Terminated, ReaderGone };

// What is done with a round (number from 1). Returns false to stop.
using RoundWork = std::function<bool(std::uint64_t number, std::vector<TargetAnswer> answers)>;

// What is done when the terminal has another size; may be empty.
using ResizeWork = std::function<void()>;

// Waits for the moment. Returns false if something ended the wait, and then what.
bool waitForRound(SteadyTime until, const ResizeWork& onResize, RoundsEnd* end);

// startEvents must have been called.
RoundsEnd runRounds(const Settings& settings, const Inquiry& inquiry, const Schedule& schedule, const RoundWork& work,
    const ResizeWork& onResize);

#endif
