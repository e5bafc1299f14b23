// What the process of a test may do, and what it knows of whoever started it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "packagekit/testing/PackageDriver.h"

namespace TarvexDiags::SecurityTest {
namespace {

using PackageKit::Testing::PackageDriver;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kTellsItsRights = 48;

class WorkerRights : public ::testing::Test {
 protected:
  PackageDriver::Run told() { return m_driver.run("unit0", {kTellsItsRights}); }

  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

TEST_F(WorkerRights, include_no_sight_of_its_hosts_environment_and_place) {
  setenv("TARVEX_SECRET", "of the host", 1);
  setenv("LD_LIBRARY_PATH", "/tmp", 1);
  setenv("LC_NUMERIC", "C", 1);
  const auto run = told();
  unsetenv("TARVEX_SECRET");
  unsetenv("LD_LIBRARY_PATH");
  EXPECT_THAT(run.measurement("variables"), HasSubstr("LC_NUMERIC"));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("TARVEX_SECRET")));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("LD_LIBRARY_PATH")));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("HOME")));
  EXPECT_EQ(run.measurement("directory"), "/");
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
