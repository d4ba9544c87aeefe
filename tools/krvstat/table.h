// The output form "table": a heading and aligned columns, for people.
#ifndef KRVSTAT_TABLE_H
#define KRVSTAT_TABLE_H

#include "gather.h"

#include <cstddef>
#include <string>
#include <vector>

constexpr std::size_t AnyWidth = 0;

// One column.
std::string idTable(const char* heading, const std::vector<Record>& records);

// Ids and values. On a terminal values are cut to fit into terminalWidth columns; AnyWidth, or a terminal too narrow to
// show anything of them beside the ids, leaves them whole.
std::string statisticTable(const std::vector<Record>& records, std::size_t terminalWidth);

#endif
