#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagControllerStatus.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/TestRequest.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class ClientCallCount;
class DiagControlConfig;
class DiagnosticPackageInterface;
class DiagTracer;
class DiagUtil;
class DiagValidator;
class ExecutionManagerThread;
class MonitorThread;
class ResourceLockManager;
class TestRequestManager;

typedef std::vector<unsigned long> VectorTestReqId;
typedef std::vector<std::string> PackageNameVector;
typedef std::vector<std::string> ParamStringVector;
typedef std::list<const char*> DisablePackList;
typedef std::list<const char*> PackageList;
typedef std::map<int, DiagnosticPackage*> PackageObjectMap;
typedef std::map<int, const char*> PackageMap;

/// The single object through which a front end drives the library.
///
/// Order of use: `getInstance`, `initialize`, one of the enumerations, registrations (at any time
/// after `initialize`), `queueTest`, collect what the wake-ups announce, `shutDown`.
///
/// Every call reads the phase first, unless its docstring says otherwise. A refused call changes
/// nothing, raises the controller event `INCORRECT_PHASE` and returns `INCORRECT_PHASE`. Codes and
/// events are two enumerations that go apart from 32 on; events raised for failed calls are of type
/// `ERROR_EVENT` with request id 0.
///
/// Who owns what: vectors, lists and texts that a call hands out belong to the caller (`delete`,
/// texts `delete[]`), messages in a vector included. Objects of the catalogue and TestRequest
/// objects stay the controller's.
///
/// Thread-safety: any client thread may call any operation; `mmtxApiPhaseLock` makes those that
/// change the machine take turns. Other client threads are at rest during the enumerations;
/// `shutDown` waits for calls that are inside, and turns new ones away as in `UNINITIALISED`.
///
/// No operation lets an exception out, but `initialize` and `resetDiagController` (standard
/// exceptions), `abortAllTest` (DiagCtrlMutexException) and `runEstimation` (std::out_of_range, and
/// what `abortAllTest` lets out). Without memory a call answers UNABLE_TO_GET_LOCK where it has
/// nothing better to say. A thread that is cancelled is not cancelled in an operation that is
/// `noexcept`; in the others it may be, and leaves no lock and no flag behind.
class TARVEXDIAGS_EXPORT DiagnosticController {
 public:
  /// Result of a client call.
  enum errorCode : unsigned int {
    SUCCESS = 1,
    INITIALISATION_FAILED = 2,
    UNABLE_TO_REGISTER = 3,
    FILE_OPEN_EXCEPTION = 4,
    OUT_OF_RANGE = 5,
    EV_REG_ID_NOT_FOUND = 7,
    TEST_OBJECT_NOT_FOUND = 8,
    REQUEST_OBJECT_NOT_FOUND = 9,
    RESULT_REG_ID_NOT_FOUND = 10,
    CTRL_EV_REG_ID_NOT_FOUND = 11,
    DEVICE_NOT_FOUND = 12,
    KEY_NOT_EXIST = 13,
    UNABLE_TO_ADD_TEST_REQUEST = 14,
    INVALID_PARAMETER = 15,
    FILE_NOT_FOUND = 16,
    UNABLE_TO_ABORT_TESTS = 17,
    PACKAGE_INITIALIZE_FAILED = 18,
    UNABLE_TO_CREATE_DEVICE_VECTOR = 19,
    OBJECT_NOT_FOUND = 20,
    UNABLE_TO_SET_STATUS = 21,
    IDIAGNOSTIC_NOT_FOUND = 22,
    UNABLE_TO_SET_PHASE = 23,
    INCORRECT_PHASE = 24,
    UNABLE_TO_INIT_EXE_MGR_THREAD = 25,
    UNABLE_TO_INIT_MONI_THREAD = 26,
    ENCORE_REQUEST = 27,
    RESET_FAILED = 28,
    PACKAGE_FILE_NOT_FOUND = 29,
    UNABLE_TO_GET_LOCK = 30,
    UNABLE_TO_SET_CTRL_PHASE = 31,
    FUNCTION_NOT_FOUND_IN_DLL = 32,
    UNABLE_TO_GET_REQUESTID_LIST = 33,
    DEVICE_OBJECT_NOT_FOUND = 34,
    INVALID_MESSAGE_STRING = 35,
    CTRL_EVENT_REG_ID_NOT_FOUND = 36,
    UNABLE_TO_LOAD_PACKAGE = 37,
    UNABLE_TO_GET_REQUEST_ID_LIST = 38,
    INVALID_VALUE_IN_CONFIG_FILE = 39,
    LOAD_LIBRARY_FAILED = 40,
    UNABLE_TO_GET_GLOBAL_SETTINGS = 41,
    UNABLE_TO_CREATE_RES_LOCK = 42,
    NO_PACKAGE_ENABLED = 43,
    INVALID_FILE_NAME_PASSED = 44,
    INVALID_OBJECT_PASSED = 45,
    INAVLID_VALUE_PASSED = 46,
    TEST_VECTOR_IS_EMPTY = 47,
    MESSAGE_TYPE_NOT_PASSED = 48,
    LANG_ID_IS_NULL = 49,
    MESSAGE_TOKEN_IS_NULL = 50,
    INVALID_KEY_PASSED = 51,
    UNABLE_TO_GET_OS = 52,
    PACKAGE_NOT_FOUND = 53,
    UNABLE_TO_REMOVE_RES_LOCK = 54,
    ABORT_ALL_ALREADY_IN_PROCESS = 55,
    UNABLE_TO_RESET_RESOURCE_LOCK_MAP = 56,
    INVALID_STRESS_MODE = 57,
    INVALID_QIUCK_TEST_MODE = 58,
    INVALID_HALT_ON_EEROR = 59,
    INVALID_RUN_TIME = 60,
    INVALID_PASS_COUNT = 61,
  };

