// A moment until which something must be done, on the monotonic clock.
#ifndef KRVSTAT_DEADLINE_H
#define KRVSTAT_DEADLINE_H

#include "duration.h"

#include <algorithm>

struct Deadline {
    std::chrono::steady_clock::time_point at;
};

inline Deadline deadlineIn(Milliseconds duration)
{
    return {std::chrono::steady_clock::now() + duration};
}

inline Deadline earlierOf(Deadline left, Deadline right)
{
    return {std::min(left.at, right.at)};
}

// What remains, rounded up; 0 if the moment has passed.
inline int millisecondsLeft(Deadline deadline)
{
    const auto left = std::chrono::ceil<Milliseconds>(deadline.at - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<Milliseconds::rep>(left.count(), 0, 2147483647));
}

inline bool hasPassed(Deadline deadline)
{
    return millisecondsLeft(deadline) == 0;
}

#endif
