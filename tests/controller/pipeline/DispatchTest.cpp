// From the queue to the package and back to the locks: what the dispatcher starts, when and in
// which order, and what a pass thread gives the package and makes of its answer.

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/GlobalSettings.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::TestSupport {

namespace {

using DeviceEnum::IDevice;
using DiagCtrl::ExecutionManagerThread;
using DiagCtrl::GlobalSettings;
using DiagCtrl::ResourceLockManager;
using DiagCtrl::TestRequestManager;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class DispatchTest : public PipelineTest {
 protected:
  unsigned long queueHalting(unsigned int device, std::vector<int> tests, Settings wanted) {
    unsigned long id = 0;
    EXPECT_EQ(harness->queueTest(harness.indexOf("ALPHA"), device, tests, wanted, true, id),
              Controller::SUCCESS);
    return id;
  }
  /// The devices of the passes so far, in the order of their begin.
  Lines devicesRun() const {
    Lines devices;
    for (const CallRecord& run : alpha.calls(Call::RunEnter)) {
      devices.push_back(run.device);
    }
    return devices;
  }
  std::vector<unsigned int> requestsRun() const {
    std::vector<unsigned int> ids;
    for (const CallRecord& run : alpha.calls(Call::RunEnter)) {
      ids.push_back(run.requestId);
    }
    return ids;
  }
  CallRecord onlyRun() const {
    const auto runs = alpha.calls(Call::RunEnter);
    EXPECT_EQ(runs.size(), 1U);
    return runs.empty() ? CallRecord{} : runs.front();
  }
};

/// The same in SERIAL and in PARALLEL.
class DispatchInBothModes : public DispatchTest, public testing::WithParamInterface<bool> {
 protected:
  void start() { startIn(GetParam()); }
};

std::string modeName(const testing::TestParamInfo<bool>& info) {
  return info.param ? "Parallel" : "Serial";
}
INSTANTIATE_TEST_SUITE_P(Modes, DispatchInBothModes, testing::Bool(), modeName);

// ---- One request -----------------------------------------------------------------------------

TEST_P(DispatchInBothModes, a_request_runs_reports_and_leaves_the_controller_idle) {
  alpha.everyPass({.events = {{.code = 7}}, .results = {Scripted::Result{}, Scripted::Result{}}});
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {2, 1});
  ASSERT_TRUE(harness.awaitEnd(id));
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_EQ(id, 1U);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  EXPECT_THAT(harness.events(), ElementsAre("7 I 1"));
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1", "PASSED 1"));
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
  EXPECT_EQ(alpha.living().diagnostics, 0);
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  EXPECT_THAT(onlyRun().tests, ElementsAre(2, 1)) << "in the order of the list";
}

TEST_P(DispatchInBothModes, the_pass_thread_gets_the_device_the_id_and_the_number_of_the_pass) {
  start();
  const unsigned long first = harness.queue("ALPHA", 2, {3}, settings(2));
  ASSERT_TRUE(harness.awaitEnd(first));
  const auto runs = alpha.calls(Call::RunEnter);
  ASSERT_THAT(runs, SizeIs(2));
  for (const CallRecord& run : runs) {
    EXPECT_EQ(run.device, "a2");
    EXPECT_EQ(run.requestId, first);
    EXPECT_EQ(run.object, runs[0].object) << "all passes of a request share one object";
    EXPECT_FALSE(run.stress);
    EXPECT_FALSE(run.estimation);
  }
  EXPECT_EQ(runs[0].pass, 1);
  EXPECT_EQ(runs[1].pass, 2);
}

TEST_P(DispatchInBothModes, a_request_is_running_inside_the_package_and_marked_so) {
  alpha.holdRuns();
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(harness.statusOf(id), Request::RUNNING);
  EXPECT_FALSE(request(id).getToBeDroppedFlag());
  EXPECT_TRUE(request(id).getMonitored());
  EXPECT_FALSE(isTagFree("a/1"));
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_TRUE(request(id).getExecutedOnce());
}

TEST_P(DispatchInBothModes, a_returned_request_is_requeued_until_the_monitor_has_judged_it) {
  alpha.setHabits({.neverCompletes = true});
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  EXPECT_TRUE(request(id).getToBeDroppedFlag());
  EXPECT_TRUE(request(id).getMonitored());
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); })) << "the pass thread gave its lock back";
}

