// What the judge of a run fetches in a turn, with a request that is aborted and ends at each moment
// of it.

#include <gtest/gtest.h>

#include "diagctl/run/FetchOrder.h"

namespace TarvexDiags::FrontEnd {
namespace {

/// One request, which other threads abort, let tell of it and end, all between two steps of a turn.
class RequestUnderWay {
 public:
  /// @param moment the number of the step before which that happens, from 0.
  explicit RequestUnderWay(int moment) : m_moment(moment) {}

  /// A turn of the judge. @return whether it knows that the request has ended.
  bool turn() {
    return fetchInOrder([this] { return step(), m_hasHappened; },
                        [this] {
                          step();
                          hasMessage = m_hasHappened;
                        },
                        [this] {
                          step();
                          knowsAbort = m_hasHappened;
                        });
  }

  bool hasMessage = false;
  bool knowsAbort = false;

 private:
  void step() {
    m_hasHappened = m_hasHappened || m_step == m_moment;
    ++m_step;
  }

  const int m_moment;
  int m_step = 0;
  bool m_hasHappened = false;
};

constexpr int kStepsOfTwoTurns = 6;

TEST(FetchOrder, knows_the_abort_behind_each_message) {
  for (int moment = 0; moment < kStepsOfTwoTurns; ++moment) {
    RequestUnderWay request(moment);
    for (int turn = 0; turn < 2; ++turn) {
      request.turn();
      EXPECT_TRUE(request.knowsAbort || !request.hasMessage)
          << "turn " << turn << ", aborted before step " << moment;
    }
  }
}

TEST(FetchOrder, has_the_messages_of_each_end_that_it_knows) {
  for (int moment = 0; moment < kStepsOfTwoTurns; ++moment) {
    RequestUnderWay request(moment);
    for (int turn = 0; turn < 2; ++turn) {
      const bool hasEnded = request.turn();
      EXPECT_TRUE(request.hasMessage || !hasEnded)
          << "turn " << turn << ", ended before step " << moment;
    }
  }
}

TEST(FetchOrder, misses_nothing_in_the_end) {
  for (int moment = 0; moment < kStepsOfTwoTurns; ++moment) {
    RequestUnderWay request(moment);
    request.turn();
    request.turn();
    EXPECT_TRUE(request.turn() && request.hasMessage && request.knowsAbort) << moment;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
