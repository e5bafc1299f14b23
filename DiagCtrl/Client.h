#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "DiagCtrl/CodeNames.h"
#include "DiagCtrl/DiagnosticController.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

/// A more comfortable way to drive the controller: header only, over the public calls of
/// DiagnosticController, which may be mixed with it at will. Whatever a call hands out is a value
/// here, and a failure is an exception.
namespace TarvexDiags::DiagCtrl {

/// A call that was refused or failed. Thrown by everything below that makes a call, unless told
/// otherwise.
class TARVEXDIAGS_EXPORT CallFailed : public std::runtime_error {
 public:
  /// @param aCall the name of the call.
  CallFailed(const std::string& aCall, DiagnosticController::errorCode aeCode)
      : std::runtime_error(aCall + ": " + nameOf(aeCode) + " (" +
                           std::to_string(static_cast<unsigned int>(aeCode)) + ")"),
        meCode(aeCode) {}

  DiagnosticController::errorCode code() const noexcept { return meCode; }

 private:
  DiagnosticController::errorCode meCode;
};

/// A package that was to be queued as a whole, and of which only the requests of some devices were:
/// they stay queued, and are not judged before another request is queued.
class TARVEXDIAGS_EXPORT PartlyQueued : public CallFailed {
 public:
  PartlyQueued(DiagnosticController::errorCode aeCode, std::vector<unsigned long> aRequests)
      : CallFailed("queueTest", aeCode), mRequests(std::move(aRequests)) {}

  const std::vector<unsigned long>& requests() const noexcept { return mRequests; }

 private:
  std::vector<unsigned long> mRequests;
};

/// @throws CallFailed unless the call was a success.
inline void requireSuccess(DiagnosticController::errorCode aeCode, const char* apcCall) {
  if (aeCode != DiagnosticController::SUCCESS) {
    throw CallFailed(apcCall, aeCode);
  }
}

/// Settings of a request: that many passes, of which none begins later than aRunTime after the
/// queueing. Both are at least 1, which the controller checks when it is queued.
inline Diag::DiagnosticSettings settingsFor(int aPasses, std::chrono::seconds aRunTime) {
  Diag::DiagnosticSettings settings;
  settings.setRequestedPassCount(aPasses);
  settings.setRunTime(static_cast<Ulong>(std::max<std::chrono::seconds::rep>(aRunTime.count(), 0)));
  return settings;
}

/// How far a request is.
struct TARVEXDIAGS_EXPORT RequestState {
  TestRequest::TestRequestStatus status = TestRequest::WAIT;
  int pass = 0;    ///< under way; after the end, the last one
  int passes = 0;  ///< asked for
  bool isStress = false;
};

/// What the classes below are made of.
namespace ClientParts {

/// Makes values of what a call handed out, which is freed. Null counts as nothing.
template <class Value>
std::vector<Value> owned(std::vector<Value>* apValues) {
  const std::unique_ptr<std::vector<Value>> values(apValues);
  return values != nullptr ? std::move(*values) : std::vector<Value>();
}

template <class Message>
std::vector<Message> ownedMessages(std::vector<Message*>* apMessages) {
  std::vector<std::unique_ptr<Message>> pointers;
  for (Message* const message : owned(apMessages)) {
    pointers.emplace_back(message);
  }
  std::vector<Message> messages;
  messages.reserve(pointers.size());
  for (const std::unique_ptr<Message>& pointer : pointers) {
    messages.push_back(*pointer);
  }
  return messages;
}

/// The calls for one kind of message.
template <class Message>
struct Kind;

template <>
struct Kind<Diag::DiagnosticEvent> {
  static constexpr auto kRegister = &DiagnosticController::registerForDiagEvents;
  static constexpr auto kCollect = &DiagnosticController::getDiagnosticEvents;
  static constexpr const char* kRegisterName = "registerForDiagEvents";
  static constexpr const char* kCollectName = "getDiagnosticEvents";
};

template <>
struct Kind<Diag::DiagnosticResult> {
  static constexpr auto kRegister = &DiagnosticController::registerForDiagResults;
  static constexpr auto kCollect = &DiagnosticController::getDiagnosticResults;
  static constexpr const char* kRegisterName = "registerForDiagResults";
  static constexpr const char* kCollectName = "getDiagnosticResults";
};

template <>
struct Kind<DiagCtrlEvent> {
  static constexpr auto kRegister = &DiagnosticController::registerForDiagCtrlEvents;
  static constexpr auto kCollect = &DiagnosticController::getDiagnosticCtrlEvents;
  static constexpr const char* kRegisterName = "registerForDiagCtrlEvents";
  static constexpr const char* kCollectName = "getDiagnosticCtrlEvents";
};

/// Counts the controller's wake-ups on a thread of its own, since the wait on the controller's
/// object has no limit. One that comes while the thread is not waiting is lost all the same.
class TARVEXDIAGS_EXPORT WakeUps {
 public:
  WakeUps() : mThread([this] { run(); }) {}
  ~WakeUps() { end(); }
  WakeUps(const WakeUps&) = delete;
  WakeUps& operator=(const WakeUps&) = delete;