// ---- Test numbers ------------------------------------------------------------------------------

TEST_P(DispatchInBothModes, an_empty_list_means_every_enabled_test_in_ascending_order) {
  harness.packages().writeConfig("ALPHA", PackageConfig(4).withdrawTest(3));
  start();
  ASSERT_TRUE(harness.awaitEnd(harness.queueAllTests("ALPHA", 1)));
  EXPECT_THAT(onlyRun().tests, ElementsAre(1, 2, 4));
}

TEST_P(DispatchInBothModes,
       a_listed_test_that_is_disabled_is_left_out_with_a_warning_at_each_pass) {
  harness.packages().writeConfig("ALPHA", PackageConfig(3).disableDevices(2, {"a1"}));
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {3, 2, 1}, settings(2));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("DISABLE_TEST W", "DISABLE_TEST W", "DROP_REQUEST_ON_COMPLETION I"));
  for (const CallRecord& run : alpha.calls(Call::RunEnter)) {
    EXPECT_THAT(run.tests, ElementsAre(3, 1));
  }
}

TEST_P(DispatchInBothModes, a_request_without_an_enabled_test_ends_aborted_and_the_next_one_runs) {
  harness.packages().writeConfig(
      "ALPHA", PackageConfig(3).disableDevices(1, {"a1"}).disableDevices(2, {"a1"}));
  start();
  forbidTimeOuts();
  const unsigned long id = harness.queue("ALPHA", 1, {2, 1, 99});
  const unsigned long good = harness.queue("ALPHA", 1, {3});
  ASSERT_TRUE(harness.awaitEnd(id));
  ASSERT_TRUE(harness.awaitEnd(good));
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
  EXPECT_EQ(harness.statusOf(good), Request::COMPLETED);
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("DISABLE_TEST W", "DISABLE_TEST W", "DISABLE_TEST W",
                          "NO_TEST_ENABLE_TO_EXECUTE W", "TEST_REQUEST_ABORTED W"));
  EXPECT_EQ(onlyRun().requestId, good);
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  EXPECT_EQ(alpha.living().diagnostics, 0);
}

TEST_P(DispatchInBothModes, a_whole_device_without_an_enabled_test_ends_aborted) {
  harness.packages().writeConfig("ALPHA", PackageConfig(1).disableDevices(1, {"a1"}));
  start();
  const unsigned long id = harness.queueAllTests("ALPHA", 1);
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("NO_TEST_ENABLE_TO_EXECUTE W", "TEST_REQUEST_ABORTED W"));
  EXPECT_TRUE(harness.awaitIdle());
}

// ---- Open mode ---------------------------------------------------------------------------------

TEST_F(DispatchTest, one_listed_test_opens_the_device_as_its_declaration_says) {
  struct Row {
    const char* declared;
    IDevice::AccessMode mode;
  };
  const std::vector<Row> rows = {{"READ_ONLY", IDevice::READ_ONLY},
                                 {"WRITE_ONLY", IDevice::WRITE_ONLY},
                                 {"QUERY", IDevice::QUERY},
                                 {"READ_WRITE", IDevice::READ_WRITE},
                                 {"query", IDevice::READ_WRITE},
                                 {"", IDevice::READ_WRITE},
                                 {"xREAD_ONLYx", IDevice::READ_ONLY},
                                 {"WRITE_ONLY READ_ONLY", IDevice::READ_ONLY},
                                 {"QUERY WRITE_ONLY", IDevice::WRITE_ONLY}};
  PackageConfig config(static_cast<int>(rows.size()));
  for (std::size_t row = 0; row < rows.size(); ++row) {
    config.openMode(static_cast<int>(row) + 1, rows[row].declared);
  }
  harness.packages().writeConfig("ALPHA", config);
  serial();
  for (std::size_t row = 0; row < rows.size(); ++row) {
    ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {static_cast<int>(row) + 1})));
    EXPECT_EQ(alpha.calls(Call::RunEnter).back().openMode, rows[row].mode) << rows[row].declared;
  }
}

