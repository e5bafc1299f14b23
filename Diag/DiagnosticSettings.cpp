#include "Diag/DiagnosticSettings.h"

#include <atomic>
#include <utility>

#include "System/Mutex.h"

namespace TarvexDiags::Diag {

namespace {

using DeviceEnum::IDevice;

// The numbers are read by one thread while another one writes them (the count of passes, by the
// thread that judges a pass), so each access is atomic.
template <typename Number>
std::atomic_ref<Number> shared(const Number& field) {
  return std::atomic_ref<Number>(const_cast<Number&>(field));
}

template <typename Number>
void copyNumber(Number& to, const Number& from) {
  shared(to).store(shared(from).load());
}

// Flags are handled as the bytes that they are stored in: a faulty client may have left something
// in them that is no bool, and loading that as a bool is undefined.
std::atomic_ref<unsigned char> byteOf(const bool& flag) {
  static_assert(sizeof(bool) == sizeof(unsigned char));
  return std::atomic_ref<unsigned char>(reinterpret_cast<unsigned char&>(const_cast<bool&>(flag)));
}

void copyFlag(bool& to, const bool& from) {
  byteOf(to).store(byteOf(from).load());
}

bool isSet(const bool& flag) {
  return byteOf(flag).load() != 0;
}

const char* textOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

DiagnosticSettings::DiagnosticSettings()
    : DiagnosticSettings(false, false, false, false, false, "", 0, 0, 0, 1, IDevice::QUERY) {}

DiagnosticSettings::DiagnosticSettings(bool quickTestMode, bool stressMode, bool haltOnError,
                                       bool reportStatusMessage, bool logEvents,
                                       const char* logfileName, Uint testRequestId, Ulong runTime,
                                       int requestedPassCount, int passCount, Uint openMode)
    : m_quickTestMode(false),
      m_stressMode(false),
      m_haltOnError(false),
      m_ulRunTime(runTime),
      m_reportStatusMessage(false),
      m_logEvents(false),
      m_logfileName(textOrEmpty(logfileName)),
      m_testRequestId(testRequestId),
      m_requestedPassCount(requestedPassCount),
      m_passCount(passCount),
      m_pParameter(nullptr),
      m_openMode(static_cast<IDevice::AccessMode>(openMode)),
      m_estimationMode(false) {
  setQuickTestMode(quickTestMode);
  setStressMode(stressMode);
  setHaltOnError(haltOnError);
  setReportStatusMessage(reportStatusMessage);
  setLogEvents(logEvents);
}

DiagnosticSettings::DiagnosticSettings(const DiagnosticSettings& other) : DiagnosticSettings() {
  *this = other;
}

DiagnosticSettings& DiagnosticSettings::operator=(const DiagnosticSettings& other) {
  m_testNumber_v = other.m_testNumber_v;
  copyFlag(m_quickTestMode, other.m_quickTestMode);
  copyFlag(m_stressMode, other.m_stressMode);
  copyFlag(m_haltOnError, other.m_haltOnError);
  copyNumber(m_ulRunTime, other.m_ulRunTime);
  copyFlag(m_reportStatusMessage, other.m_reportStatusMessage);
  copyFlag(m_logEvents, other.m_logEvents);
  m_logfileName = other.m_logfileName;
  copyNumber(m_testRequestId, other.m_testRequestId);
  copyNumber(m_requestedPassCount, other.m_requestedPassCount);
  copyNumber(m_passCount, other.m_passCount);
  copyNumber(m_pParameter, other.m_pParameter);
  copyNumber(m_openMode, other.m_openMode);
  copyFlag(m_estimationMode, other.m_estimationMode);
  return *this;
}

DiagnosticSettings::~DiagnosticSettings() = default;

void DiagnosticSettings::setTestNumberVector(std::vector<int> testNumbers) {
  m_testNumber_v = std::move(testNumbers);
}

const std::vector<int>& DiagnosticSettings::getTestNumberVector() const {
  return m_testNumber_v;
}

void DiagnosticSettings::setQuickTestMode(bool quickTestMode) {
  copyFlag(m_quickTestMode, quickTestMode);
}

void DiagnosticSettings::setStressMode(bool stressMode) {
  copyFlag(m_stressMode, stressMode);
}

void DiagnosticSettings::setHaltOnError(bool haltOnError) {
  copyFlag(m_haltOnError, haltOnError);
}

int DiagnosticSettings::getQuickTestMode() const {
  return byteOf(m_quickTestMode).load();
}

int DiagnosticSettings::getStressMode() const {
  return byteOf(m_stressMode).load();
}

int DiagnosticSettings::getHaltOnError() const {
  return byteOf(m_haltOnError).load();
}

void DiagnosticSettings::setRunTime(Ulong runTime) {
  shared(m_ulRunTime).store(runTime);
}

Ulong DiagnosticSettings::getRunTime() const {
  return shared(m_ulRunTime).load();
}

void DiagnosticSettings::setReportStatusMessage(bool reportStatusMessage) {
  copyFlag(m_reportStatusMessage, reportStatusMessage);
}

bool DiagnosticSettings::getReportStatusMessage() const {
  return isSet(m_reportStatusMessage);
}

void DiagnosticSettings::setLogEvents(bool logEvents) {
  copyFlag(m_logEvents, logEvents);
}

bool DiagnosticSettings::getLogEvents() const {
  return isSet(m_logEvents);
}

void DiagnosticSettings::setLogfileName(const char* logfileName) {
  m_logfileName = textOrEmpty(logfileName);
}

const std::string& DiagnosticSettings::getLogfileName() const {
  return m_logfileName;
}

void DiagnosticSettings::setTestRequestId(Uint testRequestId) {
  shared(m_testRequestId).store(testRequestId);
}

Uint DiagnosticSettings::getTestRequestId() const {
  return shared(m_testRequestId).load();
}

void DiagnosticSettings::setRequestedPassCount(int requestedPassCount) {
  shared(m_requestedPassCount).store(requestedPassCount);
}

int DiagnosticSettings::getRequestedPassCount() const {
  return shared(m_requestedPassCount).load();
}

void DiagnosticSettings::setPassCount(int passCount) {
  shared(m_passCount).store(passCount);
}

int DiagnosticSettings::getPassCount() const {
  return shared(m_passCount).load();
}

void DiagnosticSettings::setParameterPointer(void* parameter) {
  shared(m_pParameter).store(parameter);
}

void* DiagnosticSettings::getParameterPointer() const {
  return shared(m_pParameter).load();
}

void DiagnosticSettings::setOpenMode(unsigned int openMode) {
  shared(m_openMode).store(static_cast<IDevice::AccessMode>(openMode));
}

IDevice::AccessMode DiagnosticSettings::getOpenMode() const {
  return shared(m_openMode).load();
}

void DiagnosticSettings::setEstimationMode(const bool& estimationMode) {
  copyFlag(m_estimationMode, estimationMode);
}

bool DiagnosticSettings::getEstimationMode() const {
  return isSet(m_estimationMode);
}

int DiagnosticSettings::addRef() {
  const System::LockHold held(m_MapLock);
  return ++m_PassCountMap[getTestRequestId()];
}

int DiagnosticSettings::removeRef() {
  const System::LockHold held(m_MapLock);
  const auto counted = m_PassCountMap.find(getTestRequestId());
  if (counted == m_PassCountMap.end()) {
    return 0;
  }
  const int left = --counted->second;
  if (left == 0) {
    m_PassCountMap.erase(counted);
  }
  return left;
}

int DiagnosticSettings::getRefCount() const {
  const System::LockHold held(m_MapLock);
  const auto counted = m_PassCountMap.find(getTestRequestId());
  return counted == m_PassCountMap.end() ? 0 : counted->second;
}

}  // namespace TarvexDiags::Diag
