#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticStatus.h"
#include "System/Export.h"

/// What the scripted package does, set and watched by a test in the same process.
///
/// The package is one shared object that a test copies under as many names as it wants packages
/// (see tests/support/PackageDirectory.h). Each of them asks the script of its name what its
/// devices are and how its passes go. Left alone it is a careful package; habits, hooks and forced
/// values make it a bad one.
///
///   Script& alpha = Script::of("ALPHA");
///   alpha.setDevices({{.tag = "pci0/slot1", .name = "first"}});
///   alpha.everyPass({.events = {{.code = 7}}, .results = {{.verdict =
///   DiagnosticResult::FAILED}}}); alpha.holdRuns();                      // passes stay inside
///   until releaseRuns alpha.on(Call::Abort, [&](const CallRecord& call) { ... });
namespace TarvexDiags::Scripted {

/// Everything that a controller can do to a package, and the points of a pass.
enum class Call : unsigned int {
  SetConfigFile,  ///< the exports
  SetLogDir,
  GetEnumerator,
  GetDiagnostics,
  GetDevices,  ///< on the enumerator
  DestroyEnumerator,
  DeviceStatus,  ///< on a device
  DestroyDevice,
  IsSupported,  ///< on the diagnostics object
  RunEnter,     ///< inside runDiagnostic: the pass has begun and nothing is queued yet
  RunEnd,       ///< the pass is over, its result is not queued yet
  RunReturn,    ///< the very last act: result queued, state set
  GetStatus,
  Abort,  ///< before the abort is noted
  Suspend,
  Resume,
  GetEvents,
  GetResults,
  DestroyDiagnostics,
  Count,
};

TARVEXDIAGS_EXPORT const char* nameOf(Call call);

/// One call as the package saw it. Fields that a call does not have stay as they are here.
struct CallRecord {
  Call call = Call::Count;
  std::thread::id thread = {};
  unsigned long object = 0;    ///< which diagnostics object of the package, counted from 1
  unsigned int requestId = 0;  ///< of the object's latest pass
  std::string device = {};
  int test = 0;                 ///< IsSupported
  std::vector<int> tests = {};  ///< of the object's latest pass, as the next four
  int pass = 0;                 ///< the settings' pass count
  unsigned int run = 0;         ///< passes of this object so far, this one included
  DeviceEnum::IDevice::AccessMode openMode = DeviceEnum::IDevice::QUERY;
  bool stress = false;
  bool haltOnError = false;
  bool estimation = false;
  bool diagLog = false;  ///< the two exports that make objects, as the next one
  unsigned int diagMode = 0;
  std::string text = {};  ///< SetConfigFile, SetLogDir, GetDevices; a null pointer is "<null>"
  unsigned int deviceType = 0;  ///< GetDevices
};

/// "RunEnter first [1,2] request 3 pass 1", for messages of tests.
TARVEXDIAGS_EXPORT std::string describe(const CallRecord& record);

struct Device {
  std::string tag;
  std::string name;
  std::string disableName = {};  ///< empty: the name
  unsigned int status = 0;
};

struct Event {
  unsigned int code = 0;
  Diag::DiagnosticEvent::EventType type = Diag::DiagnosticEvent::INFORMATION_EVENT;
  std::vector<std::string> parameters = {};
};

struct Result {
  Diag::DiagnosticResult::TestResult verdict = Diag::DiagnosticResult::PASSED;
  int estimatedTime = 0;
  unsigned int code = 0;
  std::vector<std::string> parameters = {};
};

/// How one pass goes. What runDiagnostic returns has the worst verdict of the results.
struct Pass {
  std::vector<Event> events = {};      ///< queued when the pass begins
  std::vector<Event> lastEvents = {};  ///< queued when it ends, unless it was aborted
  std::vector<Result> results = {Result{}};
  std::chrono::microseconds duration{0};
  std::chrono::microseconds unwinding{0};  ///< from an abort to the end of the pass
};

/// What a package can get wrong.
struct Habits {
  bool keepsReportingCompleted = false;  ///< never READY again between two passes
  bool completesEarly = false;           ///< COMPLETED, with its results, as soon as a pass begins
  bool completesOnAbort = false;         ///< COMPLETED on abort while the pass is still inside
  bool neverCompletes = false;           ///< EXECUTING for ever after the end of a pass
  bool losesEvents = false;              ///< COMPLETED is not withheld while events are queued
  bool ignoresAbort = false;       ///< a pass goes on to its end, and one after an abort runs whole
  bool forgetsAbort = false;       ///< an abort before a pass does not keep it from running
  bool dropsResults = false;       ///< no pass hands over a result
  bool givesEmptyVectors = false;  ///< an empty vector where it could give null
  bool givesNullEvents = false;    ///< null for events; those queued are lost
  bool givesNullResults = false;   ///< null for results; those queued are lost
  bool givesNoEnumerator = false;
  bool givesNoDevices = false;  ///< null in place of the vector of devices
  bool givesNoDiagnostics = false;
};

/// Objects of the package that exist.
struct Living {
  int diagnostics = 0;
  int enumerators = 0;
  int devices = 0;

