#pragma once

#include <string_view>

#include "Diag/DiagnosticEvent.h"
#include "packagekit/KitEvents.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief What a run makes of an event of the kit.
enum class RunEffect {
  Trouble,      ///< trouble of the tool: no verdict, unless the test had found a fault before
  Finding,      ///< told to people with what to do about it; the result of the pass decides
  NotPossible,  ///< a finding; without another verdict the test counts as skipped
  Aborted,      ///< a finding, unless the client itself ended the test
  News,         ///< told to people; nothing is to be done
  Measurement,  ///< a figure, for reports; see Measurement.h
  LogLine,      ///< of the package's log, for those who look closely
  Throughput,   ///< what a test does just now, for those who watch
  Nothing,      ///< a report has it by other means
};

/// @brief All that is agreed on an event of the kit, besides its parameters: see KitEvents.h.
struct KitCode {
  unsigned int code;
  Diag::DiagnosticEvent::EventType type;
  std::string_view token;    ///< as in the section of its type in each package's configuration
  std::string_view symptom;  ///< a short identifier for reports; never translated, never changed
  RunEffect effect;

  constexpr bool isTrouble() const { return effect == RunEffect::Trouble; }
};

/// @brief A device status of the kit, with its token in section `DeviceStatus`.
struct KitStatus {
  unsigned int status;
  std::string_view token;
};

/// @brief The section of a package's configuration that has the tokens of such events.
constexpr const char* sectionOf(Diag::DiagnosticEvent::EventType type) {
  switch (type) {
    case Diag::DiagnosticEvent::INFORMATION_EVENT:
      return "Information";
    case Diag::DiagnosticEvent::WARNING_EVENT:
      return "Warning";
    case Diag::DiagnosticEvent::ERROR_EVENT:
      break;
  }
  return "Error";
}

/// @brief A row of trouble: always an error.
constexpr KitCode troubleRow(unsigned int code, std::string_view token, std::string_view symptom) {
  return {code, Diag::DiagnosticEvent::ERROR_EVENT, token, symptom, RunEffect::Trouble};
}

/// @brief A row of what is no error to look at, but something to know.
constexpr KitCode warningRow(unsigned int code, std::string_view token, std::string_view symptom,
                             RunEffect effect) {
  return {code, Diag::DiagnosticEvent::WARNING_EVENT, token, symptom, effect};
}

/// @brief A row of what just goes its way.
constexpr KitCode newsRow(unsigned int code, std::string_view token, std::string_view symptom,
                          RunEffect effect) {
  return {code, Diag::DiagnosticEvent::INFORMATION_EVENT, token, symptom, effect};
}

