// A check of what others left behind ends, and tells of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/diagctl/Diagctl.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::diagctl;
using DiagctlTest::Outcome;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class HostileFiles : public DiagctlTest::Diagctl {
 protected:
  HostileFiles() { addMixedPackage(); }

  void expectFinding(const std::string& finding) {
    const Outcome outcome = run({"check"});
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict) << finding;
    EXPECT_THAT(outcome.out, HasSubstr(finding));
  }

  static void makePipe(const std::string& path) {
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  }
};

TEST_F(HostileFiles, that_are_pipes_keep_no_check_waiting) {
  for (const char* const name :
       {"packages/PIPE.cfg", "packages/libPIPE.so", "packages/en/MIX.cfg"}) {
    const std::string path = place.path(name);
    makePipe(path);
    expectFinding(path + ": it is no regular file");
    fs::remove(path);
  }
  makePipe(place.controlFile());
  expectFinding(place.controlFile() + ": the file cannot be read: it is no regular file");
}

TEST_F(HostileFiles, that_are_links_to_nowhere_hide_no_finding_of_permissions) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root asks who may write to files";
  }
  const std::string link = place.path("packages/.#MIX.cfg");
  const std::string pipe = place.path("packages/PIPE.cfg");
  const std::string open = place.path("packages/MIX.cfg");
  fs::create_symlink("nobody@nowhere.1:1", link);
  makePipe(pipe);
  fs::permissions(open, fs::perms::others_write, fs::perm_options::add);
  expectFinding(link + ": it is a link that leads nowhere");
  expectFinding(pipe + ": it is no regular file");
  expectFinding(open + ": may be written by others");
}

TEST_F(HostileFiles, that_are_devices_are_not_read) {
  const std::string path = place.path("packages/ZERO.cfg");
  fs::create_symlink("/dev/zero", path);
  expectFinding(path + ": it is no regular file");
  fs::remove(path);
  EXPECT_THAT(diagctl({"--config", "/dev/zero", "check"}).out,
              HasSubstr("/dev/zero: the file cannot be read: it is no regular file"));
}

TEST_F(HostileFiles, that_are_links_to_themselves_are_told) {
  for (const char* const name :
       {"packages/LOOP.cfg", "packages/libLOOP.so", "packages/de/MIX.cfg"}) {
    const std::string path = place.path(name);
    fs::remove(path);
    fs::create_symlink(fs::path(path).filename(), path);
    expectFinding(path + ": Too many levels of symbolic links");
    fs::remove(path);
  }
  const std::string loop = place.path("loop");
  fs::create_symlink("loop", loop);
  EXPECT_THAT(diagctl({"--config", loop, "check"}).out,
              HasSubstr(loop + ": the file cannot be read: Too many levels of symbolic links"));
  place.replaceIn(place.controlFile(), "LogDirPath=" + place.path("logs"), "LogDirPath=" + loop);
  expectFinding("LogDirPath: '" + loop + "': Too many levels of symbolic links");
  place.usePackages(loop);
  expectFinding("PackDirPath: '" + loop + "': Too many levels of symbolic links");
}

TEST_F(HostileFiles, whose_names_are_too_long_are_told) {
  const std::string name(254, 'x');
  place.write(place.controlFile(),
              DiagctlTest::contentsOf(place.controlFile()) +
                  "[DisablePackage]\nNumPackages=1\n[Package1]\nPackageName=" + name + "\n");
  expectFinding("[Package1] PackageName: '" + name + "': File name too long");
  const std::string file = place.path(std::string(300, 'x'));
  EXPECT_THAT(diagctl({"--config", file, "check"}).out,
              HasSubstr(file + ": the file cannot be read: File name too long"));
}

TEST_F(HostileFiles, with_a_count_beyond_measure_cost_no_more_than_its_bound) {
  const std::string text = DiagctlTest::contentsOf(place.controlFile());
  for (const char* const count : {"1001", "2147483647"}) {
    place.write(place.controlFile(), text + "[DisablePackage]\nNumPackages=" + count + "\n");
    const Outcome outcome = diagctl({"--config", place.controlFile(), "check"});
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
    EXPECT_THAT(outcome.out,
                HasSubstr(std::string("NumPackages: ") + count + " is more than 1000"));
  }
  place.write(place.controlFile(), text + "[DisablePackage]\nNumPackages=99999999999\n");
  expectFinding("NumPackages: '99999999999' is no whole number");
}

TEST_F(HostileFiles, that_never_end_are_read_to_a_bound) {
  const std::string path = place.path("packages/LARGE.cfg");
  place.write(path, "[Package]\n");
  fs::resize_file(path, 1UL << 40U);
  expectFinding(path + ": it is larger than 16777216 bytes");
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
