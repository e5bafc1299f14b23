#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// Nothing where the clock was set back in between.
inline double secondsBetween(std::chrono::system_clock::time_point from,
                             std::chrono::system_clock::time_point to) {
  return std::max(std::chrono::duration<double>(to - from).count(), 0.0);
}

/// The stream that a run tells: what every report is made of, live or from a saved log.

enum class Severity { Debug, Information, Warning, Error };
/// COMPLETE: ran to its end. ERROR: the tool could not do its work. SKIP: nothing ran, or aborted.
enum class RunStatus { Complete, Error, Skip };
enum class RunResult { Pass, Fail, NotApplicable };
enum class Verdict { Pass, Fail, Unknown };
/// Why a step that was skipped, and not aborted, has no verdict.
enum class SkipKind {
  NotPossible,     ///< the machine or the device has not what it needs
  NeedsPrivilege,  ///< this user may not do what it needs
  NotInThisMode,   ///< the diagnostic mode does not offer it
  NotRun,          ///< the run was ended before its turn
};

struct HardwareItem {
  std::string id;  ///< unique in the run
  std::string name;
  std::string location;  ///< the resource tag; of what no test can name, the slot or the place
  // Each empty where nobody tells it.
  std::string manufacturer = {};
  std::string partNumber = {};
  std::string serialNumber = {};
  std::string version = {};  ///< of its firmware
  double bytes = 0;          ///< how large it is; 0 where nobody tells it
};

struct SoftwareItem {
  std::string id;
  std::string name;
  std::string version;
};

struct RunStarted {
  std::string name;
  std::string version;
  std::string commandLine;
  std::map<std::string, std::string> parameters;
  std::string machineId;
  std::string machineName;
  std::vector<std::string> platforms;
  std::vector<HardwareItem> hardware;
  std::vector<SoftwareItem> software;
  std::string language = {};  ///< of the texts for people; empty: not known
  /// What packages ("Memory") and tests ("Memory: Walking ones") are called in that language, where
  /// they have other names there.
  std::map<std::string, std::string> localNames = {};
};

/// What stands for the package in the steps that are the program's own.
inline constexpr const char* kOwnPackage = "diagctl";

/// One test of one request. Steps that are no requests have ids that are no numbers.
struct StepStarted {
  std::string stepId;
  std::string package;
  std::string device;
  std::string test;
  std::string hardwareId;
  int passes = 1;
  // What people are told in their language; empty: the name itself.
  std::string localPackage = {};
  std::string localTest = {};
};

struct StepProgress {
  std::string stepId;
  unsigned int percent = 0;
  int pass = 1;
  int passes = 1;
  bool isSuspended = false;
};

/// What a test does just now, for those who watch; no report has it.
struct StepThroughput {
  std::string stepId;
  double value = 0;
  std::string unit;  ///< "MB/s"
};

struct StepMessage {
  std::string stepId;
  Severity severity = Severity::Information;
  std::string text;
  std::string action;  ///< what to do about it; may be empty
};

struct StepMeasurement {
  std::string stepId;
  std::string name;
  std::variant<double, std::string> value;
  std::string unit;
  std::string hardwareId;
};

/// The step of the machine itself, beside those of the tests.
inline constexpr const char* kMachineStep = "machine-watch";

/// The step that says how much of the machine the tests have covered, behind all others.
inline constexpr const char* kCoverageStep = "coverage";

struct DeviceCoverage {
  std::string device;
  double coveredBytes = 0;
  double totalBytes = 0;
};

/// How much of the machine a run has covered: of each device the most that one test has.
struct RunCoverage {
  std::string stepId;
  std::vector<DeviceCoverage> devices;
  std::size_t furtherDevices = 0;  ///< beyond those that are named
  double cores = 0;
  double seconds = 0;  ///< of tests
};

/// What a sensor shows while a run goes on: the beginning of a series, its values and its end.
struct SeriesStarted {
  std::string stepId;
  std::string seriesId;  ///< unique in the run
  std::string name;
  std::string unit;
  std::optional<double> most;  ///< above which the hardware is in danger
};

struct SeriesElement {
  std::string stepId;
  std::string seriesId;
  std::size_t index = 0;  ///< from 0
  double value = 0;
  std::chrono::system_clock::time_point time = {};  ///< when it was read
};

struct SeriesEnded {
  std::string stepId;
  std::string seriesId;
  std::size_t count = 0;  ///< of its elements
};

/// The package's judgement on one pass, or what the machine showed while the test ran.
struct StepDiagnosis {
  std::string stepId;
  Verdict verdict = Verdict::Unknown;
  std::string symptom;  ///< short identifier, such as "memory-miscompare" or "PASSED"
  std::string message;
  std::string action;
  std::string hardwareId;
  int pass = 1;                     ///< 0: of no pass
  std::size_t furtherFindings = 0;  ///< of the same pass, each told by itself
};

/// Trouble of the tool: no fault of the hardware, and no doubt of one that was found before.
struct StepTrouble {
  std::string stepId;
  std::string symptom;
  std::string message;
  std::string action;
};

struct StepEnded {
  std::string stepId;
  RunStatus status = RunStatus::Complete;
  bool isAborted = false;  ///< by a person, a signal or the total time
  SkipKind skip = SkipKind::NotPossible;
};

/// Trouble or news that belongs to no step.
struct RunMessage {
  Severity severity = Severity::Information;
  std::string text;
};

struct RunTrouble {
  std::string symptom;
  std::string message;
};

struct RunEnded {
  RunStatus status = RunStatus::Complete;
  RunResult result = RunResult::Pass;
};

using RunEventBody =
    std::variant<RunStarted, StepStarted, StepProgress, StepThroughput, StepMessage,
                 StepMeasurement, SeriesStarted, SeriesElement, SeriesEnded, StepDiagnosis,
                 StepTrouble, StepEnded, RunCoverage, RunMessage, RunTrouble, RunEnded>;

struct RunEvent {
  std::chrono::system_clock::time_point time;
  RunEventBody body;
};

}  // namespace TarvexDiags::FrontEnd