  /// What registrations are made with.
  CallBackObject& object() noexcept { return mObject; }

  unsigned long count() {
    const System::LockHold lock(mWakeMutex);
    return mulCount;
  }
  /// Waits until there were more wake-ups than aulSeen, or until the deadline.
  void waitBeyond(unsigned long aulSeen, std::chrono::steady_clock::time_point aDeadline) {
    const System::LockHold lock(mWakeMutex);
    while (mulCount == aulSeen && mCondition.waitUntil(mWakeMutex, aDeadline)) {
    }
  }

  /// Ends the thread. To be called by one thread, once the controller was shut down.
  void end() {
    mbIsWanted = false;
    while (!mbHasEnded) {
      mObject.notify();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (mThread.joinable()) {
      mThread.join();
    }
  }

 private:
  void run() {
    while (mbIsWanted) {
      mObject.wait();
      const System::LockHold lock(mWakeMutex);
      ++mulCount;
      mCondition.notifyAll();
    }
    mbHasEnded = true;
  }

  CallBackObject mObject;
  std::atomic<bool> mbIsWanted{true};
  std::atomic<bool> mbHasEnded{false};
  System::Mutex mWakeMutex;
  System::ConditionVariable mCondition;
  unsigned long mulCount TARVEXDIAGS_GUARDED_BY(mWakeMutex) = 0;
  std::thread mThread;
};

/// A queue of the controller's, and what was fetched from it. The controller knows no way to end a
/// registration: a queue whose registration has ended is emptied with the others, and serves the
/// next one of its kind.
template <class Message>
class TARVEXDIAGS_EXPORT Inbox {
 public:
  explicit Inbox(unsigned long aulId) : mlId(static_cast<long>(aulId)) {}

  /// Fetches what came; keeps it if somebody has the registration.
  DiagnosticController::errorCode fetch(DiagnosticController& arController) {
    const System::LockHold lock(mInboxMutex);
    return fetchHeld(arController);
  }
  /// All that came, or why it cannot be had.
  std::vector<Message> take(DiagnosticController& arController) {
    const System::LockHold lock(mInboxMutex);
    const auto code = fetchHeld(arController);
    if (mMessages.empty()) {
      requireSuccess(code, Kind<Message>::kCollectName);
    }
    return std::exchange(mMessages, {});
  }
  bool isEmpty() {
    const System::LockHold lock(mInboxMutex);
    return mMessages.empty();
  }

  /// Takes a queue that nobody has. @param abMayFetch whether the phase lets it be emptied; if not,
  ///   nothing can have come.
  bool open(DiagnosticController& arController, bool abMayFetch) {
    const System::LockHold lock(mInboxMutex);
    if (mbIsOpen) {
      return false;
    }
    if (abMayFetch) {
      fetchHeld(arController);
    }
    return mbIsOpen = true;
  }
  void close() {
    const System::LockHold lock(mInboxMutex);
    mbIsOpen = false;
    mMessages.clear();
  }

