// One request's flags, status and package object, and the manager's queues, ids and owning map.

#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/internal/controller/DiagnosticsPin.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/ground/ReplaceStatus.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::TestSupport {

namespace {

using Diag::IDiagnostics;
using DiagCtrl::DiagCtrlBaseException;
using DiagCtrl::DiagCtrlObjectNotFound;
using DiagCtrl::DiagIntList;
using DiagCtrl::DiagnosticsPin;
using DiagCtrl::RequestReference;
using DiagCtrl::TestRequest;
using DiagCtrl::TestRequestManager;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr long kForEver = -1;

/// A package's object that only counts how many of its kind there are.
class CountedDiagnostics final : public IDiagnostics {
 public:
  CountedDiagnostics() { ++living; }
  ~CountedDiagnostics() override { --living; }
  Diag::DiagnosticResult* runDiagnostic(DeviceEnum::VirtualDevice& /*device*/,
                                        Diag::DiagnosticSettings* /*settings*/) override {
    return nullptr;
  }
  bool IsDeviceSupported(DeviceEnum::VirtualDevice& /*device*/, int /*test*/) override {
    return true;
  }
  Diag::DiagnosticStatus getDiagnosticStatus() override { return {}; }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<Diag::DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<Diag::DiagnosticResult*>* getDiagnosticResults() override { return nullptr; }

  static inline std::atomic<int> living{0};
};

class RequestTest : public PipelineTest {
 protected:
  RequestTest() {
    serial();
    DiagCtrl::DiagnosticPackage* package = nullptr;
    harness->getDiagPackage(1, package);
    m_package = package;
    m_device = package->getDevice(1);
  }

  std::unique_ptr<TestRequest> makeRequest(DiagIntList tests = {}) {
    return std::make_unique<TestRequest>(*m_package, *m_device, std::move(tests),
                                         new Settings(settings()));
  }
  std::unique_ptr<TestRequest> makeRequestWithObject() {
    auto made = makeRequest();
    made->setIDiagnostics(new CountedDiagnostics);
    return made;
  }
  std::unique_ptr<TestRequest> makeRequestIn(TestRequest::TestRequestStatus status) {
    auto made = makeRequest();
    made->setTestRequestStatus(status);
    return made;
  }
  static TestRequest::TestRequestStatus statusOf(TestRequest& request) {
    return request.getTestRequestStatus(kForEver);
  }

