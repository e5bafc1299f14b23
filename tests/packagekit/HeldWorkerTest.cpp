// Workers that have ended but for a thread: held by the kernel, or only slow.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/UniqueDescriptor.h"
#include "packagekit/internal/WorkerSession.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;

namespace {

class ToldObserver : public SessionObserver {
 public:
  void testBegan(std::size_t, Time) override {}
  void testProgressed(unsigned int, Time) override {}
  void eventRaised(Diag::DiagnosticEvent::EventType, unsigned int, std::vector<std::string>,
                   Time) override {}
  void testEnded(const TestReport&) override { hasToldAll = true; }

  std::atomic<bool> hasToldAll{false};
};

/// A file system that takes the first question for a name and never answers it, at FOLDER/mount:
/// who asks is held in the kernel until this is gone. FOLDER/is-silent tells that it is there, and
/// FOLDER/taken that it has been asked. Seen by the thread that makes it and what that starts.
class SilentFileSystem {
 public:
  explicit SilentFileSystem(const std::string& folder)
      : m_mount(folder + "/mount"),
        m_taken(folder + "/taken"),
        m_device(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    mkdir(m_mount.c_str(), 0755);
    unlink(m_taken.c_str());
    const std::string options = "fd=" + std::to_string(m_device.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(geteuid()) +
                                ",group_id=" + std::to_string(getegid());
    if (!m_device || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("silent", m_mount.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
      throw std::system_error(errno, std::generic_category(), "a file system of one's own");
    }
    m_server = std::thread([this] { serve(); });
    const std::ofstream mark(folder + "/is-silent");
  }
  SilentFileSystem(const SilentFileSystem&) = delete;
  SilentFileSystem& operator=(const SilentFileSystem&) = delete;
  // Unmounted, it has no question to wait for either.
  ~SilentFileSystem() {
    umount2(m_mount.c_str(), MNT_DETACH);
    m_server.join();
  }

 private:
  void serve() {
    std::vector<char> request(std::size_t{1} << 20U);
    fuse_in_header header{};
    while (header.opcode != FUSE_LOOKUP) {
      const ssize_t size = read(m_device.get(), request.data(), request.size());
      if (size < static_cast<ssize_t>(sizeof header)) {
        return;
      }
      std::memcpy(&header, request.data(), sizeof header);
      if (header.opcode == FUSE_INIT) {
        begin(header.unique);
      }
    }
    const std::ofstream taken(m_taken);
  }

  void begin(std::uint64_t request) {
    struct {
      fuse_out_header header;
      fuse_init_out answer;
    } reply{};
    reply.header.len = sizeof reply;
    reply.header.unique = request;
    reply.answer.major = FUSE_KERNEL_VERSION;
    reply.answer.minor = FUSE_KERNEL_MINOR_VERSION;
    reply.answer.max_write = 4096;
    EXPECT_EQ(write(m_device.get(), &reply, sizeof reply), static_cast<ssize_t>(sizeof reply));
  }

  const std::string m_mount;
  const std::string m_taken;
  UniqueDescriptor m_device;
  std::thread m_server;
};

class HeldWorker : public ::testing::Test {
 protected:
  HeldWorker() {
    setup.testIds = {1};
    limits.tests = {60};
    limits.exit = limits.termGrace = 60;
    limits.killGrace = 0.2;
    control.beginRun();
  }
  ~HeldWorker() override { control.endRun(); }

  // One that says what is given before its leader ends.
  SessionEnd runOneThatSays(const std::vector<std::string>& frames) {
    {
      std::ofstream file(place.file("frames"), std::ios::binary);
      for (const std::string& frame : frames) {
        file << frame;
      }
    }
    WorkerProcess process(HELD_WORKER, place.path(), 0);
    return WorkerSession(setup, limits, control, observer).run(process);
  }

  const std::string ready = FrameWriter(FrameType::Ready).number(1).bytes();
  const std::string begin = FrameWriter(FrameType::TestBegin).number(0).bytes();
  const std::string end =
      FrameWriter(FrameType::TestEnd).number(0).number(0).number(0).texts({}).bytes();
  const std::string stopped = FrameWriter(FrameType::TestEnd)
                                  .number(0)
                                  .number(static_cast<std::uint64_t>(TestEnding::Stopped))
                                  .number(0)
                                  .texts({})
                                  .bytes();
  const std::string passEnd = FrameWriter(FrameType::PassEnd).bytes();

  TestSupport::TemporaryDirectory place;
  PassSetup setup;
  SessionLimits limits;
  RunControl control;
  ToldObserver observer;
};

class WorkerHeldByTheKernel : public HeldWorker {
 protected:
  void SetUp() override {
    if (geteuid() != 0 || access("/dev/fuse", R_OK | W_OK) != 0) {
      GTEST_SKIP() << "needs root and /dev/fuse";
    }
  }

  void expectGivenUp(const std::vector<std::string>& frames, bool isComplete) {
    pid_t process = -1;
    {
      const SilentFileSystem files(place.path());
      const SessionEnd ended = runOneThatSays(frames);
      EXPECT_TRUE(ended.isGivenUp);
      EXPECT_FALSE(ended.isTimedOut) << "by one of its limits instead";
      EXPECT_EQ(ended.isComplete, isComplete);
      process = ended.pid;
      EXPECT_FALSE(reapIfEnded(process));
    }
    EXPECT_TRUE(TestSupport::eventually([process] { return reapIfEnded(process); }));
  }
};

}  // namespace

// One after the other: a kernel that lets go of two at once can spin for 20 s on the names below
// /proc that it drops with them.
TEST_F(WorkerHeldByTheKernel, is_given_up_at_its_end_whatever_it_has_told) {
  expectGivenUp({ready, begin, end, passEnd}, true);
  expectGivenUp({ready, begin}, false);
}

TEST_F(WorkerHeldByTheKernel, does_not_hold_up_an_abort_once_it_has_told_all) {
  limits.killGrace = 60;
  control.abort();
  const auto asked = std::chrono::steady_clock::now();
  expectGivenUp({ready, begin, stopped, passEnd}, true);
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(30));
}

TEST_F(HeldWorker, that_still_does_something_is_left_to_end) {
  std::thread release([this] {
    EXPECT_TRUE(TestSupport::eventually([this] { return observer.hasToldAll.load(); }));
    // Long enough for some looks; when they come late there are fewer of them.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const std::ofstream file(place.file("may-end"));
  });
  const SessionEnd ended = runOneThatSays({ready, begin, end, passEnd});
  release.join();
  EXPECT_FALSE(ended.isGivenUp);
  EXPECT_TRUE(ended.isComplete);
  EXPECT_EQ(ended.process.kind, ProcessEnd::Kind::Exited);
}