  typedef DiagControllerStatus::diagCtrlPhase diagCtrlPhase;

  /// The instance, made on first use and never destroyed by itself.
  static DiagnosticController* getInstance();

  DiagnosticController(const DiagnosticController&) = delete;
  DiagnosticController& operator=(const DiagnosticController&) = delete;
  /// Does not shut down: call `shutDown` first.
  virtual ~DiagnosticController();

  // ---- Start, stop, health -----------------------------------------------------------------

  /// Reads the control file, opens the trace file and starts the machinery; ends in `INITIALIZE`.
  /// Raises no event. The phase is looked at only after path, configuration and settings were
  /// replaced: on a running controller do not call it. Where an exception or a cancellation leaves
  /// it, no thread goes on, and it can be called again.
  /// @param apcFileName path of the control file; copied.
  /// @return INVALID_FILE_NAME_PASSED for null (nothing changed), INITIALISATION_FAILED when a
  ///   required key is missing or wrong, INCORRECT_PHASE, UNABLE_TO_GET_OS,
  ///   UNABLE_TO_INIT_MONI_THREAD when either thread cannot be started.
  errorCode initialize(const char* apcFileName);

  /// Aborts what runs, stops both threads and takes everything down; in any phase, always SUCCESS.
  /// No time limit: it waits until each package has returned from the test it is in, and from the
  /// call that another client thread is making. Registrations do not survive; the call-back objects
  /// stay the client's. A cancellation passes while it waits for tests and threads: call it again.
  errorCode shutDown();

  /// `shutDown` and `initialize` with the same file, with every other client call kept out. Ends
  /// in `INITIALIZE`. Refused without an event in `UNINITIALISED`.
  errorCode resetDiagController();

  /// A new record of the phase and of the threads' health, which the caller owns; in every phase
  /// but `ENUMERATE`, also while the controller is shut down. A dispatcher that waits long for one
  /// serial test reads as unhealthy.
  errorCode getDiagControllerStatus(DiagControllerStatus*& arDiagControllerStatus) noexcept;

  // ---- Settings: read in every phase but UNINITIALISED and ENUMERATE, written in IDLE ------
  // The argument is checked before the phase: a bad value gives INAVLID_VALUE_PASSED in any phase
  // and raises nothing. A refused getDebugLog raises nothing either. Changes live in memory only.

