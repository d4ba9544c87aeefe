#include "graph.h"

#include <algorithm>

namespace {

constexpr std::size_t Heights = 8;
constexpr const char* Blocks[Heights] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* Digits[Heights] = {"1", "2", "3", "4", "5", "6", "7", "8"};

std::size_t heightOf(Number number, Number least, Number greatest)
{
    if (greatest <= least) return 0; // nothing moves: a line at the bottom
    const Number part = (number - least) / (greatest - least);
    return std::min(Heights - 1, static_cast<std::size_t>(part * Heights));
}

} // namespace

void addToHistory(History* history, std::optional<Number> number)
{
    history->push_back(number);
    if (history->size() > LongestHistory) history->pop_front();
}

std::string graphOf(const History& history, std::size_t columns, bool hasBlocks)
{
    const std::size_t count = std::min(columns, history.size());
    const auto first = history.end() - static_cast<std::ptrdiff_t>(count);
    std::optional<Number> least;
    std::optional<Number> greatest;
    for (auto each = first; each != history.end(); ++each) {
        if (!*each) continue;
        least = least ? std::min(*least, **each) : **each;
        greatest = greatest ? std::max(*greatest, **each) : **each;
    }
    std::string graph;
    for (auto each = first; each != history.end(); ++each) {
        if (!*each) graph += ' ';
        else graph += (hasBlocks ? Blocks : Digits)[heightOf(**each, *least, *greatest)];
    }
    return graph;
}
