#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace TarvexDiags::Processor {

/// @brief Finds results that no table holds, for they depend on the libraries of the machine: what
/// most cores compute is right. Each result is looked for once and then kept.
///
/// Thread-safety: one thread.
class Agreement {
 public:
  using Work = std::uint64_t (*)(std::uint64_t seed);

  /// @param cores  those that have a vote beside the calling thread's; none is fine
  explicit Agreement(std::vector<int> cores) : m_cores(std::move(cores)) {}

  /// @brief What the work should give for the seed. Runs it on all cores, one after the other, and
  /// twice on each of the others: one that contradicts itself has no vote. When no result has more
  /// than half of the votes, the calling thread does not win: it gets the result of another core.
  /// @throws CoreTakenAway never for the cores of others: they lose their vote
  std::uint64_t resultOf(Work work, std::uint64_t seed);

 private:
  std::vector<std::uint64_t> votesOn(Work work, std::uint64_t seed) const;

  std::vector<int> m_cores;
  std::map<std::pair<Work, std::uint64_t>, std::uint64_t> m_results;
};

}  // namespace TarvexDiags::Processor
