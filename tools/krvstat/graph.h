// A small picture of the last numbers of a statistic.
#ifndef KRVSTAT_GRAPH_H
#define KRVSTAT_GRAPH_H

#include "number.h"

#include <cstddef>
#include <deque>
#include <string>

// A number a round, the newest last; none where there was no number.
using History = std::deque<std::optional<Number>>;

constexpr std::size_t LongestHistory = 120;

void addToHistory(History* history, std::optional<Number> number);

// The last of them, one column each, as high as they are between the least and the greatest of those shown. Blocks need
// a locale with UTF-8; without it, digits from 1 to 8 stand for the heights.
std::string graphOf(const History& history, std::size_t columns, bool hasBlocks);

#endif
