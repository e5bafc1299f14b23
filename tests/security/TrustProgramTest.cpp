// What belongs to others is not executed and not read as code when root runs the program.

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/diagctl/Diagctl.h"
#include "tests/security/People.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::diagctl;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::AllOf;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class Trust : public DiagctlTest::Diagctl {
 protected:
  Trust() { addMixedPackage(); }

  /// Each verb that loads packages refuses, and `check` finds it.
  void expectRefusal(const std::string& finding) {
    for (const char* verb : {"list", "run", "estimate"}) {
      const Outcome refused = run({verb});
      EXPECT_EQ(refused.exitCode, DiagctlTest::kNoVerdict) << verb;
      EXPECT_THAT(refused.err, AllOf(HasSubstr(finding), HasSubstr("--allow-insecure"))) << verb;
    }
    EXPECT_THAT(run({"check"}).out, HasSubstr("permissions: " + finding));
  }
};

TEST_F(Trust, a_package_of_another_is_refused_to_root) {
  SKIP_UNLESS_ROOT();
  const std::string library = place.path("packages/libMIX.so");
  give(library, kStranger);
  expectRefusal(library + ": is owned by user 61234");
}

TEST_F(Trust, a_package_of_ones_own_is_loaded_for_a_plain_user) {
  SKIP_UNLESS_ROOT();
  giveAll(fs::path(place.controlFile()).parent_path(), kStranger);
  Program::Options options;
  options.user = kStranger;
  EXPECT_EQ(diagctl(withControlFile({"run", "-t", "Good"}), options).exitCode,
            DiagctlTest::kPassed);
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