  DiagCtrl::DiagnosticPackage* m_package = nullptr;
  DiagCtrl::DiagDevice* m_device = nullptr;
};

// ---- A request -------------------------------------------------------------------------------

TEST_F(RequestTest, a_new_request_waits_with_all_its_flags_down) {
  const auto request = makeRequest({3, 1});
  EXPECT_EQ(statusOf(*request), TestRequest::WAIT);
  EXPECT_FALSE(request->getAbortStatus());
  EXPECT_FALSE(request->getHaltedStatus());
  EXPECT_FALSE(request->getHaltLoopOnError());
  EXPECT_FALSE(request->getMonitored());
  EXPECT_FALSE(request->getToBeDroppedFlag());
  EXPECT_FALSE(request->getExecutedOnce());
  EXPECT_FALSE(request->ifIDiagnosticsDeleted());
  EXPECT_EQ(request->getIDiagnosticsPtr(), nullptr);
  EXPECT_EQ(request->getHandle(), nullptr);
  EXPECT_EQ(request->getTestRequestId(), 0U);
  EXPECT_EQ(request->getTestRequestStartTime(), 0U);
  EXPECT_THAT(request->getTestIdList(), ElementsAre(3, 1));
  EXPECT_EQ(&request->getDiagPackageRef(), m_package);
  EXPECT_EQ(&request->getDiagDeviceRef(), m_device);
}

TEST_F(RequestTest, aborted_and_completed_are_not_left_by_any_later_status) {
  for (const auto end : {TestRequest::COMPLETED, TestRequest::ABORTED}) {
    const auto request = makeRequestIn(end);
    for (const auto late : {TestRequest::WAIT, TestRequest::RUNNING, TestRequest::COMPLETED,
                            TestRequest::ABORTED, TestRequest::REQUEUED}) {
      request->setTestRequestStatus(late);
      EXPECT_EQ(statusOf(*request), end);
    }
  }
}

TEST_F(RequestTest, the_other_statuses_are_overwritten_by_anything) {
  for (const auto from : {TestRequest::WAIT, TestRequest::RUNNING, TestRequest::REQUEUED}) {
    for (const auto to : {TestRequest::WAIT, TestRequest::RUNNING, TestRequest::COMPLETED,
                          TestRequest::ABORTED, TestRequest::REQUEUED}) {
      const auto request = makeRequestIn(from);
      request->setTestRequestStatus(to);
      EXPECT_EQ(statusOf(*request), to);
    }
  }
}

TEST_F(RequestTest, an_abort_after_the_end_sets_the_flag_and_leaves_completed) {
  const auto request = makeRequestIn(TestRequest::COMPLETED);
  request->setAbortStatus(true, 0);
  EXPECT_TRUE(request->getAbortStatus());
  EXPECT_EQ(statusOf(*request), TestRequest::COMPLETED);
}

TEST_F(RequestTest, an_abort_goes_past_the_rule_that_refuses_statuses) {
  for (const auto from : {TestRequest::WAIT, TestRequest::RUNNING, TestRequest::REQUEUED}) {
    const auto request = makeRequestIn(from);
    request->setAbortStatus(true, kForEver);
    EXPECT_EQ(statusOf(*request), TestRequest::ABORTED);
  }
}

TEST_F(RequestTest, clearing_the_abort_flag_leaves_the_status) {
  const auto request = makeRequestIn(TestRequest::RUNNING);
  request->setAbortStatus(true, 0);
  request->setAbortStatus(false, 0);
  EXPECT_FALSE(request->getAbortStatus());
  EXPECT_EQ(statusOf(*request), TestRequest::ABORTED);
}

TEST_F(RequestTest, no_status_ever_overwrites_an_abort_that_comes_at_the_same_time) {
  for (int round = 0; round < 3000; ++round) {
    const auto request = makeRequestIn(TestRequest::RUNNING);
    std::atomic<bool> go{false};
    std::thread worker([&] {
      while (!go) {
        std::this_thread::yield();  // on a busy machine to the one that is waited for
      }
      request->setTestRequestStatus(TestRequest::REQUEUED);
    });
    go = true;
    request->setAbortStatus(true, 0);
    worker.join();
    ASSERT_EQ(statusOf(*request), TestRequest::ABORTED) << "round " << round;
  }
}

/// A status that another thread sets just after it was looked at.
struct ContestedStatus {
  TestRequest::TestRequestStatus value;
  TestRequest::TestRequestStatus next;

