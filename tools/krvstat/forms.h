// The output forms: one file each.
#ifndef KRVSTAT_FORMS_H
#define KRVSTAT_FORMS_H

#include "sheet.h"

#include <string>
#include <string_view>
#include <vector>

enum class Form { Table, Wide, Json, JsonLines, Csv, Tsv, Prometheus, Value, Name };

constexpr const char* FormNames = "table, wide, json, jsonl, csv, tsv, prom, value, name";

// Returns whether there is a form of that name.
bool readForm(std::string_view name, Form* form);

struct Style {
    Form form = Form::Table;
    bool hasHeader = true;
    bool isColoured = false;
    bool isTerminal = false;       // then nothing of the text may reach it raw
    std::size_t terminalWidth = 0; // columns; 0: any
};

// The text of a sheet. Of several sheets in a row, those behind the first one get hasHeader false where a header is
// wanted only once.
std::string render(const Sheet& sheet, const Style& style);

std::string renderTable(const Sheet& sheet, const Style& style);
std::string renderJson(const Sheet& sheet, bool isAscii);      // one document
std::string renderJsonLines(const Sheet& sheet, bool isAscii); // one object a line
std::string renderCsv(const Sheet& sheet, bool hasHeader);
std::string renderTsv(const Sheet& sheet, bool hasHeader);
std::string renderPrometheus(const Sheet& sheet, bool hasHeader); // columns target, group, id, value
std::string renderPlain(const Sheet& sheet);                      // the first column, one line each

// Makes a text fit for a terminal: what is not printable is escaped, line ends stay.
std::string printableLines(std::string_view text);

#endif
