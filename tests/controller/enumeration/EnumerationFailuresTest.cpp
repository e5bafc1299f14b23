// Each way in which a package can fail to enumerate: result, event, trace and what becomes of its
// library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/Fifo.h"
#include "tests/support/Places.h"
#include "tests/support/PlatformAnswers.h"
#include "tests/support/ProcessMaps.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using Scripted::Call;
using Scripted::Habits;
using Scripted::Living;
using Scripted::Script;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::Fifo;
using TestSupport::isMapped;
using TestSupport::PackageConfig;
using TestSupport::PlatformAnswers;
using enum DiagnosticController::errorCode;

typedef std::function<void(ControllerHarness&)> AddPackage;

struct Failure {
  std::string name;
  AddPackage addPackage;
  DiagnosticController::errorCode result = SUCCESS;
  std::string event = "";         ///< empty: none
  std::string trace = "";         ///< empty: none
  bool staysOpen = false;         ///< the library
  PackageNameVector wanted = {};  ///< the classes; empty: all packages
};

void PrintTo(const Failure& failure, std::ostream* stream) {
  *stream << failure.name;
}

AddPackage module(const std::string& name) {
  return [name](ControllerHarness& harness) {
    harness.packages().add("ALPHA", PackageConfig(), TestSupport::modulePath(name));
  };
}

AddPackage scripted(const PackageConfig& config, const Habits& habits = {}) {
  return [config, habits](ControllerHarness& harness) {
    harness.addPackage("ALPHA", config).setHabits(habits);
  };
}

/// A package that throws: the result and the trace say so, and no event.
Failure throwing(const std::string& name, Call call, const PackageNameVector& wanted = {}) {
  const AddPackage add = [call](ControllerHarness& harness) {
    harness.addPackage("ALPHA").throwAt(call, "out of order");
  };
  return {.name = "thrown_at_" + name,
          .addPackage = add,
          .result = PACKAGE_NOT_FOUND,
          .trace = std::string("DiagnosticController::") +
                   (wanted.empty() ? "enumerateAllPackages" : "enumerateByPackageClass") +
                   "(): PACKAGE_NOT_FOUND: ALPHA(out of order)",
          .staysOpen = true,
          .wanted = wanted};
}

const std::string kPrefix = "DiagnosticController::enumerateAllPackages(): ";

/// A library without one of the exports.
Failure withoutExport(const std::string& name, const std::string& moduleName) {
  return {.name = "no_export_of_the_" + name,
          .addPackage = module(moduleName),
          .result = FUNCTION_NOT_FOUND_IN_DLL,
          .event = "FUNCTION_NOT_FOUND_IN_DLL W 0",
          .trace = kPrefix + "FUNCTION_NOT_FOUND_IN_DLL: ALPHA(getIDiagnostics() failed)"};
}