  TestRequest::TestRequestStatus load() { return std::exchange(value, next); }
  bool compare_exchange_weak(TestRequest::TestRequestStatus& expected,
                             TestRequest::TestRequestStatus wanted) {
    if (value != expected) {
      expected = value;
      return false;
    }
    value = wanted;
    return true;
  }
};

TEST(ReplaceStatusTest, a_status_that_came_in_between_is_looked_at_before_it_is_replaced) {
  const auto isFinal = [](TestRequest::TestRequestStatus status) {
    return status == TestRequest::ABORTED;
  };
  ContestedStatus aborted{TestRequest::RUNNING, TestRequest::ABORTED};
  EXPECT_EQ(DiagCtrl::replaceStatus(aborted, TestRequest::REQUEUED, isFinal), TestRequest::ABORTED);
  EXPECT_EQ(aborted.value, TestRequest::ABORTED);
  ContestedStatus requeued{TestRequest::RUNNING, TestRequest::REQUEUED};
  EXPECT_EQ(DiagCtrl::replaceStatus(requeued, TestRequest::WAIT, isFinal), TestRequest::WAIT);
  EXPECT_EQ(requeued.value, TestRequest::WAIT);
}

TEST_F(RequestTest, the_object_is_released_once) {
  const auto request = makeRequestWithObject();
  request->releaseIDiagnostic(packageInterface(), 0);
  EXPECT_EQ(CountedDiagnostics::living, 0);
  EXPECT_TRUE(request->ifIDiagnosticsDeleted());
  EXPECT_EQ(request->getIDiagnosticsPtr(), nullptr);
  request->releaseIDiagnostic(packageInterface(), 0);
  EXPECT_TRUE(request->ifIDiagnosticsDeleted());
}

TEST_F(RequestTest, deleting_a_request_gives_back_what_was_not_released) {
  makeRequestWithObject().reset();
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

TEST_F(RequestTest, deleting_a_released_request_does_not_touch_the_package_interface) {
  const std::string library = harness.packages().libraryPath("ALPHA");
  const auto request = makeRequestWithObject();
  request->setHandle(packageInterface().loadPackage(library.c_str()));
  request->releaseIDiagnostic(packageInterface(), 0);
  harness.shutDown();  // no package interface any more
  EXPECT_EQ(harness.controller().getDiagPackInterfacePtr(), nullptr);
}

TEST_F(RequestTest, deleting_a_request_after_the_shut_down_deletes_its_object) {
  auto request = makeRequestWithObject();
  harness.shutDown();
  request.reset();
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

// ---- Pins ------------------------------------------------------------------------------------

TEST_F(RequestTest, a_release_with_a_user_inside_hides_the_object_and_the_last_user_deletes_it) {
  const auto request = makeRequestWithObject();
  {
    const DiagnosticsPin first(*request);
    {
      const DiagnosticsPin second(*request);
      request->releaseIDiagnostic(packageInterface(), 0);
      EXPECT_TRUE(request->ifIDiagnosticsDeleted());
      EXPECT_EQ(request->getIDiagnosticsPtr(), nullptr);
      EXPECT_FALSE(DiagnosticsPin(*request)) << "a released object is entered no more";
    }
    EXPECT_EQ(CountedDiagnostics::living, 1);
  }
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

TEST_F(RequestTest, a_release_with_a_user_inside_gives_the_library_back_when_the_user_leaves) {
  const std::string copy = harness.packages().directory().file("libSECOND.so");
  std::filesystem::copy_file(harness.packages().libraryPath("ALPHA"), copy);
  const auto isLoaded = [&] {
    void* const handle = dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
      dlclose(handle);
    }
    return handle != nullptr;
  };
  const auto request = makeRequestWithObject();
  request->setHandle(packageInterface().loadPackage(copy.c_str()));
  {
    const DiagnosticsPin pin(*request);
    request->releaseIDiagnostic(packageInterface(), 0);
    EXPECT_TRUE(isLoaded());
  }
  EXPECT_FALSE(isLoaded());
}

TEST_F(RequestTest, a_library_that_the_last_user_cannot_give_back_harms_nobody) {
  const std::string library = harness.packages().libraryPath("ALPHA");
  const auto request = makeRequestWithObject();
  request->setHandle(packageInterface().loadPackage(library.c_str()));
  steps.refuseReleases(1);
  {
    const DiagnosticsPin pin(*request);
    request->releaseIDiagnostic(packageInterface(), 0);
  }
  EXPECT_EQ(CountedDiagnostics::living, 0);
  EXPECT_TRUE(request->ifIDiagnosticsDeleted()) << "its lock is free again";
  TestSupport::endTestProcess(HasFailure());  // the loader's lock stays held after a failed release
}

// ---- The dispatch gate -----------------------------------------------------------------------

TEST_F(RequestTest, a_request_is_claimed_once_until_its_pass_thread_has_landed) {
  const auto request = makeRequest();
  EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::granted);
  EXPECT_TRUE(request->getMonitored());
  EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::stale);
  request->landFromFlight();
  EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::granted);
}

