// The output forms "value" and "name": the bytes of one column and nothing else, one line each.

#include "forms.h"

std::string renderPlain(const Sheet& sheet)
{
    std::string text;
    for (const std::vector<Cell>& row : sheet.rows) {
        if (!row.front().text) continue;
        text += *row.front().text;
        text += '\n';
    }
    return text;
}
