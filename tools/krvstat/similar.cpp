#include "similar.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr std::size_t LongestName = 200; // longer names are no misspellings, and would take long to compare

char folded(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// Letters to insert, remove, replace or swap with their neighbour; a letter's case does not count.
std::size_t distanceBetween(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> beforeLast(right.size() + 1);
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column) row[column] = column;
    for (std::size_t line = 1; line <= left.size(); ++line) {
        std::swap(beforeLast, last);
        std::swap(last, row);
        row[0] = line;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const bool isSame = folded(left[line - 1]) == folded(right[column - 1]);
            row[column] = std::min({last[column] + 1, row[column - 1] + 1, last[column - 1] + (isSame ? 0U : 1U)});
            if (line > 1 && column > 1 && left[line - 1] == right[column - 2] && left[line - 2] == right[column - 1]) {
                row[column] = std::min(row[column], beforeLast[column - 2] + 1);
            }
        }
    }
    return row[right.size()];
}

} // namespace

std::string mostSimilar(std::string_view misspelt, const std::vector<std::string>& names)
{
    if (misspelt.size() > LongestName) return "";
    std::size_t least = misspelt.size() / 3 + 1;
    const std::string* nearest = nullptr;
    for (const std::string& name : names) {
        const std::size_t difference =
            name.size() > misspelt.size() ? name.size() - misspelt.size() : misspelt.size() - name.size();
        if (difference >= least || name.size() > LongestName) continue;
        const std::size_t distance = distanceBetween(misspelt, name);
        if (distance >= least) continue;
        least = distance;
        nearest = &name;
    }
    return nearest != nullptr ? *nearest : "";
}