TEST_F(RequestTest, neither_a_claim_nor_an_entry_is_granted_to_a_request_that_is_over) {
  const auto aborted = makeRequest();
  aborted->setAbortStatus(true, 0);
  EXPECT_EQ(aborted->claimForDispatch(), TestRequest::Claim::aborted);
  EXPECT_EQ(aborted->enterPackage(), TestRequest::Claim::aborted);
  const auto completed = makeRequestIn(TestRequest::COMPLETED);
  const auto halted = makeRequest();
  halted->setHaltedStatus(true);
  const auto released = makeRequestWithObject();
  released->releaseIDiagnostic(packageInterface(), 0);
  for (TestRequest* request : {completed.get(), halted.get(), released.get()}) {
    EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::stale);
    EXPECT_EQ(request->enterPackage(), TestRequest::Claim::stale);
    EXPECT_FALSE(request->getMonitored());
  }
}

TEST_F(RequestTest, entering_the_package_makes_it_running_and_not_to_be_dropped) {
  const auto request = makeRequest();
  request->setToBeDroppedFlag(true);
  EXPECT_EQ(request->enterPackage(), TestRequest::Claim::granted);
  EXPECT_EQ(statusOf(*request), TestRequest::RUNNING);
  EXPECT_FALSE(request->getToBeDroppedFlag());
}

TEST_F(RequestTest, a_request_in_flight_is_not_made_waiting_by_a_late_push) {
  const auto request = makeRequest();
  ASSERT_EQ(request->claimForDispatch(), TestRequest::Claim::granted);
  ASSERT_EQ(request->enterPackage(), TestRequest::Claim::granted);
  request->returnToWait();
  EXPECT_EQ(statusOf(*request), TestRequest::RUNNING);
  EXPECT_TRUE(request->getMonitored());
  request->landFromFlight();
  request->returnToWait();
  EXPECT_EQ(statusOf(*request), TestRequest::WAIT);
  EXPECT_FALSE(request->getMonitored());
}

TEST_F(RequestTest, an_abort_tells_where_it_met_the_request) {
  const auto queued = makeRequest();
  EXPECT_EQ(queued->beginAbort(0), TestRequest::AbortedWhile::queued);
  const auto claimed = makeRequest();
  claimed->claimForDispatch();
  EXPECT_EQ(claimed->beginAbort(0), TestRequest::AbortedWhile::monitored);
  const auto running = makeRequest();
  running->claimForDispatch();
  running->enterPackage();
  EXPECT_EQ(running->beginAbort(kForEver), TestRequest::AbortedWhile::inPackage);
  for (TestRequest* request : {queued.get(), claimed.get(), running.get()}) {
    EXPECT_TRUE(request->getAbortStatus());
    EXPECT_EQ(statusOf(*request), TestRequest::ABORTED);
  }
}

TEST_F(RequestTest, an_aborted_request_is_not_completed_any_more) {
  const auto aborted = makeRequest();
  aborted->setAbortStatus(true, 0);
  EXPECT_EQ(aborted->complete(), TestRequest::Completion::aborted);
  EXPECT_EQ(statusOf(*aborted), TestRequest::ABORTED);
  const auto other = makeRequest();
  EXPECT_EQ(other->complete(), TestRequest::Completion::completed);
  EXPECT_EQ(statusOf(*other), TestRequest::COMPLETED);
}

TEST_F(RequestTest, claims_are_counted_and_the_refused_ones_are_not) {
  const auto request = makeRequest();
  EXPECT_EQ(request->claimedPass(), 0U);
  ASSERT_EQ(request->claimForDispatch(), TestRequest::Claim::granted);
  EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::stale);
  EXPECT_EQ(request->claimedPass(), 1U);
  EXPECT_EQ(request->reclaimedPass(), 0U);
  EXPECT_TRUE(request->isInFlight());
  request->landFromFlight();
  EXPECT_EQ(request->reclaimedPass(), 1U);
  EXPECT_FALSE(request->isInFlight());
  request->setAbortStatus(true, 0);
  EXPECT_EQ(request->claimForDispatch(), TestRequest::Claim::aborted);
  EXPECT_EQ(request->claimedPass(), 1U);
}

