// The output form "csv", after RFC 4180 with a newline as line end: nothing is an empty field, an empty text is "".

#include "forms.h"

namespace {

std::string field(const Cell& cell)
{
    if (!cell.text) return "";
    const std::string& text = *cell.text;
    const bool isPlain = !text.empty() && text.find_first_of(",\"\r\n") == std::string::npos && text.front() != ' ' &&
                         text.back() != ' ';
    if (isPlain) return text;
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

} // namespace

std::string renderCsv(const Sheet& sheet, bool hasHeader)
{
    std::string text;
    if (hasHeader) {
        for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
            if (i > 0) text += ',';
            text += rowOf(sheet.columns[i]).key;
        }
        text += '\n';
    }
    for (const std::vector<Cell>& row : sheet.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (i > 0) text += ',';
            text += field(row[i]);
        }
        text += '\n';
    }
    return text;
}
