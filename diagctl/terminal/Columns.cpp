#include "diagctl/terminal/Columns.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kLeastWidth = 40;
constexpr std::size_t kMostWidth = 120;
constexpr std::string_view kGap = "  ";
constexpr std::string_view kLeftOut = "…";
constexpr std::string_view kLeftOutInAscii = "..";

struct Range {
  char32_t first;
  char32_t last;
};

template <std::size_t kCount>
bool isIn(const Range (&ranges)[kCount], char32_t code) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [&](const Range& range) { return code >= range.first && code <= range.last; });
}

std::size_t columnsOf(char32_t code) {
  static constexpr Range kNone[] = {{0x300, 0x36f},   {0x1ab0, 0x1aff}, {0x200b, 0x200d},
                                    {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}};
  static constexpr Range kTwo[] = {
      {0x1100, 0x115f}, {0x2e80, 0x303e},   {0x3041, 0x33ff},  {0x3400, 0x4dbf}, {0x4e00, 0x9fff},
      {0xa000, 0xa4cf}, {0xac00, 0xd7a3},   {0xf900, 0xfaff},  {0xfe30, 0xfe6f}, {0xff00, 0xff60},
      {0xffe0, 0xffe6}, {0x1f300, 0x1faff}, {0x20000, 0x3fffd}};
  if (code < kNone[0].first) {
    return 1;  // which most are
  }
  if (isIn(kNone, code)) {
    return 0;
  }
  return isIn(kTwo, code) ? 2 : 1;
}

bool isNumber(const std::string& cell) {
  return !cell.empty() && std::all_of(cell.begin(), cell.end(), [](unsigned char character) {
    return std::isdigit(character) != 0;
  });
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const Character character = firstCharacterOf(text);
    columns += character.isValid ? columnsOf(character.code) : 1;
    text.remove_prefix(character.bytes.size());
  }
  return columns;
}

std::string_view firstColumns(std::string_view text, std::size_t columns) {
  std::size_t length = 0;
  for (std::size_t left = columns; length < text.size();) {
    const std::string_view character = firstCharacterOf(text.substr(length)).bytes;
    const std::size_t width = columnsOf(character);
    if (width > left) {
      break;
    }
    left -= width;
    length += character.size();
  }
  return text.substr(0, length);
}

std::string shortened(std::string_view text, std::size_t columns) {
  const std::size_t width = columnsOf(text);
  if (width <= columns) {
    return std::string(text);
  }
  const std::string_view mark = canShow(kLeftOut) ? kLeftOut : kLeftOutInAscii;
  if (columns <= columnsOf(mark) + 1) {
    return std::string(firstColumns(text, columns));
  }
  const std::size_t kept = columns - columnsOf(mark);
  const std::string_view head = firstColumns(text, (kept + 1) / 2);
  std::string_view tail = text.substr(head.size());
  while (columnsOf(tail) > kept - columnsOf(head)) {
    tail.remove_prefix(firstCharacterOf(tail).bytes.size());
  }
  return std::string(head).append(mark).append(tail);
}

std::string padded(std::string_view text, std::size_t columns) {
  const std::size_t width = columnsOf(text);
  return std::string(text).append(columns > width ? columns - width : 0, ' ');
}

std::size_t widthOfOutput() {
  winsize size{};
  if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 ||
      size.ws_col == 0) {
    return kUsualWidth;
  }
  return std::clamp<std::size_t>(size.ws_col, kLeastWidth, kMostWidth);
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
  std::vector<std::string> lines;
  std::istringstream words{std::string(text)};
  for (std::string word; words >> word;) {
    if (lines.empty() || columnsOf(lines.back()) + 1 + columnsOf(word) > width) {
      lines.push_back(word);
    } else {
      lines.back() += " " + word;
    }
  }
  return lines;
}

void Table::add(std::vector<std::string> cells) {
  for (std::string& cell : cells) {
    cell = toPrintable(cell);
  }
  m_rows.push_back(std::move(cells));
}

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths;
  const auto widen = [&](const std::vector<std::string>& cells) {
    widths.resize(std::max(widths.size(), cells.size()));
    for (std::size_t column = 0; column < cells.size(); ++column) {
      widths[column] = std::max(widths[column], columnsOf(cells[column]));
    }
  };
  widen(m_heads);
  std::for_each(m_rows.begin(), m_rows.end(), widen);
  return widths;
}

void Table::write(Printer& out) const {
  const std::vector<std::size_t> widths = this->widths();
  const auto writeRow = [&](const std::vector<std::string>& cells, bool isHead) {
    std::string line;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      const std::string& cell = cells[column];
      const std::string padding(widths[column] - columnsOf(cell), ' ');
      const bool isRight = !isHead && isNumber(cell);
      line += (column == 0 ? "" : std::string(kGap)) + (isRight ? padding + cell : cell + padding);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out.print("{}\n", line);
  };
  if (!m_heads.empty()) {
    writeRow(m_heads, true);
  }
  for (const std::vector<std::string>& row : m_rows) {
    writeRow(row, false);
  }
}

}  // namespace TarvexDiags::FrontEnd
