// Faults of disks, made from outside while the storage package is at work.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

#include "diagctl/report/ExitStatus.h"
#include "tests/inject/storage/FaultyDisk.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::Inject {
namespace {

using DiagctlTest::ReportedProgram;
using DiagctlTest::ReportedRun;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace ExitCode = FrontEnd::ExitCode;

std::string stepOf(const std::string& test) {
  return "Storage: " + test + " on file (disk)";
}

class DiskFault : public testing::Test {
 protected:
  /// Puts the file system in front of the image, and makes the package test what it shows.
  LyingFileSystem& lie(const std::vector<std::string>& faults) {
    m_lies = std::make_unique<LyingFileSystem>(bench.folder(), faults);
    bench.testFile(m_lies->path() + "/disk");
    return *m_lies;
  }

  ReportedRun run(const std::string& test) {
    return DiagctlTest::reportedRun(bench.arguments(test, "disk"));
  }

  /// Starts a run that would take minutes, and waits until it is in its midst.
  template <class Disk>
  std::unique_ptr<ReportedProgram> begin(const Disk& disk, const std::string& device = "disk",
                                         const std::vector<std::string>& further = {}) {
    bench.set("TestID5", "QuickReads=20000000");
    auto program =
        std::make_unique<ReportedProgram>(bench.arguments("Random read", device, further));
    EXPECT_TRUE(program->waitForLog("has started"));
    disk.awaitTraffic();
    return program;
  }

  StorageBench bench;

 private:
  std::unique_ptr<LyingFileSystem> m_lies;
};

void expectTold(const ReportedRun& run, const std::string& step, const std::string& verdict,
                int exitCode, const std::string& text) {
  EXPECT_THAT(run.verdictsOf(step), ElementsAre(verdict));
  EXPECT_THAT(run.formatsWithout(step, text), IsEmpty()) << run.accountOf(step, "text");
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
  EXPECT_EQ(run.exitCode(), exitCode) << run.outcome().err;
}

void expectVanished(const ReportedRun& run, const std::string& step) {
  expectTold(run, step, "ERROR", ExitCode::kNoVerdict, "vanished");
  for (const char* format : {"text", "jsonl", "junit", "tap"}) {
    EXPECT_THAT(run.accountOf(step, format), Not(HasSubstr("cannot be read"))) << format;
  }
}

TEST_F(DiskFault, sound_disk_passes_every_test) {
  lie({});
  for (const char* test : {"Identity", "Sequential read scan", "Random read", "Read stability",
                           "Latency outliers", "Write and verify"}) {
    const ReportedRun sound = run(test);
    EXPECT_THAT(sound.verdictsOf(stepOf(test)), ElementsAre("PASSED"))
        << test << "\n"
        << sound.accountOf(stepOf(test), "text");
    EXPECT_EQ(sound.exitCode(), ExitCode::kPassed) << test;
  }
}

TEST_F(DiskFault, blocks_that_cannot_be_read_are_named) {
  lie({"read-error=1048576:12288:" + std::to_string(EIO)});
  expectTold(run("Sequential read scan"), stepOf("Sequential read scan"), "FAILED",
             ExitCode::kHardwareFailure,
             "from block 256 on, blocks of 4096 bytes that cannot be "
             "read: 3.");
}

TEST_F(DiskFault, file_system_that_halts_is_told_as_a_disk_that_does_not_answer) {
  const LyingFileSystem& lies = lie({});
  const auto program = begin(lies);
  lies.halt();
  // A request that the program has taken holds the worker in the kernel, until it goes on.
  EXPECT_TRUE(program->waitForLog("does not answer", std::chrono::seconds(30)));
  lies.signal(SIGCONT);
  expectTold(program->finish(), stepOf("Random read"), "FAILED", ExitCode::kHardwareFailure,
             "has not ended within 2 s");
}

TEST_F(DiskFault, file_system_that_does_not_open_a_file_is_told_as_a_disk_that_does_not_answer) {
  const LyingFileSystem& lies = lie({"silent=1"});
  ReportedProgram program(bench.arguments("Random read", "disk"));
  EXPECT_TRUE(program.waitForLog("does not answer", std::chrono::seconds(30)));
  lies.signal(SIGKILL);  // until then, what it has taken holds the worker in the kernel
  expectTold(program.finish(), stepOf("Random read"), "FAILED", ExitCode::kHardwareFailure,
             "has not ended within 2 s");
}

TEST_F(DiskFault, mismatch_of_protection_information_is_named) {
  lie({"read-error=1048576:4096:" + std::to_string(EILSEQ)});
  expectTold(run("Sequential read scan"), stepOf("Sequential read scan"), "FAILED",
             ExitCode::kHardwareFailure, "protection information");
}

TEST_F(DiskFault, contents_that_change_are_found) {
  lie({"unstable=5242880"});
  expectTold(run("Read stability"), stepOf("Read stability"), "FAILED", ExitCode::kHardwareFailure,
             "block 1280 ");
}

TEST_F(DiskFault, bit_that_is_written_wrongly_is_found) {
  lie({"flip-write=1049000"});
  expectTold(run("Write and verify"), stepOf("Write and verify"), "FAILED",
             ExitCode::kHardwareFailure, "from offset 1048576 of the file");
}

TEST_F(DiskFault, writes_that_never_arrived_are_told_as_one_stretch) {
  lie({"lose-write=2097152:65536"});
  expectTold(run("Write and verify"), stepOf("Write and verify"), "FAILED",
             ExitCode::kHardwareFailure, "sectors: 128.");
}

TEST_F(DiskFault, full_file_system_is_told_as_full) {
  lie({"free=0"});
  expectTold(run("Write and verify"), stepOf("Write and verify"), "SKIPPED", ExitCode::kNothingRan,
             "too little free space");
}

TEST_F(DiskFault, file_system_that_takes_nothing_leaves_nothing_to_verify) {
  lie({"full-at=0"});
  expectTold(run("Write and verify"), stepOf("Write and verify"), "SKIPPED", ExitCode::kNothingRan,
             "No space left");
}

TEST_F(DiskFault, file_system_that_becomes_full_is_no_fault_of_the_disk) {
  lie({"full-at=4194304"});
  expectTold(run("Write and verify"), stepOf("Write and verify"), "WARNING", ExitCode::kPassed,
             "No space left");
}

TEST_F(DiskFault, file_system_that_dies_is_told_as_a_disk_that_vanished) {
  const LyingFileSystem& lies = lie({});
  const auto program = begin(lies);
  lies.signal(SIGKILL);
  expectVanished(program->finish(), stepOf("Random read"));
}

TEST_F(DiskFault, reads_without_bytes_are_told_as_a_disk_that_vanished) {
  lie({"empty-after=100"});
  expectVanished(run("Random read"), stepOf("Random read"));
}

TEST_F(DiskFault, disk_that_is_pulled_is_told_as_vanished) {
  LoopDisk disk(bench.image());
  const auto program = begin(disk, disk.name());
  disk.pull();
  expectVanished(program->finish(), "Storage: Random read on " + disk.name());
}

TEST_F(DiskFault, disk_that_is_pulled_has_failed_where_that_is_asked_for) {
  LoopDisk disk(bench.image());
  const auto program = begin(disk, disk.name(), {"--vanished=failure"});
  disk.pull();
  expectTold(program->finish(), "Storage: Random read on " + disk.name(), "FAILED",
             ExitCode::kHardwareFailure, "vanished");
}

/// A disk whose blocks are asked of a program, which can be halted: then the kernel waits for it.
class HaltingDisk : public DiskFault {
 protected:
  HaltingDisk() : m_backing(bench.folder(), {}), disk(m_backing.path() + "/disk") {}
  // What the kernel still waits for has to fail, or the disk could not be taken down.
  ~HaltingDisk() override { m_backing.signal(SIGKILL); }

