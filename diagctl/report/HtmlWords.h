#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

/// What the sections of a page are written with.

/// How a verdict shows: its colour is never all that tells it.
struct Look {
  const char* ofClass;
  const char* symbol;
};

Look lookOf(StepRecord::Outcome outcome);
Look lookOf(RunVerdict verdict);

/// A symbol that stands for a word beside it.
void writeSymbol(Svg::Markup& out, const char* symbol);
/// "✗ FAILED", in its colour.
void writeBadge(Svg::Markup& out, StepRecord::Outcome outcome);

/// A text as a page has it: at most so many bytes, and nothing in it that steers a terminal.
std::string shown(std::string_view text, std::size_t most = 2'000);

/// From the beginning of the run: "0:01:23.4".
std::string offsetText(double seconds);

/// A number with at most four digits that count.
std::string numberText(double number);

/// A text in a paragraph, its line breaks as they are. Nothing for an empty one.
void writeParagraph(Svg::Markup& out, const char* ofClass, std::string_view text);

/// A heading of a section, which begins it: closed by `Section`.
class Section {
 public:
  Section(Svg::Markup& out, const std::string& id, const std::string& title);
  ~Section();
  Section(const Section&) = delete;
  Section& operator=(const Section&) = delete;

 private:
  Svg::Markup& m_out;
};

/// What is folded until somebody opens it.
class Folded {
 public:
  /// @param ofClass "data": what a plot shows as well, which a printed page leaves out; "long":
  /// printed only where it was opened.
  Folded(Svg::Markup& out, const std::string& title, const char* ofClass = "more");
  ~Folded();
  Folded(const Folded&) = delete;
  Folded& operator=(const Folded&) = delete;

 private:
  Svg::Markup& m_out;
};

/// A table that may be wider than its window, where it scrolls by itself.
class Table {
 public:
  /// @param heads of columns; one that begins with '#' is of numbers.
  Table(Svg::Markup& out, const std::string& caption, const std::vector<std::string>& heads);
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  void row(const std::vector<std::string>& cells);
  /// A row that tells how many others are left out; none for 0.
  void rowOfMore(std::size_t count);

  void beginRow();
  /// The next cell, which the caller fills and closes.
  void beginCell();
  void endCell() { m_out.close(); }
  void cell(std::string_view text);
  void endRow() { m_out.close(); }

 private:
  Svg::Markup& m_out;
  std::vector<bool> m_isNumber;
  std::size_t m_column = 0;
};

}  // namespace TarvexDiags::FrontEnd::Html