TEST_F(RequestTest, a_report_of_completion_counts_when_the_pass_under_way_can_have_made_it) {
  const auto request = makeRequest();
  EXPECT_TRUE(request->lookAtPass());
  request->claimForDispatch();
  EXPECT_FALSE(request->lookAtPass()) << "its pass thread has not entered the package";
  request->enterPackage();
  EXPECT_TRUE(request->lookAtPass()) << "there is no pass before the first";
  request->setToBeDroppedFlag(true);
  EXPECT_TRUE(request->lookAtPass());
  request->landFromFlight();
  EXPECT_TRUE(request->lookAtPass()) << "between two passes";
  request->claimForDispatch();
  EXPECT_FALSE(request->lookAtPass()) << "claimed again, with the flag of the pass before";
  request->enterPackage();
  EXPECT_FALSE(request->lookAtPass()) << "a report of the pass before, told once more";
  request->setToBeDroppedFlag(true);
  EXPECT_TRUE(request->lookAtPass());
}

TEST_F(RequestTest, a_verdict_is_refused_once_another_pass_was_claimed) {
  const auto request = makeRequest();
  request->claimForDispatch();
  request->lookAtPass();
  EXPECT_EQ(request->beginSendBack(), TestRequest::SendBack::reclaimWorker);
  request->landFromFlight();
  EXPECT_EQ(request->beginSendBack(), TestRequest::SendBack::noWorker);
  request->claimForDispatch();
  EXPECT_EQ(request->beginSendBack(), TestRequest::SendBack::superseded);
  EXPECT_EQ(request->complete(), TestRequest::Completion::superseded);
  EXPECT_NE(statusOf(*request), TestRequest::COMPLETED);
  request->setAbortStatus(true, 0);
  EXPECT_EQ(request->complete(), TestRequest::Completion::superseded) << "aborted or not";
  request->lookAtPass();
  EXPECT_EQ(request->complete(), TestRequest::Completion::aborted);
}

TEST_F(RequestTest, an_abort_finds_a_pass_thread_inside_whatever_the_status_says) {
  const auto request = makeRequest();
  request->claimForDispatch();
  request->enterPackage();
  request->lookAtPass();
  ASSERT_EQ(request->complete(), TestRequest::Completion::completed);
  EXPECT_EQ(request->beginAbort(0), TestRequest::AbortedWhile::inPackage);
  request->setToBeDroppedFlag(true);
  EXPECT_EQ(request->beginAbort(0), TestRequest::AbortedWhile::monitored) << "it has come out";
  EXPECT_EQ(statusOf(*request), TestRequest::COMPLETED);
}

TEST_F(RequestTest, entries_are_left_overs_when_the_request_is_claimed_or_over_but_not_aborted) {
  EXPECT_FALSE(makeRequest()->isStaleEntry());
  EXPECT_TRUE(makeRequestIn(TestRequest::COMPLETED)->isStaleEntry());
  const auto claimed = makeRequest();
  claimed->claimForDispatch();
  EXPECT_TRUE(claimed->isStaleEntry());
  claimed->setMonitored(false);
  EXPECT_TRUE(claimed->isStaleEntry()) << "still in flight";
  const auto released = makeRequestWithObject();
  released->releaseIDiagnostic(packageInterface(), 0);
  EXPECT_TRUE(released->isStaleEntry());
  released->setAbortStatus(true, 0);
  EXPECT_FALSE(released->isStaleEntry()) << "an aborted one is reported by the dispatcher";
}

// ---- The manager -----------------------------------------------------------------------------

class RequestManagerTest : public RequestTest {
 protected:
  TestRequest* add() { return add(makeRequest()); }
  TestRequest* add(std::unique_ptr<TestRequest> request) {
    TestRequest* const raw = request.release();
    manager->queueTestRequest(raw);
    return raw;
  }
  unsigned long queueAnother() { return manager->queueTestRequest(makeRequest().release()); }

  std::unique_ptr<TestRequestManager> manager = std::make_unique<TestRequestManager>();
};

