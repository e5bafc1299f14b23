// Which directories of runs that have ended are removed, and which are left alone.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "diagctl/session/RunFolder.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

namespace fs = std::filesystem;

class AbandonedRunFolder : public ::testing::Test {
 protected:
  AbandonedRunFolder() { setenv("TMPDIR", m_place.path().c_str(), 1); }
  ~AbandonedRunFolder() override { unsetenv("TMPDIR"); }

  // Of a process that a signal has ended while it was there.
  fs::path leftBehindBy(int signal) {
    int report[2];
    EXPECT_EQ(pipe(report), 0);
    const pid_t owner = fork();
    if (owner == 0) {
      const RunFolder folder;
      std::ofstream(folder.path() / "control.cfg") << "x";
      const std::string path = folder.path().string();
      const bool isTold = write(report[1], path.c_str(), path.size() + 1) > 0;
      kill(getpid(), isTold ? signal : SIGTERM);
      pause();
    }
    char path[4096] = "";
    EXPECT_GT(read(report[0], path, sizeof path), 0);
    EXPECT_EQ(waitpid(owner, nullptr, 0), owner);
    close(report[0]);
    close(report[1]);
    return path;
  }

  fs::path makeByHand(const std::string& name) {
    m_place.makeDirectory(name);
    std::ofstream(m_place.file(name + "/run.lock"));
    return m_place.file(name);
  }

  TestSupport::TemporaryDirectory m_place;
};

TEST_F(AbandonedRunFolder, is_removed_whatever_has_ended_its_owner) {
  for (const int signal : {SIGKILL, SIGQUIT, SIGSEGV}) {
    const fs::path folder = leftBehindBy(signal);
    EXPECT_TRUE(fs::exists(folder / "control.cfg")) << signal;
    RunFolder::removeAbandoned();
    EXPECT_FALSE(fs::exists(folder)) << signal;
  }
}

TEST_F(AbandonedRunFolder, is_none_while_its_owner_lives) {
  const RunFolder folder;
  RunFolder::removeAbandoned();
  EXPECT_TRUE(fs::exists(folder.path()));
}

TEST_F(AbandonedRunFolder, is_none_without_a_lock_of_its_own) {
  m_place.makeDirectory("diagctl-backup");
  std::ofstream(m_place.file("diagctl-backup/control.cfg")) << "x";
  m_place.makeDirectory("diagctl-linked");
  fs::create_symlink("/dev/null", m_place.file("diagctl-linked/run.lock"));
  m_place.makeDirectory("elsewhere");
  std::ofstream(m_place.file("elsewhere/run.lock"));
  fs::create_symlink(m_place.file("elsewhere"), m_place.file("diagctl-symbol"));
  RunFolder::removeAbandoned();
  EXPECT_TRUE(fs::exists(m_place.file("diagctl-backup/control.cfg")));
  EXPECT_TRUE(fs::exists(m_place.file("diagctl-linked")));
  EXPECT_TRUE(fs::exists(m_place.file("elsewhere/run.lock")));
  EXPECT_TRUE(fs::is_symlink(m_place.file("diagctl-symbol")));
}

TEST_F(AbandonedRunFolder, is_none_while_its_owner_makes_it) {
  m_place.makeDirectory("diagctl-makes1");
  std::ofstream(m_place.file("diagctl-makes1/run.lock.new"));
  RunFolder::removeAbandoned();
  EXPECT_TRUE(fs::exists(m_place.file("diagctl-makes1")));
}

TEST_F(AbandonedRunFolder, of_somebody_else_is_left_alone) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can make files of others";
  }
  const fs::path ofOther = makeByHand("diagctl-other1");
  ASSERT_EQ(chown(ofOther.c_str(), 61234, 61234), 0);
  const fs::path lockOfOther = makeByHand("diagctl-other2");
  ASSERT_EQ(chown((lockOfOther / "run.lock").c_str(), 61234, 61234), 0);
  RunFolder::removeAbandoned();
  EXPECT_TRUE(fs::exists(ofOther));
  EXPECT_TRUE(fs::exists(lockOfOther));
}

TEST_F(AbandonedRunFolder, that_another_start_removes_is_left_to_it) {
  const fs::path folder = makeByHand("diagctl-locked");
  const int other = open((folder / "run.lock").c_str(), O_RDONLY);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  RunFolder::removeAbandoned();
  EXPECT_TRUE(fs::exists(folder));
  close(other);
  RunFolder::removeAbandoned();
  EXPECT_FALSE(fs::exists(folder));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
