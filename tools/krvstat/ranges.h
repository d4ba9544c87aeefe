// The ranges of monitoring plugins: "10" (0 to 10), "10:" (from 10 on), "~:10" (up to 10), "10:20", "@10:20" (outside).
#ifndef KRVSTAT_RANGES_H
#define KRVSTAT_RANGES_H

#include "number.h"

#include <string>
#include <string_view>

struct Range {
    std::optional<Number> least; // none: without end
    std::optional<Number> most;
    bool isInverted = false; // what is inside raises the alarm
};

// Returns an empty string, or what is wrong with the text.
std::string readRange(std::string_view text, Range* range);

bool raisesAlarm(const Range& range, Number number);

#endif
