// What is wanted of the requests of a run, whoever judges them meanwhile. The controller has no
// life here and refuses each call: what is noted of them counts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/run/RequestControl.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class RequestControls : public ::testing::Test {
 protected:
  std::vector<unsigned long> aborted() {
    std::vector<unsigned long> requests;
    for (const RequestControl::Abort& abort : m_control.takeAborts().requests) {
      requests.push_back(abort.requestId);
    }
    return requests;
  }

  RunRequests m_wishes;
  int m_endings = 0;
  RequestControl m_control{*DiagCtrl::DiagnosticController::getInstance(), m_wishes,
                           [this] { ++m_endings; }};
};

TEST_F(RequestControls, abort_all_for_whoever_wishes_it_and_tell_it_once) {
  m_control.add(4, 1);
  m_control.add(5, 2);
  m_control.takeTurn();
  EXPECT_FALSE(m_control.isEnding());
  EXPECT_THAT(aborted(), IsEmpty());
  m_wishes.abortAll = true;
  m_control.takeTurn();
  EXPECT_EQ(m_control.ending(), Ending::Interrupted);
  EXPECT_THAT(aborted(), UnorderedElementsAre(4, 5));
  EXPECT_THAT(aborted(), IsEmpty()) << "what was fetched once";
  m_wishes.abortAll = true;
  m_control.takeTurn();
  m_control.end(Ending::Failed);
  EXPECT_EQ(m_control.ending(), Ending::Interrupted) << "the first reason stands";
  EXPECT_EQ(m_endings, 1);
}

TEST_F(RequestControls, abort_what_comes_to_a_run_that_is_ending) {
  m_control.end(Ending::Failed);
  m_control.add(7, 3);
  EXPECT_THAT(aborted(), UnorderedElementsAre(7));
}

TEST_F(RequestControls, leave_alone_what_has_ended) {
  m_control.add(4, 1);
  m_control.remove(4);
  m_control.end(Ending::Failed);
  EXPECT_THAT(aborted(), IsEmpty());
}

TEST_F(RequestControls, abort_all_requests_of_the_step_that_a_person_ends) {
  m_control.add(4, 1);
  m_control.add(5, 2);
  m_control.add(9, 1);
  m_wishes.abortStep = 1;
  m_control.takeTurn();
  const RequestControl::Aborts aborts = m_control.takeAborts();
  EXPECT_EQ(aborts.step, 1U);
  ASSERT_EQ(aborts.requests.size(), 2U);
  EXPECT_FALSE(m_control.isEnding());
  m_control.end(Ending::Interrupted);
  EXPECT_THAT(aborted(), UnorderedElementsAre(5)) << "the others were aborted before";
}

TEST_F(RequestControls, end_a_run_whose_time_is_used_up) {
  m_control.start(1000);
  m_control.takeTurn();
  EXPECT_FALSE(m_control.isEnding());
  m_control.start(0);
  m_control.takeTurn();
  EXPECT_EQ(m_control.ending(), Ending::TimeUsedUp);
}

// However an end and a new request meet, one of the two aborts it.
TEST_F(RequestControls, miss_no_request_that_is_added_while_the_run_is_ended) {
  constexpr unsigned long count = 100;
  std::atomic<unsigned long> added{0};
  std::thread adding([&] {
    for (unsigned long id = 1; id <= count; ++id) {
      m_control.add(id, id);
      added = id;
    }
  });
  while (added < count / 10) {
    std::this_thread::yield();
  }
  m_control.end(Ending::Interrupted);
  adding.join();
  EXPECT_EQ(aborted().size(), count);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
