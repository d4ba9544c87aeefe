// The output forms "table" and "wide": headings and aligned columns, for people.
//
// No line ends in blanks: the last column is not padded, and empty cells at the end of a row are left out. On a
// terminal what does not fit is cut: first values, then ids.

#include "forms.h"

#include "printable.h"

#include <algorithm>

namespace {

constexpr std::size_t Gap = 2;               // blanks between columns
constexpr std::size_t LeastValueColumns = 8; // fewer say nothing
constexpr std::size_t LeastIdColumns = 12;

constexpr const char* Bold = "\x1b[1m";
constexpr const char* Green = "\x1b[32m";
constexpr const char* Yellow = "\x1b[33m";
constexpr const char* Plain = "\x1b[0m";

const std::string& shownText(const Cell& cell)
{
    static const std::string nothing = "-";
    if (cell.forPeople) return *cell.forPeople;
    return cell.text ? *cell.text : nothing;
}

std::size_t totalOf(const std::vector<std::size_t>& widths)
{
    std::size_t total = widths.empty() ? 0 : (widths.size() - 1) * Gap;
    for (std::size_t width : widths) total += width;
    return total;
}

bool isText(Column column)
{
    return column == Column::Value || column == Column::Before || column == Column::After;
}

bool isName(Column column)
{
    return column == Column::Id || column == Column::Group || column == Column::Target;
}

// Takes from the widest column of a kind until the line fits or the column has the least that it needs.
void shrink(const Sheet& sheet, std::size_t terminalWidth, bool (*isKind)(Column), std::size_t least,
    std::vector<std::size_t>* widths)
{
    while (totalOf(*widths) > terminalWidth) {
        std::size_t widest = widths->size();
        for (std::size_t i = 0; i < widths->size(); ++i) {
            const bool canShrink = isKind(sheet.columns[i]) && (*widths)[i] > least;
            if (canShrink && (widest == widths->size() || (*widths)[i] > (*widths)[widest])) widest = i;
        }
        if (widest == widths->size()) return;
        --(*widths)[widest];
    }
}

std::vector<std::size_t> layOut(const Sheet& sheet, const Style& style)
{
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
        std::size_t width = style.hasHeader ? printable(rowOf(sheet.columns[i]).heading).columns : 0;
        for (const std::vector<Cell>& row : sheet.rows) width = std::max(width, printable(shownText(row[i])).columns);
        widths.push_back(width);
    }
    if (style.terminalWidth == 0) return widths;
    shrink(sheet, style.terminalWidth, isText, LeastValueColumns, &widths);
    shrink(sheet, style.terminalWidth, isName, LeastIdColumns, &widths);
    // what still does not fit is left to the terminal to wrap: cutting more would say nothing any more
    return widths;
}

struct Piece {
    Printable shown;
    const char* colour; // NULL: none
};

void appendLine(
    const Sheet& sheet, const std::vector<std::size_t>& widths, std::vector<Piece> pieces, std::string* table)
{
    while (!pieces.empty() && pieces.back().shown.text.empty()) pieces.pop_back();
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const Piece& piece = pieces[i];
        const bool isLast = i + 1 == pieces.size();
        const std::size_t blanks = widths[i] > piece.shown.columns ? widths[i] - piece.shown.columns : 0;
        const bool isRight = rowOf(sheet.columns[i]).isNumeric;
        if (i > 0) table->append(Gap, ' ');
        if (isRight) table->append(blanks, ' ');
        if (piece.colour != nullptr) *table += piece.colour;
        *table += piece.shown.text;
        if (piece.colour != nullptr) *table += Plain;
        if (!isRight && !isLast) table->append(blanks, ' ');
    }
    *table += '\n';
}

const char* colourOf(Emphasis emphasis, const Style& style)
{
    if (!style.isColoured || emphasis == Emphasis::None) return nullptr;
    return emphasis == Emphasis::Changed ? Green : Yellow;
}

} // namespace

std::string renderTable(const Sheet& sheet, const Style& style)
{
    const std::vector<std::size_t> widths = layOut(sheet, style);
    std::string table;
    if (style.hasHeader) {
        std::vector<Piece> pieces;
        for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
            pieces.push_back(
                {printableWithin(rowOf(sheet.columns[i]).heading, widths[i]), style.isColoured ? Bold : nullptr});
        }
        appendLine(sheet, widths, std::move(pieces), &table);
    }
    for (const std::vector<Cell>& row : sheet.rows) {
        std::vector<Piece> pieces;
        for (std::size_t i = 0; i < row.size(); ++i) {
            pieces.push_back({printableWithin(shownText(row[i]), widths[i]), colourOf(row[i].emphasis, style)});
        }
        appendLine(sheet, widths, std::move(pieces), &table);
    }
    return table;
}