TEST_F(DispatchTest, several_tests_or_none_listed_open_the_device_for_reading_and_writing) {
  harness.packages().writeConfig("ALPHA",
                                 PackageConfig(2).openMode(1, "QUERY").openMode(2, "QUERY"));
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1, 2})));
  ASSERT_TRUE(harness.awaitEnd(harness.queueAllTests("ALPHA", 1)));
  for (const CallRecord& run : alpha.calls(Call::RunEnter)) {
    EXPECT_EQ(run.openMode, IDevice::READ_WRITE);
  }
}

TEST_F(DispatchTest, the_list_as_queued_decides_the_open_mode_not_what_is_left_of_it) {
  harness.packages().writeConfig("ALPHA",
                                 PackageConfig(2).openMode(1, "QUERY").disableDevices(2, {"a1"}));
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1, 2})));
  EXPECT_THAT(onlyRun().tests, ElementsAre(1));
  EXPECT_EQ(onlyRun().openMode, IDevice::READ_WRITE);
}

// ---- Halting -----------------------------------------------------------------------------------

struct HaltCase {
  Diag::DiagnosticResult::TestResult result;
  int passes;
  bool halts;
  int runs;
};

class HaltTest : public DispatchTest, public testing::WithParamInterface<HaltCase> {};

TEST_P(HaltTest, a_bad_result_halts_only_when_asked_and_only_requests_of_several_passes) {
  alpha.everyPass(ending(GetParam().result));
  serial();
  const bool mustEndEarly = GetParam().halts && GetParam().runs < GetParam().passes;
  const unsigned long id = GetParam().halts
                               ? queueHalting(1, {1}, settings(GetParam().passes))
                               : harness.queue("ALPHA", 1, {1}, settings(GetParam().passes));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(alpha.calls(Call::RunEnter), SizeIs(GetParam().runs));
  EXPECT_THAT(harness.results(), SizeIs(GetParam().runs));
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
  EXPECT_EQ(request(id).getHaltedStatus(), mustEndEarly);
  EXPECT_THAT(harness.ctrlEventsOf(id), mustEndEarly ? Lines({"ERROR_RECVD_AND_HALT_ON_ERROR E",
                                                              "DROP_REQUEST_ON_COMPLETION I"})
                                                     : Lines({"DROP_REQUEST_ON_COMPLETION I"}));
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
}

INSTANTIATE_TEST_SUITE_P(
    Table, HaltTest,
    testing::Values(HaltCase{Diag::DiagnosticResult::FAILED, 1, true, 1},
                    HaltCase{Diag::DiagnosticResult::FAILED, 3, false, 3},
                    HaltCase{Diag::DiagnosticResult::FAILED, 3, true, 1},
                    HaltCase{Diag::DiagnosticResult::UNUSUAL_STATUS, 1, true, 1},
                    HaltCase{Diag::DiagnosticResult::UNUSUAL_STATUS, 3, true, 1},
                    HaltCase{Diag::DiagnosticResult::PASSED, 3, true, 3}));

TEST_F(DispatchTest, a_later_bad_pass_halts_as_well) {
  alpha.planPasses([](const CallRecord& run) {
    return ending(run.pass == 2 ? Result::FAILED : Result::PASSED);
  });
  serial();
  const unsigned long id = queueHalting(1, {1}, settings(5));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1", "FAILED 1"));
}

TEST_F(DispatchTest, the_run_wide_setting_halts_requests_that_say_nothing_themselves) {
  harness.control().haltOnError();
  alpha.everyPass(ending(Result::FAILED));
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, settings(3))));
  EXPECT_THAT(alpha.calls(Call::RunEnter), SizeIs(1));
}

// ---- Abort and the pass thread
// ------------------------------------------------------------------------

