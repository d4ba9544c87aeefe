// The output form "table".

#include "forms.h"

#include <gtest/gtest.h>

namespace {

Sheet sheetOf(std::vector<Column> columns, const std::vector<std::vector<const char*>>& rows)
{
    Sheet sheet;
    sheet.columns = std::move(columns);
    for (const std::vector<const char*>& texts : rows) {
        std::vector<Cell> row;
        for (const char* text : texts) {
            row.push_back(text != nullptr ? Cell{text, std::nullopt, Emphasis::None} : Cell{});
        }
        sheet.rows.push_back(std::move(row));
    }
    return sheet;
}

Sheet statistics(const std::vector<std::vector<const char*>>& rows)
{
    return sheetOf({Column::Id, Column::Value}, rows);
}

std::string tableWithin(const Sheet& sheet, std::size_t columns)
{
    Style style;
    style.terminalWidth = columns;
    return renderTable(sheet, style);
}

constexpr std::size_t AnyWidth = 0;

const Sheet Three = statistics({{"cpu.user", "12"}, {"a_rather_long_statistic", "0123456789abcdef"}, {"empty", ""}});

TEST(KrvstatTable, IdsStandBelowTheirHeading)
{
    EXPECT_EQ(tableWithin(sheetOf({Column::Group}, {{"cpu"}, {"tab\there"}}), AnyWidth), "GROUP\ncpu\ntab\\x09here\n");
}

TEST(KrvstatTable, ColumnsAreAlignedAndNoLineEndsInBlanks)
{
    EXPECT_EQ(tableWithin(Three, AnyWidth), "STATISTIC                VALUE\n"
                                            "cpu.user                 12\n"
                                            "a_rather_long_statistic  0123456789abcdef\n"
                                            "empty\n");
}

TEST(KrvstatTable, TheHeadingCountsWhereIdsAreShorter)
{
    EXPECT_EQ(tableWithin(statistics({{"a", "1"}}), AnyWidth), "STATISTIC  VALUE\n"
                                                               "a          1\n");
}

TEST(KrvstatTable, NumbersAreAlignedToTheRight)
{
    const Sheet sheet = sheetOf({Column::Id, Column::Rate, Column::Value}, {{"a", "1.5", "x"}, {"b", "1000", "y"}});
    EXPECT_EQ(tableWithin(sheet, AnyWidth), "STATISTIC  RATE/S  VALUE\n"
                                            "a             1.5  x\n"
                                            "b            1000  y\n");
}

TEST(KrvstatTable, WhatIsNotThereIsADash)
{
    const Sheet sheet = sheetOf({Column::Id, Column::Value, Column::Rate}, {{"a", nullptr, nullptr}, {"b", "", "2"}});
    EXPECT_EQ(tableWithin(sheet, AnyWidth), "STATISTIC  VALUE  RATE/S\n"
                                            "a          -           -\n"
                                            "b                      2\n");
}

TEST(KrvstatTable, PeopleSeeWhatIsForThem)
{
    Sheet sheet = statistics({{"a", "1500000"}});
    sheet.rows[0][1].forPeople = "1.5M";
    EXPECT_EQ(tableWithin(sheet, AnyWidth), "STATISTIC  VALUE\n"
                                            "a          1.5M\n");
}

TEST(KrvstatTable, ColoursEnclosePlainTextOnly)
{
    Sheet sheet = statistics({{"a", "1"}, {"b", "2"}});
    sheet.rows[0][1].emphasis = Emphasis::Changed;
    sheet.rows[1][1].emphasis = Emphasis::Warning;
    Style style;
    style.isColoured = true;
    EXPECT_EQ(renderTable(sheet, style), "\x1b[1mSTATISTIC\x1b[0m  \x1b[1mVALUE\x1b[0m\n"
                                         "a          \x1b[32m1\x1b[0m\n"
                                         "b          \x1b[33m2\x1b[0m\n");
}

TEST(KrvstatTable, EscapesCountForTheAlignment)
{
    EXPECT_EQ(tableWithin(statistics({{"abcdefgh\n", "1"}, {"b", "2\r"}}), AnyWidth), "STATISTIC     VALUE\n"
                                                                                      "abcdefgh\\x0a  1\n"
                                                                                      "b             2\\x0d\n");
}

TEST(KrvstatTable, ValuesAreCutToTheTerminal)
{
    // 23 columns of ids and 2 blanks leave 15 of 40 for values, and 16 of 41.
    EXPECT_EQ(tableWithin(Three, 40), "STATISTIC                VALUE\n"
                                      "cpu.user                 12\n"
                                      "a_rather_long_statistic  0123456789ab...\n"
                                      "empty\n");
    EXPECT_EQ(tableWithin(Three, 41), tableWithin(Three, AnyWidth));
}

TEST(KrvstatTable, IdsAreCutWhereEightColumnsOfValuesRemain)
{
    EXPECT_EQ(tableWithin(Three, 30), "STATISTIC             VALUE\n"
                                      "cpu.user              12\n"
                                      "a_rather_long_sta...  01234...\n"
                                      "empty\n");
}

TEST(KrvstatTable, NothingIsCutBelowTwelveColumnsOfIdsAndEightOfValues)
{
    EXPECT_EQ(tableWithin(Three, 22), "STATISTIC     VALUE\n"
                                      "cpu.user      12\n"
                                      "a_rather_...  01234...\n"
                                      "empty\n");
    EXPECT_EQ(tableWithin(Three, 1), tableWithin(Three, 22));
}

} // namespace
