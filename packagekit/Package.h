#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/Device.h"
#include "packagekit/Environment.h"
#include "packagekit/Setting.h"
#include "packagekit/Support.h"
#include "packagekit/Test.h"
#include "packagekit/TestContext.h"
#include "packagekit/Verdict.h"

namespace TarvexDiags::PackageKit {

/// @brief One test of a package, with what limits it. The calls chain.
class TestEntry {
 public:
  explicit TestEntry(std::unique_ptr<Test> test);

  /// @brief Offers the test only where the predicate says yes. Runs at each enumeration, in the
  /// process of discovery; what it throws is a no.
  TestEntry& supportedWhen(std::function<Support(const Device&, const Environment&)> predicate);

  /// @brief Offers the test in these diagnostic modes only: destructive ones in FACTORY.
  TestEntry& onlyIn(std::set<DiagnosticMode> modes);

  /// @brief The test writes to its device: it is refused when the open mode does not allow that.
  TestEntry& writes();

  /// @brief How many seconds the test would take; see Test::estimate. Runs in the host process.
  TestEntry& estimate(std::function<double(const Device&, const Environment&)> figure);

  /// @brief The keys of the configuration file that the test reads, in its own section or in
  /// section `Package`: those that `TestContext::value` gives it.
  TestEntry& reads(SettingList settings);

  Test& test() const { return *m_test; }
  const SettingList& settings() const { return m_settings; }
  bool isWriting() const { return m_writes; }
  Support supports(const Device& device, const Environment& environment) const;
  double estimateFor(const Device& device, const Environment& environment) const;

 private:
  std::unique_ptr<Test> m_test;
  std::function<Support(const Device&, const Environment&)> m_predicate;
  std::function<double(const Device&, const Environment&)> m_estimate;
  std::set<DiagnosticMode> m_modes;
  SettingList m_settings;
  bool m_writes = false;
};

/// @brief One test of a package that declares its tests as a table: all that there is to say of it,
/// in one row. What is left out stands for a test that is offered on every device in every mode,
/// writes nothing, reads no keys, and takes as long as its configuration says.
struct TestRow {
  int number;  ///< of its section in the configuration file, from 1 on; each once
  std::function<Verdict(TestContext&)> body;
  SettingList reads = {};                                                  ///< TestEntry::reads
  std::function<Support(const Device&, const Environment&)> support = {};  ///< supportedWhen
  std::function<double(const Device&, const Environment&)> estimate = {};  ///< TestEntry::estimate
  std::set<DiagnosticMode> modes = {};                                     ///< TestEntry::onlyIn
  bool writes = false;                                                     ///< TestEntry::writes
};

/// @brief A package: how it finds its devices, and its tests by test id.
///
/// It is filled once in each process that loads the package's shared object, by the function that
/// TARVEX_PACKAGE opens. That function only registers: it touches no hardware, starts no thread.
class Package {
 public:
  using DiscoverFunction = std::function<std::vector<Device>(const Environment&)>;
  using StatusFunction = std::function<unsigned int(const Device&)>;
  using TestFunction = std::function<Verdict(TestContext&)>;

  /// @brief Sets how devices are found. Called at each enumeration, in a worker process of its own,
  /// which may be killed at any moment. Devices that can't be looked at are left out, with a line
  /// in the log. When it throws, crashes or hangs the package is left out.
  void discover(DiscoverFunction function);

  /// @brief Sets how a device's present status is asked: a code of section `DeviceStatus` in the
  /// package's configuration file; without such a function it is 0. It runs in the host process, on
  /// client threads, also while a test runs on the device: it must be quick and must not block. It
  /// is given what discovery has told of the device. What it throws is reported as
  /// `DEVICE_STATUS_UNKNOWN`.
  void status(StatusFunction function);

  /// @brief Adds a test.
  /// @param testId the number of its section in the configuration file, from 1 on; each once
  TestEntry& test(int testId, TestFunction function);
  TestEntry& test(int testId, std::unique_ptr<Test> test);

  /// @brief Adds a test that is a class: `package.test<BitFade>(7);`
  template <class TestClass, class... Arguments>
  TestEntry& test(int testId, Arguments&&... arguments) {
    return test(testId, std::unique_ptr<Test>(
                            std::make_unique<TestClass>(std::forward<Arguments>(arguments)...)));
  }

  /// @brief Adds the tests of a table.
  void tests(std::vector<TestRow> rows);

  /// @brief The keys of section `Package` that the package reads elsewhere than in its tests, as in
  /// discovery. A key with "#" at its end stands for those with a number there.
  void reads(SettingList settings);

  /// @brief The keys that the package and its tests have declared. Empty: it has declared none.
  SettingList settings() const;

  /// @brief Runs discovery. Throws what the author's function throws.
  std::vector<Device> findDevices(const Environment& environment) const;

  /// @brief Asks for the status of a device. Throws what the author's function throws.
  unsigned int statusOf(const Device& device) const;

  /// @brief The numbers of the tests, rising.
  std::vector<int> testIds() const;

  /// @brief The test of that number, or null.
  const TestEntry* find(int testId) const;

 private:
  DiscoverFunction m_discover;
  StatusFunction m_status;
  SettingList m_settings;
  std::map<int, TestEntry> m_tests;
};

}  // namespace TarvexDiags::PackageKit
