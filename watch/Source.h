#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "watch/Finding.h"
#include "watch/Reason.h"

namespace TarvexDiags::Watching {

/// @brief Takes what a source has seen. Called in the thread that called the source.
class Collector {
 public:
  Collector() = default;
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;
  virtual ~Collector() = default;

  virtual void found(Finding finding) = 0;
  virtual void sampled(Sample sample) = 0;
};

/// @brief One place where kernel or hardware tell of faults. It is opened once, then looked at now
/// and then, and tells what has come since the look before.
///
/// Not thread-safe: one thread at a time. No call throws for what the machine says or lacks.
class Source {
 public:
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  virtual ~Source() = default;

  virtual SourceKind kind() const = 0;

  /// @brief Takes what there is now as what was before, and tells nothing of it.
  /// @return why there is nothing to watch; nothing when there is
  [[nodiscard]] virtual std::optional<std::string> open() = 0;

  /// @brief Instead of open(): the first look tells all that was counted since the machine started.
  /// @return as open() does
  [[nodiscard]] virtual std::optional<std::string> openSinceStart() {
    return because("nothing is counted there before somebody looks");
  }

  /// @brief Tells what has come since the last look.
  /// @param now the time that findings get where the source itself tells none
  virtual void look(Moment now, Collector& collector) = 0;

  /// @brief How long to wait between two looks, when the watch has no reason to look less often.
  virtual std::chrono::milliseconds interval() const { return std::chrono::seconds(1); }

  /// @brief What poll(2) tells to be readable when there is something to look at; -1: nothing.
  virtual int descriptor() const { return -1; }
};

}  // namespace TarvexDiags::Watching
