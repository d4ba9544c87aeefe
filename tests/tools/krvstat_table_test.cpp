// The output form "table".

#include "table.h"

#include <gtest/gtest.h>

namespace {

const std::vector<Record> Three = {{"cpu.user", "12"}, {"a_rather_long_statistic", "0123456789abcdef"}, {"empty", ""}};

TEST(KrvstatTable, IdsStandBelowTheirHeading)
{
    EXPECT_EQ(idTable("GROUP", {{"cpu", ""}, {"tab\there", ""}}), "GROUP\ncpu\ntab\\x09here\n");
}

TEST(KrvstatTable, ColumnsAreAlignedAndNoLineEndsInBlanks)
{
    EXPECT_EQ(statisticTable(Three, AnyWidth), "STATISTIC                VALUE\n"
                                               "cpu.user                 12\n"
                                               "a_rather_long_statistic  0123456789abcdef\n"
                                               "empty\n");
}

TEST(KrvstatTable, TheHeadingCountsWhereIdsAreShorter)
{
    EXPECT_EQ(statisticTable({{"a", "1"}}, AnyWidth), "STATISTIC  VALUE\n"
                                                      "a          1\n");
}

TEST(KrvstatTable, EscapesCountForTheAlignment)
{
    EXPECT_EQ(statisticTable({{"abcdefgh\n", "1"}, {"b", "2\r"}}, AnyWidth), "STATISTIC     VALUE\n"
                                                                             "abcdefgh\\x0a  1\n"
                                                                             "b             2\\x0d\n");
}

TEST(KrvstatTable, ValuesAreCutToTheTerminal)
{
    // 23 columns of ids and 2 blanks leave 15 of 40 for values, and 16 of 41.
    EXPECT_EQ(statisticTable(Three, 40), "STATISTIC                VALUE\n"
                                         "cpu.user                 12\n"
                                         "a_rather_long_statistic  0123456789ab...\n"
                                         "empty\n");
    EXPECT_EQ(statisticTable(Three, 41), statisticTable(Three, AnyWidth));
}

TEST(KrvstatTable, ValuesAreLeftWholeWhereFewerThanEightColumnsRemain)
{
    EXPECT_NE(statisticTable(Three, 33), statisticTable(Three, AnyWidth));
    EXPECT_EQ(statisticTable(Three, 32), statisticTable(Three, AnyWidth));
    EXPECT_EQ(statisticTable(Three, 1), statisticTable(Three, AnyWidth));
}

} // namespace
