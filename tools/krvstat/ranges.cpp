#include "ranges.h"

std::string readRange(std::string_view text, Range* range)
{
    constexpr const char* Wrong = "it is not a range, such as 10, 10:, ~:10, 10:20 or @10:20";
    Range read;
    if (text.starts_with('@')) {
        read.isInverted = true;
        text.remove_prefix(1);
    }
    const std::size_t colon = text.find(':');
    const std::string_view least = colon == std::string_view::npos ? "0" : text.substr(0, colon);
    const std::string_view most = colon == std::string_view::npos ? text : text.substr(colon + 1);
    if (least != "~") {
        read.least = readNumber(least);
        if (!read.least) return Wrong;
    }
    if (!most.empty()) {
        read.most = readNumber(most);
        if (!read.most) return Wrong;
    } else if (colon == std::string_view::npos) {
        return Wrong;
    }
    if (read.least && read.most && *read.least > *read.most) return "its end lies before its beginning";
    *range = read;
    return "";
}

bool raisesAlarm(const Range& range, Number number)
{
    const bool isInside = (!range.least || number >= *range.least) && (!range.most || number <= *range.most);
    return isInside == range.isInverted;
}