  errorCode getDebugLog(DiagCtrlConstants::debugLevel& areDebugLevel) noexcept;
  errorCode getRunMode(GlobalSettings::runMode& areRunMode) noexcept;
  errorCode getDiagLogMode(bool& arbDiagLogMode) noexcept;
  errorCode getHaltOnError(bool& arbHaltOnError) noexcept;
  errorCode getDiagnosticMode(GlobalSettings::diagMode& areDiagnosticMode) noexcept;
  /// Takes effect at once.
  errorCode setDebugLog(DiagCtrlConstants::debugLevel aeDebugLevel) noexcept;
  errorCode setRunMode(GlobalSettings::runMode aeRunMode) noexcept;
  /// For objects that packages make from now on.
  errorCode setDiagLogMode(bool abDiagLogMode) noexcept;
  /// For requests queued from now on.
  errorCode setHaltOnError(bool abHaltOnError) noexcept;
  /// For objects that packages make from now on.
  errorCode setDiagnosticMode(GlobalSettings::diagMode aeDiagnosticMode) noexcept;

  // ---- Enumeration -------------------------------------------------------------------------
  // A cancellation passes in the packages' code and where files are read, but in
  // getEnumerationProgress.

  /// Builds the catalogue from the package directory; `INITIALIZE` to `IDLE`, or back on
  /// INVALID_VALUE_IN_CONFIG_FILE, PACKAGE_FILE_NOT_FOUND and NO_PACKAGE_ENABLED.
  /// @return the result of the last package processed, not a summary: the events tell the rest.
  errorCode enumerateAllPackages();
  /// The same for packages with one of these mnemonics; an empty vector means all.
  errorCode enumerateByPackageClass(const PackageNameVector& arPackageNameVector);
  /// Enumerates one package again; only in `IDLE`, where it also ends. On a failure the package
  /// leaves the catalogue.
  errorCode enumerateDiagPackages(int packageIndex);
  /// Percentage; 0 before, 100 after an enumeration. Takes no long lock.
  errorCode getEnumerationProgress(int& progress) noexcept;

  // ---- Catalogue: ACTIVE and IDLE ----------------------------------------------------------
  // Failures: OBJECT_NOT_FOUND for an unknown package, DEVICE_NOT_FOUND, TEST_OBJECT_NOT_FOUND.
  // The six calls that hand out a vector of ids hand out a new, empty one also when they fail.
  // Objects handed out live until `shutDown`, devices and tests until their package is enumerated
  // again.

  /// Counts the names found and not left out; 0 on a wrong phase.
  errorCode getNumberOfDiagPackages(int& ariNumberOfPackages) noexcept;
  errorCode getDiagPackage(int packageIndex, DiagnosticPackage*& arpDiagPackage) noexcept;
  errorCode getDevice(int packageIndex, unsigned int deviceId, DiagDevice*& arpDiagDevice) noexcept;
  errorCode getTest(int packageIndex, unsigned int testId, PackageTestInfo*& arpTestInfo) noexcept;
  errorCode getDeviceIdList(int packageIndex, std::vector<int>*& arpDeviceIdVector) noexcept;
  /// The devices on which a test is enabled.
  errorCode getValidDeviceIdList(int packageIndex, unsigned int testId,
                                 std::vector<int>*& arpDeviceIdVector) noexcept;
  errorCode getTestIdList(int packageIndex, std::vector<int>*& arpTestIdVector) noexcept;
  /// The tests that are enabled on a device.
  errorCode getValidTestIdList(int packageIndex, unsigned int deviceId,
                               std::vector<int>*& arpTestIdVector) noexcept;
  /// The packages that the control file left out. The caller owns the list, not the texts.
  errorCode getDisablePackageList(PackageList*& arpPackageList) noexcept;
  /// The tests that were withdrawn for this machine or operating system.
  errorCode getDisableTestList(int packageIndex, std::vector<int>*& arpTestIdVector) noexcept;
  /// The devices on which a test is disabled.
  errorCode getDisableDeviceList(int packageIndex, unsigned int testId,
                                 std::vector<int>*& arpDeviceIdVector) noexcept;
  /// Asks the device; one question at a time over all devices. A device that throws counts as
  /// DEVICE_NOT_FOUND. A cancellation passes in the device's code.
  errorCode getDeviceStatus(int packageIndex, int deviceId, unsigned int& aruiDeviceStatus);

