// What the program and its packages write goes where root wants it, whatever others put in its way.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "diagctl/report/OutputFile.h"
#include "diagctl/session/Configuration.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/security/People.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::contentsOf;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class UmaskScope {
 public:
  explicit UmaskScope(mode_t mask) : m_before(umask(mask)) {}
  UmaskScope(const UmaskScope&) = delete;
  UmaskScope& operator=(const UmaskScope&) = delete;
  ~UmaskScope() { umask(m_before); }

 private:
  mode_t m_before;
};

unsigned int modeOf(const std::string& path) {
  return static_cast<unsigned int>(fs::status(path).permissions());
}

std::string openedFile(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

/// Two connected ends that are a stranger's, as what sudo was started with is.
struct Connection {
  int reads = -1;
  int writes = -1;

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    close(reads);
    close(writes);
  }

  std::string read() const {
    fcntl(reads, F_SETFL, O_NONBLOCK);
    std::string text(4096, '\0');
    const ssize_t count = ::read(reads, text.data(), text.size());
    return text.substr(0, count < 0 ? 0 : static_cast<std::size_t>(count));
  }
};

struct PipeOfStranger : Connection {
  PipeOfStranger() {
    int ends[2] = {-1, -1};
    const bool isMade = seteuid(kStranger) == 0 && pipe(ends) == 0;
    if (seteuid(0) != 0 || !isMade) {
      throw std::system_error(errno, std::generic_category(), "a pipe");
    }
    reads = ends[0];
    writes = ends[1];
  }
};

struct TerminalOfStranger : Connection {
  TerminalOfStranger() {
    if (openpty(&reads, &writes, nullptr, nullptr, nullptr) != 0 ||
        fchown(writes, kStranger, kStranger) != 0) {
      throw std::system_error(errno, std::generic_category(), "a terminal");
    }
  }
};

/// From now on whoever sets the umask dies of it.
void forbidUmask() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_umask, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{.len = std::size(program), .filter = program};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    _exit(1);
  }
}

class WhatIsWritten : public DiagctlTest::Diagctl {
 protected:
  WhatIsWritten() {
    addMixedPackage();
    place.write(kept, "kept");
    fs::create_directory(place.path("shared"));
    fs::permissions(place.path("shared"), fs::perms(01777));
  }

  Outcome report(const std::string& format, const std::string& file,
                 const Program::Options& options = {}) {
    return run({"--allow-insecure", "run", "-q", "-t", "Good", "-o", format + "=" + file}, options);
  }

  void traceEverything() const {
    place.replaceIn(place.controlFile(), "DebugLog=DIAG_NO", "DebugLog=DIAG_INFORMATION");
  }

  const std::string kept = place.path("kept");
  const std::string theirLink = place.path("shared/run");
  const std::string trace = place.path("logs/DiagnosticController.trace");
};

TEST_F(WhatIsWritten, as_a_log_follows_no_link_of_another_to_what_is_roots) {
  SKIP_UNLESS_ROOT();
  const std::string link = place.path("run");  // of a sticky directory the kernel may keep it off
  fs::create_symlink(kept, link);
  give(link, kStranger);
  const Outcome outcome = report("jsonl", link);
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr(link + ": Too many levels of symbolic links"));
  EXPECT_EQ(contentsOf(kept), "kept");
}

TEST_F(WhatIsWritten, as_a_log_follows_links_of_ones_own) {
  fs::create_symlink("kept", place.path("link"));
  fs::create_symlink(place.path("link"), place.path("chain"));
  EXPECT_EQ(report("jsonl", place.path("chain")).exitCode, DiagctlTest::kPassed);
  EXPECT_THAT(contentsOf(kept), HasSubstr("kept\n{"));
}

TEST_F(WhatIsWritten, as_a_log_goes_into_what_the_program_has_open) {
  EXPECT_THAT(report("jsonl", "/dev/stdout").out, HasSubstr("testRunEnd"));
}

// A report beside the link, renamed, would take the place of root's own /dev/stdout.
TEST_F(WhatIsWritten, as_a_report_replaces_no_link_to_what_the_program_has_open) {
  Program::Options options;
  options.standardOutput = place.path("out");
  std::ofstream(options.standardOutput) << "before\n";
  const std::string link = place.path("link");
  fs::create_symlink("/proc/self/fd/1", link);
  EXPECT_EQ(report("tap", link, options).exitCode, DiagctlTest::kPassed);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_THAT(contentsOf(options.standardOutput), HasSubstr("passed"));
}

