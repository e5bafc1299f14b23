#include "watch/Policy.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace TarvexDiags::Watching {

namespace {

struct Shipped {
  Kind kind = {};
  Severity severity = {};
  std::uint64_t failureCount = 0;
  std::uint64_t failureCountPerDay = 0;
  std::uint64_t failurePlaces = 0;
};

constexpr Shipped kShipped[] = {
    // One corrected bit is a cosmic ray; several places are a module that wears out.
    {Kind::MemoryCorrected, Severity::Warning, 10, 50, 3},
    {Kind::MemoryUncorrected, Severity::Failure},
    {Kind::MemoryFailure, Severity::Failure},
    {Kind::MachineCheckCorrected, Severity::Warning},
    {Kind::MachineCheckUncorrected, Severity::Failure},
    {Kind::PcieCorrectable, Severity::Warning, 101, 101},
    {Kind::PcieNonfatal, Severity::Failure},
    {Kind::PcieFatal, Severity::Failure},
    {Kind::Throttled, Severity::Warning},
    {Kind::TemperatureCritical, Severity::Failure},
    {Kind::FanFailed, Severity::Failure},
    {Kind::SensorAlarm, Severity::Warning},
    // The kernel's own questions to a disk are among them.
    {Kind::DiskCommandFailed, Severity::Information},
    {Kind::DiskTimeout, Severity::Warning},
    {Kind::DiskInputOutput, Severity::Warning},
    {Kind::DiskMedium, Severity::Failure},
    {Kind::NvmeWarning, Severity::Failure},
    {Kind::NetworkErrors, Severity::Warning},
    {Kind::LinkLost, Severity::Warning},
    {Kind::AcceleratorError, Severity::Warning},
    {Kind::FileSystemError, Severity::Warning},
    {Kind::DeviceVanished, Severity::Trouble},
    {Kind::Lockup, Severity::Trouble},
    {Kind::HungTask, Severity::Trouble},
    {Kind::OutOfMemory, Severity::Trouble},
    {Kind::RecordsLost, Severity::Warning},
};

// NVIDIA's table of Xid errors: memory that cannot be corrected or remapped, and links or devices
// that are gone. The others may be a program's fault.
constexpr const char* kFatalXids[] = {"48", "62", "64", "74", "79", "92", "94", "95", "119", "140"};

constexpr std::pair<Severity, const char*> kSeverities[] = {
    {Severity::Information, "information"},
    {Severity::Warning, "warning"},
    {Severity::Failure, "failure"},
    {Severity::Trouble, "trouble"},
};

const char* nameOf(Severity severity) {
  return std::find_if(std::begin(kSeverities), std::end(kSeverities),
                      [&](const auto& row) { return row.first == severity; })
      ->second;
}

Severity severityFrom(const std::string& key, const std::string& value) {
  for (const auto& [severity, name] : kSeverities) {
    if (value == name) {
      return severity;
    }
  }
  throw std::invalid_argument(key + " is information, warning, failure or trouble, and not \"" +
                              value + "\"");
}

std::uint64_t numberFrom(const std::string& key, const std::string& value) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size()) {
    throw std::invalid_argument(key + " is a number, 0 for never, and not \"" + value + "\"");
  }
  return number;
}

std::set<std::string> partsFrom(std::string_view value) {
  std::set<std::string> parts;
  while (!value.empty()) {
    const std::string_view item = value.substr(0, value.find(','));
    value.remove_prefix(std::min(item.size() + 1, value.size()));
    const std::size_t first = item.find_first_not_of(' ');
    if (first != std::string_view::npos) {
      parts.emplace(item.substr(first, item.find_last_not_of(' ') + 1 - first));
    }
  }
  return parts;
}

std::string textOf(const std::set<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) {
    text += (text.empty() ? "" : ",") + part;
  }
  return text;
}

}  // namespace

Policy::Policy() {
  for (const Shipped& row : kShipped) {
    m_rules[row.kind] = {
        row.severity, row.failureCount, row.failureCountPerDay, row.failurePlaces, {}};
  }
  m_rules[Kind::AcceleratorError].failureParts = {std::begin(kFatalXids), std::end(kFatalXids)};
}

void Policy::set(const std::string& key, const std::string& value) {
  const std::size_t point = key.find('.');
  const std::optional<Kind> kind = kindNamed(key.substr(0, point));
  const std::string what = point == std::string::npos ? "" : key.substr(point + 1);
  if (!kind) {
    throw std::invalid_argument(key + " is no kind of finding");
  }
  Rule& rule = m_rules[*kind];
  if (point == std::string::npos) {
    rule.severity = severityFrom(key, value);
  } else if (what == "failure-count") {
    rule.failureCount = numberFrom(key, value);
  } else if (what == "failure-count-per-day") {
    rule.failureCountPerDay = numberFrom(key, value);
  } else if (what == "failure-places") {
    rule.failurePlaces = numberFrom(key, value);
  } else if (what == "failure-parts") {
    rule.failureParts = partsFrom(value);
  } else {
    throw std::invalid_argument(key +
                                " is unknown: a kind has failure-count, failure-count-per-day, "
                                "failure-places and failure-parts");
  }
}

std::vector<std::pair<std::string, std::string>> Policy::lines() const {
  std::vector<std::pair<std::string, std::string>> lines;
  for (const auto& [kind, rule] : m_rules) {
    const std::string name = Watching::nameOf(kind);
    lines.emplace_back(name, nameOf(rule.severity));
    lines.emplace_back(name + ".failure-count", std::to_string(rule.failureCount));
    lines.emplace_back(name + ".failure-count-per-day", std::to_string(rule.failureCountPerDay));
    lines.emplace_back(name + ".failure-places", std::to_string(rule.failurePlaces));
    lines.emplace_back(name + ".failure-parts", textOf(rule.failureParts));
  }
  return lines;
}

Severity severitySinceStart(const Policy& policy, const Finding& finding,
                            std::chrono::seconds uptime) {
  const Rule& rule = policy[finding.kind];
  constexpr std::chrono::hours kDay(24);
  const auto days = static_cast<std::uint64_t>(uptime / kDay + 1);
  const bool isFailure =
      rule.failureCountPerDay > 0 && finding.count >= rule.failureCountPerDay * days;
  return isFailure ? Severity::Failure : rule.severity;
}

Severity Judge::judge(const Finding& finding) {
  const Rule& rule = m_policy[finding.kind];
  History& history = m_histories[{finding.kind, finding.device, finding.part}];
  history.counts.emplace_back(finding.time, finding.count);
  if (!finding.place.empty()) {
    history.places[finding.place] = finding.time;
  }
  if (m_span == Span::Day) {
    const Moment begin = finding.time - std::chrono::hours(24);
    std::erase_if(history.counts, [&](const auto& count) { return count.first <= begin; });
    std::erase_if(history.places, [&](const auto& place) { return place.second <= begin; });
  }
  std::uint64_t total = 0;
  for (const auto& [time, count] : history.counts) {
    total += count;
  }
  const std::uint64_t most = m_span == Span::Run ? rule.failureCount : rule.failureCountPerDay;
  const bool isFailure = (most > 0 && total >= most) ||
                         (rule.failurePlaces > 0 && history.places.size() >= rule.failurePlaces) ||
                         rule.failureParts.contains(finding.part);
  return isFailure ? Severity::Failure : rule.severity;
}

}  // namespace TarvexDiags::Watching
