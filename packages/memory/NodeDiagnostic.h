#pragma once

#include <cstdint>
#include <vector>

#include "packagekit/PackageKit.h"
#include "packages/common/SystemRoot.h"
#include "packages/memory/MemoryDiagnostics.h"
#include "packages/memory/Nodes.h"

namespace TarvexDiags::Memory {

/// @brief Codes of the package's events, as sections Information, Warning and Error name them.
enum MemoryEvent : unsigned int {
  RegionReady = 1,          ///< device, MiB, threads, kernels, MiB locked
  MemoryVerified = 2,       ///< device, MiB verified, MB/s
  Remark = 3,               ///< device, what could not be had as wished, " (detail)" or nothing
  CorrectedErrors = 101,    ///< device, controller or module, how many
  TooLittleMemory = 102,    ///< device, MiB available, MiB wanted at least
  MiscompareFound = 201,    ///< device, virtual and physical address, expected, found, differing
                            ///< bits, kind, found again, pattern
  MiscompareTotal = 202,    ///< device, words that were wrong, MiB verified
  UncorrectedErrors = 203,  ///< device, controller or module, how many
  PageIsPoisoned = 204  ///< device, virtual and physical address of the page, controller or module
};

/// @brief One of the tests, on the memory of one node.
///
/// All tests of a pass use one region, which is mapped and populated by the first of them and lives
/// as long as the worker process.
///
/// Properties of the device: "node" (-1 for the whole machine), "cpus" (a list as the kernel writes
/// it), "bytes", "systemRoot" (where /sys and /proc lie).
class NodeDiagnostic : public PackageKit::Test {
 public:
  explicit NodeDiagnostic(const MemoryTest& test) : m_test(test) {}

  PackageKit::Verdict run(PackageKit::TestContext& context) override;
  PackageKit::Support supports(const PackageKit::Device& device,
                               const PackageKit::Environment& environment) const override;
  double estimate(const PackageKit::Device& device,
                  const PackageKit::Environment& environment) const override;

 private:
  const MemoryTest m_test;
};

/// @brief The keys of the configuration file that the test reads.
PackageKit::SettingList settingsOf(const MemoryTest& test);

/// @brief The devices of the package.
std::vector<PackageKit::Device> findNodeDevices(const PackageKit::Environment& environment);

}  // namespace TarvexDiags::Memory
