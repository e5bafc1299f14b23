#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/testing/PackageDriver.h"

namespace TarvexDiags::BundledTests {

/// @brief The packages that come along, in alphabetical order.
std::vector<std::string> namesOfPackages();

/// @brief How tests of a package are made to run on this machine, each for a fraction of a second.
struct Arrangement {
  struct Change {
    std::string section;
    std::string key;
    std::string value;
  };

  std::string package;
  std::vector<Change> changes = {};  ///< of its configuration
  std::string device = {};           ///< last component of the tag; empty: the first that will do
  std::vector<int> tests = {};       ///< empty: all that no other arrangement names
  PackageKit::DiagnosticMode mode = DeviceEnum::IDeviceEnumerator::CUSTOMER;
  int timesTheWork = 1;        ///< of the short form as it comes along, which estimates are about
  bool needsHardware = false;  ///< whether a machine may be without a device that offers them
};

/// @brief A network namespace for the rest of the process's life, without interfaces of hardware.
/// Called once, by a process with one thread. Needs root; throws std::runtime_error without.
void enterOwnNamespace();

/// @brief Makes interfaces "left" and "right" with a carrier beyond which nothing is, and lets "lo"
/// drop what it is given.
void makeSilentInterfaces();

/// @brief What the arrangements need: interfaces in the own namespace, a file that stands for a
/// disk, a machine whose processors count their errors.
class Machine {
 public:
  Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine();

  /// @brief At least one for each package that is there, also for those that nobody thought of.
  std::vector<Arrangement> arrangements() const;

 private:
  std::filesystem::path m_folder;
};

/// @brief One test of a bundled package, on a device that offers it.
class BundledTest {
 public:
  using Clock = std::chrono::steady_clock;

  BundledTest(PackageKit::Testing::PackageDriver& driver, const Arrangement& arrangement,
              std::string device, int number)
      : m_driver(driver),
        m_package(arrangement.package),
        m_device(std::move(device)),
        m_number(number),
        m_timesTheWork(arrangement.timesTheWork) {}

  /// @brief For people: "memory, test 3 on node0".
  std::string name() const;

  /// @brief A run to its end, of the test's short form.
  PackageKit::Testing::PackageDriver::Run run() const;

  /// @brief What the package says that such a run would take.
  std::chrono::seconds estimate() const;

  struct Outcome {
    bool wasAborted;       ///< false: the run had ended by then
    Clock::duration took;  ///< from the abort until the pass was over and its worker gone; else the
                           ///< whole run
  };

  /// @brief Aborts a run at a moment after its start. Several tests of a driver may be run at a
  /// time.
  /// @param beforeAbort called just before
  Outcome abortAfter(
      Clock::duration moment, const std::function<void()>& beforeAbort = [] {}) const;

 private:
  PackageKit::Testing::PackageDriver& m_driver;
  std::string m_package;
  std::string m_device;
  int m_number;
  int m_timesTheWork;
};

}  // namespace TarvexDiags::BundledTests
