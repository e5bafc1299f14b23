#include "diagctl/report/ProgressView.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostBar = 20;
constexpr std::size_t kLeastBar = 3;
constexpr std::size_t kBrackets = 3;  // around a bar, and a blank behind
constexpr std::size_t kLeastName = 8;
constexpr std::size_t kRowsForBlank = 6;  // from where on a row without text can be spared
constexpr std::size_t kMostBlank = 3;
constexpr std::size_t kRowsForMostBlank = kMostTestsShown + kMostBlank + 2;
constexpr std::string_view kBetween = "  ";

std::string clock(double seconds) {
  const auto whole = static_cast<long>(seconds);
  return whole >= 3600 ? fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                       : fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::string clock(const std::optional<double>& seconds) {
  return seconds ? clock(*seconds) : "-";
}

std::string stateOf(const RunningTest& test) {
  switch (test.state) {
    case RunningTest::State::Ending:
      return tr("ending");
    case RunningTest::State::Suspended:
      return tr("suspended");
    case RunningTest::State::Running:
      break;
  }
  return tr("left {}", clock(test.left));
}

std::string figuresOf(const RunningTest& test) {
  const std::string pass = test.passes > 1 ? tr(" pass {}/{}", test.pass, test.passes) : "";
  return fmt::format("{:3}%{} {} {}", test.percent, pass, clock(test.elapsed), stateOf(test));
}

std::string bar(unsigned int percent, std::size_t width) {
  const std::size_t filled = std::min(percent, 100U) * width / 100;
  return std::string(filled, '#') + std::string(width - filled, '.');
}

/// A test's line in pieces, and how wide each is in all lines.
struct Piece {
  const RunningTest* test;
  std::string figures;
};

struct Widths {
  std::size_t name = 0;
  std::size_t bar = 0;  ///< 0: there is none
  bool hasThroughput = true;
};

std::size_t widest(const std::vector<Piece>& pieces, bool hasThroughput) {
  std::size_t width = 0;
  for (const Piece& piece : pieces) {
    const std::string& throughput = piece.test->throughput;
    const bool isTold = hasThroughput && !throughput.empty();
    width = std::max(
        width, columnsOf(piece.figures) + (isTold ? kBetween.size() + columnsOf(throughput) : 0));
  }
  return width;
}

// The bar gives way first, then the throughput, then the name.
Widths widthsFor(const std::vector<Piece>& pieces, std::size_t columns) {
  Widths widths;
  for (const Piece& piece : pieces) {
    widths.name = std::max(widths.name, columnsOf(piece.test->name));
  }
  std::size_t taken = widths.name + kBetween.size() + widest(pieces, true);
  if (taken > columns) {
    widths.hasThroughput = false;
    taken = widths.name + kBetween.size() + widest(pieces, false);
  }
  if (taken > columns) {
    widths.name -= std::min(taken - columns, widths.name);
    widths.name = std::max(widths.name, kLeastName);
  } else if (taken + kBrackets + kLeastBar <= columns) {
    widths.bar = std::min(columns - taken - kBrackets, kMostBar);
  }
  return widths;
}

std::string lineOf(const Piece& piece, const Widths& widths) {
  const RunningTest& test = *piece.test;
  std::string line = shortened(test.name, widths.name);
  line.append(widths.name - std::min(columnsOf(line), widths.name), ' ');
  line.append(kBetween);
  if (widths.bar > 0) {
    line.append(fmt::format("[{}] ", bar(test.percent, widths.bar)));
  }
  line.append(piece.figures);
  if (widths.hasThroughput && !test.throughput.empty()) {
    line.append(kBetween).append(test.throughput);
  }
  return line;
}

/// Puts parts side by side, in as many lines as that takes.
std::vector<std::string> filled(const std::vector<std::string>& parts, std::size_t columns) {
  std::vector<std::string> lines;
  for (const std::string& part : parts) {
    if (lines.empty() || columnsOf(lines.back()) + kBetween.size() + columnsOf(part) > columns) {
      lines.push_back(shortened(part, columns));
    } else {
      lines.back().append(kBetween).append(part);
    }
  }
  return lines;
}

std::vector<std::string> totalOf(const ProgressView& view) {
  std::vector<std::string> parts{
      view.isEnding ? tr("{} of {} ended, {}, ending", view.ended, view.total, clock(view.elapsed))
                    : tr("{} of {} ended, {} left {}", view.ended, view.total, clock(view.elapsed),
                         clock(view.left))};
  if (view.hottest) {
    parts.push_back(tr("hottest {:.0f} {}", *view.hottest, canShow("°C") ? "°C" : "C"));
  }
  if (view.findings > 0) {
    parts.push_back(trn("1 finding", "{} findings", view.findings));
  }
  return parts;
}

const RunningTest* chosenOf(const ProgressView& view) {
  const auto entry =
      std::find_if(view.tests.begin(), view.tests.end(),
                   [&](const RunningTest& test) { return test.number == view.chosen; });
  return entry != view.tests.end() ? &*entry : nullptr;
}

std::vector<std::string> helpOf(const ProgressView& view) {
  if (!view.showsHelp) {
    return {};
  }
  return {tr("s suspend all"), tr("r resume"),          tr("a choose a test to abort"),
          tr("q abort all"),   tr("arrow keys scroll"), tr("? hide this help")};
}

// The keys stand beside the total where one line has room for both.
std::vector<std::string> footOf(const ProgressView& view, std::size_t columns) {
  std::vector<std::string> parts = totalOf(view);
  if (!view.isEnding && !view.showsHelp) {
    std::vector<std::string> all = parts;
    all.push_back(tr("s suspend  r resume  a abort one  q abort all  ? help"));
    if (filled(all, columns).size() == 1) {
      return filled(all, columns);
    }
    parts.push_back(tr("? help"));
  }
  return filled(parts, columns);
}

std::vector<std::string> questionOf(const ProgressView& view) {
  const RunningTest* const chosen = chosenOf(view);
  if (chosen == nullptr) {
    return {};
  }
  return {tr("abort {}?", chosen->name), tr("Enter aborts it"), tr("arrow keys choose another"),
          tr("Esc leaves it")};
}

void append(std::vector<std::string>& lines, const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// Where a test is chosen, it is among those that are shown.
std::size_t firstOf(const ProgressView& view, std::size_t shown) {
  std::size_t first = view.firstShown;
  if (const RunningTest* const chosen = chosenOf(view); chosen != nullptr) {
    const auto index = static_cast<std::size_t>(chosen - view.tests.data());
    first = std::clamp(first, index + 1 - std::min(index + 1, shown), index);
  }
  return std::min(first, view.tests.size() - shown);
}

std::vector<std::string> testLines(const ProgressView& view, const ProgressLayout& part,
                                   std::size_t columns) {
  std::vector<Piece> pieces;
  for (std::size_t index = 0; index < part.shown; ++index) {
    const RunningTest& test = view.tests[part.firstShown + index];
    pieces.push_back({&test, figuresOf(test)});
  }
  const bool isChosen = chosenOf(view) != nullptr;
  const Widths widths = widthsFor(pieces, columns - (isChosen ? kBetween.size() : 0));
  std::vector<std::string> lines;
  for (const Piece& piece : pieces) {
    const char* const mark = !isChosen ? "" : piece.test->number == view.chosen ? "> " : "  ";
    lines.push_back(mark + lineOf(piece, widths));
  }
  return lines;
}

// Lines that others write before the next drawing come to stand in these, and have nothing of a
// test behind them.
std::size_t blankOf(std::size_t rows) {
  return rows >= kRowsForMostBlank ? kMostBlank : rows >= kRowsForBlank ? 1 : 0;
}

}  // namespace

ProgressLayout linesOf(const ProgressView& view, const Window& window) {
  const std::size_t columns = std::max<std::size_t>(window.columns, 2) - 1;  // none may wrap
  const std::size_t rows = std::max<std::size_t>(window.rows, 2) - 1;
  std::vector<std::string> foot = filled(questionOf(view), columns);
  append(foot, footOf(view, columns));
  append(foot, filled(helpOf(view), columns));
  const std::size_t blank = blankOf(rows);
  const std::size_t room = rows - std::min(rows - 1, foot.size() + blank);

  ProgressLayout part;
  part.shown = std::min({view.tests.size(), kMostTestsShown, room});
  const bool isScrolled = part.shown < view.tests.size();
  if (isScrolled && part.shown == room && room > 1) {
    --part.shown;
  }
  part.firstShown = firstOf(view, part.shown);
  part.lines.resize(blank);
  append(part.lines, testLines(view, part, columns));
  if (isScrolled && room > 1) {
    part.lines.push_back(tr("{} above, {} below: arrow keys scroll", part.firstShown,
                            view.tests.size() - part.shown - part.firstShown));
  }
  append(part.lines, foot);
  part.lines.resize(std::min(part.lines.size(), rows));
  for (std::string& line : part.lines) {
    line = firstColumns(line, columns);
  }
  return part;
}

std::string heartbeatOf(const ProgressView& view) {
  std::vector<std::string> tests;
  for (const RunningTest& test : view.tests) {
    if (tests.size() == kMostTestsShown) {
      tests.push_back(tr("... and {} more", view.tests.size() - kMostTestsShown));
      break;
    }
    tests.push_back(fmt::format("{} {}%", test.name, test.percent));
  }
  const std::string total = fmt::format("{}", fmt::join(totalOf(view), ", "));
  return tests.empty() ? total : fmt::format("{}: {}", total, fmt::join(tests, ", "));
}

}  // namespace TarvexDiags::FrontEnd