TEST_P(DispatchInBothModes, an_abort_in_the_package_tells_it_and_ends_the_request) {
  alpha.holdRuns();
  start();
  forbidTimeOuts();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(3));
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(harness->abortTest(id), Controller::SUCCESS);
  EXPECT_THAT(harness.requestIds(), IsEmpty()) << "off the list at once";
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("TEST_REQUEST_ABORTED W", "TEST_REQUEST_ABORTED W"))
      << "the pass thread's and the monitor's";
  EXPECT_THAT(harness.results(), ElementsAre("UNUSUAL_STATUS 1"));
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(DispatchTest, the_result_of_an_aborted_pass_is_judged_and_can_halt) {
  alpha.holdRuns();
  serial();
  const unsigned long id = queueHalting(1, {1}, settings(3));
  ASSERT_TRUE(alpha.awaitRunning(1));
  harness->abortTest(id);
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  // The monitor may drop an aborted request before its pass thread has judged the result.
  EXPECT_THAT(
      harness.ctrlEventsOf(id),
      testing::UnorderedElementsAre("TEST_REQUEST_ABORTED W", "ERROR_RECVD_AND_HALT_ON_ERROR E",
                                    "TEST_REQUEST_ABORTED W"));
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
  EXPECT_TRUE(request(id).getHaltedStatus());
}

TEST_F(DispatchTest, a_request_aborted_in_a_queue_never_gets_a_pass_thread) {
  alpha.holdRuns();
  serial();
  const unsigned long running = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long queued = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(harness->abortTest(queued), Controller::SUCCESS);
  EXPECT_THAT(harness.ctrlEventsOf(queued), ElementsAre("TEST_REQUEST_ABORTED I"));
  EXPECT_EQ(alpha.living().diagnostics, 1) << "released on the caller's thread";
  EXPECT_EQ(alpha.calls(Call::DestroyDiagnostics).back().thread, std::this_thread::get_id());
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(running));
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_THAT(harness.ctrlEventsOf(queued),
              ElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W"));
  EXPECT_TRUE(request(queued).getToBeDroppedFlag());
  EXPECT_EQ(harness.statusOf(queued), Request::ABORTED);
  EXPECT_THAT(requestsRun(), ElementsAre(running));
  EXPECT_EQ(managers().countQueuedEntries(&request(queued)), 0);
}

// ---- Run modes
// -----------------------------------------------------------------------------------

TEST_F(DispatchTest, serial_runs_one_at_a_time_in_the_order_of_queueing) {
  alpha.everyPass({.duration = std::chrono::milliseconds(3)});
  serial();
  std::vector<unsigned long> ids;
  for (unsigned int i = 0; i < 6; ++i) {
    ids.push_back(harness.queue("ALPHA", 1 + i % 2, {1}));
  }
  ASSERT_TRUE(harness.awaitEnd(ids.back()));
  EXPECT_EQ(alpha.mostRunning(), 1);
  EXPECT_THAT(requestsRun(), ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(DispatchTest, parallel_runs_different_tags_side_by_side) {
  alpha.holdRuns();
  parallel();
  harness.queue("ALPHA", 1, {1});
  harness.queue("ALPHA", 2, {1});
  EXPECT_TRUE(alpha.awaitRunning(2));
}

TEST_F(DispatchTest, a_second_request_on_a_tag_waits_without_an_event_and_runs_later) {
  alpha.holdRunsOn("a1");
  parallel();
  const unsigned long first = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long second = harness.queue("ALPHA", 1, {1});
  const unsigned long third = harness.queue("ALPHA", 1, {1});
  const unsigned long other = harness.queue("ALPHA", 2, {1});
  ASSERT_TRUE(harness.awaitEnd(other));
  EXPECT_EQ(alpha.running(), 1);
  EXPECT_THAT(harness.ctrlEventsOf(second), IsEmpty());
  forbidTimeOuts();
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(second));
  ASSERT_TRUE(harness.awaitEnd(third));
  EXPECT_THAT(requestsRun(), testing::UnorderedElementsAre(first, other, second, third));
  EXPECT_EQ(requestsRun()[1], other);
}

TEST_F(DispatchTest, a_parent_and_its_child_exclude_each_other_and_two_children_do_not) {
  alpha.setDevices({{.tag = "p", .name = "parent"},
                    {.tag = "p/x", .name = "left"},
                    {.tag = "p/y", .name = "right"}});
  alpha.holdRuns();
  parallel();
  harness.queue("ALPHA", 2, {1});
  harness.queue("ALPHA", 1, {1});
  harness.queue("ALPHA", 3, {1});
  ASSERT_TRUE(alpha.awaitCalls(Call::RunEnter, 2));
  EXPECT_THAT(devicesRun(), testing::UnorderedElementsAre("left", "right"));
  alpha.releaseRunsOn("left");
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(2));
  EXPECT_EQ(devicesRun().back(), "parent");
}