  // ---- Queueing: ACTIVE and IDLE; a success makes the controller ACTIVE ----------------------
  // The settings are copied, so the client may change or drop its object at once. Their requested
  // pass count and run time (seconds) must not be 0: INVALID_PASS_COUNT, INVALID_RUN_TIME. A first
  // pass count of 1 and N requested passes are N runs. Tests are not judged here: one that is
  // disabled on the device is skipped when the request runs. Other failures: TEST_VECTOR_IS_EMPTY
  // (no event), OBJECT_NOT_FOUND, DEVICE_OBJECT_NOT_FOUND, PACKAGE_NOT_FOUND,
  // UNABLE_TO_ADD_TEST_REQUEST, FUNCTION_NOT_FOUND_IN_DLL, LOAD_LIBRARY_FAILED. A cancellation
  // passes in the package's code; requests that were queued stay queued.

  /// These tests on one device. @param abHaltLoopOnError end the passes after a bad result.
  errorCode queueTest(int packageIndex, unsigned int deviceId, std::vector<int>& testVector,
                      Diag::DiagnosticSettings& arDiagSettings, bool abHaltLoopOnError,
                      unsigned long& rulTestRequestId);
  /// The same with the run-wide halt on error.
  errorCode queueTest(int packageIndex, unsigned int deviceId, std::vector<int>& testVector,
                      Diag::DiagnosticSettings& arDiagSettings, unsigned long& rulTestRequestId);
  /// All enabled tests of one device.
  errorCode queueTest(int packageIndex, unsigned int deviceId,
                      Diag::DiagnosticSettings& arDiagSettings, unsigned long& rulTestRequestId);
  /// All enabled tests of every device of the package, one request for each device.
  /// @param aVectorTestReqId a new vector, which the caller owns, once the package has devices. On
  ///   a failure half-way it holds the requests that stay queued, and the phase is not changed.
  errorCode queueTest(int packageIndex, Diag::DiagnosticSettings& arDiagSettings,
                      VectorTestReqId*& aVectorTestReqId);

  // ---- Request control and status ------------------------------------------------------------
  // REQUEST_OBJECT_NOT_FOUND for an unknown id. Abort, suspend, resume, status and progress only in
  // `ACTIVE`; getRequestStatus, getRequestIdList and getTestRequest also in `IDLE`. A cancellation
  // passes in the former five, in the package's code.

  /// Asks a request to end; returns at once. Its id leaves the list of ids, its object stays.
  errorCode abortTest(unsigned long ulRequestId);
  /// The same for several; ends at the first unknown id.
  errorCode abortTest(std::vector<unsigned long>& requestIdVector);
  /// Asks every request on the list of ids to end; the ids stay on the list. One thread calls it:
  /// ABORT_ALL_ALREADY_IN_PROCESS returns with the controller's big lock held.
  errorCode abortAllTest();
  /// Suspends a request whose package is executing or ready; else nothing, with SUCCESS.
  errorCode suspendTest(unsigned long ulRequestId);
  /// Resumes a request that runs or waits, whatever its package says; else nothing, with SUCCESS.
  errorCode resumeTest(unsigned long ulRequestId);
  /// The package's own state of a request. For a request whose library was released it returns
  /// IDIAGNOSTIC_NOT_FOUND with a lock held, and the next call of this or of getDiagnosticProgress
  /// blocks: ask getRequestStatus first.
  errorCode getDiagnosticStatus(unsigned long aulTestRequestId,
                                Diag::DiagnosticStatus::Status& aruiDiagStatus);
  /// The package's own progress; IDIAGNOSTIC_NOT_FOUND for a request whose library was released.
  errorCode getDiagnosticProgress(unsigned long aulTestRequestId, unsigned int& aruiDiagProgress);
  /// What the controller knows of a request, also after its end: the number of the pass under way
  /// (of the last one, after the end), the number of passes asked for, and whether it is in stress
  /// mode. The outputs are untouched on failure.
  errorCode getRequestStatus(long lTestRequestId, TestRequest::TestRequestStatus& arStatus,
                             int& aiCurPassCnt, int& aiTotalPassCnt, bool& abStrssMode) noexcept;
  /// A new vector, also on failure, with the ids of unfinished requests, oldest first. The id of a
  /// request that `abortAllTest` met in a queue stays on the list.
  errorCode getRequestIdList(std::vector<unsigned long>*& arTestRequestIdList) noexcept;
  /// The controller's own object; `clearRequestIdList` and `shutDown` destroy it. An unknown id
  /// gives OBJECT_NOT_FOUND.
  errorCode getTestRequest(int requestId, TestRequest*& arpRequest) noexcept;
  /// Forgets all requests; only in `IDLE`. Ids go on rising.
  errorCode clearRequestIdList() noexcept;

