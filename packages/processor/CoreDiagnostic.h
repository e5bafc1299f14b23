#pragma once

#include <vector>

#include "packagekit/PackageKit.h"
#include "packages/common/SystemRoot.h"
#include "packages/processor/ProcessorDiagnostics.h"

namespace TarvexDiags::Processor {

/// @brief Codes of the package's events, as sections Information, Warning and Error name them.
enum ProcessorEvent : unsigned int {
  CoreVerified = 1,        ///< device, results compared, classes, share of verified work in percent
  ClassesMissing = 2,      ///< device, instruction classes that the processor does not have
  Throttled = 101,         ///< device, counter, by how much it grew
  ErrorsCorrected = 102,   ///< device, counter, by how much it grew
  PartnerLost = 104,       ///< device, the number of the other core
  WrongResultFound = 201,  ///< device, core, instruction class, operands, expected, found
  WrongResultTotal = 202,  ///< device, wrong results, results compared
  MachineChecks = 203,     ///< device, counter, by how much it grew
  CoresDisagree = 204,     ///< device, instruction class, seed, cores with their results
};

/// @brief One of the tests, on one core.
///
/// Properties of the device: "core" (the number of the logical processor), "systemRoot" (where /sys
/// and /proc lie).
class CoreDiagnostic : public PackageKit::Test {
 public:
  explicit CoreDiagnostic(const ProcessorTest& test) : m_test(test) {}

  PackageKit::Verdict run(PackageKit::TestContext& context) override;
  PackageKit::Support supports(const PackageKit::Device& device,
                               const PackageKit::Environment& environment) const override;
  double estimate(const PackageKit::Device& device,
                  const PackageKit::Environment& environment) const override;

 private:
  PackageKit::Verdict tested(PackageKit::TestContext& context) const;

  const ProcessorTest m_test;
};

/// @brief The keys of the configuration file that each test reads.
PackageKit::SettingList coreSettings();

/// @brief The devices of the package.
std::vector<PackageKit::Device> findCoreDevices(const PackageKit::Environment& environment);

}  // namespace TarvexDiags::Processor
