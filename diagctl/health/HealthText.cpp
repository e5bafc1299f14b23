#include "diagctl/health/HealthText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Kind = HealthFinding::Kind;

constexpr const char* kCut = "..";
constexpr std::size_t kLeastText = 12;  ///< of a finding that is worth its place

bool isWarned(const HealthAccount& account) {
  return account.code == ExitCode::kPassed && account.summary.warned > 0;
}

// One line, in which "|" begins figures.
std::string inLine(const std::string& text) {
  std::string line = toPrintable(text, " ");
  std::replace(line.begin(), line.end(), '|', ' ');
  return line;
}

// Not within a character.
std::string cutTo(const std::string& text, std::size_t most) {
  if (text.size() <= most) {
    return text;
  }
  const std::string_view kept = wholeCharacters(text, most - std::min<std::size_t>(most, 2));
  return std::string(kept) + std::string(kCut).substr(0, most - kept.size());
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += word.empty() || text.empty() ? word : " " + word;
  }
  return text;
}

std::string countsOf(const HealthAccount& account) {
  const RunSummary& summary = account.summary;
  std::string text;
  const auto add = [&text](std::size_t count, const std::string& word) {
    if (count > 0) {
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, word);
    }
  };
  add(summary.passed, english("passed"));
  add(summary.failed, english("failed"));
  add(summary.warned, english("with a warning"));
  add(summary.troubled, english("without a verdict"));
  add(summary.aborted, english("aborted"));
  add(summary.notRun, english("not run"));
  add(summary.skipped, english("skipped"));
  return text.empty() ? english("nothing ran") : text;
}

std::string headOf(const HealthAccount& account, HealthStyle style) {
  constexpr std::array<const char*, 4> states = {"OK - ", "WARNING - ", "CRITICAL - ",
                                                 "UNKNOWN - "};
  if (style == HealthStyle::Nagios) {
    return states.at(static_cast<std::size_t>(exitCodeFor(account, style)));
  }
  switch (account.code) {
    case ExitCode::kPassed:
      return isWarned(account) ? "WARN " : "OK ";
    case ExitCode::kHardwareFailure:
      return "FAIL ";
    default:
      return "UNKNOWN ";
  }
}

// The names of the first finding, then as much of its text as is worth it.
std::string findingWithin(const HealthFinding& finding, std::size_t most) {
  const std::string names =
      inLine(joined({finding.package, finding.test, finding.device, finding.location}));
  std::string text = inLine(finding.text);
  if (text.ends_with('.')) {
    text.pop_back();  // more may follow
  }
  if (names.empty()) {
    return cutTo(text, most);
  }
  if (names.size() + 2 + kLeastText > most) {
    return cutTo(names, most);
  }
  return names + ": " + cutTo(text, most - names.size() - 2);
}

std::size_t furtherLike(const HealthAccount& account) {
  const Kind kind = account.findings.front().kind;
  const auto alike = std::count_if(account.findings.begin(), account.findings.end(),
                                   [&](const HealthFinding& each) { return each.kind == kind; });
  return static_cast<std::size_t>(alike) - 1 +
         (account.findings.back().kind == kind ? account.further : 0);
}

}  // namespace

VanishedAs vanishedFor(HealthStyle style) {
  return style == HealthStyle::Nagios || style == HealthStyle::Npd ? VanishedAs::Failure
                                                                   : VanishedAs::Trouble;
}

int exitCodeFor(const HealthAccount& account, HealthStyle style) {
  switch (style) {
    case HealthStyle::Plain:
      return account.code;
    case HealthStyle::Nagios:
      return translate(account.code, account.summary, ExitStyle::Nagios);
    case HealthStyle::Npd:
      return translate(account.code, account.summary, ExitStyle::Npd);
    case HealthStyle::Slurm:
    case HealthStyle::Nhc:
      break;
  }
  return account.code == ExitCode::kHardwareFailure ? 1 : 0;
}

std::string lineOf(const HealthAccount& account, HealthStyle style, const std::string& remark) {
  const std::string head = headOf(account, style);
  std::string tail = remark.empty() ? "" : ", " + inLine(remark);
  const bool hasPassed = account.code == ExitCode::kPassed && !isWarned(account);
  if (hasPassed || account.findings.empty()) {
    return head + cutTo(countsOf(account), kLongestHealthLine - head.size() - tail.size()) + tail;
  }
  if (const std::size_t further = furtherLike(account); further > 0) {
    tail = fmt::format(" (+{}){}", further, tail);
  }
  return head +
         findingWithin(account.findings.front(), kLongestHealthLine - head.size() - tail.size()) +
         tail;
}

std::string reasonOf(const HealthAccount& account, std::size_t most) {
  if (account.findings.empty()) {
    return "";
  }
  const HealthFinding& finding = account.findings.front();
  std::string text = english("FAILED {} on {}", finding.test, finding.device);
  if (!finding.location.empty()) {
    text += fmt::format(" ({})", finding.location);
  }
  const std::size_t further = furtherLike(account);
  const std::string tail = further > 0 ? fmt::format(" (+{})", further) : "";
  return cutTo(inLine(text), most - tail.size()) + tail;
}

std::string detailsOf(const HealthAccount& account) {
  std::string text;
  for (const HealthFinding& finding : account.findings) {
    const char* const word = finding.kind == Kind::Failure     ? "FAIL"
                             : finding.kind == Kind::NoVerdict ? "UNKNOWN"
                                                               : "WARN";
    std::string names = joined({finding.package, finding.test, finding.device, finding.location});
    names += names.empty() ? "" : ": ";
    text += fmt::format("  {} {}\n", word, inLine(names + finding.text));
    if (!finding.action.empty()) {
      text += fmt::format("    -> {}\n", inLine(finding.action));
    }
  }
  if (account.further > 0) {
    text += "  " + english("and {} more", account.further) + "\n";
  }
  return text + "  " + countsOf(account) + "\n";
}

std::string performanceOf(const HealthAccount& account, double seconds, double age) {
  const RunSummary& summary = account.summary;
  const std::size_t unknown = summary.troubled + summary.aborted + summary.notRun;
  return fmt::format(
      "'duration'={:.3f}s;;;0; 'age'={:.0f}s;;;0; 'passed'={};;;0; 'failed'={};;0;0; "
      "'warnings'={};0;;0; 'unknown'={};;;0; 'skipped'={};;;0;",
      seconds, age, summary.passed, summary.failed, summary.warned, unknown, summary.skipped);
}

std::string shortTime(std::chrono::seconds time) {
  using namespace std::chrono;
  // Each from two of it on.
  constexpr std::pair<seconds, const char*> units[] = {
      {hours(48), "d"}, {hours(2), "h"}, {minutes(2), "min"}};
  const long long count = std::max<long long>(time.count(), 0);
  for (const auto& [from, unit] : units) {
    if (time >= from) {
      return fmt::format("{} {}", count / (from.count() / 2), unit);
    }
  }
  return fmt::format("{} s", count);
}

}  // namespace TarvexDiags::FrontEnd
