#include "diagctl/report/HtmlWords.h"

#include <fmt/format.h>

#include <cmath>

#include "diagctl/report/Figures.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr Look kPassedLook{"passed", "\u2713"};
constexpr Look kFailedLook{"failed", "\u2717"};
constexpr Look kWarnedLook{"warned", "\u25b2"};
constexpr Look kTroubledLook{"troubled", "?"};
constexpr Look kAbortedLook{"aborted", "\u25a0"};
constexpr Look kSkippedLook{"skipped", "\u2013"};
constexpr double kSmallest = 1e-3;
constexpr double kWhole = 1'000;

}  // namespace

Look lookOf(StepRecord::Outcome outcome) {
  using Outcome = StepRecord::Outcome;
  switch (outcome) {
    case Outcome::Passed:
      return kPassedLook;
    case Outcome::Failed:
      return kFailedLook;
    case Outcome::Warning:
      return kWarnedLook;
    case Outcome::Trouble:
      return kTroubledLook;
    case Outcome::Aborted:
      return kAbortedLook;
    case Outcome::NotRun:
    case Outcome::Skipped:
    case Outcome::SkippedForPrivilege:
    case Outcome::SkippedForMode:
      break;
  }
  return kSkippedLook;
}

Look lookOf(RunVerdict verdict) {
  switch (verdict) {
    case RunVerdict::Passed:
      return kPassedLook;
    case RunVerdict::Failed:
      return kFailedLook;
    case RunVerdict::Warned:
      return kWarnedLook;
    case RunVerdict::Troubled:
      return kTroubledLook;
    case RunVerdict::Aborted:
      return kAbortedLook;
    case RunVerdict::NothingRan:
      break;
  }
  return kSkippedLook;
}

void writeSymbol(Svg::Markup& out, const char* symbol) {
  out.leaf("span", {{"aria-hidden", "true"}}, fmt::format("{} ", symbol));
}

void writeBadge(Svg::Markup& out, StepRecord::Outcome outcome) {
  const Look look = lookOf(outcome);
  out.open("span", {{"class", look.ofClass}});
  out.open("span", {{"class", "badge"}});
  writeSymbol(out, look.symbol);
  out.text(told(wordOf(outcome)));
  out.close();
  out.close();
}

std::string shown(std::string_view text, std::size_t most) {
  if (text.size() <= most) {
    return toPrintable(text, "\n");
  }
  return toPrintable(wholeCharacters(text, most), "\n") + "\u2026";
}

std::string offsetText(double seconds) {
  const double tenths = std::floor(std::fmax(seconds, 0) * 10);
  const double minutes = std::floor(tenths / 600);
  const double hours = std::floor(minutes / 60);
  return fmt::format("{:.0f}:{:02.0f}:{:04.1f}", hours, minutes - 60 * hours,
                     (tenths - 600 * minutes) / 10);
}

std::string numberText(double number) {
  const double size = std::fabs(number);
  return size >= kWhole && size < 1e12 ? wholeText(number)
         : size < kSmallest            ? fmt::format("{:.3g}", number)
                                       : fmt::format("{:.4g}", number);
}

void writeParagraph(Svg::Markup& out, const char* ofClass, std::string_view text) {
  if (!text.empty()) {
    out.leaf("p", {{"class", ofClass}}, shown(text));
  }
}

Section::Section(Svg::Markup& out, const std::string& id, const std::string& title) : m_out(out) {
  m_out.open("section");
  m_out.leaf("h3", {{"id", id}}, title);
}

Section::~Section() {
  m_out.close();
}

Folded::Folded(Svg::Markup& out, const std::string& title, const char* ofClass) : m_out(out) {
  m_out.open("details", {{"class", ofClass}});
  m_out.leaf("summary", title);
}

Folded::~Folded() {
  m_out.close();
}

Table::Table(Svg::Markup& out, const std::string& caption, const std::vector<std::string>& heads)
    : m_out(out) {
  m_out.open("div",
             {{"class", "wide"}, {"tabindex", "0"}, {"role", "group"}, {"aria-label", caption}});
  m_out.open("table");
  m_out.leaf("caption", caption);
  m_out.open("thead");
  m_out.open("tr");
  for (const std::string& head : heads) {
    m_isNumber.push_back(head.starts_with('#'));
    m_out.leaf("th", {{"scope", "col"}, {"class", m_isNumber.back() ? "number" : "words"}},
               m_isNumber.back() ? head.substr(1) : head);
  }
  m_out.close();
  m_out.close();
  m_out.open("tbody");
}

Table::~Table() {
  for (int level = 0; level < 3; ++level) {
    m_out.close();
  }
}

void Table::row(const std::vector<std::string>& cells) {
  beginRow();
  for (const std::string& text : cells) {
    cell(text);
  }
  endRow();
}

void Table::rowOfMore(std::size_t count) {
  if (count > 0) {
    std::vector<std::string> cells(m_isNumber.size());
    cells.front() = tr("and {} more", count);
    row(cells);
  }
}

void Table::beginRow() {
  m_out.open("tr");
  m_column = 0;
}

void Table::beginCell() {
  if (m_isNumber[m_column++]) {
    m_out.open("td", {{"class", "number"}});
  } else {
    m_out.open("td");
  }
}

void Table::cell(std::string_view text) {
  beginCell();
  m_out.text(shown(text));
  endCell();
}

}  // namespace TarvexDiags::FrontEnd::Html