  bool operator==(const Living&) const = default;
};

typedef std::function<void(const CallRecord&)> Hook;
typedef std::function<Pass(const CallRecord&)> Plan;
typedef std::function<bool(const std::string& device, int test)> SupportRule;

/// A pass that is inside runDiagnostic, of whatever package of the process.
struct InsidePass {
  std::string package = {};
  unsigned int requestId = 0;
  unsigned long object = 0;  ///< of the package, as in CallRecord
  unsigned int run = 0;
  std::string tag = {};
  bool isToldToAbort = false;  ///< before it began, or since

  /// Whether it is the same pass, whatever has become of it.
  bool isSameAs(const InsidePass& other) const {
    return package == other.package && object == other.object && run == other.run;
  }
};

/// All packages of the process together: who is inside, and what no controller may ever do, noticed
/// where it happens, by the packages themselves.
///
/// Thread-safety: any thread may call anything.
class TARVEXDIAGS_EXPORT AllPackages {
 public:
  static std::vector<InsidePass> inside();
  ///  A line for each pass that began on a device, or for a request, for which another was inside.
  ///  Devices are one and the same if the last parts of their tags are equal. The first hundred.
  static std::vector<std::string> collisions();
  static void forgetCollisions();

  // For the package.
  static void enter(const void* who, InsidePass pass);
  static void leave(const void* who);
  static void noteAbort(const void* who);
};

/// A pass that is inside runDiagnostic, as the script reaches it.
class TARVEXDIAGS_EXPORT RunningPass {
 public:
  virtual ~RunningPass();
  /// Called with the script's mutex held.
  virtual void queueEvent(const Event& event) = 0;
};

/// The script and the log of one package. Lives as long as the process.
///
/// Thread-safety: any thread may call anything. Hooks and plans run on the thread that called the
/// package, without a lock; what a hook throws leaves the package (and ends the process where the
/// call is a destructor).
class TARVEXDIAGS_EXPORT Script {
 public:
  /// The script of a package, made on first use.
  static Script& of(const std::string& package);

  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  const std::string& package() const { return m_package; }

  // ---- The scene ---------------------------------------------------------------------------

  /// One device, named as the package with "-device", unless this is called.
  Script& setDevices(std::vector<Device> devices);
  ///  count devices, named "PACKAGE-1" and so on, with the tags "PACKAGE/PACKAGE-1": their last
  ///  parts, which alone count, are told apart from those of other packages.
  Script& setDevices(int count);
  Script& setDeviceStatus(const std::string& device, unsigned int status);
  /// Every pair is supported unless a rule says no.
  Script& setSupport(SupportRule rule);

  /// How passes go; the latest of the two calls holds. A plan sees the record of RunEnter.
  Script& everyPass(Pass pass);
  Script& planPasses(Plan plan);
  /// The verdict of a pass that was aborted. UNUSUAL_STATUS unless set.
  Script& setAbortedVerdict(Diag::DiagnosticResult::TestResult verdict);

