#include "columns.h"

#include "printable.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr ColumnRow Rows[] = {
    {Column::Time, "time", "TIME", false},
    {Column::Target, "target", "TARGET", false},
    {Column::Group, "group", "GROUP", false},
    {Column::Id, "id", "STATISTIC", false},
    {Column::Value, "value", "VALUE", false},
    {Column::Delta, "delta", "DELTA", true},
    {Column::Rate, "rate", "RATE/S", true},
    {Column::Note, "note", "NOTE", false},
    {Column::Change, "change", "CHANGE", false},
    {Column::Before, "before", "BEFORE", false},
    {Column::After, "after", "AFTER", false},
    {Column::Protocol, "protocol", "PROTOCOL", false},
    {Column::Connect, "connect_ms", "CONNECT/MS", true},
    {Column::Exchange, "exchange_ms", "EXCHANGE/MS", true},
};

std::string namesOf(const std::vector<Column>& columns)
{
    std::string names;
    for (Column column : columns) {
        if (!names.empty()) names += ", ";
        names += rowOf(column).key;
    }
    return names;
}

} // namespace

const ColumnRow& rowOf(Column column)
{
    return Rows[static_cast<std::size_t>(column)];
}

std::string readColumns(std::string_view text, const std::vector<Column>& allowed, std::vector<Column>* columns)
{
    std::vector<Column> read;
    while (true) {
        const std::size_t comma = text.find(',');
        const std::string_view key = text.substr(0, comma);
        const auto found =
            std::find_if(allowed.begin(), allowed.end(), [&](Column column) { return rowOf(column).key == key; });
        if (found == allowed.end()) {
            return fmt::format("there is no column {}; there are {}", inQuotes(key), namesOf(allowed));
        }
        if (std::find(read.begin(), read.end(), *found) != read.end()) {
            return fmt::format("the column {} occurs twice", inQuotes(key));
        }
        read.push_back(*found);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    *columns = std::move(read);
    return "";
}