// A file opened anew has a place of its own where writing goes on, and so the one takes the
// other's.
TEST_F(WhatIsWritten, as_a_log_and_on_standard_output_is_whole_where_both_are_one_file) {
  for (const std::string path : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"}) {
    Program::Options options;
    options.standardOutput = place.path("out");
    std::ofstream(options.standardOutput) << "";
    EXPECT_EQ(report("jsonl", path, options).exitCode, DiagctlTest::kPassed);
    const std::string written = contentsOf(options.standardOutput);
    for (const char* text : {R"({"schemaVersion")", R"({"testRunArtifact":{"testRunStart")",
                             R"({"testRunArtifact":{"testRunEnd")", "2 passed\n"}) {
      EXPECT_THAT(written, HasSubstr(text)) << path;
    }
  }
}

TEST_F(WhatIsWritten, as_a_log_goes_into_a_socket_that_the_program_has_open) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  FrontEnd::streamTo(FrontEnd::openOutput(openedFile(ends[1]), true, "socket"))->write("here\n", 5);
  std::string text(5, '\0');
  EXPECT_EQ(read(ends[0], text.data(), text.size()), 5);
  EXPECT_EQ(text, "here\n");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(WhatIsWritten, as_a_log_goes_into_a_pipe_of_whoever_called_sudo) {
  SKIP_UNLESS_ROOT();
  const PipeOfStranger pipe;
  Program::Options options;
  options.standardOutput = openedFile(pipe.writes);
  const Outcome outcome = report("jsonl", "/dev/stdout", options);
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kPassed) << outcome.err;
  EXPECT_THAT(pipe.read(), HasSubstr("testRun"));
}

TEST_F(WhatIsWritten, goes_into_the_terminal_of_whoever_called_sudo_that_the_program_has_open) {
  SKIP_UNLESS_ROOT();
  const TerminalOfStranger terminal;
  fs::create_symlink(openedFile(terminal.writes), place.path("link"));
  for (const std::string& path : {openedFile(terminal.writes), place.path("link")}) {
    FrontEnd::streamTo(FrontEnd::openOutput(path, true, path))->write("here\n", 5);
    EXPECT_EQ(terminal.read(), "here\r\n") << path;
  }
}

TEST_F(WhatIsWritten, goes_into_no_terminal_of_another_that_is_named) {
  SKIP_UNLESS_ROOT();
  const TerminalOfStranger terminal;
  const std::string path = ttyname(terminal.writes);
  EXPECT_THROW(FrontEnd::openOutput(path, true, path), std::system_error);
}

TEST_F(WhatIsWritten, goes_into_no_pipe_of_another_and_waits_for_no_reader) {
  const std::string pipe = place.path("shared/pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  EXPECT_THAT(report("tap", pipe).err, HasSubstr(pipe + ": No such device or address"));
  if (!canActForOthers()) {
    return;
  }
  give(pipe, kStranger);
  const std::fstream reader(pipe);  // for both directions, so that it waits for nobody
  EXPECT_THAT(report("tap", pipe).err, HasSubstr(pipe + ": "));
}

TEST_F(WhatIsWritten, as_a_report_takes_the_place_of_a_link_and_leaves_what_that_led_to) {
  fs::create_symlink(kept, theirLink);
  if (canActForOthers()) {
    give(theirLink, kStranger);
  }
  EXPECT_EQ(report("tap", theirLink).exitCode, DiagctlTest::kPassed);
  EXPECT_EQ(contentsOf(kept), "kept");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(theirLink)));
  EXPECT_THAT(contentsOf(theirLink), HasSubstr("ok 1"));
}

TEST_F(WhatIsWritten, as_a_report_has_the_permissions_that_the_umask_leaves) {
  for (const mode_t mask : {0U, 002U, 027U}) {
    const UmaskScope scope(mask);
    for (const char* format : {"tap", "jsonl"}) {
      const std::string file = place.path(format + std::to_string(mask));
      EXPECT_EQ(report(format, file).exitCode, DiagctlTest::kPassed);
      EXPECT_EQ(modeOf(file), 0666U & ~mask) << file;
    }
  }
}

TEST_F(WhatIsWritten, as_pages_goes_into_no_directory_by_a_link_of_another) {
  SKIP_UNLESS_ROOT();
  const std::string log = place.path("run.jsonl");
  run({"--allow-insecure", "run", "-q", "-t", "Good", "-o", "jsonl=" + log});
  fs::create_directory(place.path("roots"));
  const std::string link = place.path("pages");
  fs::create_symlink(place.path("roots"), link);
  EXPECT_EQ(DiagctlTest::diagctl({"report", log, "--split", link}).exitCode, DiagctlTest::kPassed)
      << "it is root's own";
  fs::remove_all(place.path("roots"));
  fs::create_directory(place.path("roots"));
  give(link, kStranger);
  for (const std::string& path : {link, link + "/", link + "/."}) {
    const Outcome outcome = DiagctlTest::diagctl({"report", log, "--split", path});
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
    EXPECT_THAT(outcome.err, HasSubstr(path + ": Too many levels of symbolic links"));
    EXPECT_TRUE(fs::is_empty(place.path("roots")));
  }
}

