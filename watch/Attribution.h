#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "watch/Finding.h"
#include "watch/Topology.h"

namespace TarvexDiags::Watching {

/// @brief Which tests a finding belongs to: those that ran on its device, or on what hangs on it,
/// when it came or shortly before.
///
/// Not thread-safe.
class Attribution {
 public:
  /// @param settle how long after a test's end a finding still belongs to it: kernel and hardware
  ///   tell some errors late
  explicit Attribution(Topology topology,
                       std::chrono::milliseconds settle = std::chrono::seconds(3))
      : m_topology(std::move(topology)), m_settle(settle) {}

  /// @param test any name that is not in use
  /// @param resources as in Topology::lineage
  void begin(const std::string& test, const std::vector<std::string>& resources, Moment time);
  void end(const std::string& test, Moment time);

  /// @brief The tests that a finding belongs to, in the order in which they began; none: to the run
  /// alone.
  std::vector<std::string> testsOf(const Finding& finding) const;

 private:
  struct Run {
    std::string test;
    std::set<std::string> lineage;
    Moment begin;
    std::optional<Moment> end;
  };

  std::vector<std::string> testsOf(const Finding& finding, std::chrono::milliseconds settle) const;

  Topology m_topology;
  std::chrono::milliseconds m_settle;
  std::vector<Run> m_runs;
};

}  // namespace TarvexDiags::Watching