const std::vector<Failure> kFailures = {
    {.name = "description",
     .addPackage = scripted(PackageConfig().without("Mnemonic")),
     .result = PACKAGE_INITIALIZE_FAILED,
     .event = "PACKAGE_INITIALIZE_FAILED W 0",
     .trace = kPrefix + "PACKAGE_INITIALIZE_FAILED: ALPHA"},
    {.name = "description_by_class",
     .addPackage = scripted(PackageConfig().without("Mnemonic")),
     .result = PACKAGE_INITIALIZE_FAILED,
     .event = "PACKAGE_INITIALIZE_FAILED W 0",
     .trace = kPrefix + "PACKAGE_INITIALIZE_FAILED: ALPHA",
     .wanted = {"SCRIPTED"}},
    {.name = "unwanted_class",
     .addPackage = scripted(PackageConfig()),
     .result = UNABLE_TO_LOAD_PACKAGE,
     .trace = "DiagnosticController::enumeratePackageClass(): UNABLE_TO_LOAD_PACKAGE: ALPHA(not in "
              "the package Vector)",
     .wanted = {"OTHER"}},
    {.name = "dependency",
     .addPackage = scripted(PackageConfig().with("SODependencies", "libnobodyhasthis.so")),
     .result = UNABLE_TO_LOAD_PACKAGE,
     .event = "UNABLE_TO_LOAD_PACKAGE W 0",
     .trace = kPrefix + "UNABLE_TO_LOAD_PACKAGE: ALPHA(dependencies missing)"},
    {.name = "library",
     .addPackage = module("loader_unresolved"),
     .result = UNABLE_TO_LOAD_PACKAGE,
     .event = "UNABLE_TO_LOAD_PACKAGE W 0",
     .trace = kPrefix + "UNABLE_TO_LOAD_PACKAGE: ALPHA(load failed)"},
    {.name = "library_by_class",
     .addPackage = module("loader_unresolved"),
     .result = UNABLE_TO_LOAD_PACKAGE,
     .event = "UNABLE_TO_LOAD_PACKAGE W 0",
     .trace = kPrefix + "UNABLE_TO_LOAD_PACKAGE: ALPHA(load failed)",
     .wanted = {"SCRIPTED"}},
    {.name = "null_enumerator",
     .addPackage = scripted(PackageConfig(), {.givesNoEnumerator = true}),
     .result = UNABLE_TO_CREATE_DEVICE_VECTOR,
     .trace = kPrefix + "returning from doEnumerate",
     .staysOpen = true},
    {.name = "null_device_vector",
     .addPackage = scripted(PackageConfig(), {.givesNoDevices = true}),
     .result = UNABLE_TO_CREATE_DEVICE_VECTOR,
     .trace = "DiagnosticController::doEnumeratePackage(): NULL Vector: ALPHA",
     .staysOpen = true},
    {.name = "null_diagnostics",
     .addPackage = scripted(PackageConfig(), {.givesNoDiagnostics = true}),
     .result = UNABLE_TO_CREATE_DEVICE_VECTOR,
     .event = "UNABLE_TO_CREATE_DEVICE_VECTOR W 0",
     .trace = kPrefix + "UNABLE_TO_CREATE_DEVICE_VECTOR: ALPHA"},
    withoutExport("configuration_file", "loader_without_config_file"),
    withoutExport("enumerator", "loader_without_enumerator"),
    withoutExport("diagnostics", "loader_without_diagnostics"),
    {.name = "an_exception_of_the_controllers_family",
     .addPackage = module("loader_throwing"),
     .result = UNABLE_TO_CREATE_DEVICE_VECTOR,
     .event = "UNABLE_TO_CREATE_DEVICE_VECTOR W 0",
     .trace = kPrefix + "UNABLE_TO_CREATE_DEVICE_VECTOR: ALPHA"},
    throwing("the_configuration_file", Call::SetConfigFile),
    throwing("the_log_directory", Call::SetLogDir),
    throwing("the_enumerator", Call::GetEnumerator),
    throwing("the_devices", Call::GetDevices),
    throwing("the_devices_by_class", Call::GetDevices, {"SCRIPTED"}),
    throwing("the_diagnostics", Call::GetDiagnostics),
    throwing("a_pair", Call::IsSupported),
};

class TracedFailureTest : public ControllerTest {
 protected:
  /// What the trace tells of packages that were left out.
  std::vector<std::string> tracedFailures() {
    std::vector<std::string> texts;
    const std::string mark = "STRING: ";
    for (const std::string& line : trace().rawLines()) {
      const auto at = line.find(mark);
      const std::string text = at == std::string::npos ? "" : line.substr(at + mark.size());
      if (text.starts_with("DiagnosticController::")) {
        texts.push_back(text);
      }
    }
    return texts;
  }
};

class EnumerationFailureTest : public TracedFailureTest,
                               public ::testing::WithParamInterface<Failure> {
 protected:
  DiagnosticController::errorCode enumerate(const PackageNameVector& wanted) {
    return wanted.empty() ? harness->enumerateAllPackages()
                          : harness->enumerateByPackageClass(wanted);
  }
};

TEST_P(EnumerationFailureTest, leaves_the_package_out_and_nothing_behind) {
  const Failure& failure = GetParam();
  failure.addPackage(harness);
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_WARNING");
  harness.initialize();
  harness.registerForAll();
  EXPECT_EQ(enumerate(failure.wanted), failure.result);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  EXPECT_THAT(harness.catalogue(), IsEmpty());
  typedef std::vector<std::string> Lines;
  EXPECT_EQ(harness.ctrlEvents(), failure.event.empty() ? Lines() : Lines{failure.event});
  EXPECT_EQ(tracedFailures(), failure.trace.empty() ? Lines() : Lines{failure.trace});
  EXPECT_EQ(isMapped(harness.packages().libraryPath("ALPHA")), failure.staysOpen);
  EXPECT_EQ(Script::of("ALPHA").living(), Living{}) << "every object of the package is gone";
}

TEST_P(EnumerationFailureTest, does_not_touch_the_packages_around_it) {
  const Failure& failure = GetParam();
  harness.addPackage("AAA", PackageConfig().mnemonic("OTHERS"));
  failure.addPackage(harness);
  harness.addPackage("ZZZ", PackageConfig().mnemonic("OTHERS"));
  PackageNameVector wanted = failure.wanted;
  if (!wanted.empty()) {
    wanted.emplace_back("OTHERS");
  }
  harness.initialize();
  harness.registerForAll();
  EXPECT_EQ(enumerate(wanted), SUCCESS) << "the result is that of the last package";
  EXPECT_THAT(harness.catalogue(), ElementsAre("AAA", "ZZZ"));
  const unsigned long id = harness.queue("ZZZ", 1, {1});
  EXPECT_TRUE(harness.awaitEnd(id));
}

