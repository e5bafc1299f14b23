#include "watch/InterruptRows.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <utility>

namespace TarvexDiags::Watching {

namespace {

struct CountedRow {
  const char* label;
  Trouble trouble;
};

// arch/x86/kernel/irq.c of the kernel: exceptions; interrupts for a threshold of corrected errors,
// for deferred ones and for heat. Polls (MCP) say nothing.
constexpr CountedRow kTroubleRows[] = {
    {"MCE", Trouble::MachineCheck},
    {"THR", Trouble::Corrected},
    {"DFR", Trouble::Corrected},
    {"TRM", Trouble::Throttling},
};

/// Takes the next word of a line; empty at its end.
std::string_view takeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(" \t"));
  line.remove_prefix(word.size());
  return word;
}

std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

template <class Number>
std::optional<Number> numberFrom(std::string_view word) {
  Number number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size() ? std::optional(number)
                                                                  : std::nullopt;
}

/// The numbers of "CPU0 CPU2 ..."; a number below 0 stands for what is malformed.
std::vector<int> columnsOf(std::string_view head) {
  constexpr std::string_view kCpu = "CPU";
  std::vector<int> columns;
  for (std::string_view word = takeWord(head); !word.empty(); word = takeWord(head)) {
    const auto number =
        word.starts_with(kCpu) ? numberFrom<int>(word.substr(kCpu.size())) : std::nullopt;
    columns.push_back(number.value_or(-1));
  }
  return columns;
}

}  // namespace

std::map<std::string, std::map<int, std::uint64_t>> parseInterruptRows(
    std::string_view text, const std::vector<std::string>& labels) {
  std::map<std::string, std::map<int, std::uint64_t>> rows;
  const std::vector<int> columns = columnsOf(takeLine(text));
  while (!text.empty()) {
    std::string_view line = takeLine(text);
    std::string_view label = takeWord(line);
    if (!label.ends_with(':')) {
      continue;
    }
    label.remove_suffix(1);
    if (std::find(labels.begin(), labels.end(), label) == labels.end()) {
      continue;
    }
    std::map<int, std::uint64_t>& row = rows[std::string(label)];
    for (const int cpu : columns) {
      const auto value = numberFrom<std::uint64_t>(takeWord(line));
      if (!value) {
        break;
      }
      if (cpu >= 0) {
        row[cpu] = *value;
      }
    }
  }
  return rows;
}

std::vector<TroubleRow> readTroubleRows(const SystemFiles& files) {
  std::vector<std::string> labels;
  for (const CountedRow& row : kTroubleRows) {
    labels.emplace_back(row.label);
  }
  auto counts = parseInterruptRows(files.text("proc/interrupts").value_or(""), labels);
  std::vector<TroubleRow> rows;
  for (const CountedRow& row : kTroubleRows) {
    if (const auto found = counts.find(row.label); found != counts.end()) {
      rows.push_back({row.label, row.trouble, std::move(found->second)});
    }
  }
  return rows;
}

}  // namespace TarvexDiags::Watching
