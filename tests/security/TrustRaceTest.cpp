// Somebody changes what a path leads to, as fast as possible, while root looks at it and then loads
// it: for kTries looks, or as many as TARVEX_RACE_TRIES says, and for kRuns runs of the program.
// Each look must find the place that another decides on, and no run may go there.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <string>
#include <system_error>

#include "diagctl/session/Safety.h"
#include "tests/diagctl/Program.h"
#include "tests/diagctl/Workplace.h"
#include "tests/security/People.h"
#include "tests/support/Eventually.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::SecurityTest {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
namespace fs = std::filesystem;

constexpr int kTries = TestSupport::kIsSanitized ? 30 : 200;
constexpr int kRuns = TestSupport::kIsSanitized ? 2 : 5;

int tries() {
  const char* const asked = std::getenv("TARVEX_RACE_TRIES");
  return asked != nullptr ? std::atoi(asked) : kTries;
}

/// A process of the stranger's that does one thing over and over.
class Stranger {
 public:
  explicit Stranger(const std::function<void()>& act)
      : m_rounds(new (mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<long>(0)),
        m_process(fork()) {
    if (m_process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (setgid(kStranger) != 0 || setuid(kStranger) != 0) {
        _exit(1);
      }
      for (;;) {
        act();
        ++*m_rounds;
      }
    }
  }
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;
  ~Stranger() {
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
    munmap(m_rounds, sizeof(std::atomic<long>));
  }

  bool hasBegun() const {
    return TestSupport::eventually([this] { return *m_rounds > 0; });
  }

 private:
  std::atomic<long>* m_rounds;
  pid_t m_process;
};

/// A control file of root's whose directory of packages is a link of root's, and a directory of
/// packages of root's and one of the stranger's, for that to lead to.
class TrustRace : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    place.addPackage("GOOD", {{.name = "Good"}}, {{"One", "bus/one"}});
    other.addPackage("EVIL", {{.name = "Evil"}}, {{"One", "bus/one"}});
    const std::string home = place.path("home");
    fs::create_directory(home);
    fs::rename(other.path("packages"), evil);
    giveAll(home, kStranger);
    for (const std::string& directory :
         {fs::path(place.controlFile()).parent_path().string(), home}) {
      fs::permissions(directory, fs::perms(0755));
    }
    fs::create_directory(place.path("shared"));
    fs::permissions(place.path("shared"), fs::perms(01777));
    place.usePackages(link);
  }

  /// Each look finds a place that is not root's alone.
  void expectFindings(const std::string& untrusted) const {
    for (int index = 0; index < tries(); ++index) {
      ASSERT_THAT(FrontEnd::findInsecureFiles(place.controlFile(), link),
                  Contains(StartsWith(untrusted + ": ")))
          << "in try " << index;
    }
  }

  /// The program refuses for that place, and for nothing else: without it, it runs.
  void expectRefusals(const std::string& untrusted) {
    SKIP_UNLESS_BUILD_IS_TRUSTED();
    for (int index = 0; index < kRuns; ++index) {
      const DiagctlTest::Outcome refused = list();
      ASSERT_EQ(refused.exitCode, 2) << refused.out << refused.err;
      ASSERT_THAT(refused.err, HasSubstr("\n  " + untrusted + ": ")) << "in run " << index;
      ASSERT_THAT(refused.out, Not(HasSubstr("EVIL"))) << "in run " << index;
      place.replaceIn(place.controlFile(), "PackDirPath=" + link, "PackDirPath=" + good);
      ASSERT_THAT(list().out, HasSubstr("GOOD")) << "in run " << index;
      place.usePackages(link);
    }
  }

  DiagctlTest::Outcome list() const {
    return DiagctlTest::diagctl({"--config", place.controlFile(), "list"});
  }

  /// The stranger turns a link in a directory of its own around, to which root's link leads.
  void turnLink() const {
    const std::string next = place.path("home/next");
    std::error_code ignored;
    for (const std::string& target : {good, evil}) {
      fs::create_symlink(target, next, ignored);
      fs::rename(next, turning, ignored);
    }
  }

  /// The stranger puts its directory where root's link leads, and takes it away.
  void putAndTake() const {
    std::error_code ignored;
    fs::rename(evil, putInPlace, ignored);
    fs::rename(putInPlace, evil, ignored);
  }

  void leadOverTheStrangersLink() const {
    fs::create_symlink(turning, link);
    fs::create_symlink(good, turning);
    give(turning, kStranger);
  }
  void leadToWhatIsMissing() const { fs::create_symlink(putInPlace, link); }

  DiagctlTest::Workplace place;
  DiagctlTest::Workplace other;
  const std::string good = place.path("packages");
  const std::string evil = place.path("home/evil");
  const std::string link = place.path("link");
  const std::string turning = place.path("home/turning");
  const std::string putInPlace = place.path("shared/packages");
};

TEST_F(TrustRace, loads_what_was_looked_at_where_nobody_else_decides) {
  SKIP_UNLESS_BUILD_IS_TRUSTED();
  fs::create_symlink(good, link);
  EXPECT_THAT(FrontEnd::findInsecureFiles(place.controlFile(), link), IsEmpty());
  EXPECT_THAT(list().out, HasSubstr("GOOD"));
}

TEST_F(TrustRace, a_link_that_another_turns_around_is_always_found) {
  leadOverTheStrangersLink();
  const Stranger stranger([this] { turnLink(); });
  ASSERT_TRUE(stranger.hasBegun());
  expectFindings(turning);
}

TEST_F(TrustRace, a_directory_that_another_puts_in_place_is_always_found) {
  leadToWhatIsMissing();
  const Stranger stranger([this] { putAndTake(); });
  ASSERT_TRUE(stranger.hasBegun());
  expectFindings(putInPlace);
}

TEST_F(TrustRace, the_program_never_runs_behind_a_link_that_another_turns_around) {
  leadOverTheStrangersLink();
  const Stranger stranger([this] { turnLink(); });
  ASSERT_TRUE(stranger.hasBegun());
  expectRefusals(turning);
}

TEST_F(TrustRace, the_program_never_runs_in_a_directory_that_another_puts_in_place) {
  leadToWhatIsMissing();
  const Stranger stranger([this] { putAndTake(); });
  ASSERT_TRUE(stranger.hasBegun());
  expectRefusals(putInPlace);
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
