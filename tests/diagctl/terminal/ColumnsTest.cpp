#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "diagctl/terminal/Columns.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Columns, are_counted_by_what_a_terminal_shows) {
  EXPECT_EQ(columnsOf("Speicher"), 8U);
  EXPECT_EQ(columnsOf("Prüfung"), 7U);
  EXPECT_EQ(columnsOf("内存"), 4U);
  EXPECT_EQ(columnsOf("メモリ"), 6U);
  EXPECT_EQ(columnsOf("e\u0301"), 1U);
  EXPECT_EQ(columnsOf(""), 0U);
}

TEST(Columns, are_filled_behind_a_text) {
  EXPECT_EQ(padded("ab", 4), "ab  ");
  EXPECT_EQ(padded("内存", 5), "内存 ");
  EXPECT_EQ(padded("abc", 2), "abc");
}

TEST(Columns, bound_the_lines_of_a_text) {
  EXPECT_THAT(wrapped("one two three", 7), ElementsAre("one two", "three"));
  EXPECT_THAT(wrapped("incomprehensible word", 5), ElementsAre("incomprehensible", "word"));
  EXPECT_THAT(wrapped("内存 内存", 8), ElementsAre("内存", "内存"));
  EXPECT_THAT(wrapped("  ", 5), IsEmpty());
}

TEST(Columns, hold_the_beginning_of_a_text_and_no_half_of_a_character) {
  EXPECT_EQ(firstColumns("memory", 3), "mem");
  EXPECT_EQ(firstColumns("内存测试", 5), "内存");
  EXPECT_EQ(firstColumns("e\u0301a", 1), "e\u0301");
  EXPECT_EQ(firstColumns("ab", 9), "ab");
  EXPECT_EQ(firstColumns("内", 1), "");
}

TEST(Columns, hold_both_ends_of_a_text_that_is_too_long) {
  setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_EQ(shortened("Walking ones on Node 0", 22), "Walking ones on Node 0");
  EXPECT_EQ(shortened("Walking ones on Node 0", 11), "Walki…ode 0");
  EXPECT_EQ(shortened("メモリの全ビット検査", 9), "メモ…検査");
  EXPECT_EQ(columnsOf(shortened("メモリの全ビット検査", 8)), 7U) << "a character takes two";
  EXPECT_EQ(shortened("memory", 1), "m");
}

std::string textOf(const Table& table) {
  std::ostringstream stream;
  Printer printer(stream);
  table.write(printer);
  return stream.str();
}

TEST(Tables, stand_below_one_another_in_any_script) {
  Table table({"NAME", "N"});
  table.add({"Ger\u00e4t", "5"});
  table.add({"内存", "12"});
  EXPECT_EQ(textOf(table), "NAME   N\nGer\u00e4t   5\n内存   12\n");
}

TEST(Tables, let_no_cell_break_its_row) {
  Table table({});
  table.add({"a\nb\x1b[2J", "c"});
  EXPECT_EQ(textOf(table), "a\\nb\\x1b[2J  c\n");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