TEST_F(WhatIsWritten, as_pages_takes_the_place_of_links_and_has_the_permissions_of_the_umask) {
  const std::string log = place.path("run.jsonl");
  run({"--allow-insecure", "run", "-q", "-t", "Good", "-o", "jsonl=" + log});
  const std::string pages = place.path("pages");
  fs::create_directory(pages);
  fs::create_symlink(kept, pages + "/index.html");
  for (const mode_t mask : {0U, 027U}) {
    const UmaskScope scope(mask);
    EXPECT_EQ(DiagctlTest::diagctl({"report", log, "--split", pages}).exitCode,
              DiagctlTest::kPassed);
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(pages)) {
      EXPECT_TRUE(fs::is_regular_file(entry.symlink_status())) << entry.path();
      EXPECT_EQ(modeOf(entry.path()), 0666U & ~mask) << entry.path();
      ++count;
    }
    EXPECT_EQ(count, 2U) << "nothing else is left behind";
  }
  EXPECT_EQ(contentsOf(kept), "kept");
}

TEST_F(WhatIsWritten, as_a_report_leaves_the_umask_to_what_other_threads_write) {
  const auto makeReport = [this] {
    forbidUmask();
    std::string made;
    FrontEnd::makeBeside(place.path("report"), made, "report");
    _exit(modeOf(made) == 0640 ? 0 : 1);
  };
  const UmaskScope scope(027);
  EXPECT_EXIT(makeReport(), ::testing::ExitedWithCode(0), "");
}

TEST_F(WhatIsWritten, as_the_programs_own_control_file_is_nobody_elses_whatever_the_umask) {
  for (const mode_t mask : {0U, 002U, 022U}) {
    const UmaskScope scope(mask);
    const auto made = FrontEnd::Configuration::make(place.path("packages"));
    EXPECT_EQ(modeOf(made.path()), 0600U);
    EXPECT_THAT(contentsOf(made.path()), HasSubstr(place.path("packages")));
    EXPECT_EQ(DiagctlTest::diagctl({"--config", made.path(), "list"}).exitCode,
              DiagctlTest::kPassed);
  }
}

TEST_F(WhatIsWritten, as_packages_with_settings_is_nobody_elses_whatever_the_umask) {
  for (const mode_t mask : {0U, 002U, 022U, 077U}) {
    const UmaskScope scope(mask);
    const Outcome outcome =
        run({"list", "--set", "MIX.Depth=3", "--packages", place.path("packages")});
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kPassed) << outcome.err;
  }
}

TEST_F(WhatIsWritten, as_a_kept_result_is_nobody_elses_whatever_the_umask) {
  for (const mode_t mask : {0U, 002U, 022U, 077U}) {
    const UmaskScope scope(mask);
    const std::string state = place.path("state" + std::to_string(mask) + "/below");
    for (const bool isCached : {false, true}) {
      std::vector<std::string> words = {"health", "--state", state, "-t", "Good"};
      if (isCached) {
        words.insert(words.end(), {"--cached", "1h"});
      }
      const Outcome outcome = run(words);
      EXPECT_EQ(outcome.exitCode, DiagctlTest::kPassed) << outcome.out << outcome.err;
    }
  }
}

TEST_F(WhatIsWritten, as_metrics_is_readable_to_those_who_collect_them) {
  for (const mode_t mask : {0U, 077U}) {
    const UmaskScope scope(mask);
    const std::string folder = place.path("metrics" + std::to_string(mask));
    fs::create_directory(folder);
    EXPECT_EQ(run({"run", "-t", "Good", "--textfile", folder}).exitCode, DiagctlTest::kPassed);
    for (const auto& entry : fs::directory_iterator(folder)) {
      EXPECT_EQ(modeOf(entry.path().string()), 0644U) << entry.path();
    }
  }
}

TEST_F(WhatIsWritten, as_a_trace_follows_no_link) {
  traceEverything();
  fs::create_symlink(kept, trace);
  EXPECT_THAT(run({"list"}).out, HasSubstr("MIX"));
  EXPECT_EQ(contentsOf(kept), "kept");
  fs::remove(trace);
  run({"list"});
  EXPECT_THAT(contentsOf(trace), HasSubstr("@enter"));
}

TEST_F(WhatIsWritten, as_a_trace_waits_for_no_reader_of_a_pipe) {
  traceEverything();
  ASSERT_EQ(mkfifo(trace.c_str(), 0600), 0);
  Program program(withControlFile({"list"}));
  EXPECT_THAT(program.finish(std::chrono::seconds(60)).out, HasSubstr("MIX"));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
