#include "watch/CpuFiles.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <sstream>
#include <system_error>
#include <utility>

namespace TarvexDiags::Watching {

namespace {

// More CPUs than any kernel of today is built for; a list beyond it is no list.
constexpr int kMaximumCpus = 1 << 16;

bool parseNumber(std::string_view text, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= 0 &&
         number < kMaximumCpus;
}

void appendRange(std::string_view range, std::vector<int>& numbers) {
  const std::size_t dash = range.find('-');
  int first = 0;
  int last = 0;
  if (!parseNumber(range.substr(0, dash), first)) {
    return;
  }
  last = first;
  if (dash != std::string_view::npos && !parseNumber(range.substr(dash + 1), last)) {
    return;
  }
  for (int number = first; number <= last; ++number) {
    numbers.push_back(number);
  }
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos
             ? ""
             : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

int numberIn(const SystemFiles& files, const std::filesystem::path& file) {
  const std::string word = files.word(file);
  int number = -1;
  std::from_chars(word.data(), word.data() + word.size(), number);
  return number;
}

}  // namespace

std::vector<int> parseCpuList(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.remove_suffix(1);
  }
  std::vector<int> numbers;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    appendRange(text.substr(0, comma), numbers);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

std::vector<int> onlineCpus(const SystemFiles& files) {
  return parseCpuList(files.text(kCpusFolder / "online").value_or(""));
}

std::filesystem::path folderOfCpu(int number) {
  return kCpusFolder / ("cpu" + std::to_string(number));
}

std::optional<CpuPlace> placeOfCpu(const SystemFiles& files, int number) {
  const std::filesystem::path topology = folderOfCpu(number) / "topology";
  if (files.word(topology / "physical_package_id").empty()) {
    return std::nullopt;
  }
  return CpuPlace{numberIn(files, topology / "physical_package_id"),
                  numberIn(files, topology / "die_id"), numberIn(files, topology / "core_id")};
}

// Lines "key<tabs>: value", one paragraph for each processor. Some architectures tell of the whole
// machine in a paragraph of its own.
std::map<int, CpuRows> readCpuRows(const SystemFiles& files) {
  std::map<int, CpuRows> processors;
  CpuRows rows;
  const auto finish = [&] {
    int number = 0;
    if (const auto found = rows.find("processor");
        found != rows.end() && parseNumber(found->second, number)) {
      processors[number] = std::move(rows);
    }
    rows = {};
  };
  std::istringstream text(files.text("proc/cpuinfo").value_or(""));
  for (std::string line; std::getline(text, line);) {
    const std::size_t colon = line.find(':');
    if (line.empty()) {
      finish();
    } else if (colon != std::string::npos) {
      const std::string_view row = line;
      rows[std::string(trimmed(row.substr(0, colon)))] = trimmed(row.substr(colon + 1));
    }
  }
  finish();
  return processors;
}

const char* nameOf(HeatCounter counter) {
  return counter == HeatCounter::OfCore ? "core_throttle_count" : "package_throttle_count";
}

// Documentation/ABI/testing/sysfs-devices-system-cpu of the kernel.
std::optional<std::uint64_t> timesThrottled(const SystemFiles& files, int cpu,
                                            HeatCounter counter) {
  return files.number(folderOfCpu(cpu) / "thermal_throttle" / nameOf(counter));
}

}  // namespace TarvexDiags::Watching