TEST_F(DispatchTest, equal_last_components_exclude_each_other_wherever_they_hang) {
  alpha.setDevices({{.tag = "p/x", .name = "one"}, {.tag = "q/x", .name = "two"}});
  alpha.everyPass({.duration = std::chrono::milliseconds(20)});
  parallel();
  harness.queue("ALPHA", 1, {1});
  const unsigned long second = harness.queue("ALPHA", 2, {1});
  ASSERT_TRUE(harness.awaitEnd(second));
  EXPECT_EQ(alpha.mostRunning(), 1);
}

TEST_F(DispatchTest, a_tag_that_nobody_registered_refuses_for_ever_without_an_event) {
  parallel();
  ResourceLockManager::getInstance()->removeResourceLock("a/1", -1);
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(300), [&] { return alpha.count(Call::RunEnter) > 0; }));
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_THAT(harness.requestIds(), ElementsAre(id));
  ResourceLockManager::getInstance()->createResourceLock("a/1", -1);
  EXPECT_TRUE(harness.awaitEnd(id));
}

TEST_F(DispatchTest, the_mode_is_read_anew_for_each_request) {
  alpha.holdRuns();
  serial();
  EXPECT_EQ(harness->setRunMode(GlobalSettings::PARALLEL), Controller::SUCCESS);
  harness.queue("ALPHA", 1, {1});
  harness.queue("ALPHA", 2, {1});
  EXPECT_TRUE(alpha.awaitRunning(2));
}

TEST_P(DispatchInBothModes, a_whole_package_of_two_devices_runs_on_both) {
  start();
  forbidTimeOuts();
  const auto ids = harness.queuePackage("ALPHA");
  const auto more = harness.queuePackage("ALPHA");
  for (const unsigned long id : {ids[0], ids[1], more[0], more[1]}) {
    EXPECT_TRUE(harness.awaitEnd(id));
  }
  EXPECT_THAT(devicesRun(), testing::UnorderedElementsAre("a1", "a1", "a2", "a2"));
}

// ---- The system lock
// -------------------------------------------------------------------------------

class SystemLockTest : public DispatchTest {
 protected:
  SystemLockTest() : whole(harness.addPackage("WHOLE", PackageConfig(1).systemLock())) {}
  Script& whole;
};

TEST_F(SystemLockTest, a_package_with_the_system_lock_waits_for_running_tests_and_then_runs_alone) {
  alpha.holdRuns();
  whole.holdRuns();
  parallel();
  const unsigned long small = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(harness.awaitCtrlEvent("UNABLE_TO_PROCESS_TEST_REQUEST E 2"));
  EXPECT_TRUE(neverWithin(std::chrono::milliseconds(150), [&] { return whole.running() > 0; }));
  EXPECT_LE(managers().countQueuedEntries(&request(big)), 2);
  alpha.releaseRuns();
  ASSERT_TRUE(whole.awaitRunning(1));
  EXPECT_TRUE(ResourceLockManager::getInstance()->getSystemLockFlag());
  const unsigned long late = harness.queue("ALPHA", 2, {1});
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(150), [&] { return alpha.count(Call::RunEnter) > 1; }));
  whole.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(late));
  EXPECT_TRUE(harness.awaitIdle());
  EXPECT_EQ(whole.count(Call::RunEnter), 1U);
  EXPECT_FALSE(ResourceLockManager::getInstance()->getSystemLockFlag());
  EXPECT_THAT(harness.ctrlEventsOf(small), ElementsAre("DROP_REQUEST_ON_COMPLETION I"));
  Lines ofBig = harness.ctrlEventsOf(big);
  EXPECT_EQ(ofBig.back(), "DROP_REQUEST_ON_COMPLETION I");
  ofBig.pop_back();
  EXPECT_THAT(ofBig, Each("UNABLE_TO_PROCESS_TEST_REQUEST E"));
}

