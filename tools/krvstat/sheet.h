// What a command shows, before it takes an output form: columns, rows, and what could not be had.
#ifndef KRVSTAT_SHEET_H
#define KRVSTAT_SHEET_H

#include "columns.h"
#include "number.h"

#include <optional>
#include <string>
#include <vector>

enum class Emphasis { None, Changed, Warning };

struct Cell {
    std::optional<std::string> text;      // as machines get it; none: there is nothing, which is not an empty text
    std::optional<std::string> forPeople; // in tables, where it differs
    Emphasis emphasis = Emphasis::None;
};

struct Trouble {
    std::string target;
    std::string element; // of the request; empty: the target as a whole
    int exitCode;
    std::string sentence;
};

struct Sheet {
    std::string kind;         // of a record: "group", "id", "statistic", "difference", "ping"
    std::string documentKind; // of all of them: "groups", ...
    std::string time;         // when it was made, ISO 8601 in UTC
    std::vector<Column> columns;
    std::vector<std::vector<Cell>> rows; // each as long as columns
    std::vector<Trouble> troubles;
};

#endif
