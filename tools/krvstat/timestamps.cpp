#include "timestamps.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>

namespace {

using Milliseconds = std::chrono::milliseconds;

Milliseconds sinceEpoch(WallTime time)
{
    return std::chrono::floor<Milliseconds>(time.time_since_epoch());
}

} // namespace

std::string isoTime(WallTime time, bool isUtc)
{
    const Milliseconds whole = sinceEpoch(time);
    const std::time_t seconds = static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(whole).count());
    const auto milliseconds = (whole % 1000 + Milliseconds(1000)) % 1000;
    std::tm parts{};
    if (isUtc) gmtime_r(&seconds, &parts);
    else localtime_r(&seconds, &parts);
    const std::string local = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}", parts.tm_year + 1900,
        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds.count());
    if (isUtc) return local + 'Z';
    const long minutes = parts.tm_gmtoff / 60;
    const long size = minutes < 0 ? -minutes : minutes;
    return local + fmt::format("{}{:02}:{:02}", minutes < 0 ? '-' : '+', size / 60, size % 60);
}

std::string unixTime(WallTime time)
{
    const Milliseconds whole = sinceEpoch(time);
    return fmt::format("{}.{:03}", whole.count() / 1000, whole.count() % 1000);
}

bool readIsoTime(const std::string& text, WallTime* time)
{
    std::tm parts{};
    int milliseconds = 0;
    int length = 0;
    const int count = std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3d%n", &parts.tm_year, &parts.tm_mon,
        &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds, &length);
    if (count != 7) return false;
    int offset = 0; // minutes
    const std::string zone = text.substr(static_cast<std::size_t>(length));
    if (zone != "Z") {
        int hours = 0;
        int minutes = 0;
        if (zone.size() != 6 || std::sscanf(zone.c_str() + 1, "%2d:%2d", &hours, &minutes) != 2) return false;
        offset = (zone.front() == '-' ? -1 : 1) * (hours * 60 + minutes);
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    *time = std::chrono::system_clock::from_time_t(timegm(&parts)) + Milliseconds(milliseconds) -
            std::chrono::minutes(offset);
    return true;
}
