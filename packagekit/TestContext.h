#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "packagekit/Device.h"
#include "packagekit/Environment.h"
#include "packagekit/RateMeter.h"
#include "packagekit/Setting.h"
#include "packagekit/Settings.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

using AccessMode = DeviceEnum::IDevice::AccessMode;
using EventType = Diag::DiagnosticEvent::EventType;

/// @brief Thrown by TestContext::throwIfStopped; the kit catches it. Not to be reported by a test.
class Stopped : public std::exception {
 public:
  const char* what() const noexcept override { return "the test was asked to stop"; }
};

/// @brief Thrown to say that the device is gone; reported as trouble of the tool, unless the client
/// takes a vanished device for a failed one.
class DeviceVanished : public std::system_error {
 public:
  DeviceVanished() : DeviceVanished(Contract::kNoSuchDevice) {}
  /// @param how it showed: words, or a token of the package's texts
  /// @param detail that no language has a word for: "sda: 0 B at sector 4096"
  explicit DeviceVanished(const std::string& how, const std::string& detail = {})
      : std::system_error(ENODEV, std::generic_category()),
        m_how(how),
        m_detail(Contract::inBrackets(detail)),
        m_what(m_how + m_detail) {}

  const char* what() const noexcept override { return m_what.c_str(); }
  const std::string& how() const { return m_how; }
  /// @brief " (detail)", or nothing.
  const std::string& detail() const { return m_detail; }

 private:
  std::string m_how;
  std::string m_detail;
  std::string m_what;
};

/// @brief Thrown to say that something which the test needs was taken away from outside, such as
/// the core that it runs on: what it has seen since says nothing. Reported as trouble of the tool.
class TakenAway : public std::runtime_error {
 public:
  /// @param what was taken: "the core was taken away"
  explicit TakenAway(const std::string& what) : std::runtime_error(what) {}
};

/// @brief How one test of one pass is to be run: all that the request and the machine determine.
struct TestParameters {
  int testId = 0;
  Device device = {};
  AccessMode openMode = DeviceEnum::IDevice::READ_WRITE;
  bool quickMode = false;
  bool haltOnError = false;
  DiagnosticMode diagnosticMode = DeviceEnum::IDeviceEnumerator::CUSTOMER;
  int passNumber = 1;
  std::uint64_t seed = 0;
  std::string configFile = {};
  /// The keys that the test has declared; without a value, nobody holds it to them.
  std::optional<std::set<std::string>> declaredKeys = {};
};

/// @brief What a running test sees and says. It runs in a worker process of its own, so it may
/// crash, hang or be killed without harm to anybody; the context is its only way to the outside.
///
/// Every operation may be called from any thread of the test, and all threads that a test starts
/// must have ended when it returns. Trouble of the tool is thrown: std::bad_alloc,
/// std::system_error (EACCES and EPERM are told as missing permission; ENODEV, ENXIO and ENOMEDIUM
/// as a vanished device; ENOMEM as no memory), DeviceVanished, TakenAway, or anything else. It is
/// reported as UNUSUAL_STATUS with an event of the kit.
///
/// An error event says that the hardware is at fault, and stands whatever becomes of the test: when
/// it crashes, hangs, throws or is aborted behind one, its result is FAILED with the first of them.
/// A test that raises one and returns passed contradicts itself and has no verdict.
///
/// Abstract only so that a package's unit tests can call a test in their own process, with
/// testing/RecordingContext.h.
class TestContext {
 public:
  explicit TestContext(TestParameters parameters);
  TestContext(const TestContext&) = delete;
  TestContext& operator=(const TestContext&) = delete;
  virtual ~TestContext();

  // What is to be tested, and how.

  const Device& device() const { return m_parameters.device; }

  /// @brief A property of the device, or the fallback.
  std::string property(const std::string& key, const std::string& fallback = {}) const {
    return device().property(key, fallback);
  }

  int testId() const { return m_parameters.testId; }

  /// @brief The number of the pass, from 1 on.
  int passNumber() const { return m_parameters.passNumber; }

  /// @brief A number to draw all of the test's random values from. Another one for each pass,
  /// unless the client gives one (a line of contract/Seed.h in the text to which the parameter
  /// pointer of its settings leads) or the configuration has the key `Seed`; it stands in the event
  /// that opens the test, so a fault can be run again.
  std::uint64_t seed() const { return m_parameters.seed; }

