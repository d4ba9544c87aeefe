// The columns that outputs are made of.
#ifndef KRVSTAT_COLUMNS_H
#define KRVSTAT_COLUMNS_H

#include <string>
#include <string_view>
#include <vector>

enum class Column {
    Time,
    Target,
    Group,
    Id,
    Value,
    Delta,
    Rate,
    Note,
    // of diff
    Change,
    Before,
    After,
    // of ping
    Protocol,
    Connect,
    Exchange
};

struct ColumnRow {
    Column column;
    const char* key;     // in --columns, CSV and JSON
    const char* heading; // in tables
    bool isNumeric;      // aligned to the right in tables, a number in JSON
};

const ColumnRow& rowOf(Column column);

// A list "id,value". Returns an empty string, or what is wrong with it; only the columns of allowed may occur, each
// once.
std::string readColumns(std::string_view text, const std::vector<Column>& allowed, std::vector<Column>* columns);

#endif
