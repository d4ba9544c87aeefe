// Lengths of time as people write them: "2s", "500ms", "1.5m", "1h"; a number alone is seconds.
#ifndef KRVSTAT_DURATION_H
#define KRVSTAT_DURATION_H

#include <chrono>
#include <string>
#include <string_view>

using Milliseconds = std::chrono::milliseconds;

// Returns an empty string, or what is wrong with the text; *duration is then as before. The least is 1 millisecond.
std::string readDuration(std::string_view text, Milliseconds* duration);

// "500ms", "2s", "1.5s".
std::string durationText(Milliseconds duration);

#endif