  /// @brief Whether the client wants a short run, at the price of thoroughness.
  bool quickMode() const { return m_parameters.quickMode; }

  /// @brief Whether the test shall end at its first error; else it may go on and find more.
  bool haltOnError() const { return m_parameters.haltOnError; }

  DiagnosticMode diagnosticMode() const { return m_parameters.diagnosticMode; }

  /// @brief How the device may be opened. QUERY: not for reading its contents.
  AccessMode openMode() const { return m_parameters.openMode; }
  bool mayRead() const;
  bool mayWrite() const;

  /// @brief The mode as flags of open(2), O_CLOEXEC included. QUERY gives O_RDONLY | O_NONBLOCK.
  int openFlags() const;

  // Configuration: the key in the section of this test, else in section Package.

  /// @brief The value of a setting that the test has declared; see Setting.h. Throws
  /// UnusableSetting when the file has none, std::logic_error when the test did not declare it.
  template <class Value>
  Value value(const Setting<Value>& setting) const {
    requireDeclared(setting.key());
    return m_settings.value(setting, testId(), quickMode());
  }
  template <class Value>
  std::optional<Value> value(const OptionalSetting<Value>& setting) const {
    requireDeclared(setting.key());
    return m_settings.value(setting, testId());
  }

  std::optional<std::string> setting(const std::string& key) const;
  long settingInteger(const std::string& key, long fallback) const;
  double settingNumber(const std::string& key, double fallback) const;
  bool settingFlag(const std::string& key, bool fallback) const;
  const Settings& settings() const { return m_settings; }

  // What the test has to say.

  /// @brief How much of this test is done, 0 to 100. Cheap: call it as often as convenient.
  void progress(unsigned int percent);

  /// @brief Raises an event of the package: code 1 to 8999, with a token in section `Information`,
  /// `Warning` or `Error` of its configuration file. It reaches the clients within milliseconds of
  /// the host's next look. Beyond `MaxEvents` of a pass (10,000 by default) events are counted and
  /// dropped.
  void event(EventType type, unsigned int code, std::vector<std::string> parameters = {});
  void information(unsigned int code, std::vector<std::string> parameters = {});
  void warning(unsigned int code, std::vector<std::string> parameters = {});
  /// A fault of the hardware, and of nothing else.
  void error(unsigned int code, std::vector<std::string> parameters = {});

  /// @brief Reports a figure: "readBandwidth", 12.5, "GB/s".
  /// @param name lowerCamel, the same in each run, so that figures can be compared
  /// @param unit as people write it; empty for a bare number
  void measurement(const std::string& name, double value, const std::string& unit = {});

  /// @brief The same for a figure that is text, such as a firmware revision.
  void measurement(const std::string& name, const std::string& value, const std::string& unit = {});

  /// @brief Adds to what the test has done since its last call. Who watches a run sees from it how
  /// fast the test is, once a second; no report has it. Cheap, but not for an inner loop: call it
  /// for each buffer, slice or batch.
  /// @param unit of the amount, as people write it: "MB"; the same in all calls
  void processed(double amount, const std::string& unit);

  /// @brief Writes a line to the package's log, when the client has logging on.
  void log(const std::string& line);

  // Being told to stop: by an abort, or because the time of the test is over.

  /// @brief Whether the test shall end soon. One atomic load: ask in every inner loop that lasts
  /// longer than some milliseconds. A test that does not ask is killed after a grace time.
  virtual bool stopRequested() const noexcept = 0;

  /// @brief Throws Stopped when stopRequested(). What the test returns is then of no interest.
  void throwIfStopped() const;

  /// @brief Waits, and wakes up at once for a stop.
  /// @return false when a stop was requested
  virtual bool sleepFor(std::chrono::nanoseconds duration) = 0;

 protected:
  /// @brief Where progress and all kinds of events end up. Thread-safe.
  virtual void sendProgress(unsigned int percent) = 0;
  virtual void sendEvent(EventType type, unsigned int code,
                         std::vector<std::string> parameters) = 0;
  virtual void writeLog(const std::string& line) = 0;

  const TestParameters& parameters() const { return m_parameters; }

 private:
  void requireDeclared(const std::string& key) const;

  const TestParameters m_parameters;
  const Settings m_settings;
  RateMeter m_rate;
};

}  // namespace TarvexDiags::PackageKit
