#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// @brief What a kind of finding means.
struct Rule {
  Severity severity = Severity::Warning;
  std::uint64_t failureCount = 0;        ///< so many in a run are a failure; 0: never
  std::uint64_t failureCountPerDay = 0;  ///< the same for a watch without a run; 0: never
  std::uint64_t failurePlaces = 0;       ///< so many different places in a part are; 0: never
  std::set<std::string> failureParts;    ///< findings of these parts are, such as codes
};

/// @brief What each kind of finding means for the verdict. A plain value.
class Policy {
 public:
  /// @brief The one that is shipped.
  Policy();

  const Rule& operator[](Kind kind) const { return m_rules.at(kind); }

  /// @brief Changes it by a line of a settings file: "memory-corrected" is "information",
  /// "warning", "failure" or "trouble"; "memory-corrected.failure-count",
  /// ".failure-count-per-day", ".failure-places" are numbers, 0 for never;
  /// ".failure-parts" is a list with commas.
  ///
  /// Throws std::invalid_argument, which names the key and what it may be, and changes nothing.
  void set(const std::string& key, const std::string& value);

  /// @brief All of it as lines that set() takes.
  std::vector<std::pair<std::string, std::string>> lines() const;

 private:
  std::map<Kind, Rule> m_rules;
};

/// @brief What all that was counted since the machine's start means: each day of it may bring what
/// one day may.
/// @param uptime since then; a day that has begun counts whole
Severity severitySinceStart(const Policy& policy, const Finding& finding,
                            std::chrono::seconds uptime);

/// @brief Judges findings as they come, by a policy: some are a failure only when there are many.
///
/// Not thread-safe.
class Judge {
 public:
  enum class Span { Run, Day };

  /// @param span over which findings are counted
  explicit Judge(Policy policy, Span span = Span::Run)
      : m_policy(std::move(policy)), m_span(span) {}

  [[nodiscard]] Severity judge(const Finding& finding);

 private:
  struct History {
    std::vector<std::pair<Moment, std::uint64_t>> counts;
    std::map<std::string, Moment> places;
  };

  Policy m_policy;
  Span m_span;
  std::map<std::tuple<Kind, std::string, std::string>, History> m_histories;
};

}  // namespace TarvexDiags::Watching