  std::string step() const { return "Storage: Random read on " + disk.name(); }

  /// Until a read is held up for good.
  /// @return since when
  std::chrono::steady_clock::time_point halt() const {
    m_backing.halt();
    disk.awaitReadsInFlight(1);
    return std::chrono::steady_clock::now();
  }

 private:
  LyingFileSystem m_backing;

 protected:
  LoopDisk disk;
};

TEST_F(HaltingDisk, that_does_not_answer_has_failed_and_the_system_log_is_named) {
  const auto program = begin(disk, disk.name());
  const auto halted = halt();
  expectTold(program->finish(), step(), "FAILED", ExitCode::kHardwareFailure,
             "The system log has what the kernel says about " + disk.name());
  EXPECT_LT(std::chrono::steady_clock::now() - halted, std::chrono::seconds(30));
}

// A read that the kernel will not give back holds the process at its end: nobody waits for that.
TEST_F(HaltingDisk, does_not_hold_up_a_stop) {
  bench.set("Package", "SilenceSeconds=60").set("Package", "KillGrace=60");
  const auto program = begin(disk, disk.name());
  halt();
  const auto stopped = std::chrono::steady_clock::now();
  program->program().signal(SIGINT);
  const ReportedRun run = program->finish();
  EXPECT_EQ(run.exitCode(), ExitCode::kSignalBase + SIGINT);
  EXPECT_THAT(run.verdictsOf(step()), ElementsAre("ABORTED"));
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(20));
}

// --- The injection itself

/// Makes a file system that lies, tells its process, and is killed; 1 where there can be none.
[[noreturn]] void beKilledWhileLying(int told, const std::string& folder) {
  try {
    const LyingFileSystem lies(folder, {});
    const pid_t process = lies.process();
    (void)!write(told, &process, sizeof process);
    raise(SIGKILL);
  } catch (const std::exception&) {
  }
  _exit(1);
}

TEST(LyingFileSystems, end_with_the_test_that_made_them) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // else nobody may ask how the orphan fares
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const TestSupport::TemporaryDirectory folder;
  setenv("TMPDIR", folder.path().c_str(), 1);  // what the killed process leaves behind goes too
  const pid_t test = fork();
  if (test == 0) {
    beKilledWhileLying(ends[1], folder.path());
  }
  close(ends[1]);
  pid_t orphan = -1;
  EXPECT_EQ(read(ends[0], &orphan, sizeof orphan), static_cast<ssize_t>(sizeof orphan));
  close(ends[0]);
  EXPECT_EQ(waitpid(test, nullptr, 0), test);
  ASSERT_GT(orphan, 0) << "no file system";
  const bool hasEnded =
      TestSupport::eventually([&] { return waitpid(orphan, nullptr, WNOHANG) == orphan; });
  EXPECT_TRUE(hasEnded);
  if (!hasEnded) {
    kill(orphan, SIGKILL);
  }
}

}  // namespace
}  // namespace TarvexDiags::Inject