  /// What the package reports while a pass is inside: 0 unless set; 100 afterwards.
  Script& setProgress(unsigned int progress);
  Script& setTimeRemaining(int seconds);
  /// The pass count in the status, in place of the number of passes that ended.
  Script& setReportedPassCount(std::optional<unsigned int> passCount);
  /// The status, whatever the truth is; an empty value lets the truth be told again.
  Script& forceStatus(std::optional<Diag::DiagnosticStatus::Status> status);

  Script& setHabits(Habits habits);
  Habits habits() const;

  // ---- Forcing an order --------------------------------------------------------------------

  /// Called at each such call, before the package acts on it. An empty function takes it away.
  Script& on(Call call, Hook hook);
  /// The call throws std::runtime_error with this text.
  Script& throwAt(Call call, const std::string& text);

  /// Passes stay inside until they are released or aborted.
  Script& holdRuns();
  Script& holdRunsOn(const std::string& device);
  /// Lets every held pass go, and no longer holds any.
  Script& releaseRuns();
  Script& releaseRunsOn(const std::string& device);

  /// Queues an event in each pass that is inside. @return the number of passes.
  int emit(const Event& event);

  // ---- The log -----------------------------------------------------------------------------

  /// The calls so far, oldest first. Polls (status, events, results) only if they are recorded.
  std::vector<CallRecord> calls() const;
  std::vector<CallRecord> calls(Call call) const;
  /// All calls so far, polls included, also those that were not recorded.
  unsigned long count(Call call) const;
  Living living() const;
  /// Passes inside runDiagnostic.
  int running() const;
  /// Most passes of this package that were inside at the same time.
  int mostRunning() const;

  /// Waits until there were that many such calls. @return false after the time.
  bool awaitCalls(Call call, unsigned long number = 1,
                  std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  /// Waits until exactly that many passes are inside.
  bool awaitRunning(int number, std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

  /// Polls are many, so they are only counted unless this was called.
  Script& recordPolls(bool record = true);
  /// For long runs: only count.
  Script& recordNothing();
  void clearLog();

  // ---- For the package ---------------------------------------------------------------------

  /// Notes a call, and with it the pass that begins, if one does; then runs the call's hook.
  void enter(CallRecord record, RunningPass* begins = nullptr);
  std::vector<Device> devices() const;
  unsigned int deviceStatus(const std::string& device) const;
  bool supports(const std::string& device, int test) const;
  Pass passFor(const CallRecord& run) const;
  void addLiving(int Living::*kind, int difference);
  unsigned long nextObject();

  /// Guards the state of the package's passes as well, so that one wait covers both.
  std::mutex& mutex() const { return m_mutex; }
  /// Signalled when a pass may have to look again.
  std::condition_variable& changed() const { return m_changed; }

  // With the mutex held.
  bool holds(const std::string& device) const;
  const Habits& currentHabits() const { return m_habits; }
  Diag::DiagnosticResult::TestResult abortedVerdict() const { return m_abortedVerdict; }
  Diag::DiagnosticStatus report(Diag::DiagnosticStatus::Status status, unsigned int passes) const;
  void passEnds(RunningPass& pass);

 private:
  explicit Script(std::string package);

  template <class Change>
  Script& change(Change aChange);

  const std::string m_package;
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  mutable std::condition_variable m_recorded;

  std::vector<Device> m_devices;
  SupportRule m_supports;
  Plan m_plan;
  Diag::DiagnosticResult::TestResult m_abortedVerdict = Diag::DiagnosticResult::UNUSUAL_STATUS;
  unsigned int m_progress = 0;
  int m_timeRemaining = 0;
  std::optional<unsigned int> m_reportedPassCount;
  std::optional<Diag::DiagnosticStatus::Status> m_forcedStatus;
  Habits m_habits;
  std::map<Call, std::shared_ptr<const Hook>> m_hooks;
  bool m_holdsAll = false;
  std::set<std::string> m_heldDevices;

  std::vector<CallRecord> m_calls;
  std::vector<unsigned long> m_counts;
  bool m_records = true;
  bool m_recordsPolls = false;
  Living m_living;
  std::set<RunningPass*> m_running;
  int m_mostRunning = 0;
  unsigned long m_lastObject = 0;
};

}  // namespace TarvexDiags::Scripted