TEST_F(SystemLockTest, a_refused_system_lock_request_stands_twice_in_its_queue_and_never_more) {
  alpha.holdRuns();
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(harness.awaitCtrlEvent("UNABLE_TO_PROCESS_TEST_REQUEST E 2"));
  EXPECT_TRUE(eventually([&] { return managers().countQueuedEntries(&request(big)) == 2; }));
  EXPECT_TRUE(neverWithin(std::chrono::milliseconds(100),
                          [&] { return managers().countQueuedEntries(&request(big)) > 2; }));
  EXPECT_EQ(request(big).getTestRequestStatus(-1), Request::WAIT) << "it did not fail";
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(big));
  EXPECT_TRUE(harness.awaitIdle());
  EXPECT_EQ(whole.count(Call::RunEnter), 1U) << "the second entry falls out";
  EXPECT_EQ(managers().countQueuedEntries(&request(big)), 0);
}

TEST_F(SystemLockTest, the_machine_is_not_given_while_a_pass_thread_is_on_its_last_statements) {
  Barrier leaving;
  alpha.on(Call::RunReturn, [&](const CallRecord&) { leaving.pass(); });
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(leaving.awaitArrival());
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(harness.awaitCtrlEvent("UNABLE_TO_PROCESS_TEST_REQUEST E 2"));
  EXPECT_TRUE(eventually([&] { return managers().getTestReqExecQueueSize() == 0; }));
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(100), [&] { return whole.count(Call::RunEnter) > 0; }));
  leaving.open();
  EXPECT_TRUE(harness.awaitEnd(big));
}

TEST_F(SystemLockTest, serial_runs_a_system_lock_package_in_its_turn) {
  serial();
  forbidTimeOuts();
  std::vector<unsigned long> ids;
  for (int i = 0; i < 3; ++i) {
    ids.push_back(harness.queue("ALPHA", 1, {1}));
    ids.push_back(harness.queue("WHOLE", 1, {1}));
  }
  for (const unsigned long id : ids) {
    EXPECT_TRUE(harness.awaitEnd(id));
  }
  EXPECT_EQ(whole.count(Call::RunEnter), 3U);
  EXPECT_THAT(harness.ctrlEvents(), Not(Contains(testing::HasSubstr("UNABLE"))));
}

TEST_F(SystemLockTest, an_aborted_system_lock_request_gives_the_machine_back) {
  whole.holdRuns();
  parallel();
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(whole.awaitRunning(1));
  const unsigned long small = harness.queue("ALPHA", 1, {1});
  harness->abortTest(big);
  EXPECT_TRUE(harness.awaitEnd(small));
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(SystemLockTest, several_passes_with_the_system_lock_take_it_for_each) {
  parallel();
  const unsigned long big = harness.queue("WHOLE", 1, {1}, settings(3));
  const unsigned long small = harness.queue("ALPHA", 1, {1}, settings(3));
  ASSERT_TRUE(harness.awaitEnd(big));
  ASSERT_TRUE(harness.awaitEnd(small));
  EXPECT_EQ(whole.count(Call::RunEnter), 3U);
  EXPECT_EQ(alpha.count(Call::RunEnter), 3U);
  EXPECT_TRUE(harness.awaitIdle());
}

// ---- Waits
// -----------------------------------------------------------------------------------------

TEST_F(DispatchTest, a_dispatcher_without_work_waits_for_two_seconds_and_stamps_itself) {
  serial();
  const unsigned long before = steps.waits(Actor::Dispatcher);
  EXPECT_TRUE(eventually([&] {
    const long length = steps.latestWait(Actor::Dispatcher);
    return steps.waits(Actor::Dispatcher) > before + 3 && length >= 1 && length <= 2;
  }));
  const auto now = static_cast<unsigned long>(time(nullptr));
  EXPECT_TRUE(eventually([&] { return dispatcher().getLastUpdatedTime() > now; }));
}

// A refused request for the whole machine is told of in the first pass behind each two seconds:
// were there a wait for each of the refused, there would be one such pass in each twenty-two waits.
TEST_F(SystemLockTest, refused_requests_share_one_wait_of_each_pass) {
  alpha.holdRunsOn("a1");
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  for (int i = 0; i < 20; ++i) {
    harness.queue("ALPHA", 1, {1});
  }
  steps.setWaits(std::chrono::milliseconds(250));
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  const auto told = [&] { return harness.ctrlEventsOf(big).size(); };
  ASSERT_TRUE(eventually([&] { return told() >= 1; }));
  const std::size_t toldBefore = told();
  const unsigned long waitsBefore = steps.waits(Actor::Dispatcher);
  ASSERT_TRUE(eventually([&] { return told() > toldBefore; }));
  // Two a pass: before the first of the refused, and behind the pass, which found nothing new.
  EXPECT_LE(steps.waits(Actor::Dispatcher) - waitsBefore, 14U);
  forbidTimeOuts();
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(21)) << "each verdict ends the wait early";
  EXPECT_TRUE(harness.awaitEnd(big));
}

