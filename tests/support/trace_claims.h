// Claims about captured trace lines that many tests make.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "trace_capture.h"

namespace krvtest {

inline std::vector<std::string> kinds(const std::vector<TraceLine>& lines)
{
    std::vector<std::string> found;
    for (const TraceLine& line : lines) found.push_back(line.kind);
    return found;
}

inline int countOf(const std::vector<TraceLine>& lines, const std::string& kind, const std::string& message)
{
    int found = 0;
    for (const TraceLine& line : lines) found += line.kind == kind && line.message == message;
    return found;
}

// The lines of one call are written in the order of its code: the entry line first, numbers rising from it.
inline void expectNumbersRise(const std::vector<TraceLine>& lines, int first, int last)
{
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(first, lines.front().number);
    for (std::size_t i = 0; i < lines.size(); i++) {
        EXPECT_GE(lines[i].number, first) << lines[i].text;
        EXPECT_LE(lines[i].number, last) << lines[i].text;
        if (i > 0) {
            EXPECT_GT(lines[i].number, lines[i - 1].number) << lines[i].text;
        }
    }
}

// All lines whose message starts like this.
inline std::vector<TraceLine> linesFrom(const std::vector<TraceLine>& lines, const std::string& origin)
{
    std::vector<TraceLine> found;
    for (const TraceLine& line : lines)
        if (line.message.starts_with(origin)) found.push_back(line);
    return found;
}

} // namespace krvtest
