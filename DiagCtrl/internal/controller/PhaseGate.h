#pragma once

#include <iterator>

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
  /// What a wrong phase raises; SUCCESS stands for no event.
  static constexpr auto noEvent = DiagCtrlEvent::SUCCESS;
  /// When a refusal is traced: a call that traces after its event traces a phase that cannot be
  /// read as well.
  enum Trace : unsigned int { none, before, afterEvent };

  ClientCall call;
  unsigned int allowedPhases;
  long readTimeOut;
  DiagCtrlEvent::eventCode wrongPhaseEvent;
  const char* text;  ///< traced with the phase on a wrong phase
  Trace trace;
  bool raisesLockFailure;  ///< whether UNABLE_TO_GET_LOCK is raised when the phase cannot be read
};

constexpr unsigned int phaseBit(DiagControllerStatus::diagCtrlPhase aePhase) {
  return 1U << aePhase;
}

namespace gate {

using Status = DiagControllerStatus;

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr unsigned int kActive = phaseBit(Status::ACTIVE);
constexpr unsigned int kIdle = phaseBit(Status::IDLE);
constexpr unsigned int kInitialize = phaseBit(Status::INITIALIZE);
constexpr unsigned int kEnumerate = phaseBit(Status::ENUMERATE);
constexpr unsigned int kUninitialised = phaseBit(Status::UNINITIALISED);
constexpr unsigned int kEstimation = phaseBit(Status::ESTIMATION);
constexpr unsigned int kReady = kActive | kIdle;
constexpr unsigned int kSettled = kReady | kInitialize | kEstimation;
constexpr unsigned int kStarted = kSettled | kEnumerate;
constexpr auto kWrong = DiagCtrlEvent::INCORRECT_PHASE;
constexpr auto kLock = DiagCtrlEvent::UNABLE_TO_GET_LOCK;
constexpr auto kSilent = GateRow::noEvent;
constexpr const char* kText = "INCORRECT_PHASE: ";

constexpr GateRow kRows[] = {
    {ClientCall::enumerate, kInitialize, -1, kWrong, nullptr, GateRow::none, true},
    {ClientCall::enumerateAgain, kIdle, -1, kWrong, nullptr, GateRow::none, true},
    {ClientCall::queue, kReady, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::control, kActive, kTimeOut, kWrong, kText, GateRow::before, true},
    {ClientCall::abortAll, kActive, -1, kWrong, kText, GateRow::before, true},
    {ClientCall::changeSetting, kIdle, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::runEstimation, kIdle, kTimeOut, kWrong, kText, GateRow::before, true},
    {ClientCall::clearRequests, kIdle, kTimeOut, kWrong, kText, GateRow::before, true},
    {ClientCall::readEstimate, kIdle, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::readSetting, kSettled, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::readDebugLog, kSettled, kTimeOut, kSilent, nullptr, GateRow::none, false},
    {ClientCall::countRegistrations, kSettled, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::askPackage, kActive, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::sumEstimates, kReady, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::query, kReady, kTimeOut, kWrong, nullptr, GateRow::none, true},
    {ClientCall::queryRequest, kReady, kTimeOut, kWrong, kText, GateRow::before, true},
    {ClientCall::fetchMessages, kReady, kTimeOut, kWrong, kText, GateRow::before, true},
    {ClientCall::readToken, kReady, -1, kWrong, kText, GateRow::before, true},
    {ClientCall::localiseString, kReady, -1, kWrong, "INCORRECT PHASE:", GateRow::before, true},
    {ClientCall::localiseMessage, kReady, -1, kWrong, nullptr, GateRow::none, true},
    // A failure to fetch controller events cannot well be told by a controller event.
    {ClientCall::fetchCtrlEvents, kReady | kInitialize, kTimeOut, kSilent, kText, GateRow::before,
     false},
    {ClientCall::registerForResults, kStarted, kTimeOut, kWrong, kText, GateRow::afterEvent, true},
    {ClientCall::registerForEvents, kStarted, kTimeOut, kLock, kText, GateRow::afterEvent, false},
    {ClientCall::registerForCtrlEvents, kStarted, kTimeOut, kLock, kText, GateRow::afterEvent,
     true},
    {ClientCall::readHealth, kSettled | kUninitialised, kTimeOut, kWrong, nullptr, GateRow::none,
     true},
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