TEST_F(DispatchTest, a_new_request_does_not_wait_for_those_that_were_refused) {
  alpha.holdRunsOn("a1");
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  harness.queue("ALPHA", 1, {1});
  const unsigned long before = steps.waits(Actor::Dispatcher);
  ASSERT_TRUE(eventually([&] { return steps.waits(Actor::Dispatcher) > before + 2; }));
  forbidTimeOuts();
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 2, {1}), std::chrono::seconds(10)));
  }
}

// ---- Threads that cannot be made
// -------------------------------------------------------------------

TEST_P(DispatchInBothModes,
       a_pass_thread_that_the_platform_refuses_costs_its_request_and_nothing_else) {
  start();
  forbidTimeOuts();
  steps.refuseWorkers(1);
  const unsigned long lost = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(lost));
  EXPECT_EQ(harness.statusOf(lost), Request::ABORTED);
  EXPECT_THAT(harness.ctrlEventsOf(lost),
              ElementsAre("UNABLE_TO_INIT_EXE_THREAD E", "TEST_REQUEST_ABORTED W"));
  const unsigned long next = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(next));
  EXPECT_EQ(harness.statusOf(next), Request::COMPLETED);
  EXPECT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }))
      << "the library is given back behind the verdict";
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(SystemLockTest, a_refused_pass_thread_gives_the_machine_back) {
  parallel();
  forbidTimeOuts();
  steps.refuseWorkers(1);
  const unsigned long lost = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(lost));
  const unsigned long small = harness.queue("ALPHA", 1, {1});
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  EXPECT_TRUE(harness.awaitEnd(small));
  EXPECT_TRUE(harness.awaitEnd(big));
  EXPECT_EQ(whole.count(Call::RunEnter), 1U);
}

TEST_P(DispatchInBothModes, a_pass_thread_refused_on_a_later_pass_ends_the_request) {
  start();
  alpha.on(Call::RunReturn, [this](const CallRecord& run) {
    if (run.run == 2) {
      steps.refuseWorkers(1);
    }
  });
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(5));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U);
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_P(DispatchInBothModes, a_lock_failure_in_a_pass_aborts_its_request_and_gives_the_locks_back) {
  alpha.on(Call::RunEnter, [](const CallRecord& run) {
    if (run.requestId == 1) {
      throw DiagCtrl::DiagCtrlMutexException(DiagCtrl::DiagCtrlBaseException::LockNotAcquired,
                                             __LINE__, __FILE__, "ALPHA");
    }
  });
  start();
  forbidTimeOuts();
  const unsigned long lost = harness.queue("ALPHA", 1, {1}, settings(3));
  const unsigned long next = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(next));
  ASSERT_TRUE(harness.awaitEnd(lost)) << "its locks are free before its end is told";
  EXPECT_EQ(harness.statusOf(lost), Request::ABORTED);
  EXPECT_EQ(harness.statusOf(next), Request::COMPLETED);
  EXPECT_THAT(harness.ctrlEventsOf(lost),
              ElementsAre("UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED E", "TEST_REQUEST_ABORTED W"));
}

// ---- The trace
// -----------------------------------------------------------------------------------

