#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/IDiagnostics.h"
#include "packagekit/Environment.h"
#include "packagekit/TestContext.h"

namespace TarvexDiags::PackageKit::Testing {

/// @brief Loads a package's shared object and drives it as the controller does, without one: for
/// the integration tests of packages. Not thread-safe; throws std::runtime_error when the package
/// can't be loaded or breaks its contract.
///
///   PackageDriver memory(TARVEX_PACKAGE_DIR, "memory");
///   memory.set("TestID1", "InjectFault", "4096");
///   const auto run = memory.run("node0", {1});
///   EXPECT_EQ(run.verdict, Diag::DiagnosticResult::FAILED);
class PackageDriver {
 public:
  struct Event {
    EventType type;
    unsigned int code;
    std::vector<std::string> parameters;
  };

  /// @brief What came out of one run: one pass, or all passes of a stress run.
  struct Run {
    Diag::DiagnosticResult::TestResult verdict;
    int estimatedTime;
    std::vector<Event> events;
    /// The verdicts handed over by getDiagnosticResults: one for each pass.
    std::vector<Diag::DiagnosticResult::TestResult> results;
    std::chrono::milliseconds duration;

    bool has(unsigned int code) const;
    /// The parameters of the first event of that code; throws when there is none.
    const std::vector<std::string>& parametersOf(unsigned int code) const;
    /// The value of the measurement of that name, as text; throws when there is none.
    std::string measurement(const std::string& name) const;
  };

  /// @brief How a run is to be done; the defaults are those of a plain request.
  struct Options {
    bool quickMode = false;
    bool stressMode = false;
    bool haltOnError = false;
    bool estimationMode = false;
    bool reportStatusMessage = false;
    int passCount = 1;
    int requestedPassCount = 1;
    unsigned long runTime = 600;
    AccessMode openMode = DeviceEnum::IDevice::READ_WRITE;
    unsigned int requestId = 1;
    /// Lines of a client, such as that of a seed (packagekit/contract/).
    std::string parameters = {};
  };

  /// @param directory where lib<name>.so and <name>.cfg lie
  /// @param name the package's base name
  /// @param mode for whom the tests run
  PackageDriver(const std::string& directory, const std::string& name,
                DiagnosticMode mode = DeviceEnum::IDeviceEnumerator::CUSTOMER);
  PackageDriver(const PackageDriver&) = delete;
  PackageDriver& operator=(const PackageDriver&) = delete;
  ~PackageDriver();

  /// @brief Gives a key another value: from then on the package reads a changed copy of its
  /// configuration file. Devices found before are forgotten.
  PackageDriver& set(const std::string& section, const std::string& key, const std::string& value);

  /// @brief The same for the tests alone: the devices found before are kept.
  PackageDriver& setForTests(const std::string& section, const std::string& key,
                             const std::string& value);

  /// @brief Begins to look for the devices ahead: devices() then waits for what was begun.
  PackageDriver& beginDiscovery();

  /// @brief The devices, in the package's order; enumerated at the first call.
  DeviceEnum::VirtualDeviceVector& devices();

  /// @brief Forgets the devices and finds them anew.
  DeviceEnum::VirtualDeviceVector& enumerateAgain();

  /// @brief The device whose resource tag ends in that component; throws when there is none.
  DeviceEnum::VirtualDevice& device(const std::string& lastComponent);

  bool supports(const std::string& lastComponent, int testId);

  /// @brief One request for these tests, until it has ended.
  Run run(const std::string& lastComponent, const std::vector<int>& testIds);
  Run run(const std::string& lastComponent, const std::vector<int>& testIds,
          const Options& options);

  /// @brief A fresh diagnostics object, for tests that drive it themselves.
  std::unique_ptr<Diag::IDiagnostics> makeDiagnostics();

  /// @brief The text of the package's log so far.
  std::string logText() const;

  /// @brief Codes of events that came in all runs so far and have no token in the configuration.
  std::vector<std::string> eventsWithoutToken() const;

  /// @brief The configuration file that the package was given.
  const std::string& configFile() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace TarvexDiags::PackageKit::Testing