INSTANTIATE_TEST_SUITE_P(Row, EnumerationFailureTest, ::testing::ValuesIn(kFailures),
                         [](const auto& row) { return row.param.name; });

TEST_F(TracedFailureTest, what_a_package_throws_is_one_line_among_the_failures) {
  Script& alpha = harness.addPackage("ALPHA");
  alpha.throwAt(Call::GetDevices, "two\nlines");
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  harness.initialize();
  EXPECT_EQ(harness->enumerateAllPackages(), PACKAGE_NOT_FOUND);
  EXPECT_THAT(tracedFailures(),
              ElementsAre("DiagnosticController::enumerateAllPackages(): PACKAGE_NOT_FOUND: "
                          "ALPHA(two lines)"));
}

TEST_F(TracedFailureTest, what_it_throws_later_on_is_told_with_its_name) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  harness.start();
  alpha.throwAt(Call::GetDevices, "not now");
  EXPECT_EQ(harness->enumerateDiagPackages(1), PACKAGE_NOT_FOUND);
  EXPECT_THAT(tracedFailures(),
              ElementsAre("DiagnosticController::enumerateDiagPackages(): PACKAGE_NOT_FOUND: "
                          "ALPHA(not now)"));
}

// ---- What is no library at all ------------------------------------------------------------------

class NoLibraryTest : public ControllerTest {
 protected:
  std::string replaceLibrary(const std::string& name) {
    harness.addPackage(name);
    harness.packages().removeLibrary(name);
    return harness.packages().libraryPath(name);
  }
};

TEST_F(NoLibraryTest, a_fifo_or_a_device_in_its_place_is_told_and_holds_nobody_up) {
  const Fifo fifo(replaceLibrary("ALPHA"));
  std::filesystem::create_symlink("/dev/null", replaceLibrary("BETA"));
  harness.addPackage("GAMMA");
  harness.initialize();
  harness.registerForAll();
  EXPECT_TRUE(fifo.staysClearOf([&] { harness->enumerateAllPackages(); }));
  EXPECT_THAT(harness.catalogue(), ElementsAre("GAMMA"));
  EXPECT_THAT(harness.ctrlEvents(),
              ElementsAre("UNABLE_TO_LOAD_PACKAGE W 0", "UNABLE_TO_LOAD_PACKAGE W 0"));
}

TEST_F(NoLibraryTest, a_fifo_in_place_of_a_dependency_is_not_loadable) {
  harness.addPackage("ALPHA", PackageConfig().with("SODependencies", "libhelper.so"));
  const Fifo fifo(harness.packages().directory().file("libhelper.so"));
  harness.initialize();
  harness.registerForAll();
  EXPECT_TRUE(fifo.staysClearOf([&] { harness->enumerateAllPackages(); }));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("UNABLE_TO_LOAD_PACKAGE W 0"));
}

// ---- Libraries that do not close ---------------------------------------------------------------

/// Ends its process itself: the loader keeps its lock once a library did not close.
class UnclosableLibraryTest : public ControllerTest {
 protected:
  void TearDown() override { TestSupport::endTestProcess(HasFailure()); }

  PlatformAnswers platform;
};

TEST_F(UnclosableLibraryTest, a_package_that_failed_is_one_that_was_not_found) {
  module("loader_without_diagnostics")(harness);
  harness.initialize();
  harness.registerForAll();
  platform.refuseToClose();
  EXPECT_EQ(harness->enumerateAllPackages(), PACKAGE_NOT_FOUND);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  EXPECT_THAT(harness.catalogue(), IsEmpty());
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("FUNCTION_NOT_FOUND_IN_DLL W 0"));
}

TEST_F(UnclosableLibraryTest, a_dependency_was_loadable_all_the_same) {
  harness.addPackage("ALPHA", PackageConfig().with("SODependencies", "libhelper.so"));
  harness.packages().copyLibrary("helper", TestSupport::modulePath("loader_complete"));
  harness.initialize();
  platform.refuseToClose();
  EXPECT_EQ(harness->enumerateAllPackages(), SUCCESS);
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
}

TEST_F(UnclosableLibraryTest, a_package_that_is_enumerated_again_leaves_the_catalogue) {
  harness.addPackage("ALPHA");
  harness.start();
  platform.refuseToClose();
  EXPECT_EQ(harness->enumerateDiagPackages(1), PACKAGE_NOT_FOUND);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  DiagnosticPackage* package = nullptr;
  EXPECT_EQ(harness->getDiagPackage(1, package), OBJECT_NOT_FOUND);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
