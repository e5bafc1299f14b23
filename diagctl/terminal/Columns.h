#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// How many columns of a terminal a printable text takes: two for the wide characters of East Asia,
/// none for those that stand on the one before.
std::size_t columnsOf(std::string_view text);

/// What of a printable text fits into so many columns from its beginning; no character is cut in
/// two, and those that stand on the one before stay with it.
std::string_view firstColumns(std::string_view text, std::size_t columns);

/// A printable text in at most so many columns, with a mark for what is left out of its middle:
/// names that are alike at one end mostly differ at the other.
std::string shortened(std::string_view text, std::size_t columns);

/// A printable text with blanks behind it, so that it takes so many columns; a wider one as it is.
std::string padded(std::string_view text, std::size_t columns);

/// How wide lines may be that go to standard output: the window's width, within bounds in which
/// text can be read; a usual one where there is no window.
std::size_t widthOfOutput();

/// The words of a text in lines of at most so many columns; a longer word has a line of its own.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// Rows of cells that stand below one another, whatever script they are written in.
class Table {
 public:
  /// @param heads of the columns; empty: no line of heads.
  explicit Table(std::vector<std::string> heads) : m_heads(std::move(heads)) {}

  /// A cell that begins with a digit and holds nothing but a number stands on the right.
  void add(std::vector<std::string> cells);
  bool isEmpty() const { return m_rows.empty(); }
  /// Writes heads and rows; nothing but the heads stands above.
  void write(Printer& out) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<std::string> m_heads;
  std::vector<std::vector<std::string>> m_rows;
};

}  // namespace TarvexDiags::FrontEnd
