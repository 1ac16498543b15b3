#include <gtest/gtest.h>

#include "tools/log/Table.h"

namespace {

const std::vector<TableColumn> kColumns{
    {"NAME", false, 4}, {"N", true, kAnyWidth}, {"WHY", false, 5}};

TEST(Table, IsAsWideAsItsCells) {
  EXPECT_EQ(TableText(kColumns, {{"a", "100", "x"}, {"long name", "1", "yes"}},
                      kAnyWidth),
            "NAME        N  WHY\n"
            "a         100  x\n"
            "long name   1  yes\n");
}

TEST(Table, HasHeadingsWithoutRows) {
  EXPECT_EQ(TableText(kColumns, {}, kAnyWidth), "NAME N  WHY\n");
}

TEST(Table, CutsTheLastColumnFirst) {
  const std::vector<TableRow> rows{{"long name", "1", "many causes"}};
  EXPECT_EQ(TableText(kColumns, rows, 24),
            "NAME      N  WHY\n"
            "long name 1  many causes\n");
  EXPECT_EQ(TableText(kColumns, rows, 20),
            "NAME      N  WHY\n"
            "long name 1  many c\xE2\x80\xA6\n");
  EXPECT_EQ(TableText(kColumns, rows, 16),
            "NAME    N  WHY\n"
            "long n\xE2\x80\xA6 1  many\xE2\x80\xA6\n");
}

TEST(Table, LeavesColumnsTheirLeastWidths) {
  EXPECT_EQ(TableText(kColumns, {{"long name", "12345", "many causes"}}, 1),
            "NAME     N  WHY\n"
            "lon\xE2\x80\xA6 12345  many\xE2\x80\xA6\n");
}

TEST(Table, CountsWideCharactersTwice) {
  EXPECT_EQ(TableText(kColumns, {{"数数数", "1", "x"}}, kAnyWidth),
            "NAME   N  WHY\n"
            "数数数 1  x\n");
}

}  // namespace
