#include "duration.h"

#include <fmt/format.h>

#include <charconv>

namespace {

struct Unit {
    std::string_view name;
    double milliseconds;
};

constexpr Unit Units[] = {{"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000}};

// What setCallDeadline takes at most; 24 days are enough for everything here.
constexpr double Longest = 2147483647;

} // namespace

std::string readDuration(std::string_view text, Milliseconds* duration)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view rest(read.ptr, static_cast<std::size_t>(end - read.ptr));
    if (read.ec != std::errc() || text.front() == '-') return "it is not a length of time, such as 2s, 500ms or 1m";
    for (const Unit& unit : Units) {
        if (unit.name != rest) continue;
        const double milliseconds = number * unit.milliseconds;
        if (!(milliseconds >= 1 && milliseconds <= Longest)) return "it is not between 1ms and 24 days";
        *duration = Milliseconds(static_cast<Milliseconds::rep>(milliseconds));
        return "";
    }
    return "it is not a length of time, such as 2s, 500ms or 1m";
}

std::string durationText(Milliseconds duration)
{
    if (duration.count() < 1000) return fmt::format("{}ms", duration.count());
    return fmt::format("{}s", static_cast<double>(duration.count()) / 1000);
}
