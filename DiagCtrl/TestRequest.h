#pragma once

#include <atomic>
#include <chrono>
#include <list>
#include <optional>

#include "Diag/DiagnosticSettings.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagDevice;
class DiagnosticPackage;
class DiagnosticPackageInterface;
class DiagTracer;

typedef void* DLL_Handle;  ///< one request's reference to its package's shared object
typedef std::list<int> DiagIntList;

/// One unit of work: a set of tests of one package on one device, with its own copy of the run
/// settings, the package's object that carries it out, and the flags and status by which client
/// threads, dispatcher, pass thread and monitor agree on what happens next.
///
/// `COMPLETED` and `ABORTED` are final: nothing leaves them.
///
/// Two private means keep the threads apart. The dispatch gate makes each of these one step: the
/// claim of a request for a pass thread, its entry into the package, the choice of what an
/// abort does, the monitor's look at a pass and its verdict on it, and the return to a queue.
/// Claims are counted, and the count is the number of a pass: a package may go on reporting the
/// completion of one pass while the next is under way, and only the number tells the two apart.
/// Pins keep the package's object alive while a thread is inside of it: a release meanwhile hides
/// the object, and the last user destroys it.
///
/// Who may free what, and when:
///
/// | What              | Freed by                | When                                          |
/// |-------------------|-------------------------|-----------------------------------------------|
/// | the request       | the client call         | it could not be queued                        |
/// |                   | TestRequestManager      | its map is cleared and nobody refers to it;   |
/// |                   |                         | else in the shut-down, or with the manager    |
/// | its settings      | the request             | with it                                       |
/// | the object of the | an abort                | it met the request in a queue                 |
/// | package, then the | the monitor             | the request was dropped                       |
/// | library           | the last pin            | one of these came while it was inside         |
/// |                   | the request             | with it, if none of these came                |
/// | a pass thread     | the monitor             | joined, at a verdict or before the next pass  |
/// |                   | the dispatcher          | it could not be started                       |
/// |                   | ~ExecutionManagerThread | joined, at the end                            |
/// | package, device   | the controller          | enumerated anew, or shut down; what a request |
/// |                   |                         | that is referred to needs: in the shut-down   |
///
/// A queue entry, a pass thread, and each thread or client call that works on a request holds a
/// reference. The package's object is only touched within a pin, but for the pass thread, which is
/// reclaimed before the object goes.
///
/// Thread-safety: any thread may call any operation. Accessors that lock may throw
/// DiagCtrlMutexException. Objects belong to TestRequestManager once queued.
class TARVEXDIAGS_EXPORT TestRequest {
 public:
  enum TestRequestStatus : unsigned int {
    WAIT = 0,
    RUNNING = 1,
    COMPLETED = 2,
    ABORTED = 3,
    REQUEUED = 4,
  };

  /// Where an abort found the request, which decides what the abort still has to do.
  enum class AbortedWhile {
    inPackage,  ///< the package has to be told
    monitored,  ///< the monitor ends it
    queued,     ///< the caller releases the package's library
  };

  enum class Claim {
    granted,
    aborted,
    stale,  ///< finished, halted, released or claimed already: the entry is a left-over
  };

  /// What became of the monitor's attempt to finish the request.
  enum class Completion {
    completed,
    aborted,
    superseded,  ///< another pass was claimed since the look: the verdict was on one long over
  };

  /// What the monitor may do to send the request back for another pass.
  enum class SendBack {
    reclaimWorker,  ///< join its pass thread, then push
    noWorker,       ///< push at once
    superseded,     ///< nothing: as for a completion
  };

  /// The dispatcher's own memory of a request that could not start yet; no other thread's.
  struct Refusal {
    bool inLastPass = false;
    std::optional<std::chrono::steady_clock::time_point> told;  ///< when clients last heard of it
  };

  /// The request takes the settings over. Package and device are only referred to.
  TestRequest(DiagnosticPackage& arDiagPackage, DiagDevice& arDiagDevice,
              Diag::DiagnosticSettings* apDiagSettings);
  /// @param aTestIdList the tests asked for; empty means all enabled tests of the device.
  TestRequest(DiagnosticPackage& arDiagPackage, DiagDevice& arDiagDevice, DiagIntList aTestIdList,
              Diag::DiagnosticSettings* apDiagSettings);
  TestRequest(const TestRequest&) = delete;
  TestRequest& operator=(const TestRequest&) = delete;
  /// Gives the package's object and library back if that has not happened yet.
  virtual ~TestRequest();

