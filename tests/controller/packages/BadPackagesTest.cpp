// Whole directories of packages, as a controller meets them: bad shared objects among good ones,
// and the two rules by which entries of the control file and of packages apply.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using Scripted::Call;
using ::testing::UnorderedElementsAre;
using TestSupport::ControllerHarness;
using TestSupport::PackageConfig;

TEST(BadPackages, are_left_out_one_by_one_and_the_good_ones_stay) {
  ControllerHarness harness;
  harness.addPackage("AGood");
  harness.addPackage("ZGood");
  auto& packages = harness.packages();
  for (const char* const module :
       {"loader_without_config_file", "loader_without_enumerator", "loader_without_diagnostics",
        "loader_unresolved", "loader_without_log_dir"}) {
    packages.add(module, PackageConfig(1), TestSupport::modulePath(module));
  }
  packages.add("NoElf", PackageConfig(1), packages.configPath("AGood"));
  packages.add("CutOff", PackageConfig(1), TestSupport::modulePath("loader_complete"));
  std::filesystem::resize_file(packages.libraryPath("CutOff"), 5000);
  harness.addPackage("ThrowsEarly").throwAt(Call::SetConfigFile, "no power");
  harness.addPackage("ThrowsLate").throwAt(Call::IsSupported, "no power");
  harness.addPackage("NoEnumerator").setHabits({.givesNoEnumerator = true});
  harness.addPackage("NoDevices").setHabits({.givesNoDevices = true});
  harness.addPackage("NoDiagnostics").setHabits({.givesNoDiagnostics = true});
  harness.addPackage("NoDescription", PackageConfig(1).without("Mnemonic"));

  harness.start();
  EXPECT_THAT(harness.catalogue(),
              UnorderedElementsAre("AGood", "ZGood", "loader_without_log_dir"));
  EXPECT_THAT(harness.ctrlEvents(),
              UnorderedElementsAre("UNABLE_TO_LOAD_PACKAGE W 0",          // CutOff
                                   "PACKAGE_INITIALIZE_FAILED W 0",       // NoDescription
                                   "UNABLE_TO_CREATE_DEVICE_VECTOR W 0",  // NoDiagnostics
                                   "UNABLE_TO_LOAD_PACKAGE W 0",          // NoElf
                                   "UNABLE_TO_LOAD_PACKAGE W 0",          // loader_unresolved
                                   "FUNCTION_NOT_FOUND_IN_DLL W 0",    // loader_without_config_file
                                   "FUNCTION_NOT_FOUND_IN_DLL W 0",    // loader_without_diagnostics
                                   "FUNCTION_NOT_FOUND_IN_DLL W 0"));  // loader_without_enumerator
  const unsigned long id = harness.queue("ZGood", 1, {1});
  EXPECT_TRUE(harness.awaitEnd(id));
}

TEST(LogDirectory, that_the_control_file_does_not_name_reaches_a_package_as_null) {
  ControllerHarness harness;
  const auto& script = harness.addPackage("ALPHA");
  harness.start();
  ASSERT_EQ(script.count(Call::SetLogDir), 1U);
  EXPECT_EQ(script.calls(Call::SetLogDir)[0].text, "<null>");
}

struct Filter {
  const char* name;
  const char* os;
  const char* machineId;
  bool leavesPackageOut;
  bool leavesTestOut;
};

TEST(FilterRules, of_the_control_file_and_of_packages_differ) {
  const Filter rows[] = {
      {"NothingSaid", "", "", true, true},
      {"SameCase", "Linux", "", true, true},
      {"OtherCase", "LINUX", "", false, true},
      {"OtherSystem", "WinNT", "", false, false},
      {"MachineOne", "", "1", true, true},
      {"MachineZero", "", "0", true, false},
      {"MachineHex", "", "0x1", true, false},
      {"MachineOctal", "", "01", true, true},
      {"MachineOctalNine", "", "010", false, false},
      {"MachineWraps", "", "65537", true, true},
      {"MachineWrapsToZero", "", "65536", true, false},
      {"MachineWord", "", "one", true, false},
      {"MachineTwo", "", "2", false, false},
  };
  // Of each row one package that the control file may leave out, and one whose own file may leave a
  // test out.
  ControllerHarness harness;
  for (const Filter& row : rows) {
    const std::string name = row.name;
    harness.addPackage(name + "P");
    harness.control().disablePackage(name + "P", row.os, row.machineId);
    harness.addPackage(name + "T", PackageConfig(2).disableTest(2, row.os, row.machineId));
  }
  harness.start();
  for (const Filter& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string name = row.name;
    const auto names = harness.catalogue();
    const bool isThere = std::find(names.begin(), names.end(), name + "P") != names.end();
    EXPECT_EQ(isThere, !row.leavesPackageOut);
    DiagnosticPackage* package = nullptr;
    harness->getDiagPackage(harness.indexOf(name + "T"), package);
    EXPECT_EQ(package->getDisableTestList().size(), row.leavesTestOut ? 1U : 0U);
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
