// "Did you mean": the name that looks most like a misspelt one.
#ifndef KRVSTAT_SIMILAR_H
#define KRVSTAT_SIMILAR_H

#include <string>
#include <string_view>
#include <vector>

// The first of the names with the fewest changes of a letter, if a third of the letters or fewer differ; else "".
std::string mostSimilar(std::string_view misspelt, const std::vector<std::string>& names);

#endif
