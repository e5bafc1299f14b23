// Every client call while memory runs out on its thread: it answers with a code, lets nothing out
// that it does not name, leaves nothing half-made, and the controller goes on. Each of the first
// 500 allocations fails, then every twentieth; TARVEX_EVERY_ALLOCATION=1 tries each one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <tuple>

#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "tests/controller/lifecycle/ClientCallRows.h"
#include "tests/support/ClientCalls.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/FailingAllocation.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagnosticController;
using TestSupport::ControllerHarness;
using TestSupport::FailingAllocation;
using enum DiagnosticController::errorCode;

/// Controller events that wait for a registration.
std::size_t waitingFor(ControllerHarness& harness, long registration) {
  DiagCtrl::CtrlEventVector* fetched = nullptr;
  EXPECT_EQ(harness->getDiagnosticCtrlEvents(registration, fetched), SUCCESS);
  const std::unique_ptr<DiagCtrl::CtrlEventVector> events(fetched);
  for (const DiagCtrl::DiagCtrlEvent* event : *events) {
    delete event;
  }
  return events->size();
}

TEST(EventsWithoutMemory, an_event_that_one_registration_loses_reaches_the_next) {
  ControllerHarness harness;
  harness.initialize();
  harness.registerForAll();
  unsigned long second = 0;
  ASSERT_EQ(harness->registerForDiagCtrlEvents(&harness.callBack(), second), SUCCESS);
  bool reachedTheSecondAlone = false;
  bool hasFailed = true;
  for (unsigned long ordinal = 1; hasFailed; ++ordinal) {
    {
      const FailingAllocation failing(ordinal);
      EXPECT_NO_THROW(DiagCtrl::DiagUtil::getInstance()->pushDiagCtrlEvent(
          DiagCtrl::DiagCtrlEvent::DISABLE_TEST, Diag::DiagnosticEvent::WARNING_EVENT, 0));
      hasFailed = failing.hasFailed();
    }
    const std::size_t first = waitingFor(harness, 1);
    const std::size_t next = waitingFor(harness, static_cast<long>(second));
    reachedTheSecondAlone |= first == 0 && next == 1;
    EXPECT_TRUE(hasFailed || (first == 1 && next == 1));
  }
  EXPECT_TRUE(reachedTheSecondAlone);
}

TEST(ClientCallsWithoutMemory, are_all_in_the_table) {
  std::multiset<std::string> rows;
  for (const Row& row : allRows()) {
    rows.insert(row.name);
  }
  EXPECT_EQ(rows, TestSupport::clientCalls());
}

// ---- The attempts
// --------------------------------------------------------------------------------

/// The next allocation to fail.
unsigned long after(unsigned long ordinal) {
  const bool isEach = std::getenv("TARVEX_EVERY_ALLOCATION") != nullptr;
  return ordinal + (ordinal < 500 || isEach ? 1 : 20);
}

/// Whether the row is tried with everything traced.
class WithoutMemory : public ::testing::TestWithParam<std::tuple<Row, bool>> {
 protected:
  const Row& row() const { return std::get<Row>(GetParam()); }

  /// @return whether the allocation was reached.
  bool attempt(unsigned long ordinal) {
    row().before(stage);
    DiagnosticController::errorCode code = OUT_OF_RANGE;  // which no call answers
    bool failed = false;
    bool letOut = false;
    {
      const FailingAllocation failing(ordinal);
      try {
        code = row().call(stage);
      } catch (const std::bad_alloc&) {
        letOut = true;
      }
      failed = failing.hasFailed();
    }
    EXPECT_TRUE(!letOut || (row().mayLetOut && failed));
    EXPECT_TRUE(letOut || code != OUT_OF_RANGE);
    EXPECT_TRUE(failed || code == SUCCESS) << code;
    expectToBeAtRest(stage);
    row().after(stage);
    return failed;
  }

  Stage stage{std::get<bool>(GetParam())};
};

TEST_P(WithoutMemory, it_answers_and_the_controller_goes_on) {
  row().scene(stage);
  unsigned long attempts = 1;
  unsigned long ordinal = 1;
  while (attempt(ordinal) && !HasFailure()) {
    ordinal = after(ordinal);
    ++attempts;
  }
  ASSERT_FALSE(HasFailure()) << "at allocation " << ordinal;
  RecordProperty("attempts", std::to_string(attempts));
}

INSTANTIATE_TEST_SUITE_P(Call, WithoutMemory,
                         ::testing::Combine(::testing::ValuesIn(allRows()), ::testing::Bool()),
                         [](const ::testing::TestParamInfo<std::tuple<Row, bool>>& tried) {
                           return nameOf(std::get<Row>(tried.param)) +
                                  (std::get<bool>(tried.param) ? "_traced" : "");
                         });

}  // namespace
}  // namespace TarvexDiags::Lifecycle