TEST_F(RequestManagerTest, queueing_gives_the_request_its_id_its_time_and_its_places) {
  TestRequestManager::resetRequestId();
  const auto before = static_cast<unsigned long>(time(nullptr));
  TestRequest* const request = makeRequest().release();
  request->setMonitored(true);
  const unsigned long id = manager->queueTestRequest(request);
  EXPECT_EQ(id, 1U);
  EXPECT_EQ(request->getTestRequestId(), 1U);
  EXPECT_EQ(request->getDiagnosticSettings()->getTestRequestId(), 1U);
  EXPECT_GE(request->getTestRequestStartTime(), before);
  EXPECT_TRUE(request->getMonitored()) << "queueing leaves the flags alone";
  EXPECT_EQ(manager->getTestReqWaitQueueSize(), 1);
  EXPECT_EQ(manager->getTestRequestObj(1, 0), request);
  EXPECT_THAT(manager->getTestRequestIdList(0), ElementsAre(1));
}

TEST_F(RequestManagerTest,
       ids_count_on_after_the_requests_were_cleared_and_from_one_after_a_reset) {
  TestRequestManager::resetRequestId();
  EXPECT_EQ(queueAnother(), 1U);
  EXPECT_EQ(queueAnother(), 2U);
  manager->clearTestRequestMap();
  EXPECT_EQ(queueAnother(), 3U);
  TestRequestManager::resetRequestId();
  EXPECT_EQ(queueAnother(), 1U);
}

TEST_F(RequestManagerTest, ids_go_on_with_the_next_manager) {
  TestRequestManager::resetRequestId();
  queueAnother();
  manager = std::make_unique<TestRequestManager>();
  EXPECT_EQ(queueAnother(), 2U);
}

TEST_F(RequestManagerTest, the_front_of_an_empty_queue_is_null) {
  for (const auto queue :
       {TestRequestManager::WAIT, TestRequestManager::PROCESS, TestRequestManager::EXECUTION}) {
    EXPECT_EQ(manager->frontTestRequestQueue(queue), nullptr);
  }
}

TEST_F(RequestManagerTest, queues_take_requests_at_both_ends) {
  TestRequest* const first = add();
  TestRequest* const second = add();
  EXPECT_EQ(manager->frontTestRequestQueue(TestRequestManager::WAIT), first);
  EXPECT_EQ(manager->frontTestRequestQueue(TestRequestManager::WAIT), second);
  for (const auto queue :
       {TestRequestManager::WAIT, TestRequestManager::PROCESS, TestRequestManager::EXECUTION}) {
    manager->pushBackTestRequestQueue(queue, first);
    manager->pushFrontTestRequestQueue(queue, second);
    EXPECT_EQ(manager->frontTestRequestQueue(queue), second);
    EXPECT_EQ(manager->frontTestRequestQueue(queue), first);
    EXPECT_EQ(manager->frontTestRequestQueue(queue), nullptr);
  }
}

TEST_F(RequestManagerTest, each_queue_tells_its_size) {
  TestRequest* const request = add();
  manager->pushBackTestRequestQueue(TestRequestManager::PROCESS, request);
  manager->pushBackTestRequestQueue(TestRequestManager::PROCESS, request);
  manager->pushBackTestRequestQueue(TestRequestManager::EXECUTION, request);
  EXPECT_EQ(manager->getTestReqWaitQueueSize(), 1);
  EXPECT_EQ(manager->getTestReqProcessQueueSize(), 2);
  EXPECT_EQ(manager->getTestReqExecQueueSize(), 1);
  EXPECT_EQ(manager->countQueuedEntries(request), 3) << "those in WAIT and PROCESS";
}

