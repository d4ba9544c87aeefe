#include "rounds.h"

#include "feed.h"

#include <algorithm>

namespace {

constexpr Milliseconds Slack{1000}; // for what is done around a deadline

SteadyTime firstRound(const Schedule& schedule)
{
    const SteadyTime now = std::chrono::steady_clock::now();
    if (!schedule.isAligned) return now;
    const auto sinceEpoch =
        std::chrono::duration_cast<Milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    const Milliseconds past = sinceEpoch % schedule.interval;
    return past.count() == 0 ? now : now + (schedule.interval - past);
}

// Rounds that were missed are left out: those behind them stay where they would have been.
SteadyTime nextRound(SteadyTime last, const Schedule& schedule)
{
    const auto passed = (std::chrono::steady_clock::now() - last) / schedule.interval;
    return last + schedule.interval * (passed + 1);
}

// Waits for the moment, or for all answers if a feed is given. Returns whether to go on.
bool wait(SteadyTime until, const Feed* feed, const ResizeWork& onResize, RoundsEnd* end)
{
    while (feed == nullptr || !feed->isAnswered()) {
        switch (waitForEvent(until)) {
        case Event::Time: return true;
        case Event::Wake:
        case Event::Input: break;
        case Event::Resized:
            if (onResize) onResize();
            break;
        case Event::Interrupted: *end = RoundsEnd::Interrupted; return false;
        case Event::Terminated: *end = RoundsEnd::Terminated; return false;
        case Event::ReaderGone: *end = RoundsEnd::ReaderGone; return false;
        }
    }
    return true;
}

// One gateway alone may take all its time; it answers, or fails, by then. Where there are several, a slow one must not
// hold up the others, once there has been something to show.
SteadyTime patienceFor(const Settings& settings, const Schedule& schedule, std::uint64_t number)
{
    const SteadyTime now = std::chrono::steady_clock::now();
    if (number == 1 || settings.targets.size() == 1) return now + settings.limits.whole + Slack;
    return now + std::max(schedule.interval, Slack);
}

} // namespace

bool waitForRound(SteadyTime until, const ResizeWork& onResize, RoundsEnd* end)
{
    return wait(until, nullptr, onResize, end);
}

Schedule scheduleOf(const Settings& settings, Milliseconds usualInterval)
{
    return {settings.interval.value_or(usualInterval), settings.count, settings.duration, settings.isAligned};
}

RoundsEnd runRounds(const Settings& settings, const Inquiry& inquiry, const Schedule& schedule, const RoundWork& work,
    const ResizeWork& onResize)
{
    Feed feed(settings.targets, inquiry, settings.limits);
    const SteadyTime start = std::chrono::steady_clock::now();
    SteadyTime round = firstRound(schedule);
    RoundsEnd end = RoundsEnd::Done;
    for (std::uint64_t number = 1; wait(round, nullptr, onResize, &end); ++number) {
        feed.ask();
        if (!wait(patienceFor(settings, schedule, number), &feed, onResize, &end)) break;
        if (!work(number, feed.collect())) return RoundsEnd::Stopped;
        if (schedule.count && number >= *schedule.count) break;
        round = nextRound(round, schedule);
        if (schedule.duration && round - start > *schedule.duration) break;
    }
    return end;
}
