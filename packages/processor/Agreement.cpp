#include "packages/processor/Agreement.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <thread>

#include "packages/common/RunJournal.h"
#include "packages/processor/CoreHold.h"

namespace TarvexDiags::Processor {

namespace {

std::optional<std::uint64_t> cleanResult(Agreement::Work work, std::uint64_t seed) {
  const std::uint64_t first = work(seed);
  return work(seed) == first ? std::optional(first) : std::nullopt;
}

/// The vote of a core, on a thread that goes there.
std::optional<std::uint64_t> voteOf(int core, Agreement::Work work, std::uint64_t seed) {
  try {
    const CoreHold hold(core);
    const std::optional<std::uint64_t> vote = cleanResult(work, seed);
    hold.requireAlone();
    return vote;
  } catch (const CoreTakenAway&) {
    return std::nullopt;
  } catch (const Common::NotSupported&) {
    return std::nullopt;
  }
}

/// @param votes  the caller's own stands first
std::uint64_t winnerOf(const std::vector<std::uint64_t>& votes) {
  for (const std::uint64_t vote : votes) {
    const auto equal = static_cast<std::size_t>(std::count(votes.begin(), votes.end(), vote));
    if (2 * equal > votes.size()) {
      return vote;
    }
  }
  const auto other = std::find_if(votes.begin(), votes.end(),
                                  [&](std::uint64_t vote) { return vote != votes.front(); });
  return *other;
}

}  // namespace

std::uint64_t Agreement::resultOf(Work work, std::uint64_t seed) {
  const auto known = m_results.find({work, seed});
  if (known != m_results.end()) {
    return known->second;
  }
  const std::uint64_t result = winnerOf(votesOn(work, seed));
  m_results.emplace(std::pair(work, seed), result);
  return result;
}

std::vector<std::uint64_t> Agreement::votesOn(Work work, std::uint64_t seed) const {
  std::vector<std::uint64_t> votes = {work(seed)};
  std::exception_ptr trouble;
  std::thread traveller([&] {
    try {
      for (const int core : m_cores) {
        if (const auto vote = voteOf(core, work, seed)) {
          votes.push_back(*vote);
        }
      }
    } catch (const std::exception&) {
      trouble = std::current_exception();
    }
  });
  traveller.join();
  if (trouble != nullptr) {
    std::rethrow_exception(trouble);
  }
  return votes;
}

}  // namespace TarvexDiags::Processor
