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
#include "packagekit/Support.h"
#include "packagekit/Test.h"
#include "packagekit/TestContext.h"
#include "packagekit/Verdict.h"

namespace TarvexDiags::PackageKit {

/// @brief One test of a package, with what limits it. The calls chain.
class TestEntry {
 public:
  explicit TestEntry(std::unique_ptr<Test> test);

  /// @brief Offers the test only where the predicate says yes. Runs in the host process.
  TestEntry& supportedWhen(std::function<Support(const Device&, const Environment&)> predicate);

  /// @brief Offers the test in these diagnostic modes only: destructive ones in FACTORY.
  TestEntry& onlyIn(std::set<DiagnosticMode> modes);

  /// @brief The test writes to its device: it is refused when the open mode does not allow that.
  TestEntry& writes();

  /// @brief How many seconds the test would take; see Test::estimate. Runs in the host process.
  TestEntry& estimate(std::function<int(const Device&, const Environment&)> figure);

  Test& test() const { return *m_test; }
  bool isWriting() const { return m_writes; }
  Support supports(const Device& device, const Environment& environment) const;
  int estimateFor(const Device& device, const Environment& environment) const;

 private:
  std::unique_ptr<Test> m_test;
  std::function<Support(const Device&, const Environment&)> m_predicate;
  std::function<int(const Device&, const Environment&)> m_estimate;
  std::set<DiagnosticMode> m_modes;
  bool m_writes = false;
};

/// @brief A package: how it finds its devices, and its tests by test id.
///
/// It is filled once in each process that loads the package's shared object, by the function that
/// TARVEX_PACKAGE opens. That function only registers: it touches no hardware, starts no thread.
class Package {
 public:
  using DiscoverFunction = std::function<std::vector<Device>(const Environment&)>;
  using TestFunction = std::function<Verdict(TestContext&)>;

  /// @brief Sets how devices are found. Called in the host process at each enumeration, one call at
  /// a time. Devices that can't be looked at are left out, with a line in the log; when it throws,
  /// the package has no devices and the log says why.
  void discover(DiscoverFunction function);

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

  /// @brief Runs discovery. Throws what the author's function throws.
  std::vector<Device> findDevices(const Environment& environment) const;

  /// @brief The test of that number, or null.
  const TestEntry* find(int testId) const;

 private:
  DiscoverFunction m_discover;
  std::map<int, TestEntry> m_tests;
};

}  // namespace TarvexDiags::PackageKit