 private:
  DiagnosticController::errorCode fetchHeld(DiagnosticController& arController)
      TARVEXDIAGS_REQUIRES(mInboxMutex) {
    std::vector<Message*>* handed = nullptr;
    const auto code = (arController.*Kind<Message>::kCollect)(mlId, handed);
    const std::vector<Message> messages = ownedMessages(handed);
    if (mbIsOpen) {
      mMessages.insert(mMessages.end(), messages.begin(), messages.end());
    }
    return code;
  }

  const long mlId;
  System::Mutex mInboxMutex;
  bool mbIsOpen TARVEXDIAGS_GUARDED_BY(mInboxMutex) = false;
  std::vector<Message> mMessages TARVEXDIAGS_GUARDED_BY(mInboxMutex);
};

/// All queues of one kind.
template <class Message>
class TARVEXDIAGS_EXPORT Inboxes {
 public:
  typedef std::shared_ptr<Inbox<Message>> Pointer;

  Pointer open(DiagnosticController& arController, CallBackObject& arObject, bool abMayFetch) {
    const System::LockHold lock(mInboxesMutex);
    for (const Pointer& inbox : mInboxes) {
      if (inbox->open(arController, abMayFetch)) {
        return inbox;
      }
    }
    unsigned long id = 0;
    requireSuccess((arController.*Kind<Message>::kRegister)(&arObject, id),
                   Kind<Message>::kRegisterName);
    const Pointer inbox(new Inbox<Message>(id));
    inbox->open(arController, false);
    mInboxes.push_back(inbox);
    return inbox;
  }

  /// Fetches what came. @return whether there is something to take.
  bool gather(DiagnosticController& arController) {
    const System::LockHold lock(mInboxesMutex);
    bool isAny = false;
    for (const Pointer& inbox : mInboxes) {
      inbox->fetch(arController);
      isAny = !inbox->isEmpty() || isAny;
    }
    return isAny;
  }

 private:
  System::Mutex mInboxesMutex;
  std::vector<Pointer> mInboxes TARVEXDIAGS_GUARDED_BY(mInboxesMutex);
};

/// One life of the controller, from initialize to shutDown. Registrations share it with the client.
class TARVEXDIAGS_EXPORT Session {
 public:
  explicit Session(DiagnosticController& arController) : mrController(arController) {}

  DiagnosticController& controller() noexcept { return mrController; }

  /// The phase. A state that cannot be had is that of an enumeration.
  DiagControllerStatus::diagCtrlPhase phase() {
    DiagControllerStatus* status = nullptr;
    mrController.getDiagControllerStatus(status);
    const std::unique_ptr<DiagControllerStatus> owner(status);
    return owner == nullptr ? DiagControllerStatus::ENUMERATE
                            : owner->getDiagCtrlPhase(DiagCtrlConstants::mSconlDefaultLockTimeOut);
  }
  /// Whether the catalogue, texts and all kinds of message can be asked for.
  bool isEnumerated() {
    const auto present = phase();
    return present == DiagControllerStatus::ACTIVE || present == DiagControllerStatus::IDLE;
  }

  template <class Message>
  std::shared_ptr<Inbox<Message>> open() {
    return std::get<Inboxes<Message>>(mInboxes).open(mrController, mWakeUps.object(),
                                                     isEnumerated());
  }
  template <class Message>
  std::vector<Message> take(Inbox<Message>& arInbox) {
    if (mbHasEnded) {  // the next life gives the same ids to others
      throw CallFailed(Kind<Message>::kCollectName, DiagnosticController::INCORRECT_PHASE);
    }
    return arInbox.take(mrController);
  }

  /// Waits until the condition holds, but no longer than the deadline. It is looked at after each
  /// wake-up, and now and then, as a wake-up may be lost. @return whether it holds.
  template <class Condition>
  bool waitUntil(std::chrono::steady_clock::time_point aDeadline, Condition aHolds) {
    for (;;) {
      const unsigned long seen = mWakeUps.count();
      const bool isAny = gather();
      if (aHolds(isAny)) {
        return true;
      }
      const auto now = std::chrono::steady_clock::now();
      if (now >= aDeadline) {
        return false;
      }
      mWakeUps.waitBeyond(seen, std::min(aDeadline, now + kLook));
    }
  }

