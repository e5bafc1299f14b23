#pragma once

#include <iterator>
#include <optional>

#include "DiagCtrl/DiagControllerStatus.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"

namespace TarvexDiags::DiagCtrl {

/// The client calls that share a row of the gate table.
enum class ClientCall : unsigned int {
  enumerate,
  enumerateAgain,
  queue,
  control,
  abortAll,
  changeSetting,
  runEstimation,
  clearRequests,
  readEstimate,
  readSetting,
  readDebugLog,
  countRegistrations,
  askPackage,
  sumEstimates,
  query,
  queryRequest,
  fetchMessages,
  readToken,
  localiseString,
  localiseMessage,
  fetchCtrlEvents,
  registerForResults,
  registerForEvents,
  registerForCtrlEvents,
  readHealth,
};

/// One row: the phases in which the calls are served, and what a refused call leaves behind.
struct GateRow {
  /// When a refusal is traced: a call that traces after its event traces a phase that cannot be
  /// read as well.
  enum Trace : unsigned int { none, before, afterEvent };

  ClientCall call{};
  unsigned int allowedPhases = 0;
  long readTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
  /// What a wrong phase raises, if anything.
  std::optional<DiagCtrlEvent::eventCode> wrongPhaseEvent = DiagCtrlEvent::INCORRECT_PHASE;
  const char* text = "INCORRECT_PHASE: ";  ///< traced with the phase on a wrong phase
  Trace trace = none;
  bool raisesLockFailure = true;  ///< whether UNABLE_TO_GET_LOCK, when the phase cannot be read
};

constexpr unsigned int phaseBit(DiagControllerStatus::diagCtrlPhase aePhase) {
  return 1U << aePhase;
}

namespace gate {

using Status = DiagControllerStatus;

constexpr unsigned int kActive = phaseBit(Status::ACTIVE);
constexpr unsigned int kIdle = phaseBit(Status::IDLE);
constexpr unsigned int kInitialize = phaseBit(Status::INITIALIZE);
constexpr unsigned int kEnumerate = phaseBit(Status::ENUMERATE);
constexpr unsigned int kUninitialised = phaseBit(Status::UNINITIALISED);
constexpr unsigned int kEstimation = phaseBit(Status::ESTIMATION);
constexpr unsigned int kReady = kActive | kIdle;
constexpr unsigned int kSettled = kReady | kInitialize | kEstimation;
constexpr unsigned int kStarted = kSettled | kEnumerate;

constexpr GateRow kRows[] = {
    {.call = ClientCall::enumerate, .allowedPhases = kInitialize, .readTimeOut = -1},
    {.call = ClientCall::enumerateAgain, .allowedPhases = kIdle, .readTimeOut = -1},
    {.call = ClientCall::queue, .allowedPhases = kReady},
    {.call = ClientCall::control, .allowedPhases = kActive, .trace = GateRow::before},
    {.call = ClientCall::abortAll,
     .allowedPhases = kActive,
     .readTimeOut = -1,
     .trace = GateRow::before},
    {.call = ClientCall::changeSetting, .allowedPhases = kIdle},
    {.call = ClientCall::runEstimation, .allowedPhases = kIdle, .trace = GateRow::before},
    {.call = ClientCall::clearRequests, .allowedPhases = kIdle, .trace = GateRow::before},
    {.call = ClientCall::readEstimate, .allowedPhases = kIdle},
    {.call = ClientCall::readSetting, .allowedPhases = kSettled},
    {.call = ClientCall::readDebugLog,
     .allowedPhases = kSettled,
     .wrongPhaseEvent = std::nullopt,
     .raisesLockFailure = false},
    {.call = ClientCall::countRegistrations, .allowedPhases = kSettled},
    {.call = ClientCall::askPackage, .allowedPhases = kActive},
    {.call = ClientCall::sumEstimates, .allowedPhases = kReady},
    {.call = ClientCall::query, .allowedPhases = kReady},
    {.call = ClientCall::queryRequest, .allowedPhases = kReady, .trace = GateRow::before},
    {.call = ClientCall::fetchMessages, .allowedPhases = kReady, .trace = GateRow::before},
    {.call = ClientCall::readToken,
     .allowedPhases = kReady,
     .readTimeOut = -1,
     .trace = GateRow::before},
    {.call = ClientCall::localiseString,
     .allowedPhases = kReady,
     .readTimeOut = -1,
     .text = "INCORRECT PHASE:",
     .trace = GateRow::before},
    {.call = ClientCall::localiseMessage, .allowedPhases = kReady, .readTimeOut = -1},
    // A failure to fetch controller events cannot well be told by a controller event.
    {.call = ClientCall::fetchCtrlEvents,
     .allowedPhases = kReady | kInitialize,
     .wrongPhaseEvent = std::nullopt,
     .trace = GateRow::before,
     .raisesLockFailure = false},
    {.call = ClientCall::registerForResults,
     .allowedPhases = kStarted,
     .trace = GateRow::afterEvent},
    {.call = ClientCall::registerForEvents,
     .allowedPhases = kStarted,
     .wrongPhaseEvent = DiagCtrlEvent::UNABLE_TO_GET_LOCK,
     .trace = GateRow::afterEvent,
     .raisesLockFailure = false},
    {.call = ClientCall::registerForCtrlEvents,
     .allowedPhases = kStarted,
     .wrongPhaseEvent = DiagCtrlEvent::UNABLE_TO_GET_LOCK,
     .trace = GateRow::afterEvent},
    {.call = ClientCall::readHealth, .allowedPhases = kSettled | kUninitialised},
};

constexpr bool rowsFollowCalls() {
  for (unsigned int i = 0; i < std::size(kRows); ++i) {
    if (static_cast<unsigned int>(kRows[i].call) != i) {
      return false;
    }
  }
  return true;
}
static_assert(rowsFollowCalls(), "the table is indexed by the call");

}  // namespace gate

constexpr const GateRow& gateRow(ClientCall aeCall) {
  return gate::kRows[static_cast<unsigned int>(aeCall)];
}

constexpr bool isAllowed(const GateRow& arRow, DiagControllerStatus::diagCtrlPhase aePhase) {
  return (arRow.allowedPhases & phaseBit(aePhase)) != 0;
}

}  // namespace TarvexDiags::DiagCtrl