  // ---- Estimation ----------------------------------------------------------------------------

  /// Queues each test once, in `IDLE`; the vectors hold one entry for each test. Changes the
  /// settings: halt on error, one pass. The first test that cannot be queued ends the call with its
  /// code, after an abort of the others. A cancellation passes in the packages' code.
  /// @throws std::out_of_range for a shorter vector.
  errorCode runEstimation(const std::vector<int>& aPackageIndexVec,
                          const std::vector<int>& aDeviceIdVec, const std::vector<int>& aTestIdVec,
                          std::vector<int>& apTestRequestIdVec,
                          Diag::DiagnosticSettings& arDiagSettings);
  /// Collects the figures once the controller is `IDLE` again, from the first registration of
  /// results, which it empties. In the unit that packages and client agree on.
  /// @param apTimeRemainingVec figures are appended. @param totalTimeRemaining -1: no estimate.
  /// @return false only in a wrong phase.
  bool getEstimatedTime(const std::vector<int>& apTestRequestIdVec,
                        std::vector<int>& apTimeRemainingVec, int& totalTimeRemaining) noexcept;
  /// The sum of the second vector; 0 in a wrong phase.
  int getToTalTimeRemaining(const std::vector<int>& apTestRequestIdVec,
                            const std::vector<int>& apTimeRemainingVec) noexcept;
  /// Does nothing; false.
  bool getTimeRemaining(const std::vector<int>& apTestRequestIdVec,
                        std::vector<int>& apTimeRemainingVec, int& totalTimeRemaining) noexcept;

  // ---- Registration and collection -----------------------------------------------------------

  /// Registers for one kind of message, in every phase but `UNINITIALISED`. The object stays the
  /// client's and must live until `shutDown`; each registration has a queue and an id of its own.
  /// @return INVALID_OBJECT_PASSED for null, in any phase.
  errorCode registerForDiagEvents(CallBackObject* apCallBackObj,
                                  unsigned long& ulDiagEventRegId) noexcept;
  errorCode registerForDiagResults(CallBackObject* apCallBackObj,
                                   unsigned long& ulDiagResultRegId) noexcept;
  errorCode registerForDiagCtrlEvents(CallBackObject* apCallBackObj,
                                      unsigned long& ulDiagCtrlEventRegId) noexcept;
  /// Empties a registration's queue into a new vector, which may be empty; `ACTIVE`, `IDLE`. An
  /// unknown id gives RESULT_REG_ID_NOT_FOUND for events too.
  errorCode getDiagnosticEvents(long lEventRegId, EventVector*& rDiagEventVector) noexcept;
  errorCode getDiagnosticResults(long lResultId, ResultVector*& arpDiagResultVector) noexcept;
  /// Also in `INITIALIZE`, where it tells why an enumeration failed; a refused call raises nothing.
  errorCode getDiagnosticCtrlEvents(long lCtrlEventRegId,
                                    CtrlEventVector*& arpDiagCtrlEventVector) noexcept;
  errorCode getNumberOfRegistrations(unsigned int& auiEvtReg, unsigned int& auiResReg,
                                     unsigned int& auiCtrlEvtReg) noexcept;