  void end() {
    mbHasEnded = true;
    mrController.shutDown();
    mWakeUps.end();
  }

 private:
  static constexpr std::chrono::milliseconds kLook{50};

  /// Fetches what may be fetched in this phase. @return whether there is something to take.
  bool gather() {
    const auto present = phase();
    bool isAny = false;
    if (present == DiagControllerStatus::ACTIVE || present == DiagControllerStatus::IDLE) {
      isAny = std::get<Inboxes<Diag::DiagnosticEvent>>(mInboxes).gather(mrController);
      isAny = std::get<Inboxes<Diag::DiagnosticResult>>(mInboxes).gather(mrController) || isAny;
    }
    if (present != DiagControllerStatus::ENUMERATE) {
      isAny = std::get<Inboxes<DiagCtrlEvent>>(mInboxes).gather(mrController) || isAny;
    }
    return isAny;
  }

  DiagnosticController& mrController;
  std::tuple<Inboxes<Diag::DiagnosticEvent>, Inboxes<Diag::DiagnosticResult>,
             Inboxes<DiagCtrlEvent>>
      mInboxes;
  std::atomic<bool> mbHasEnded{false};
  WakeUps mWakeUps;
};

}  // namespace ClientParts

/// One kind of message, for as long as the object lives: what comes afterwards is thrown away. It
/// can be moved, and cannot be used after that. When its client has gone, take throws and the rest
/// does nothing.
///
/// Thread-safety: several threads may call take at a time; each message goes to one of them.
template <class Message>
class TARVEXDIAGS_EXPORT Registration {
 public:
  /// What came since the last call, oldest first; often nothing. Events and results can be taken
  /// once there was an enumeration, controller events before it too. @throws CallFailed
  std::vector<Message> take() { return mpTicket->session->take(*mpTicket->inbox); }

 private:
  friend class Client;

  struct Ticket {
    explicit Ticket(std::shared_ptr<ClientParts::Session> apSession)
        : session(std::move(apSession)), inbox(session->template open<Message>()) {}
    ~Ticket() { inbox->close(); }
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;

    std::shared_ptr<ClientParts::Session> session;
    std::shared_ptr<ClientParts::Inbox<Message>> inbox;
  };

  explicit Registration(std::shared_ptr<ClientParts::Session> apSession)
      : mpTicket(std::make_unique<Ticket>(std::move(apSession))) {}

  std::unique_ptr<Ticket> mpTicket;
};

typedef Registration<Diag::DiagnosticEvent> EventRegistration;
typedef Registration<Diag::DiagnosticResult> ResultRegistration;
typedef Registration<DiagCtrlEvent> CtrlEventRegistration;

/// The controller, from initialize to shutDown: the object's life is the controller's. There is one
/// controller in a process, so there is one client at a time; it starts a thread of its own, which
/// waits for the controller's wake-ups and calls nothing.
///
///   DiagCtrl::Client client("/etc/control.cfg");
///   auto results = client.results();
///   client.enumerate();
///   const auto requests = client.queue(1, DiagCtrl::settingsFor(1, 10min));
///   if (client.waitUntilEnded(requests, 15min)) {
///     for (const auto& result : results.take()) { ... }
///   }
///
/// Packages, devices and tests go by the numbers of the controller. Vectors and texts are the
/// caller's. Objects that stay the controller's are handed out as references: packages until the
/// client ends, devices and tests until their package is enumerated again.
///
/// Not here, because there is nothing to own or to wait for: the run-wide settings, estimates,
/// clearRequestIdList. `controller()` has them. getDiagnosticStatus is left out on purpose: for a
/// request that has ended it keeps a lock, and `progress` tells what there is to know. Instead of
/// resetDiagController make another client.
///
/// Thread-safety: any thread may call anything, with the controller's exceptions: other threads are
/// at rest during enumerations, and have left the client when it is destroyed. abortAll is called
/// by one thread at a time here, which the client sees to.
class TARVEXDIAGS_EXPORT Client {
 public:
  typedef DiagnosticController::errorCode errorCode;