  unsigned long getTestRequestId();
  void setTestRequestId(unsigned long aulTestRequestId);
  bool getToBeDroppedFlag();
  void setToBeDroppedFlag(bool abToBeDropped);

  TestRequestStatus getTestRequestStatus(long alTimeOutValue);
  /// Refused without an error once the status is `COMPLETED` or `ABORTED`.
  void setTestRequestStatus(TestRequestStatus aeStatus);

  bool getAbortStatus();
  /// True also makes the status `ABORTED`, unless it is `COMPLETED`.
  void setAbortStatus(bool abAbortStatus, long alTimeOutValue);

  /// The package's object; only while it is there.
  Diag::IDiagnostics& getIDiagnostics();
  /// The package's object, or null once it was released.
  Diag::IDiagnostics* getIDiagnosticsPtr();
  /// The request takes the object over.
  void setIDiagnostics(Diag::IDiagnostics* apIDiagnostics);

  bool getHaltedStatus() noexcept;
  void setHaltedStatus(bool abHaltedStatus);
  bool getHaltLoopOnError() noexcept;
  void setHaltLoopOnError(bool abHaltLoopOnError);
  bool getMonitored() noexcept;
  void setMonitored(bool abMonitored);
  void setExecutedAll(bool abExecutedAll);

  void setHandle(DLL_Handle aHandle) noexcept;
  DLL_Handle getHandle() noexcept;
  bool getExecutedOnce() noexcept;
  void setExecutedOnce(bool abExecutedOnce) noexcept;
  unsigned long getTestRequestStartTime() noexcept;
  /// @param aulStartTime seconds since the epoch.
  void setTestRequestStartTime(unsigned long aulStartTime) noexcept;
  Diag::DiagnosticSettings* getDiagnosticSettings() noexcept;
  DiagnosticPackage& getDiagPackageRef() noexcept;
  DiagDevice& getDiagDeviceRef() noexcept;
  DiagIntList getTestIdList();

  /// Destroys the package's object and gives the library reference back; once. While other threads
  /// are inside of the object it is only hidden, and the last of them does the rest.
  /// @throws DiagCtrlReleaseLibraryFailed, DiagCtrlMutexException
  void releaseIDiagnostic(DiagnosticPackageInterface& apDiagPkgIntf, long alTimeOutValue);
  /// Whether the package's object is gone.
  bool ifIDiagnosticsDeleted();

  // For the threads of the pipeline. ---------------------------------------------------------

  /// Enters the package's object. @return null if it is gone; else `unpinIDiagnostics` must follow.
  Diag::IDiagnostics* pinIDiagnostics();
  /// Leaves it. Failures of a release that was waiting for this are traced only.
  void unpinIDiagnostics();

  /// [dispatcher] Claims the request for a pass thread: monitored, and in flight until that was
  /// joined. The claim's number is that of the pass.
  Claim claimForDispatch();
  /// [dispatcher] The number of the latest claim; 0 before the first.
  unsigned long claimedPass();
  /// [pass thread] The last look before the package is entered; granted makes it `RUNNING`.
  Claim enterPackage();
  /// Ends the flight that the claim began.
  void landFromFlight();
  /// Back to waiting for a pass thread, unless one is in flight.
  void returnToWait();
  /// [monitor] To be called behind the read of the package's status: notes which pass the verdict
  /// will be on. @return whether a completion that the package reports can be that of the pass
  /// under way; if not, it is the one of the pass before, told once more.
  bool lookAtPass();
  /// [monitor] Makes the request `COMPLETED`, unless it was aborted or the look is out of date.
  Completion complete();
  /// [monitor] Before the request is sent back for another pass.
  SendBack beginSendBack();
  /// The number of the last pass whose thread was reclaimed.
  unsigned long reclaimedPass();
  /// Whether a pass thread was claimed and not joined yet.
  bool isInFlight();
  /// Sets the abort flag and tells where the abort met the request.
  AbortedWhile beginAbort(long alTimeOutValue);
  /// Whether a queue entry of the request is a left-over that must fall out silently.
  bool isStaleEntry();
  bool isAbortedOrHalted() const;
  /// Aborted or halted, and out of the package for good.
  bool willNotRunAgain() const;

