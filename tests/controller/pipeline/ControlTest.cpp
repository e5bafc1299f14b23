// The calls with which a client steers and watches the requests that it has queued.

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

TARVEX_PRIVATE_MEMBER(IdListTag, DiagCtrl::TestRequestManager::mTestRequestIdList);

namespace TarvexDiags::TestSupport {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ControlTest : public PipelineTest {
 protected:
  /// One request inside the package. @return its id.
  unsigned long queueHeld(int passes = 1) {
    alpha.holdRuns();
    const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(passes));
    EXPECT_TRUE(alpha.awaitRunning(1));
    // The running status is set before the package is entered.
    return id;
  }
  /// The first request does not come out of the package before the barrier opens, aborted or not:
  /// what is behind it stays where it is.
  void keepFirstInside(Barrier& unwinding) {
    alpha.on(Call::RunEnd, [&](const CallRecord& run) {
      if (run.requestId == 1) {
        unwinding.pass();
      }
    });
  }
  Controller::errorCode statusCall(unsigned long id) {
    Status::Status status = Status::UNKNOWN;
    return harness->getDiagnosticStatus(id, status);
  }
  Controller::errorCode progressCall(unsigned long id) {
    unsigned int progress = 0;
    return harness->getDiagnosticProgress(id, progress);
  }
  Controller::errorCode requestStatusCall(long id) {
    Request::TestRequestStatus status = Request::WAIT;
    int current = 0;
    int total = 0;
    bool stress = false;
    return harness->getRequestStatus(id, status, current, total, stress);
  }
  Controller::errorCode idListCall() {
    std::vector<unsigned long>* ids = nullptr;
    const auto code = harness->getRequestIdList(ids);
    EXPECT_NE(ids, nullptr) << "the vector comes before anything else";
    delete ids;
    return code;
  }
  Controller::errorCode getRequestCall(int id) {
    Request* found = nullptr;
    return harness->getTestRequest(id, found);
  }
  Controller::errorCode abortList(std::vector<unsigned long> ids) {
    return harness->abortTest(ids);
  }
};

// ---- Phases
// ----------------------------------------------------------------------------------------