/// @brief Every event that the kit raises. Rows are only ever added, codes never change.
inline constexpr KitCode kKitCodes[] = {
    troubleRow(WORKER_CRASHED, "KIT_WORKER_CRASHED", "worker-crashed"),
    troubleRow(WORKER_EXITED, "KIT_WORKER_EXITED", "worker-exited"),
    troubleRow(TEST_TIMED_OUT, "KIT_TEST_TIMED_OUT", "test-timed-out"),
    troubleRow(OUT_OF_MEMORY, "KIT_OUT_OF_MEMORY", "out-of-memory"),
    troubleRow(NO_PERMISSION, "KIT_NO_PERMISSION", "no-permission"),
    troubleRow(DEVICE_VANISHED, "KIT_DEVICE_VANISHED", "device-vanished"),
    troubleRow(TEST_THREW, "KIT_TEST_THREW", "test-threw"),
    troubleRow(SYSTEM_CALL_FAILED, "KIT_SYSTEM_CALL_FAILED", "system-call-failed"),
    troubleRow(WORKER_NOT_STARTED, "KIT_WORKER_NOT_STARTED", "worker-not-started"),
    troubleRow(WORKER_BROKE_PROTOCOL, "KIT_WORKER_BROKE_PROTOCOL", "protocol-broken"),
    troubleRow(WORKER_KILLED, "KIT_WORKER_KILLED", "worker-killed"),
    troubleRow(WORKER_UNKILLABLE, "KIT_WORKER_UNKILLABLE", "worker-unkillable"),
    troubleRow(DEVICE_REFUSED, "KIT_DEVICE_REFUSED", "device-refused"),
    troubleRow(TEST_UNKNOWN, "KIT_TEST_UNKNOWN", "test-unknown"),
    troubleRow(OPEN_MODE_REFUSED, "KIT_OPEN_MODE_REFUSED", "open-mode-refused"),
    troubleRow(TEST_CONTRADICTED_ITSELF, "KIT_TEST_CONTRADICTED_ITSELF",
               "test-contradicted-itself"),
    troubleRow(MEMORY_POISONED, "KIT_MEMORY_POISONED", "memory-poisoned"),
    troubleRow(TAKEN_AWAY, "KIT_TAKEN_AWAY", "taken-away"),
    warningRow(TEST_NOT_SUPPORTED, "KIT_TEST_NOT_SUPPORTED", "kit-test-not-supported",
               RunEffect::NotPossible),
    warningRow(EVENTS_DROPPED, "KIT_EVENTS_DROPPED", "kit-events-dropped", RunEffect::Finding),
    warningRow(TEST_ABORTED, "KIT_TEST_ABORTED", "kit-test-aborted", RunEffect::Aborted),
    warningRow(SETTING_REPLACED, "KIT_SETTING_REPLACED", "kit-setting-replaced",
               RunEffect::Finding),
    newsRow(TEST_STARTED, "KIT_TEST_STARTED", "kit-test-started", RunEffect::News),
    newsRow(TEST_ENDED, "KIT_TEST_ENDED", "kit-test-ended", RunEffect::Nothing),
    newsRow(TEST_MEASUREMENT, "KIT_TEST_MEASUREMENT", "kit-test-measurement",
            RunEffect::Measurement),
    newsRow(TEST_PROGRESS, "KIT_TEST_PROGRESS", "kit-test-progress", RunEffect::Nothing),
    newsRow(TEST_LOG_LINE, "KIT_TEST_LOG_LINE", "kit-test-log-line", RunEffect::LogLine),
    newsRow(TEST_THROUGHPUT, "KIT_TEST_THROUGHPUT", "kit-test-throughput", RunEffect::Throughput),
};

/// @brief Every device status of the kit.
inline constexpr KitStatus kKitStatuses[] = {
    {DEVICE_STATUS_HUNG, "KIT_DEVICE_STATUS_HUNG"},
    {DEVICE_STATUS_UNKNOWN, "KIT_DEVICE_STATUS_UNKNOWN"},
};

/// @brief Whether a code is the kit's, known or not: packages raise none of these themselves.
constexpr bool isKitCode(unsigned int code) {
  return code >= kFirstKitCode && code <= kLastKitCode;
}

/// @brief The row of a code; null if there is none.
constexpr const KitCode* findKitCode(unsigned int code) {
  for (const KitCode& row : kKitCodes) {
    if (row.code == code) {
      return &row;
    }
  }
  return nullptr;
}

/// @brief What a run makes of an event of any package, with the kit or without. What the kit never
/// raises, a code that a newer one may have or a known one with another type, is trouble: nobody
/// can tell that it is not.
constexpr RunEffect effectOf(Diag::DiagnosticEvent::EventType type, unsigned int code) {
  const KitCode* const row = findKitCode(code);
  if (row != nullptr && row->type == type) {
    return row->effect;
  }
  if (isKitCode(code)) {
    return RunEffect::Trouble;
  }
  return type == Diag::DiagnosticEvent::INFORMATION_EVENT ? RunEffect::News : RunEffect::Finding;
}

/// @brief The symptom of an event that is trouble.
constexpr std::string_view symptomOfTrouble(unsigned int code) {
  const KitCode* const row = findKitCode(code);
  return row != nullptr && row->isTrouble() ? row->symptom : "tool-trouble";
}

}  // namespace TarvexDiags::PackageKit::Contract
