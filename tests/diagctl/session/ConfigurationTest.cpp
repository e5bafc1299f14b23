// Where the control file comes from, and what is left of a made one.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "diagctl/session/Configuration.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

namespace fs = std::filesystem;

TEST(ControlFile, comes_from_the_option_then_the_user_then_the_system) {
  const TestSupport::TemporaryDirectory place;
  const auto add = [&](const std::string& directory) {
    place.makeDirectory(directory + "/tarvexdiags");
    std::ofstream(place.file(directory + "/tarvexdiags/control.cfg")) << "x";
    return place.file(directory + "/tarvexdiags/control.cfg");
  };
  setenv("XDG_CONFIG_HOME", place.file("user").c_str(), 1);
  const auto found = [&] { return Configuration::find(std::nullopt, place.file("etc")).path(); };
  const std::string ofSystem = add("etc");
  EXPECT_EQ(found(), ofSystem);
  const std::string ofUser = add("user");
  EXPECT_EQ(found(), ofUser);
  EXPECT_EQ(Configuration::find("named", place.file("etc")).path(), "named");
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", place.file("home").c_str(), 1);
  EXPECT_EQ(found(), ofSystem);
  const std::string ofHome = add("home/.config");
  EXPECT_EQ(found(), ofHome);
}

TEST(ConfigurationDeathTest, nothing_of_a_made_one_is_left_when_a_signal_ends_the_program) {
  const TestSupport::TemporaryDirectory place;
  ASSERT_EQ(setenv("TMPDIR", place.path().c_str(), 1), 0);
  const auto makeAndEnd = [](int number) {
    signal(number, SIG_DFL);
    const Configuration made = Configuration::make("/packages");
    raise(number);
  };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(makeAndEnd(number), ::testing::ExitedWithCode(128 + number), "");
    EXPECT_TRUE(fs::is_empty(place.path())) << number;
  }
  unsetenv("TMPDIR");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