TEST_F(ControlTest, in_idle_requests_can_be_looked_at_and_cleared_but_not_steered) {
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  ASSERT_TRUE(harness.awaitIdle());
  harness.forget();
  EXPECT_EQ(harness->abortTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(abortList({1}), Controller::INCORRECT_PHASE);
  EXPECT_EQ(abortList({}), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->abortAllTest(), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->suspendTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->resumeTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(statusCall(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(progressCall(1), Controller::INCORRECT_PHASE);
  EXPECT_THAT(harness.ctrlEvents(),
              ElementsAre("INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0",
                          "INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0",
                          "INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0"));
  harness.forget();
  EXPECT_EQ(requestStatusCall(1), Controller::SUCCESS);
  EXPECT_EQ(idListCall(), Controller::SUCCESS);
  EXPECT_EQ(getRequestCall(1), Controller::SUCCESS);
  EXPECT_EQ(harness->clearRequestIdList(), Controller::SUCCESS);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(ControlTest, in_active_requests_are_steered_and_looked_at_and_not_cleared) {
  serial();
  const unsigned long id = queueHeld();
  keepActive();
  EXPECT_EQ(harness->clearRequestIdList(), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  EXPECT_EQ(harness->resumeTest(id), Controller::SUCCESS);
  EXPECT_EQ(statusCall(id), Controller::SUCCESS);
  EXPECT_EQ(progressCall(id), Controller::SUCCESS);
  EXPECT_EQ(requestStatusCall(static_cast<long>(id)), Controller::SUCCESS);
  EXPECT_EQ(idListCall(), Controller::SUCCESS);
  EXPECT_EQ(getRequestCall(static_cast<int>(id)), Controller::SUCCESS);
  EXPECT_EQ(abortList({}), Controller::SUCCESS);
  EXPECT_EQ(abortList({id}), Controller::SUCCESS);
  EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS);
}

TEST_F(ControlTest, before_the_start_every_call_is_refused) {
  EXPECT_EQ(harness->abortTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->abortAllTest(), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->suspendTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->resumeTest(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(statusCall(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(progressCall(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(requestStatusCall(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(idListCall(), Controller::INCORRECT_PHASE);
  EXPECT_EQ(getRequestCall(1), Controller::INCORRECT_PHASE);
  EXPECT_EQ(harness->clearRequestIdList(), Controller::INCORRECT_PHASE);
}

TEST_F(ControlTest, a_wrong_phase_is_traced_except_by_the_two_that_ask_the_package) {
  harness.trace();
  serial();
  const TraceFile trace(harness.directory().path());
  const auto tracedBy = [&](const auto& call) {
    const std::size_t before = trace.count("INCORRECT_PHASE: ");
    EXPECT_EQ(call(), Controller::INCORRECT_PHASE);
    return trace.count("INCORRECT_PHASE: ") - before;
  };
  EXPECT_EQ(tracedBy([&] { return harness->abortTest(1); }), 1U);
  EXPECT_EQ(tracedBy([&] { return harness->abortAllTest(); }), 1U);
  EXPECT_EQ(tracedBy([&] { return harness->suspendTest(1); }), 1U);
  EXPECT_EQ(tracedBy([&] { return harness->resumeTest(1); }), 1U);
  EXPECT_EQ(tracedBy([&] { return statusCall(1); }), 0U);
  EXPECT_EQ(tracedBy([&] { return progressCall(1); }), 0U);
}

// ---- Unknown requests
// ------------------------------------------------------------------------------

TEST_F(ControlTest, an_unknown_id_is_answered_with_each_calls_own_code_and_request_id_zero) {
  serial();
  queueHeld();
  harness.forget();
  EXPECT_EQ(harness->abortTest(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(abortList({99}), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(harness->suspendTest(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(harness->resumeTest(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(statusCall(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(progressCall(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(requestStatusCall(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(requestStatusCall(-1), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), SizeIs(8));
  EXPECT_THAT(harness.ctrlEvents(), testing::Each("REQUEST_OBJECT_NOT_FOUND E 0"));
  harness.forget();
  EXPECT_EQ(getRequestCall(99), Controller::OBJECT_NOT_FOUND);
  EXPECT_EQ(getRequestCall(-1), Controller::OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("OBJECT_NOT_FOUND E 0", "OBJECT_NOT_FOUND E 0"));
  EXPECT_EQ(harness->abortTest(1), Controller::SUCCESS) << "the big lock is free again";
}

TEST_F(ControlTest, an_unknown_id_in_a_list_stops_it_there) {
  Barrier unwinding;
  keepFirstInside(unwinding);
  serial();
  const unsigned long first = queueHeld();
  const unsigned long second = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(abortList({first, 99, second}), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(harness.statusOf(first), Request::ABORTED);
  EXPECT_EQ(harness.statusOf(second), Request::WAIT);
  EXPECT_THAT(harness.requestIds(), ElementsAre(second));
  EXPECT_TRUE(unwinding.awaitArrival());
}

// ---- Abort
// -----------------------------------------------------------------------------------------

TEST_F(ControlTest, a_list_is_aborted_in_order) {
  serial();
  const unsigned long first = queueHeld();
  const unsigned long second = harness.queue("ALPHA", 2, {1});
  const unsigned long third = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(abortList({third, first, second}), Controller::SUCCESS);
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  const Lines events = harness.ctrlEvents();
  ASSERT_GE(events.size(), 2U);
  EXPECT_EQ(events[0], "TEST_REQUEST_ABORTED I 3");
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_EQ(alpha.living().diagnostics, 0);
}

TEST_F(ControlTest, aborting_a_finished_request_succeeds_and_it_stays_completed) {
  parallel();
  alpha.holdRunsOn("a2");
  harness.queue("ALPHA", 2, {1});
  const unsigned long finished = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(finished));
  EXPECT_EQ(harness->abortTest(finished), Controller::SUCCESS);
  EXPECT_EQ(harness.statusOf(finished), Request::COMPLETED);
  EXPECT_TRUE(request(finished).getAbortStatus());
}

TEST_F(ControlTest, an_abort_of_a_running_request_returns_as_soon_as_the_package_was_told) {
  Barrier unwinding;
  alpha.on(Call::RunEnd, [&](const CallRecord&) { unwinding.pass(); });
  serial();
  const unsigned long id = queueHeld();
  EXPECT_EQ(harness->abortTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.running(), 1) << "it is still unwinding";
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  EXPECT_EQ(requestStatusCall(static_cast<long>(id)), Controller::SUCCESS);
  unwinding.open();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(ControlTest, an_abort_between_return_and_verdict_only_sets_the_flag) {
  alpha.setHabits({.neverCompletes = true});
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  EXPECT_EQ(harness->abortTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Abort), 0U);
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("TEST_REQUEST_ABORTED W 1"));
}

TEST_F(ControlTest, a_failing_release_is_reported_and_the_abort_goes_on) {
  serial();
  queueHeld();
  const unsigned long queued = harness.queue("ALPHA", 2, {1});
  steps.refuseReleases(1);
  EXPECT_EQ(harness->abortTest(queued), Controller::SUCCESS);
  EXPECT_THAT(harness.ctrlEvents(),
              ElementsAre("RELEASE_LIBRARY_FAILED E 0", "TEST_REQUEST_ABORTED I 2"));
  EXPECT_EQ(request(queued).getTestRequestStatus(-1), Request::ABORTED);
  TestSupport::endTestProcess(HasFailure());  // the loader's lock stays held after a failed release
}

TEST_F(ControlTest, abort_all_aborts_what_is_on_the_list_and_leaves_the_ids_there) {
  Barrier unwinding;
  keepFirstInside(unwinding);
  serial();
  const unsigned long running = queueHeld();
  const unsigned long queued = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
  EXPECT_EQ(harness.statusOf(running), Request::ABORTED);
  EXPECT_EQ(harness.statusOf(queued), Request::ABORTED);
  EXPECT_TRUE(unwinding.awaitArrival());
  unwinding.open();
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_THAT(harness.requestIds(), ElementsAre(queued)) << "nobody takes this one off";
  EXPECT_THAT(harness.ctrlEventsOf(queued),
              ElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W"));
}

TEST_F(ControlTest, a_second_abort_all_starts_afresh) {
  serial();
  queueHeld();
  keepActive();
  EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS);
  EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS);
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

// The shut-down has announced itself and waits for the call that holds the big lock.
TEST_F(ControlTest, abort_all_waits_its_turn_although_a_shut_down_is_waiting) {
  serial();
  const unsigned long id = queueHeld();
  Barrier inside;
  alpha.on(Call::Suspend, [&](const CallRecord&) { inside.pass(); });
  const Companion holder([&] { harness->suspendTest(id); });
  ASSERT_TRUE(inside.awaitArrival());
  const Companion stopper([&] { harness.shutDown(); });
  ASSERT_TRUE(eventually([&] { return harness->getShutDownFlag(); }));
  ASSERT_TRUE(stopper.blocks()) << "in front of the client, or it would abort once more";
  const Companion client([&] { harness->abortAllTest(); });
  EXPECT_TRUE(client.blocks());
  EXPECT_EQ(alpha.count(Call::Abort), 0U);
  inside.open();
  EXPECT_TRUE(client.ends());
  EXPECT_TRUE(stopper.ends());
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
}

/// The list of unfinished requests names an id that the map has lost.
class VanishedIdTest : public ControlTest {
 protected:
  VanishedIdTest() {
    serial();
    queueHeld();
    privateMember<IdListTag>(managers()).push_front(99);
  }
};

TEST_F(VanishedIdTest, makes_abort_all_fail_and_every_later_one_until_a_shut_down) {
  EXPECT_EQ(harness->abortAllTest(), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("REQUEST_OBJECT_NOT_FOUND E 0"));
  harness.forget();
  EXPECT_EQ(harness->abortAllTest(), Controller::ABORT_ALL_ALREADY_IN_PROCESS);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("ABORT_ALL_ALREADY_IN_PROCESS W 0"));
  const Companion client([&] { harness->suspendTest(1); });
  EXPECT_TRUE(client.blocks()) << "the refused call keeps the big lock";
  TestSupport::endTestProcess(HasFailure());
}

TEST_F(VanishedIdTest, leaves_the_big_lock_free_for_other_calls) {
  EXPECT_EQ(harness->abortAllTest(), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(harness->abortTest(1), Controller::SUCCESS);
  EXPECT_EQ(harness.statusOf(1), Request::ABORTED);
  EXPECT_EQ(harness.shutDown(), Controller::SUCCESS);
  alpha.releaseRuns();
  harness.start();
  queueHeld();
  EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS) << "a shut-down clears the flag";
}

// ---- Suspend and resume
// ------------------------------------------------------------------------------

TEST_F(ControlTest, a_running_request_is_suspended_and_goes_on_when_resumed) {
  serial();
  alpha.everyPass({.duration = std::chrono::milliseconds(50)});
  const unsigned long id = queueHeld();
  EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Suspend), 1U);
  Status::Status status = Status::UNKNOWN;
  EXPECT_EQ(harness->getDiagnosticStatus(id, status), Controller::SUCCESS);
  EXPECT_EQ(status, Status::SUSPENDED);
  EXPECT_EQ(harness.statusOf(id), Request::RUNNING) << "a request has no such status";
  alpha.releaseRuns();
  EXPECT_TRUE(neverWithin(std::chrono::milliseconds(150), [&] { return alpha.running() == 0; }));
  EXPECT_EQ(harness->resumeTest(id), Controller::SUCCESS);
  EXPECT_TRUE(harness.awaitEnd(id));
}

TEST_F(ControlTest, a_waiting_request_is_suspended_at_the_start_of_its_pass) {
  serial();
  const unsigned long running = queueHeld();
  const unsigned long waiting = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(harness->suspendTest(waiting), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Suspend), 1U);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(running));
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(150), [&] { return harness.requestIds().empty(); }));
  EXPECT_EQ(harness->resumeTest(waiting), Controller::SUCCESS);
  EXPECT_TRUE(harness.awaitEnd(waiting));
}

TEST_F(ControlTest, a_package_that_is_neither_executing_nor_ready_is_not_suspended) {
  forbidTimeOuts();
  serial();
  const unsigned long id = queueHeld();
  awaitWatched(id);  // a monitor that polls would believe what is told here
  for (const auto status : {Status::SUSPENDED, Status::COMPLETED, Status::UNKNOWN}) {
    alpha.forceStatus(status);
    EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  }
  EXPECT_EQ(alpha.count(Call::Suspend), 0U);
  alpha.forceStatus(Status::READY);
  EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Suspend), 1U);
  harness->resumeTest(id);
  alpha.forceStatus(std::nullopt);
}

TEST_F(ControlTest, resuming_does_not_ask_the_package_first) {
  serial();
  const unsigned long id = queueHeld();
  alpha.forceStatus(Status::UNKNOWN);
  EXPECT_EQ(harness->resumeTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Resume), 1U);
}

TEST_F(ControlTest, a_request_that_neither_runs_nor_waits_is_left_alone) {
  alpha.setHabits({.neverCompletes = true});
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  keepActive();
  EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  EXPECT_EQ(harness->resumeTest(id), Controller::SUCCESS);
  harness->abortTest(id);
  EXPECT_EQ(harness->suspendTest(id), Controller::SUCCESS);
  EXPECT_EQ(harness->resumeTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Suspend), 0U);
  EXPECT_EQ(alpha.count(Call::Resume), 0U);
}

TEST_F(ControlTest, an_abort_wakes_a_suspended_request) {
  serial();
  const unsigned long id = queueHeld();
  harness->suspendTest(id);
  harness->abortTest(id);
  EXPECT_TRUE(harness.awaitIdle());
  EXPECT_EQ(alpha.living().diagnostics, 0);
}

// ---- Watching
// ----------------------------------------------------------------------------------------

TEST_F(ControlTest, status_and_progress_come_from_the_package) {
  serial();
  alpha.setProgress(33);
  const unsigned long id = queueHeld();
  Status::Status status = Status::UNKNOWN;
  unsigned int progress = 0;
  EXPECT_EQ(harness->getDiagnosticStatus(id, status), Controller::SUCCESS);
  EXPECT_EQ(harness->getDiagnosticProgress(id, progress), Controller::SUCCESS);
  EXPECT_EQ(status, Status::EXECUTING);
  EXPECT_EQ(progress, 33U);
}

TEST_F(ControlTest, the_status_of_a_request_is_told_while_it_lives_and_after_its_end) {
  serial();
  const unsigned long id = queueHeld(3);
  const auto read = [&](int& current, int& total) {
    Request::TestRequestStatus status = Request::ABORTED;
    bool stress = true;
    EXPECT_EQ(harness->getRequestStatus(static_cast<long>(id), status, current, total, stress),
              Controller::SUCCESS);
    EXPECT_FALSE(stress);
    return status;
  };
  int current = 0;
  int total = 0;
  EXPECT_EQ(read(current, total), Request::RUNNING);
  EXPECT_EQ(current, 1);
  EXPECT_EQ(total, 3);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_EQ(read(current, total), Request::COMPLETED);
  EXPECT_EQ(current, 3);
}

TEST_F(ControlTest, the_list_holds_the_ids_of_unfinished_requests_oldest_first) {
  serial();
  queueHeld();
  harness.queue("ALPHA", 2, {1});
  harness.queue("ALPHA", 1, {1});
  EXPECT_THAT(harness.requestIds(), ElementsAre(1, 2, 3));
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_THAT(harness.requestIds(), IsEmpty());
}

TEST_F(ControlTest, progress_of_a_released_request_is_not_found_and_later_calls_work) {
  parallel();
  alpha.holdRunsOn("a2");
  const unsigned long other = harness.queue("ALPHA", 2, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long finished = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 1; }));
  harness.forget();
  EXPECT_EQ(progressCall(finished), Controller::IDIAGNOSTIC_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("IDIAGNOSTIC_NOT_FOUND E 0"));
  EXPECT_EQ(progressCall(other), Controller::SUCCESS);
  EXPECT_EQ(statusCall(other), Controller::SUCCESS);
}

TEST_F(ControlTest, status_of_a_released_request_is_not_found_and_blocks_later_calls_of_both) {
  parallel();
  alpha.holdRunsOn("a2");
  const unsigned long other = harness.queue("ALPHA", 2, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long finished = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 1; }));
  EXPECT_EQ(statusCall(finished), Controller::IDIAGNOSTIC_NOT_FOUND);
  const Companion progress([&] { progressCall(other); });
  const Companion status([&] { statusCall(other); });
  EXPECT_TRUE(progress.blocks());
  EXPECT_TRUE(status.blocks());
  EXPECT_EQ(requestStatusCall(static_cast<long>(other)), Controller::SUCCESS) << "others go on";
  TestSupport::endTestProcess(HasFailure());  // nobody can free the two
}

// ---- Clearing
// ----------------------------------------------------------------------------------------

TEST_F(ControlTest, clearing_destroys_the_requests_and_the_numbers_go_on) {
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_EQ(harness->clearRequestIdList(), Controller::SUCCESS);
  EXPECT_EQ(requestStatusCall(1), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(requestStatusCall(2), Controller::REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 3U);
}

TEST_F(ControlTest, the_object_of_a_request_is_handed_out_and_stays_the_controllers) {
  serial();
  const unsigned long id = queueHeld();
  EXPECT_EQ(request(id).getTestRequestId(), id);
  EXPECT_THAT(request(id).getTestIdList(), ElementsAre(1));
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
