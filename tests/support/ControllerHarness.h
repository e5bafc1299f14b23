#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/CodeNames.h"
#include "tests/support/ControlFile.h"
#include "tests/support/PackageDirectory.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// A controller with a directory of scripted packages, used as a client uses it: through its public
/// header. One at a time in a process; the controller is shut down and deleted in the end.
///
///   ControllerHarness harness;
///   Script& alpha = harness.addPackage("ALPHA", PackageConfig(2));
///   harness.start();
///   const unsigned long id = harness.queue("ALPHA", 1, {1, 2});
///   ASSERT_TRUE(harness.awaitIdle());
///   EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
///
/// What a test does not expect to fail throws std::runtime_error with the name of the code.
///
/// Thread-safety: the collecting calls may run on several threads; the others belong to the test's
/// own thread.
class ControllerHarness {
 public:
  typedef DiagCtrl::DiagnosticController::errorCode ErrorCode;
  typedef DiagCtrl::DiagControllerStatus::diagCtrlPhase Phase;
  static constexpr std::chrono::milliseconds kDefaultLimit{20'000};

  ControllerHarness();
  /// Lets held passes go, shuts down and deletes the controller.
  ~ControllerHarness();
  ControllerHarness(const ControllerHarness&) = delete;
  ControllerHarness& operator=(const ControllerHarness&) = delete;

  // ---- Before the start --------------------------------------------------------------------

  /// The directory that the control file names as PackDirPath.
  PackageDirectory& packages() { return m_packages; }
  Scripted::Script& addPackage(const std::string& name,
                               const PackageConfig& config = PackageConfig());
  /// The control file; written at initialize.
  ControlFile& control() { return m_control; }
  /// A directory for anything else; the log directory once it is traced.
  const TemporaryDirectory& directory() const { return m_directory; }
  /// Traces everything into the directory.
  void trace() { m_control.traced(m_directory.path()); }

  // ---- The start ---------------------------------------------------------------------------

  /// initialize, registerForAll, enumerate.
  void start();
  /// Writes the control file and initialises; INITIALIZE.
  void initialize();
  /// Registers for the three kinds. The ids are 1 when nobody registered before.
  void registerForAll();
  /// enumerateAllPackages; IDLE.
  void enumerate();
  ErrorCode shutDown();

  DiagCtrl::DiagnosticController& controller();
  DiagCtrl::DiagnosticController* operator->() { return &controller(); }

  /// The base names of the packages in the catalogue, by their indices from 1 on.
  std::vector<std::string> catalogue();
  /// The index of a package in the catalogue.
  int indexOf(const std::string& package);

  // ---- Queueing ----------------------------------------------------------------------------

  /// Settings that pass: that many passes, a run time of an hour.
  static Diag::DiagnosticSettings settings(int passes = 1);

  /// Queues tests on a device. @return the id of the request.
  unsigned long queue(const std::string& package, unsigned int device, std::vector<int> tests,
                      Diag::DiagnosticSettings settings = ControllerHarness::settings());
  /// All enabled tests of a device.
  unsigned long queueAllTests(const std::string& package, unsigned int device,
                              Diag::DiagnosticSettings settings = ControllerHarness::settings());
  /// All enabled tests of all devices. @return the ids.
  std::vector<unsigned long> queuePackage(
      const std::string& package,
      Diag::DiagnosticSettings settings = ControllerHarness::settings());

  // ---- Waiting: false, or an exception where told, when the time is over ---------------------

  Phase phase();
  bool awaitPhase(Phase phase, std::chrono::milliseconds limit = kDefaultLimit);
  /// The phase IDLE. It comes only on a time-out of the monitor, up to two seconds later.
  bool awaitIdle(std::chrono::milliseconds limit = kDefaultLimit);
  /// Until the request has this status.
  bool awaitStatus(unsigned long requestId, DiagCtrl::TestRequest::TestRequestStatus status,
                   std::chrono::milliseconds limit = kDefaultLimit);
  /// Until a controller event was collected, in the form of ctrlEvents.
  bool awaitCtrlEvent(const std::string& text, std::chrono::milliseconds limit = kDefaultLimit);
  /// Until that many results, or events, were collected.
  bool awaitResults(std::size_t number, std::chrono::milliseconds limit = kDefaultLimit);
  bool awaitEvents(std::size_t number, std::chrono::milliseconds limit = kDefaultLimit);
  /// Until the id is off the list of unfinished requests.
  bool awaitEnd(unsigned long requestId, std::chrono::milliseconds limit = kDefaultLimit);

  // ---- Collecting: each call drains its kind first -------------------------------------------

  /// All controller events so far: name, I, W or E, request id. "TEST_REQUEST_ABORTED W 3".
  std::vector<std::string> ctrlEvents();
  /// Those of one request, without its id: "TEST_REQUEST_ABORTED W".
  std::vector<std::string> ctrlEventsOf(unsigned long requestId);
  /// All events of packages: code, letter, request id, parameters. "7 I 3 [slot 1, hot]".
  std::vector<std::string> events();
  /// All results: verdict, request id, estimated time unless 0. "PASSED 3", "FAILED 4 est 20".
  std::vector<std::string> results();
  /// Forgets what was collected, and what stands in the queues.
  void forget();

  DiagCtrl::TestRequest::TestRequestStatus statusOf(unsigned long requestId);
  /// The ids of unfinished requests.
  std::vector<unsigned long> requestIds();

  unsigned long eventRegistration() const { return m_eventId; }
  unsigned long resultRegistration() const { return m_resultId; }
  unsigned long ctrlEventRegistration() const { return m_ctrlEventId; }
  DiagCtrl::CallBackObject& callBack() { return *m_callBack; }

 private:
  void drainEvents();
  void drainResults();
  void drainCtrlEvents();

  TemporaryDirectory m_directory;
  PackageDirectory m_packages;
  ControlFile m_control;
  std::vector<Scripted::Script*> m_scripts;
  std::unique_ptr<DiagCtrl::CallBackObject> m_callBack;
  unsigned long m_eventId = 0;
  unsigned long m_resultId = 0;
  unsigned long m_ctrlEventId = 0;
  std::mutex m_mutex;  // guards what was collected
  std::vector<std::string> m_events;
  std::vector<std::string> m_results;
  std::vector<std::string> m_ctrlEvents;
};

/// One line for a message, in the forms that the harness collects.
std::string describe(const DiagCtrl::DiagCtrlEvent& event);
std::string describe(const Diag::DiagnosticEvent& event);
std::string describe(const Diag::DiagnosticResult& result);

}  // namespace TarvexDiags::TestSupport