  // ---- Text: ACTIVE and IDLE -----------------------------------------------------------------
  // Results are new arrays of 4096 characters that the caller owns, untouched on failure. Failures:
  // PACKAGE_NOT_FOUND; INVALID_PARAMETER for a missing or empty file, section, key or value. A
  // cancellation passes where the file is read.

  errorCode getTestToken(int packageIndex, int testIndex, char* key, char*& rTesttoken);
  errorCode getPackageToken(int packageIndex, char* key, char*& rPkgtoken);
  errorCode getMessageToken(int packageIndex, Diag::DiagnosticEvent::EventType eventType,
                            unsigned int eventCode, char*& rMsgtoken);
  errorCode getDeviceStatusToken(int packageIndex, unsigned int statusCode, char*& rMsgtoken);
  /// The text of a token in a language, as it stands. @return LANG_ID_IS_NULL or
  ///   MESSAGE_TOKEN_IS_NULL in any phase.
  errorCode getLocalizedString(int packageIndex, char* pcLangId, char* pcMsgToken,
                               char*& rpcLocalString);
  /// The same with the variables filled in: "$1$" is the first parameter, "$word$" the next one,
  /// "$$" a dollar. An index of 0 or less reads the message file, if there is one.
  /// @param aStringVector parameters; those that are tokens themselves are replaced by their text.
  errorCode getLocalizedMessage(int packageIndex, char* pcLangId, char* pcMsgToken,
                                ParamStringVector& aStringVector, char*& rpcLocalString);

  // ---- Inside the library ----------------------------------------------------------------------

  /// @throws DiagCtrlMutexException
  diagCtrlPhase getDiagCtrlPhase(long alTimeOutValue);
  void setDiagCtrlPhase(diagCtrlPhase aePhase, long alTimeOutValue);
  bool getShutDownFlag();
  // Null while the controller is uninitialised.
  GlobalSettings* getGlobalSettingsPtr() const noexcept;
  EventManager* getEventMgrPtr() const noexcept;
  DiagnosticPackageInterface* getDiagPackInterfacePtr() const noexcept;
  TestRequestManager* getTestRequestMgrPtr() const noexcept;
  /// Wake the objects registered for a kind. @throws DiagCtrlMutexException
  void notifyEvent();
  void notifyResult();
  void notifyCtrlEvent();

 private:
  // The steps of the operations, in classes that stand beside the operations which they serve.
  class TARVEXDIAGS_INTERNAL Abort;
  class TARVEXDIAGS_INTERNAL Call;
  struct TARVEXDIAGS_INTERNAL CallBackList;
  class TARVEXDIAGS_INTERNAL Control;
  class TARVEXDIAGS_INTERNAL Enumeration;
  class TARVEXDIAGS_INTERNAL Estimation;
  class TARVEXDIAGS_INTERNAL Machinery;
  class TARVEXDIAGS_INTERNAL PackageProbe;
  class TARVEXDIAGS_INTERNAL Query;
  class TARVEXDIAGS_INTERNAL Queueing;
  class TARVEXDIAGS_INTERNAL Registration;
  class TARVEXDIAGS_INTERNAL Reset;
  class TARVEXDIAGS_INTERNAL Setting;
  class TARVEXDIAGS_INTERNAL Text;

  DiagnosticController();

  // Enumeration.
  void readDirectory(char* apcDirPath) TARVEXDIAGS_REQUIRES(mmtxApiPhaseLock);
  bool preEnumerationCheck(const char* packageName);
  errorCode doEnumeratePackage(DiagnosticPackage* apDiagnosticPackage,
                               const PackageNameVector& packageVector);
  bool checkPackageDllDep(const char* apcPackageDir, const char* apcPackDllName);
  void setEnumerationProgress(int progressValue);
  static bool val_comp(const std::string& arLeft, const std::string& arRight);

  // Catalogue.
  DiagnosticPackage* getDiagPackagePtr(int iPackIndex);

