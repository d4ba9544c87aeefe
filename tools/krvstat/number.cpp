// Values are texts, and stay so wherever they are shown. Numbers are made of them only to compute with.

#include "number.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

struct Scale {
    Number step;
    const char* const* prefixes;
};

constexpr std::size_t PrefixCount = 9;
constexpr const char* SiPrefixes[PrefixCount] = {"", "k", "M", "G", "T", "P", "E", "Z", "Y"};
constexpr const char* IecPrefixes[PrefixCount] = {"", "Ki", "Mi", "Gi", "Ti", "Pi", "Ei", "Zi", "Yi"};

bool areDigits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string withoutTrailingZeros(std::string text)
{
    if (text.find('.') == std::string::npos) return text;
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string scaled(Number number, const Scale& scale)
{
    Number left = number;
    std::size_t prefix = 0;
    // What would be written as a full step goes to the next prefix.
    while (std::fabs(left) >= scale.step - 0.5L && prefix + 1 < PrefixCount) {
        left /= scale.step;
        ++prefix;
    }
    const Number size = std::fabs(left);
    const int decimals = size >= 99.95L || size == 0 ? 0 : size >= 9.995L ? 1 : 2;
    return withoutTrailingZeros(fmt::format("{:.{}f}", left, decimals)) + scale.prefixes[prefix];
}

std::string inUnits(Number number, Units units)
{
    return scaled(number, units == Units::Si ? Scale{1000, SiPrefixes} : Scale{1024, IecPrefixes});
}

} // namespace

std::optional<Number> readNumber(std::string_view text)
{
    const bool isSigned = text.starts_with('-') || text.starts_with('+');
    const std::string_view unsignedText = text.substr(isSigned ? 1 : 0);
    // from_chars would take "inf" and "nan", too
    if (unsignedText.empty() || !areDigits(unsignedText.substr(0, 1))) return std::nullopt;
    Number number = 0;
    const char* const end = unsignedText.data() + unsignedText.size();
    const std::from_chars_result read = std::from_chars(unsignedText.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return text.front() == '-' ? -number : number;
}

std::optional<std::string> roundTripNumber(std::string_view text)
{
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    const std::size_t point = digits.find('.');
    const std::string_view whole = digits.substr(0, point);
    const std::string_view fraction = point == std::string_view::npos ? std::string_view() : digits.substr(point + 1);
    if (!areDigits(whole) || (whole.size() > 1 && whole.front() == '0')) return std::nullopt;
    if (point != std::string_view::npos && !areDigits(fraction)) return std::nullopt;
    if (digits.size() > 17) return std::nullopt; // a double has 15 to 17 digits
    if (digits != text && digits.find_first_not_of("0.") == std::string_view::npos) return std::nullopt; // "-0"

    double value = 0;
    const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc() || fmt::format("{:.{}f}", value, fraction.size()) != text) return std::nullopt;
    constexpr double LargestExact = 9007199254740992; // 2^53: from there on, neighbours become the same double
    if (std::fabs(value) >= LargestExact) return std::nullopt;
    return std::string(text);
}

std::string numberText(Number number, Units units)
{
    if (units != Units::Raw) return inUnits(number, units);
    if (std::trunc(number) == number) return fmt::format("{:.0f}", number);
    return withoutTrailingZeros(fmt::format("{:.6f}", number)); // what a difference of decimals is made of
}

std::string rateText(Number number, Units units)
{
    if (units != Units::Raw) return inUnits(number, units);
    return withoutTrailingZeros(fmt::format("{:.3f}", number));
}