TEST_F(DispatchTest, the_trace_tells_how_each_pass_ended) {
  alpha.planPasses([](const CallRecord& run) {
    return ending(run.requestId == 2 ? Result::FAILED : Result::PASSED);
  });
  harness.trace();
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  ASSERT_TRUE(harness.awaitEnd(queueHalting(1, {1}, settings(2))));
  alpha.holdRuns();
  const unsigned long aborted = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(harness->abortTest(aborted), Controller::SUCCESS);
  EXPECT_EQ(harness->abortTest(99), Controller::REQUEST_OBJECT_NOT_FOUND);
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  request(1).setTestRequestStatus(Request::WAIT);
  request(aborted).setTestRequestStatus(Request::WAIT);
  const TraceFile trace(harness.directory().path());
  for (const char* const line :
       {"TestRequest Execution Completed TestRequestID : : 1",
        "TestRequest Execution Completed TestRequestID : : 2",
        "TestRequest Execution Failed. Halting. TestRequestID : : 2",
        "TestRequestAborted TestRequestID : : 3", "REQUEST NOT FOUND, INVALID REQ ID:: 99"}) {
    EXPECT_EQ(trace.count(line), 1U) << line;
  }
  // A thread that comes late with a status of its own is told so as well.
  for (const char* const line :
       {"Can't override, because status is : 2", "Can't override, because status is : 3"}) {
    EXPECT_GE(trace.count(line), 1U) << line;
  }
}

// ---- The dispatcher by itself
// ------------------------------------------------------------------------

class DispatcherAloneTest : public DispatchTest {
 protected:
  DispatcherAloneTest() {
    serial();
    DiagCtrl::DiagnosticPackage* package = nullptr;
    harness->getDiagPackage(1, package);
    for (std::size_t i = 0; i < 3; ++i) {
      auto* made = new Request(*package, *package->getDevice(1), new Settings(settings()));
      requests.push_back(made);
      queues.queueTestRequest(made);
    }
  }
  std::vector<Request*> drain(TestRequestManager::TestRequestQueueType queue) {
    std::vector<Request*> drained;
    while (Request* request = queues.frontTestRequestQueue(queue)) {
      drained.push_back(request);
    }
    return drained;
  }

  GlobalSettings global{DiagCtrl::DiagCtrlConstants::DIAG_NO, GlobalSettings::SERIAL, false, false,
                        GlobalSettings::CUSTOMER};
  TestRequestManager queues;
  ExecutionManagerThread alone{queues, global, *DiagCtrl::DiagTracer::getInstance()};
  std::vector<Request*> requests;
};

TEST_F(DispatcherAloneTest, moves_the_whole_wait_queue_in_order_and_tells_whether_there_was_any) {
  EXPECT_TRUE(alone.handleWaitQueue());
  EXPECT_EQ(queues.getTestReqWaitQueueSize(), 0);
  EXPECT_EQ(drain(TestRequestManager::PROCESS), requests);
  EXPECT_FALSE(alone.handleWaitQueue());
}

TEST_F(DispatcherAloneTest, a_refused_new_request_keeps_its_place_and_an_old_one_goes_behind_all) {
  drain(TestRequestManager::WAIT);
  queues.pushBackTestRequestQueue(TestRequestManager::PROCESS, requests[0]);
  queues.pushBackTestRequestQueue(TestRequestManager::WAIT, requests[0]);
  alone.requeueTest(requests[1]);
  requests[2]->setExecutedOnce(true);
  alone.requeueTest(requests[2]);
  EXPECT_THAT(drain(TestRequestManager::PROCESS), ElementsAre(requests[1], requests[0]));
  EXPECT_THAT(drain(TestRequestManager::WAIT), ElementsAre(requests[0], requests[2]));
}

TEST_F(DispatcherAloneTest, the_batch_flag_is_stored_and_means_nothing_else) {
  EXPECT_TRUE(alone.getTRBatchCompletedFlag());
  alone.setTRBatchCompletedFlag(false);
  EXPECT_FALSE(alone.getTRBatchCompletedFlag());
  alone.setTRBatchCompletedFlag(true);
  EXPECT_TRUE(alone.getTRBatchCompletedFlag());
}

TEST_F(DispatcherAloneTest, removing_a_pass_thread_that_is_not_there_does_nothing) {
  alone.removeExecThreadObject(4711);
  alone.clearExecThreadObjectMap();
  alone.stop();
  EXPECT_FALSE(alone.getState());
}

TEST_F(DispatchTest, the_monitor_sets_the_batch_flag_when_nothing_is_pending) {
  serial();
  dispatcher().setTRBatchCompletedFlag(false);
  EXPECT_TRUE(eventually([&] { return dispatcher().getTRBatchCompletedFlag(); }));
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