TEST_F(RequestManagerTest, pushes_set_status_and_monitored_flag_by_the_queue) {
  TestRequest* const request = add(makeRequestIn(TestRequest::REQUEUED));
  manager->pushBackTestRequestQueue(TestRequestManager::EXECUTION, request);
  EXPECT_TRUE(request->getMonitored());
  EXPECT_EQ(statusOf(*request), TestRequest::REQUEUED);
  manager->pushBackTestRequestQueue(TestRequestManager::PROCESS, request);
  EXPECT_TRUE(request->getMonitored());
  EXPECT_EQ(statusOf(*request), TestRequest::REQUEUED);
  manager->pushBackTestRequestQueue(TestRequestManager::WAIT, request);
  EXPECT_FALSE(request->getMonitored());
  EXPECT_EQ(statusOf(*request), TestRequest::WAIT);
  manager->pushFrontTestRequestQueue(TestRequestManager::EXECUTION, request);
  EXPECT_TRUE(request->getMonitored());
  manager->pushFrontTestRequestQueue(TestRequestManager::WAIT, request);
  EXPECT_FALSE(request->getMonitored());
}

TEST_F(RequestManagerTest, an_aborted_request_stands_in_the_wait_queue_and_stays_aborted) {
  TestRequest* const request = add();
  request->setAbortStatus(true, 0);
  manager->pushBackTestRequestQueue(TestRequestManager::WAIT, request);
  EXPECT_EQ(manager->getTestReqWaitQueueSize(), 2);
  EXPECT_EQ(statusOf(*request), TestRequest::ABORTED);
}

TEST_F(RequestManagerTest, an_unknown_id_throws_object_not_found) {
  try {
    manager->getTestRequestObj(4711, 0);
    FAIL() << "an unknown id was found";
  } catch (DiagCtrlObjectNotFound& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::ObjectNotFound);
  }
  EXPECT_THROW(manager->getTestRequestObj(0, kForEver), DiagCtrlObjectNotFound);
}

TEST_F(RequestManagerTest, an_id_that_occurs_twice_leaves_the_list_both_times) {
  TestRequestManager::resetRequestId();
  queueAnother();
  TestRequestManager::resetRequestId();
  TestRequest* const twin = makeRequest().release();
  manager->queueTestRequest(twin);  // not owned: the map knows the id already
  EXPECT_THAT(manager->getTestRequestIdList(0), ElementsAre(1, 1));
  manager->removeFromTestReqIdList(1);
  EXPECT_THAT(manager->getTestRequestIdList(0), IsEmpty());
  delete twin;
}

TEST_F(RequestManagerTest, an_id_that_the_map_lost_leaves_the_list_and_throws) {
  const unsigned long id = queueAnother();
  manager->clearTestRequestMap();
  const unsigned long next = queueAnother();
  EXPECT_THROW(manager->removeFromTestReqIdList(id), DiagCtrlObjectNotFound);
  EXPECT_THAT(manager->getTestRequestIdList(0), ElementsAre(next));
}

TEST_F(RequestManagerTest, a_removed_id_keeps_its_request) {
  const unsigned long id = queueAnother();
  manager->removeFromTestReqIdList(id);
  EXPECT_THAT(manager->getTestRequestIdList(0), IsEmpty());
  EXPECT_EQ(manager->getTestRequestObj(id, 0)->getTestRequestId(), id);
}

TEST_F(RequestManagerTest, clearing_an_empty_map_empties_the_list_and_returns) {
  manager->clearTestRequestMap();
  EXPECT_THAT(manager->getTestRequestIdList(0), IsEmpty());
}

