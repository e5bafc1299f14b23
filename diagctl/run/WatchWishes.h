#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "watch/Watch.h"

namespace TarvexDiags::FrontEnd {

/// How the machine is watched while tests run.
struct WatchWishes {
  Watching::WatchSettings settings;
  /// How long after a test's end a finding still belongs to it, and how long the end of a run waits
  /// for such findings where the machine tells some late.
  std::chrono::milliseconds settle = std::chrono::seconds(3);
  /// How long after it was told what has come more of a finding is told.
  std::chrono::milliseconds again = std::chrono::minutes(10);
  /// How often the kernel is to ask processors for the errors that they corrected, while the watch
  /// lasts; nothing: as often as it does.
  std::optional<std::chrono::seconds> correctedErrorInterval;
  std::filesystem::path root = "/";  ///< where /sys, /proc and /dev are looked for
};

/// Changes one of them, or the policy, by a line of a control file: "Sources" is "off", "all" or a
/// list with commas; "Interval", "Settle", "Again" and "CorrectedErrorInterval" are times; "Root"
/// is a directory; all else is a line of the policy.
/// @throws std::invalid_argument for people, which changes nothing.
void set(WatchWishes& wishes, const std::string& key, const std::string& value);

/// The sources of "off", "all" or a list with commas.
/// @throws std::invalid_argument for people.
std::set<Watching::SourceKind> sourcesFrom(const std::string& list);

/// A time with or without a unit: "3", "500ms", "10s", "5m", "24h", "7d". 0 is one.
/// @throws std::invalid_argument for people.
std::chrono::milliseconds durationFrom(const std::string& text);

}  // namespace TarvexDiags::FrontEnd
