// Times as texts.
#ifndef KRVSTAT_TIMESTAMPS_H
#define KRVSTAT_TIMESTAMPS_H

#include <chrono>
#include <string>

using WallTime = std::chrono::system_clock::time_point;

// ISO 8601 with milliseconds: "2026-01-31T12:00:00.000Z", or local time with its distance from UTC.
std::string isoTime(WallTime time, bool isUtc);

// Seconds since 1970 with milliseconds.
std::string unixTime(WallTime time);

// Reads what isoTime writes. Returns false if the text is something else.
bool readIsoTime(const std::string& text, WallTime* time);

#endif