TEST_F(RequestManagerTest, clearing_deletes_what_no_queue_holds_and_keeps_the_rest_aside) {
  TestRequest* const queued = add(makeRequestWithObject());
  add(makeRequestWithObject());
  manager->frontTestRequestQueue(TestRequestManager::WAIT);
  manager->frontTestRequestQueue(TestRequestManager::WAIT);
  manager->pushBackTestRequestQueue(TestRequestManager::PROCESS, queued);
  manager->clearTestRequestMap();
  EXPECT_EQ(CountedDiagnostics::living, 1);
  EXPECT_EQ(manager->frontTestRequestQueue(TestRequestManager::PROCESS), queued);
  EXPECT_EQ(queued->getAbortStatus(), false) << "still there for whoever works on it";
  manager->deleteRetiredRequests();
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

TEST_F(RequestManagerTest, the_manager_deletes_its_requests_in_the_end) {
  add(makeRequestWithObject());
  add(makeRequestWithObject());
  manager.reset();
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

TEST_F(RequestManagerTest, a_request_added_to_the_map_by_hand_is_found_and_owned) {
  TestRequest* const request = makeRequestWithObject().release();
  manager->addInTestRequestIdMap(77, request);
  EXPECT_EQ(manager->getTestRequestObj(77, 0), request);
  EXPECT_EQ(manager->acquireTestRequest(77, 0).get(), request);
  manager.reset();
  EXPECT_EQ(CountedDiagnostics::living, 0);
}

TEST_F(RequestManagerTest, a_verdict_ends_the_wait_for_its_own_pass_of_its_own_request_only) {
  manager->awaitTestExecCompleted(2, 5);
  EXPECT_FALSE(manager->getTestExecCompleted());
  manager->concludeTestExec(1, 5);
  EXPECT_FALSE(manager->getTestExecCompleted()) << "a late verdict on another request";
  manager->concludeTestExec(2, 4);
  EXPECT_FALSE(manager->getTestExecCompleted()) << "a late verdict on the pass before";
  manager->concludeTestExec(2, 5);
  EXPECT_TRUE(manager->getTestExecCompleted());
  manager->awaitTestExecCompleted(3, 1);
  manager->setTestExecCompleted(true);
  EXPECT_TRUE(manager->getTestExecCompleted()) << "the end of the monitor frees every wait";
}

TEST_F(RequestManagerTest, a_verdict_on_another_request_signals_all_the_same) {
  DiagCtrl::DiagCtrlConditionVar& variable = manager->getCondVarExecMgrThread();
  manager->awaitTestExecCompleted(2, 1);
  const unsigned long ticket = variable.ticket();
  manager->concludeTestExec(1, 1);
  EXPECT_NE(variable.ticket(), ticket);
}

TEST_F(RequestManagerTest, requests_in_flight_are_told_whether_or_not_their_ids_are_known) {
  TestRequest* const waiting = add();
  TestRequest* const listed = add();
  TestRequest* const forgotten = add();
  listed->claimForDispatch();
  forgotten->claimForDispatch();
  manager->removeFromTestReqIdList(forgotten->getTestRequestId());
  const auto inFlight = [this] {
    std::vector<TestRequest*> found;
    for (const auto& reference : manager->requestsInFlight()) {
      found.push_back(reference.get());
    }
    return found;
  };
  EXPECT_THAT(inFlight(), testing::UnorderedElementsAre(listed, forgotten));
  EXPECT_FALSE(waiting->isInFlight());
  manager->clearTestRequestMap();  // all of them still stand in a queue
  EXPECT_THAT(inFlight(), testing::UnorderedElementsAre(listed, forgotten));
}

TEST_F(RequestManagerTest, nobody_can_queue_while_the_queues_are_found_empty) {
  std::unique_ptr<Companion> client;
  bool isQueuedMeanwhile = true;
  manager->ifNothingIsQueued([&] {
    client = std::make_unique<Companion>([this] { queueAnother(); });
    isQueuedMeanwhile = !client->blocks();
  });
  EXPECT_FALSE(isQueuedMeanwhile);
  EXPECT_TRUE(client->ends());
}

TEST_F(RequestManagerTest, a_request_in_any_queue_is_not_nothing) {
  TestRequest* const request = add();
  const auto isNothingQueued = [this] {
    bool called = false;
    manager->ifNothingIsQueued([&] { called = true; });
    return called;
  };
  EXPECT_FALSE(isNothingQueued());
  manager->frontTestRequestQueue(TestRequestManager::WAIT);
  EXPECT_TRUE(isNothingQueued());
  for (const auto queue : {TestRequestManager::PROCESS, TestRequestManager::EXECUTION}) {
    manager->pushBackTestRequestQueue(queue, request);
    EXPECT_FALSE(isNothingQueued());
    manager->frontTestRequestQueue(queue);
  }
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