  // What stands before the request is visible to them, read without a trace and a lock.
  unsigned long id() const noexcept { return mulTestRequestId; }
  DiagnosticPackage& package() const noexcept { return mrDiagPackageRef; }
  DiagDevice& device() const noexcept { return mrDiagDeviceRef; }
  Diag::DiagnosticSettings& settings() const noexcept { return *mpDiagSetting; }

  // Counts the queue entries and threads by which the request can still be reached.
  void addReference() noexcept { ++miReferences; }
  void dropReference() noexcept { --miReferences; }
  bool isReferenced() const noexcept { return miReferences > 0; }

  Refusal& refusal() noexcept { return mRefusal; }

 private:
  void setStatusIfOpen(TestRequestStatus aeStatus) TARVEXDIAGS_REQUIRES(mmtxTestReqStatusLock);
  Claim lookBeforeStart() const TARVEXDIAGS_REQUIRES(mmtxDispatchGate);
  bool isWorkerInside() const TARVEXDIAGS_REQUIRES(mmtxDispatchGate);
  void destroyIDiagnostics(DiagnosticPackageInterface* apDiagPkgIntf, long alTimeOutValue)
      TARVEXDIAGS_REQUIRES(mmtxRelLibraryLock);

  std::atomic<unsigned long> mulTestRequestId{0};
  std::atomic<bool> mbHaltLoopOnError{false};
  std::atomic<bool> mbHaltedStatus{false};
  std::atomic<TestRequestStatus> meTestRequestStatus{WAIT};
  DiagnosticPackage& mrDiagPackageRef;
  DiagDevice& mrDiagDeviceRef;
  DiagIntList mTestIdList;
  std::atomic<bool> mbAbortStatus{false};
  std::atomic<Diag::IDiagnostics*> mpIDiagnosticsPtr{nullptr};
  Diag::DiagnosticSettings* mpDiagSetting;
  DiagCtrlLock mmtxTestReqLock;
  DiagCtrlLock mmtxTestReqStatusLock;
  DiagCtrlLock mmtxTestReqAbortLock;
  DiagCtrlLock mmtxIDiagLock;
  DiagCtrlLock mmtxRelLibraryLock;
  std::atomic<unsigned long> mulTestRequestStartTime{0};
  std::atomic<bool> mbExecutedOnce{false};
  std::atomic<bool> mbLibraryReleased{false};
  std::atomic<bool> mbMonitored{false};
  bool mbExecutedAll TARVEXDIAGS_GUARDED_BY(mmtxIDiagLock) = false;
  std::atomic<bool> mbToBeDropped{false};
  DiagTracer* mpDiagTracer;
  std::atomic<DLL_Handle> mDLLHandle{nullptr};

  DiagCtrlLock mmtxDispatchGate;
  unsigned long mulClaims TARVEXDIAGS_GUARDED_BY(mmtxDispatchGate) = 0;
  unsigned long mulClaimsAtLook TARVEXDIAGS_GUARDED_BY(mmtxDispatchGate) = 0;
  bool mbInFlight TARVEXDIAGS_GUARDED_BY(mmtxDispatchGate) = false;
  bool mbEntered TARVEXDIAGS_GUARDED_BY(mmtxDispatchGate) =
      false;  // by the thread of the latest claim
  int miUsers TARVEXDIAGS_GUARDED_BY(mmtxRelLibraryLock) = 0;
  Diag::IDiagnostics* mpDyingIDiagnostics TARVEXDIAGS_GUARDED_BY(mmtxRelLibraryLock) = nullptr;
  DiagnosticPackageInterface* mpReleasedBy TARVEXDIAGS_GUARDED_BY(mmtxRelLibraryLock) = nullptr;

  std::atomic<int> miReferences{0};
  Refusal mRefusal;  // the dispatcher's alone
};

}  // namespace TarvexDiags::DiagCtrl
