// The example clients run against the example package and are as short as they say; the short one
// is what the guide shows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/ControlFile.h"
#include "tests/support/Places.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags {
namespace {

using ::testing::HasSubstr;
using TestSupport::ControlFile;
using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;

struct ClientRun {
  int exitStatus = -1;
  std::string output;
};

/// Runs a client; what it writes to either stream is its output.
ClientRun runProgram(const std::string& program, const std::string& arguments) {
  ClientRun run;
  FILE* const pipe = popen((program + " " + arguments + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  std::array<char, 512> buffer{};
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr) {
    run.output += buffer.data();
  }
  const int status = pclose(pipe);
  run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

ClientRun runClient(const std::string& arguments) {
  return runProgram(MINIMAL_CLIENT, arguments);
}

std::string textOf(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(TestSupport::sourcePath(file)).rdbuf();
  EXPECT_FALSE(text.str().empty()) << file;
  return text.str();
}

TEST(MinimalClient, runs_every_test_of_the_example_package_and_prints_the_result) {
  const ClientRun run = runClient("");
  EXPECT_EQ(run.exitStatus, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("(Never steps back) on host/clocksource0 has ended: PASSED"));
  EXPECT_THAT(run.output, HasSubstr("A request has ended.\n"));
}

TEST(MinimalClient, speaks_the_language_that_it_is_told_to) {
  const ClientRun run = runClient("\"$(dirname " MINIMAL_CLIENT ")/control.cfg\" de");
  EXPECT_EQ(run.exitStatus, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("Ein Auftrag ist beendet.\n"));
}

TEST(MinimalClient, asks_for_nothing_that_is_not_there) {
  const TemporaryDirectory directory;
  const ClientRun run = runClient(ControlFile()
                                      .packDirPath(EXAMPLE_PACKAGES)
                                      .traced(directory.path())
                                      .with("DebugLog", "DIAG_ERROR")
                                      .writeTo(directory));
  EXPECT_EQ(run.exitStatus, 0) << run.output;
  const TraceFile trace(directory.path());
  EXPECT_TRUE(trace.contains("Progress of Enumeration"));
  EXPECT_FALSE(trace.contains(" failed: "));
}

TEST(MinimalClient, names_the_call_that_failed) {
  const ClientRun missing = runClient("/nonexistent/control.cfg");
  EXPECT_EQ(missing.exitStatus, 2);
  EXPECT_EQ(missing.output, "initialize returned INITIALISATION_FAILED\n");
  const TemporaryDirectory directory;
  const ClientRun empty = runClient(ControlFile().packDirPath(directory.path()).writeTo(directory));
  EXPECT_EQ(empty.exitStatus, 2);
  EXPECT_EQ(empty.output, "enumerateAllPackages returned NO_PACKAGE_ENABLED\n");
}

TEST(MinimalClient, has_fewer_than_a_hundred_lines) {
  const std::string text = textOf("examples/minimal_client/MinimalClient.cpp");
  EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 100);
}

TEST(ShortClient, runs_every_test_of_the_example_package_and_prints_the_outcome) {
  const ClientRun run = runProgram(SHORT_CLIENT, "");
  EXPECT_EQ(run.exitStatus, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("(Never steps back) on host/clocksource0 has ended: PASSED"));
  EXPECT_THAT(run.output, HasSubstr("Request 1: passed\n"));
}

TEST(ShortClient, speaks_the_language_that_it_is_told_to) {
  const ClientRun run = runProgram(SHORT_CLIENT, "\"$(dirname " SHORT_CLIENT ")/control.cfg\" de");
  EXPECT_EQ(run.exitStatus, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("an host/clocksource0 ist beendet: PASSED"));
}

TEST(ShortClient, names_the_call_that_failed) {
  const ClientRun run = runProgram(SHORT_CLIENT, "/nonexistent/control.cfg");
  EXPECT_EQ(run.exitStatus, 2);
  EXPECT_EQ(run.output, "initialize: INITIALISATION_FAILED (2)\n");
}

TEST(ShortClient, has_forty_lines_which_the_guide_shows_as_they_are) {
  const std::string text = textOf("examples/short_client/ShortClient.cpp");
  EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 40);
  EXPECT_THAT(textOf("docs/client-guide.md"), HasSubstr("```cpp\n" + text + "```\n"));
}

}  // namespace
}  // namespace TarvexDiags
