// No line ends in blanks: the last column is not padded, and a row whose value is empty ends behind its id.

#include "table.h"

#include "printable.h"

#include <algorithm>

namespace {

constexpr const char* StatisticHeading = "STATISTIC";
constexpr const char* ValueHeading = "VALUE";
constexpr std::size_t Gap = 2;               // blanks between columns
constexpr std::size_t LeastValueColumns = 8; // fewer say nothing

void appendRow(std::string* table, const Printable& left, std::size_t leftColumns, const Printable& right)
{
    *table += left.text;
    if (!right.text.empty()) {
        table->append(leftColumns - left.columns + Gap, ' ');
        *table += right.text;
    }
    *table += '\n';
}

} // namespace

std::string idTable(const char* heading, const std::vector<Record>& records)
{
    std::string table = heading;
    table += '\n';
    for (const Record& record : records) {
        table += printable(record.id).text;
        table += '\n';
    }
    return table;
}

std::string statisticTable(const std::vector<Record>& records, std::size_t terminalWidth)
{
    const Printable heading = printable(StatisticHeading);
    std::size_t idColumns = heading.columns;
    for (const Record& record : records) idColumns = std::max(idColumns, printable(record.id).columns);

    const bool isCut = terminalWidth >= idColumns + Gap + LeastValueColumns;
    std::string table;
    appendRow(&table, heading, idColumns, printable(ValueHeading));
    for (const Record& record : records) {
        appendRow(&table, printable(record.id), idColumns,
            isCut ? printableWithin(record.value, terminalWidth - idColumns - Gap) : printable(record.value));
    }
    return table;
}
