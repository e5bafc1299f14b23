#include "diagctl/run/WatchWishes.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "System/SysUtil.h"
#include "diagctl/terminal/Suggestion.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using std::chrono::milliseconds;

constexpr std::pair<std::string_view, std::int64_t> kUnits[] = {
    {"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60 * 1000}, {"h", 3600 * 1000}, {"d", 86'400 * 1000},
};
constexpr milliseconds kLongest = std::chrono::hours(24 * 366);
constexpr milliseconds kShortestInterval(10);

std::vector<std::string> namesOfSources() {
  std::vector<std::string> names;
  for (const Watching::SourceKind source : Watching::allSources()) {
    names.emplace_back(Watching::nameOf(source));
  }
  return names;
}

milliseconds intervalFrom(const std::string& text) {
  const milliseconds interval = durationFrom(text);
  if (interval < kShortestInterval) {
    throw std::invalid_argument(tr("'{}' is shorter than 10ms", text));
  }
  return interval;
}

std::chrono::seconds wholeSecondsFrom(const std::string& text) {
  const milliseconds time = durationFrom(text);
  if (time < std::chrono::seconds(1) || time % std::chrono::seconds(1) != milliseconds(0)) {
    throw std::invalid_argument(tr("'{}' is not a number of seconds above 0", text));
  }
  return std::chrono::duration_cast<std::chrono::seconds>(time);
}

}  // namespace

milliseconds durationFrom(const std::string& text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  const std::string_view unit(stop, static_cast<std::size_t>(end - stop));
  for (const auto& [name, factor] : kUnits) {
    if (error == std::errc() && unit == name && number >= 0 &&
        number <= kLongest.count() / factor) {
      return milliseconds(number * factor);
    }
  }
  throw std::invalid_argument(tr("'{}' is no time: 500ms, 10s, 5m, 24h, 7d, at most a year", text));
}

std::set<Watching::SourceKind> sourcesFrom(const std::string& list) {
  if (list == "off") {
    return {};
  }
  if (list == "all") {
    return {Watching::allSources().begin(), Watching::allSources().end()};
  }
  std::set<Watching::SourceKind> sources;
  std::istringstream parts(list);
  for (std::string part; std::getline(parts, part, ',');) {
    part = System::SysUtil::stripSpaces(part);
    const auto source = Watching::sourceNamed(part);
    if (!source) {
      const std::vector<std::string> names = namesOfSources();
      throw std::invalid_argument(tr("'{}' is none of off, all, {}{}", part, fmt::join(names, ", "),
                                     didYouMean(part, names)));
    }
    sources.insert(*source);
  }
  if (sources.empty()) {
    throw std::invalid_argument(tr("a list of sources is needed, or off"));
  }
  return sources;
}

void set(WatchWishes& wishes, const std::string& key, const std::string& value) {
  if (key == "Sources") {
    wishes.settings.sources = sourcesFrom(value);
  } else if (key == "Interval") {
    wishes.settings.interval = intervalFrom(value);
  } else if (key == "DiskLogInterval") {
    wishes.settings.nvmeInterval = intervalFrom(value);
  } else if (key == "Settle") {
    wishes.settle = durationFrom(value);
  } else if (key == "Again") {
    wishes.again = intervalFrom(value);
  } else if (key == "CorrectedErrorInterval") {
    wishes.correctedErrorInterval = wholeSecondsFrom(value);
  } else if (key == "Root") {
    wishes.root = value;
  } else {
    wishes.settings.policy.set(key, value);
  }
}

}  // namespace TarvexDiags::FrontEnd
