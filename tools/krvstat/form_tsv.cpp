// The output form "tsv": fields between tabulators, in which \t, \n, \r and \\ stand for what would end them. Nothing
// is \N, an empty text an empty field.

#include "forms.h"

namespace {

std::string field(const Cell& cell)
{
    if (!cell.text) return "\\N";
    std::string escaped;
    for (const char c : *cell.text) {
        if (c == '\t') escaped += "\\t";
        else if (c == '\n') escaped += "\\n";
        else if (c == '\r') escaped += "\\r";
        else if (c == '\\') escaped += "\\\\";
        else escaped += c;
    }
    return escaped;
}

} // namespace

std::string renderTsv(const Sheet& sheet, bool hasHeader)
{
    std::string text;
    if (hasHeader) {
        for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
            if (i > 0) text += '\t';
            text += rowOf(sheet.columns[i]).key;
        }
        text += '\n';
    }
    for (const std::vector<Cell>& row : sheet.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (i > 0) text += '\t';
            text += field(row[i]);
        }
        text += '\n';
    }
    return text;
}
