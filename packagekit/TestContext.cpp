#include "packagekit/TestContext.h"

#include <fcntl.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/Measurement.h"

namespace TarvexDiags::PackageKit {

TestContext::TestContext(TestParameters parameters)
    : m_parameters(std::move(parameters)), m_settings(m_parameters.configFile) {}

TestContext::~TestContext() = default;

bool TestContext::mayRead() const {
  return openMode() == DeviceEnum::IDevice::READ_ONLY ||
         openMode() == DeviceEnum::IDevice::READ_WRITE;
}

bool TestContext::mayWrite() const {
  return openMode() == DeviceEnum::IDevice::WRITE_ONLY ||
         openMode() == DeviceEnum::IDevice::READ_WRITE;
}

int TestContext::openFlags() const {
  switch (openMode()) {
    case DeviceEnum::IDevice::READ_ONLY:
      return O_CLOEXEC | O_RDONLY;
    case DeviceEnum::IDevice::WRITE_ONLY:
      return O_CLOEXEC | O_WRONLY;
    case DeviceEnum::IDevice::READ_WRITE:
      return O_CLOEXEC | O_RDWR;
    case DeviceEnum::IDevice::QUERY:
      break;
  }
  return O_CLOEXEC | O_RDONLY | O_NONBLOCK;
}

std::optional<std::string> TestContext::setting(const std::string& key) const {
  return m_settings.test(testId(), key);
}

long TestContext::settingInteger(const std::string& key, long fallback) const {
  return m_settings.testInteger(testId(), key, fallback);
}

double TestContext::settingNumber(const std::string& key, double fallback) const {
  return m_settings.testNumber(testId(), key, fallback);
}

bool TestContext::settingFlag(const std::string& key, bool fallback) const {
  return m_settings.testFlag(testId(), key, fallback);
}

// Who checks the configuration file knows the declared keys alone.
void TestContext::requireDeclared(const std::string& key) const {
  const auto& declared = m_parameters.declaredKeys;
  if (declared && !declared->contains(key)) {
    throw std::logic_error("test " + std::to_string(testId()) + " reads the key " + key +
                           " without declaring it");
  }
}

void TestContext::progress(unsigned int percent) {
  sendProgress(std::min(percent, 100U));
}

void TestContext::event(EventType type, unsigned int code,
                        std::vector<std::string> eventParameters) {
  sendEvent(type, code, std::move(eventParameters));
}

void TestContext::information(unsigned int code, std::vector<std::string> eventParameters) {
  sendEvent(Diag::DiagnosticEvent::INFORMATION_EVENT, code, std::move(eventParameters));
}

void TestContext::warning(unsigned int code, std::vector<std::string> eventParameters) {
  sendEvent(Diag::DiagnosticEvent::WARNING_EVENT, code, std::move(eventParameters));
}

void TestContext::error(unsigned int code, std::vector<std::string> eventParameters) {
  sendEvent(Diag::DiagnosticEvent::ERROR_EVENT, code, std::move(eventParameters));
}

void TestContext::measurement(const std::string& name, double value, const std::string& unit) {
  measurement(name, Contract::toText(value), unit);
}

void TestContext::measurement(const std::string& name, const std::string& value,
                              const std::string& unit) {
  sendEvent(Diag::DiagnosticEvent::INFORMATION_EVENT, TEST_MEASUREMENT,
            Contract::toDetails({name, value, unit}));
}

void TestContext::processed(double amount, const std::string& unit) {
  if (const auto rate = m_rate.add(amount, RateMeter::Clock::now())) {
    sendEvent(Diag::DiagnosticEvent::INFORMATION_EVENT, TEST_THROUGHPUT,
              {Contract::toText(*rate), unit + "/s"});
  }
}

void TestContext::log(const std::string& line) {
  writeLog(line);
}

void TestContext::throwIfStopped() const {
  if (stopRequested()) {
    throw Stopped();
  }
}

}  // namespace TarvexDiags::PackageKit
