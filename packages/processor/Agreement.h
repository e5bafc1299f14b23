#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
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

  /// @brief What a core made of the work. Thread-safety: a plain value.
  struct Vote {
    int core = 0;
    std::uint64_t result = 0;
  };

  /// @param core    that of the calling thread
  /// @param others  those that have a vote beside it; none is fine
  Agreement(int core, std::vector<int> others) : m_core(core), m_others(std::move(others)) {}

  /// @brief What the work should give for the seed; nothing before a vote on it.
  std::optional<std::uint64_t> resultOf(Work work, std::uint64_t seed) const;

  /// @brief Lets each of the other cores do the work, one after the other, and keeps what more than
  /// half of all came to. A core that contradicts itself, or is not there, has no vote. When no
  /// result has a majority, what the calling thread's core made of it is kept: it must stand by
  /// that.
  /// @param own  what that core made of the work, twice
  /// @return the votes when there is no majority: at least one of these cores computes wrongly
  std::vector<Vote> vote(Work work, std::uint64_t seed, const std::array<std::uint64_t, 2>& own);

 private:
  std::vector<Vote> votesOfOthers(Work work, std::uint64_t seed) const;

  int m_core;
  std::vector<int> m_others;
  std::map<std::pair<Work, std::uint64_t>, std::uint64_t> m_results;
};

}  // namespace TarvexDiags::Processor