  /// Initialises the controller, unless somebody in this process has done so already.
  /// @throws CallFailed; std::system_error without a thread; what initialize lets out.
  explicit Client(const std::string& aControlFile)
      : mpSession(std::make_shared<ClientParts::Session>(*DiagnosticController::getInstance())) {
    // A refused initialize would have replaced the settings of the one that runs.
    if (mpSession->phase() != DiagControllerStatus::UNINITIALISED) {
      throw CallFailed("initialize", DiagnosticController::INCORRECT_PHASE);
    }
    requireSuccess(controller().initialize(aControlFile.c_str()), "initialize");
  }
  /// Shuts the controller down: asks running tests to end and waits until they have, without limit.
  ~Client() { mpSession->end(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// The plain interface, for whatever is not here. It is initialised.
  DiagnosticController& controller() const noexcept { return mpSession->controller(); }
  DiagControllerStatus::diagCtrlPhase phase() const { return mpSession->phase(); }
  /// The phase and the health of the controller's threads.
  std::unique_ptr<DiagControllerStatus> status() const {
    DiagControllerStatus* status = nullptr;
    requireSuccess(controller().getDiagControllerStatus(status), "getDiagControllerStatus");
    return std::unique_ptr<DiagControllerStatus>(status);
  }

  // ---- Messages. A registration that is made before the enumeration misses nothing. -----------

  EventRegistration events() { return EventRegistration(mpSession); }
  ResultRegistration results() { return ResultRegistration(mpSession); }
  CtrlEventRegistration ctrlEvents() { return CtrlEventRegistration(mpSession); }

  /// Waits until there is something to take from a registration, but no longer than the limit; 0
  /// looks once. @return whether there is something.
  bool wait(std::chrono::milliseconds aLimit) {
    return mpSession->waitUntil(deadline(aLimit), [](bool isAny) { return isAny; });
  }

  /// Waits until none of the requests is unfinished, but no longer than the limit; then all of
  /// their messages can be taken. One that was aborted by itself counts as ended at once, and its
  /// last messages may still be on their way. @return false if the limit was reached.
  bool waitUntilEnded(const std::vector<unsigned long>& aRequests,
                      std::chrono::milliseconds aLimit) {
    return mpSession->waitUntil(deadline(aLimit),
                                [&](bool /*isAny*/) { return !isAnyUnfinished(aRequests); });
  }

  // ---- Catalogue --------------------------------------------------------------------------------

  /// Finds the packages, or those with one of the mnemonics, and their devices and tests.
  /// @return the code of the last package: one that failed is missing in the catalogue, and the
  ///   controller events tell more.
  /// @throws CallFailed where there is no catalogue afterwards.
  errorCode enumerate(const PackageNameVector& aMnemonics = {}) {
    if (aMnemonics.empty()) {
      return enumerated(controller().enumerateAllPackages(), "enumerateAllPackages");
    }
    return enumerated(controller().enumerateByPackageClass(aMnemonics), "enumerateByPackageClass");
  }
  /// Finds the devices of one package anew, in IDLE. One that fails leaves the catalogue.
  void enumerateAgain(int aPackage) {
    requireSuccess(controller().enumerateDiagPackages(aPackage), "enumerateDiagPackages");
  }
  /// Percent of the enumeration that another thread makes.
  int enumerationProgress() const {
    int progress = 0;
    requireSuccess(controller().getEnumerationProgress(progress), "getEnumerationProgress");
    return progress;
  }

  /// The numbers of the packages in the catalogue.
  std::vector<int> packages() const {
    int count = 0;
    requireSuccess(controller().getNumberOfDiagPackages(count), "getNumberOfDiagPackages");
    std::vector<int> indices;
    for (int index = 1; index <= count; ++index) {
      DiagnosticPackage* package = nullptr;
      if (controller().getDiagPackage(index, package) == DiagnosticController::SUCCESS) {
        indices.push_back(index);
      }
    }
    return indices;
  }
  /// The base names of the packages that the control file left out.
  std::vector<std::string> disabledPackages() const {
    PackageList* list = nullptr;
    const errorCode code = controller().getDisablePackageList(list);
    const std::unique_ptr<PackageList> owner(list);
    requireSuccess(code, "getDisablePackageList");
    return {owner->begin(), owner->end()};
  }
  DiagnosticPackage& package(int aPackage) const {
    DiagnosticPackage* found = nullptr;
    requireSuccess(controller().getDiagPackage(aPackage, found), "getDiagPackage");
    return *found;
  }
  DiagDevice& device(int aPackage, int aDevice) const {
    DiagDevice* found = nullptr;
    requireSuccess(controller().getDevice(aPackage, static_cast<unsigned int>(aDevice), found),
                   "getDevice");
    return *found;
  }
  PackageTestInfo& test(int aPackage, int aTest) const {
    PackageTestInfo* found = nullptr;
    requireSuccess(controller().getTest(aPackage, static_cast<unsigned int>(aTest), found),
                   "getTest");
    return *found;
  }
  std::vector<int> devices(int aPackage) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getDeviceIdList(aPackage, ids), ids, "getDeviceIdList");
  }
  /// The devices on which a test is enabled.
  std::vector<int> devicesFor(int aPackage, int aTest) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getValidDeviceIdList(aPackage, static_cast<unsigned int>(aTest), ids),
                 ids, "getValidDeviceIdList");
  }
  /// The devices on which a test is disabled.
  std::vector<int> disabledDevicesFor(int aPackage, int aTest) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getDisableDeviceList(aPackage, static_cast<unsigned int>(aTest), ids),
                 ids, "getDisableDeviceList");
  }
  std::vector<int> tests(int aPackage) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getTestIdList(aPackage, ids), ids, "getTestIdList");
  }
  /// The tests that are enabled on a device.
  std::vector<int> testsOn(int aPackage, int aDevice) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getValidTestIdList(aPackage, static_cast<unsigned int>(aDevice), ids),
                 ids, "getValidTestIdList");
  }
  /// The tests that were withdrawn for this machine or operating system.
  std::vector<int> disabledTests(int aPackage) const {
    std::vector<int>* ids = nullptr;
    return taken(controller().getDisableTestList(aPackage, ids), ids, "getDisableTestList");
  }
  /// The package's own number for the state of a device.
  unsigned int deviceStatus(int aPackage, int aDevice) const {
    unsigned int status = 0;
    requireSuccess(controller().getDeviceStatus(aPackage, aDevice, status), "getDeviceStatus");
    return status;
  }

  // ---- Requests ---------------------------------------------------------------------------------

  /// All enabled tests on every device, a request for each; none for a package without devices.
  /// @throws PartlyQueued, CallFailed
  std::vector<unsigned long> queue(int aPackage, Diag::DiagnosticSettings aSettings) {
    VectorTestReqId* handed = nullptr;
    const errorCode code = controller().queueTest(aPackage, aSettings, handed);
    std::vector<unsigned long> requests = ClientParts::owned(handed);
    if (code != DiagnosticController::SUCCESS && !requests.empty()) {
      throw PartlyQueued(code, std::move(requests));
    }
    if (code != DiagnosticController::DEVICE_OBJECT_NOT_FOUND || handed != nullptr) {
      requireSuccess(code, "queueTest");
    }
    return requests;
  }
  /// All enabled tests on a device.
  unsigned long queue(int aPackage, int aDevice, Diag::DiagnosticSettings aSettings) {
    unsigned long request = 0;
    requireSuccess(
        controller().queueTest(aPackage, static_cast<unsigned int>(aDevice), aSettings, request),
        "queueTest");
    return request;
  }
  /// These tests on a device. @param aHaltOnError whether the first pass that is not passed is the
  ///   last one; without it the run-wide setting decides.
  unsigned long queue(int aPackage, int aDevice, std::vector<int> aTests,
                      Diag::DiagnosticSettings aSettings,
                      std::optional<bool> aHaltOnError = std::nullopt) {
    const auto device = static_cast<unsigned int>(aDevice);
    unsigned long request = 0;
    requireSuccess(
        aHaltOnError
            ? controller().queueTest(aPackage, device, aTests, aSettings, *aHaltOnError, request)
            : controller().queueTest(aPackage, device, aTests, aSettings, request),
        "queueTest");
    return request;
  }

  /// The requests that have not ended, oldest first. Ask before taking: what is not on the list has
  /// delivered all its messages.
  std::vector<unsigned long> unfinished() const {
    std::vector<unsigned long>* ids = nullptr;
    auto requests = taken(controller().getRequestIdList(ids), ids, "getRequestIdList");
    // The controller keeps on its list what an abort of all tests met in a queue.
    if (phase() == DiagControllerStatus::IDLE) {
      std::erase_if(requests, [this](unsigned long request) { return isAborted(request); });
    }
    return requests;
  }
  /// Also after the end.
  RequestState state(unsigned long aRequest) const {
    RequestState state;
    requireSuccess(controller().getRequestStatus(static_cast<long>(aRequest), state.status,
                                                 state.pass, state.passes, state.isStress),
                   "getRequestStatus");
    return state;
  }
  /// Percent of the pass under way, as the package tells it; nothing for a request that has ended.
  std::optional<unsigned int> progress(unsigned long aRequest) const {
    const auto open = unfinished();
    if (std::find(open.begin(), open.end(), aRequest) == open.end()) {
      return std::nullopt;
    }
    unsigned int progress = 0;
    const errorCode code = controller().getDiagnosticProgress(aRequest, progress);
    if (code == DiagnosticController::IDIAGNOSTIC_NOT_FOUND ||
        code == DiagnosticController::INCORRECT_PHASE) {  // it has ended just now
      return std::nullopt;
    }
    requireSuccess(code, "getDiagnosticProgress");
    return progress;
  }
  /// Asks requests to end, and returns at once; the first id that is unknown ends the call.
  void abort(unsigned long aRequest) {
    requireSuccess(controller().abortTest(aRequest), "abortTest");
  }
  void abort(std::vector<unsigned long> aRequests) {
    requireSuccess(controller().abortTest(aRequests), "abortTest");
  }
  void abortAll() {
    const System::LockHold lock(mAbortMutex);
    requireSuccess(controller().abortAllTest(), "abortAllTest");
  }
  /// Of a request between two passes the controller leaves it be, and says nothing.
  void suspend(unsigned long aRequest) {
    requireSuccess(controller().suspendTest(aRequest), "suspendTest");
  }
  void resume(unsigned long aRequest) {
    requireSuccess(controller().resumeTest(aRequest), "resumeTest");
  }

  // ---- Text. Nothing where a file has no such token or text; no language stands in for another.
  // --

  /// The value of a key of a test's section in the package's configuration.
  std::optional<std::string> testToken(int aPackage, int aTest, std::string aKey) const {
    char* text = nullptr;
    return found(controller().getTestToken(aPackage, aTest, aKey.data(), text), text,
                 "getTestToken");
  }
  /// The value of a key of the package's own section.
  std::optional<std::string> packageToken(int aPackage, std::string aKey) const {
    char* text = nullptr;
    return found(controller().getPackageToken(aPackage, aKey.data(), text), text,
                 "getPackageToken");
  }
  std::optional<std::string> messageToken(int aPackage, const Diag::DiagnosticEvent& aEvent) const {
    char* text = nullptr;
    return found(
        controller().getMessageToken(aPackage, aEvent.getEventType(), aEvent.getEventCode(), text),
        text, "getMessageToken");
  }
  std::optional<std::string> deviceStatusToken(int aPackage, unsigned int aStatus) const {
    char* text = nullptr;
    return found(controller().getDeviceStatusToken(aPackage, aStatus, text), text,
                 "getDeviceStatusToken");
  }
  /// The text of a token as it stands.
  std::optional<std::string> string(int aPackage, std::string aLanguage, std::string aToken) const {
    char* text = nullptr;
    return found(controller().getLocalizedString(aPackage, aLanguage.data(), aToken.data(), text),
                 text, "getLocalizedString");
  }
  /// The same with the parameters filled in. Package 0 is the message file.
  std::optional<std::string> message(int aPackage, std::string aLanguage, std::string aToken,
                                     ParamStringVector aParameters = {}) const {
    char* text = nullptr;
    return found(controller().getLocalizedMessage(aPackage, aLanguage.data(), aToken.data(),
                                                  aParameters, text),
                 text, "getLocalizedMessage");
  }

  /// The text of a package's event; its token where there is no text, its number where there is no
  /// token either.
  std::string describe(int aPackage, const Diag::DiagnosticEvent& aEvent,
                       const std::string& aLanguage) const {
    const std::optional<std::string> token = messageToken(aPackage, aEvent);
    if (!token) {
      return std::to_string(aEvent.getEventCode());
    }
    return message(aPackage, aLanguage, *token, aEvent.getParamVector()).value_or(*token);
  }
  /// The text of a code from the message file, or its name where there is none or no catalogue yet.
  /// Each is looked up once, because a miss raises a controller event of its own.
  std::string describe(errorCode aeCode, const std::string& aLanguage) {
    return textOfCode(nameOf(aeCode), aLanguage);
  }
  std::string describe(const DiagCtrlEvent& aEvent, const std::string& aLanguage) {
    return textOfCode(nameOf(DiagCtrlEvent::eventCode{aEvent.getEventCode()}), aLanguage);
  }

 private:
  /// No further away than a year, so that it can be told in the clock's units.
  static std::chrono::steady_clock::time_point deadline(std::chrono::milliseconds aLimit) {
    return std::chrono::steady_clock::now() +
           std::min<std::chrono::milliseconds>(aLimit, std::chrono::hours(24 * 365));
  }

  errorCode enumerated(errorCode aeCode, const char* apcCall) const {
    const bool hasCatalogue =
        aeCode != DiagnosticController::INCORRECT_PHASE && phase() == DiagControllerStatus::IDLE;
    if (!hasCatalogue) {
      requireSuccess(aeCode, apcCall);
    }
    return aeCode;
  }

  // What a call hands out is a reference here, to be read when the call was made: the arguments are
  // evaluated in any order.
  template <class Value>
  static std::vector<Value> taken(errorCode aeCode, std::vector<Value>*& apValues,
                                  const char* apcCall) {
    std::vector<Value> values = ClientParts::owned(apValues);
    requireSuccess(aeCode, apcCall);
    return values;
  }

  static std::optional<std::string> found(errorCode aeCode, char*& apcText, const char* apcCall) {
    const std::unique_ptr<char[]> owner(apcText);
    if (aeCode == DiagnosticController::INVALID_PARAMETER) {
      return std::nullopt;
    }
    requireSuccess(aeCode, apcCall);
    return std::string(apcText);
  }

  bool isAborted(unsigned long aRequest) const {
    RequestState state;
    return controller().getRequestStatus(static_cast<long>(aRequest), state.status, state.pass,
                                         state.passes,
                                         state.isStress) == DiagnosticController::SUCCESS &&
           state.status == TestRequest::ABORTED;
  }

  bool isAnyUnfinished(const std::vector<unsigned long>& aRequests) const {
    const std::vector<unsigned long> open = unfinished();
    return std::any_of(aRequests.begin(), aRequests.end(), [&](unsigned long request) {
      return std::find(open.begin(), open.end(), request) != open.end();
    });
  }

  std::string textOfCode(const std::string& aName, const std::string& aLanguage) {
    {
      const System::LockHold lock(mTextsMutex);
      const auto known = mCodeTexts.find({aLanguage, aName});
      if (known != mCodeTexts.end()) {
        return known->second;
      }
    }
    if (!mpSession->isEnumerated()) {
      return aName;
    }
    std::string language = aLanguage;
    std::string token = aName;
    ParamStringVector none;
    char* text = nullptr;
    controller().getLocalizedMessage(0, language.data(), token.data(), none, text);
    const std::unique_ptr<char[]> owner(text);
    const System::LockHold lock(mTextsMutex);
    return mCodeTexts.emplace(std::make_pair(aLanguage, aName), text != nullptr ? text : aName)
        .first->second;
  }

  std::shared_ptr<ClientParts::Session> mpSession;
  System::Mutex mAbortMutex;
  System::Mutex mTextsMutex;
  std::map<std::pair<std::string, std::string>, std::string> mCodeTexts
      TARVEXDIAGS_GUARDED_BY(mTextsMutex);
};

}  // namespace TarvexDiags::DiagCtrl