  // Queueing.
  bool validateDiagSettings(Diag::DiagnosticSettings& arDiagSettings, errorCode& arErorCode);
  unsigned long queueRequest(const char* apcPackageName, TestRequest* apTestRequest);

  // Text.
  bool generateString(char* apcLocalString, ParamStringVector aStringVector);

  static System::Mutex mSInstanceMutex;
  static DiagnosticController* mSpInstance TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  std::list<CallBackObject*> mlEventCallBackObjList TARVEXDIAGS_GUARDED_BY(mmtxEvtCBObjListLock);
  std::list<CallBackObject*> mlResultCallBackObjList TARVEXDIAGS_GUARDED_BY(mmtxResCBObjListLock);
  std::list<CallBackObject*> mlCtrlEventCallBackObjList
      TARVEXDIAGS_GUARDED_BY(mmtxCtrlEvtCBObjListLock);
  DiagControllerStatus* mpDiagCtrlStatus;
  char* mpcCtrlConfigFilePath TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  GlobalSettings* mpGlobalSettings TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  ResourceLockManager* mpResourceLockManager TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  EventManager* mpEventManager TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  TestRequestManager* mpTestRequestManager TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  MonitorThread* mpMoniThread TARVEXDIAGS_GUARDED_BY(mThreadPointersMutex);
  ExecutionManagerThread* mpExecMgrThread TARVEXDIAGS_GUARDED_BY(mThreadPointersMutex);
  PackageObjectMap mPackageObjectMap TARVEXDIAGS_GUARDED_BY(mmtxPackageVectorLock);
  DiagnosticPackageInterface* mpDiagPackInterface TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  PackageMap mPackageMap TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  [[maybe_unused]] long mlRequestId;
  DiagControlConfig* mpDiagCtrlConfig TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  [[maybe_unused]] bool mbPackageRead;
  DiagTracer* mpDiagTracer;
  char* mpcPackDirPath TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcLogDirPath TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcMsgFilePath TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  PackageNameVector mvPackageNameVector TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
  DisablePackList mDisablePackageList TARVEXDIAGS_GUARDED_BY(mmtxDisPackageListLock);
  DiagUtil* mpDiagUtil;
  DiagValidator* mpValidator;
  unsigned short musMachineId TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
  std::string mOs TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
  int mProgressEnumeration TARVEXDIAGS_GUARDED_BY(mmtxProgressLock);
  /// Changed and read under its lock. Atomic, because it is changed without it if need be.
  std::atomic<bool> mbShutDownRequest;
  bool mbMsgFilePathFound TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  bool mbAbortAllFlag TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
  std::atomic<bool> mbResetRequest;
  DiagCtrlLock mmtxTestRequestLock;
  DiagCtrlLock mmtxApiPhaseLock;
  DiagCtrlLock mmtxEvtCBObjListLock;
  DiagCtrlLock mmtxResCBObjListLock;
  DiagCtrlLock mmtxCtrlEvtCBObjListLock;
  DiagCtrlLock mmtxPackageVectorLock;
  DiagCtrlLock mmtxGlobalSettingsLock;
  DiagCtrlLock mmtxDiagProgressLock;
  DiagCtrlLock mmtxDeviceStatusLock;
  DiagCtrlLock mmtxShutDownLock;
  DiagCtrlLock mmtxProgressLock;
  DiagCtrlLock mmtxDisPackageListLock;
  DiagCtrlLock mmtxResetLock;

  std::unique_ptr<ClientCallCount> mpClientCalls;
  /// Held to read the stamp of a thread, and to change the pointer to one. Never around a join.
  System::Mutex mThreadPointersMutex;
  std::atomic<std::thread::id> mResettingThread;
  /// Libraries whose devices a request of an earlier enumeration may still use.
  std::vector<void*> mRetiredHandles TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
  /// Packages that left the catalogue and stay allocated; what they keep for such a request does
  /// not.
  std::vector<DiagnosticPackage*> mLostPackages TARVEXDIAGS_GUARDED_BY(mmtxApiPhaseLock);
};

}  // namespace TarvexDiags::DiagCtrl
