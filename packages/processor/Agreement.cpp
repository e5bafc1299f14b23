#include "packages/processor/Agreement.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <thread>

#include "packages/common/RunJournal.h"
#include "packages/processor/CoreHold.h"

namespace TarvexDiags::Processor {

namespace {

/// The vote of a core, on a thread that goes there.
std::optional<std::uint64_t> voteOf(int core, Agreement::Work work, std::uint64_t seed) {
  try {
    const CoreHold hold(core);
    const std::uint64_t result = work(seed);
    const bool isClean = work(seed) == result;
    hold.requireAlone();
    return isClean ? std::optional(result) : std::nullopt;
  } catch (const CoreTakenAway&) {
    return std::nullopt;
  } catch (const Common::NotSupported&) {
    return std::nullopt;
  }
}

std::optional<std::uint64_t> majorityOf(const std::vector<Agreement::Vote>& votes) {
  for (const Agreement::Vote& vote : votes) {
    const auto equal = std::count_if(votes.begin(), votes.end(), [&](const Agreement::Vote& other) {
      return other.result == vote.result;
    });
    if (2 * static_cast<std::size_t>(equal) > votes.size()) {
      return vote.result;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> Agreement::resultOf(Work work, std::uint64_t seed) const {
  const auto known = m_results.find({work, seed});
  return known != m_results.end() ? std::optional(known->second) : std::nullopt;
}

std::vector<Agreement::Vote> Agreement::vote(Work work, std::uint64_t seed,
                                             const std::array<std::uint64_t, 2>& own) {
  std::vector<Vote> votes = votesOfOthers(work, seed);
  if (own[0] == own[1]) {
    votes.insert(votes.begin(), {m_core, own[0]});
  }
  const std::optional<std::uint64_t> majority = majorityOf(votes);
  m_results.insert_or_assign({work, seed}, majority.value_or(own[0]));
  return majority ? std::vector<Vote>() : votes;
}

std::vector<Agreement::Vote> Agreement::votesOfOthers(Work work, std::uint64_t seed) const {
  std::vector<Vote> votes;
  std::exception_ptr trouble;
  std::thread traveller([&] {
    try {
      for (const int core : m_others) {
        if (const auto vote = voteOf(core, work, seed)) {
          votes.push_back({core, *vote});
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
