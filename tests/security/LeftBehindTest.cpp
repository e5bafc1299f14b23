// What is left of a run that was killed: no process, wherever it has gone, and no directory for
// longer than until the next start. As root and as anybody else.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::Program;
namespace fs = std::filesystem;

// The controller lets others run at each of its steps, so that beside busy ones its start takes
// long.
constexpr std::chrono::seconds kLongestStart{60};

struct ProcessState {
  char state = 'X';  ///< of one that has gone
  pid_t parent = -1;
};

ProcessState stateOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t end = line.rfind(") ");
  return end == std::string::npos ? ProcessState()
                                  : ProcessState{line[end + 2], std::atoi(line.c_str() + end + 4)};
}

bool hasEnded(pid_t process) {
  const char state = stateOf(process).state;
  return state == 'X' || state == 'Z';
}

std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t process = std::atoi(entry.path().filename().c_str());
    if (process > 0 && stateOf(process).parent == parent) {
      children.push_back(process);
    }
  }
  return children;
}

// A test whose child has left group and session.
class LeftBehind : public DiagctlTest::Diagctl {
 protected:
  LeftBehind() {
    place.useMisbehavingPackage();
    m_program.emplace(withControlFile(
        {"--allow-insecure", "run", "-q", "-t", "Child beside the test", "-d", "Unit 0"}));
    m_worker = m_program->awaitWorker(kLongestStart);
    EXPECT_TRUE(TestSupport::eventually([this] {
      m_children = childrenOf(m_worker);
      return !m_children.empty() && getsid(m_children[0]) == m_children[0];
    }));
  }

  void expectNothing() const {
    EXPECT_TRUE(TestSupport::eventually([this] { return hasEnded(m_worker); }));
    for (const pid_t child : m_children) {
      EXPECT_TRUE(TestSupport::eventually([child] { return hasEnded(child); }));
    }
  }

  std::optional<Program> m_program;
  pid_t m_worker = -1;
  std::vector<pid_t> m_children;
};

TEST_F(LeftBehind, is_no_process_when_the_run_is_killed) {
  m_program->signal(SIGKILL);
  m_program->finish();
  expectNothing();
}

TEST_F(LeftBehind, is_no_process_when_the_run_is_interrupted) {
  m_program->signal(SIGINT);
  m_program->finish();
  expectNothing();
}

TEST(LeftBehindDirectory, is_removed_by_the_next_start_and_no_other_is) {
  const TestSupport::TemporaryDirectory place;
  const Program::Options options{
      .environment = {{"TMPDIR", place.path()}, {"HOME", ""}, {"XDG_CONFIG_HOME", ""}}};
  const std::vector<std::string> longRun = {"--allow-insecure", "run",      "-q",  "-p",
                                            "processor",        "--passes", "1000"};
  const auto directories = [&] {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(place.path())) {
      names.push_back(entry.path().string());
    }
    return names;
  };
  Program killed(longRun, options);
  killed.awaitWorker(kLongestStart);
  ASSERT_EQ(directories().size(), 1U);
  const std::string abandoned = directories()[0];
  killed.signal(SIGKILL);
  killed.finish();
  ASSERT_TRUE(fs::exists(abandoned));
  Program living(longRun, options);
  living.awaitWorker(kLongestStart);
  EXPECT_FALSE(fs::exists(abandoned));
  ASSERT_EQ(directories().size(), 1U);
  DiagctlTest::diagctl({"--allow-insecure", "list"}, options);
  EXPECT_EQ(directories().size(), 1U) << "as its owner lives";
  living.signal(SIGTERM);
  living.finish();
  EXPECT_TRUE(directories().empty());
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
