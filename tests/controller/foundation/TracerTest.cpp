// The trace log and the scope that traces one method.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFileOpenException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "tests/controller/foundation/PlatformCalls.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using ::testing::ElementsAre;
using TestSupport::PlatformCalls;
using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;
using TestSupport::TraceLine;

constexpr int kOff = DiagCtrlConstants::DIAG_NO;
constexpr int kError = DiagCtrlConstants::DIAG_ERROR;
constexpr int kWarning = DiagCtrlConstants::DIAG_WARNING;
constexpr int kInformation = DiagCtrlConstants::DIAG_INFORMATION;

/// The tracer of a process that has not traced before, and a log directory of the test's own.
class DiagTracerTest : public ::testing::Test {
 protected:
  void open(int level = kInformation) {
    m_tracer->openTraceFile(m_directory.path().c_str(), level);
  }
  void enter(const char* method, int level = kInformation) { m_tracer->beginTrace(level, method); }
  void leave(const char* method, int level = kInformation) { m_tracer->endTrace(level, method); }
  void line(int level, const char* text = "text") {
    m_tracer->traceValue(level, "File.cpp", 42, text);
  }
  void elsewhere(const std::function<void()>& action) { std::thread(action).join(); }

  /// The lines with their indentation, without the thread.
  std::vector<std::string> indented() const {
    std::vector<std::string> result;
    for (const TraceLine& line : m_file.lines()) {
      result.push_back(std::string(line.indentation, ' ') + line.text);
    }
    return result;
  }
  static std::string prefix() { return "<" + std::to_string(pthread_self()) + "> "; }

  const TemporaryDirectory m_directory;
  const TraceFile m_file{m_directory.path()};
  DiagTracer* m_tracer = DiagTracer::getInstance();
};

// ---- The file ----------------------------------------------------------------------------------

TEST_F(DiagTracerTest, writes_two_empty_lines_when_it_opens_the_file) {
  open();
  EXPECT_THAT(m_file.rawLines(), ElementsAre("", ""));
}

TEST_F(DiagTracerTest, appends_to_what_stands_in_the_file) {
  m_directory.write("DiagnosticController.trace", "from an earlier run\n");
  open();
  enter("A::a");
  EXPECT_THAT(m_file.rawLines(),
              ElementsAre("from an earlier run", "", "", prefix() + "@enter A::a"));
}

TEST_F(DiagTracerTest, writes_to_the_current_directory_when_it_is_given_none) {
  ASSERT_EQ(chdir(m_directory.path().c_str()), 0);
  m_tracer->openTraceFile(nullptr, kInformation);
  enter("A::a");
  EXPECT_TRUE(m_file.contains("@enter A::a"));
}

TEST_F(DiagTracerTest, stays_with_its_file_at_a_second_opening) {
  open(kInformation);
  const TemporaryDirectory other;
  m_tracer->openTraceFile(other.path().c_str(), kError);
  enter("A::a");
  line(kError, "a failure");
  EXPECT_FALSE(std::filesystem::exists(TraceFile(other.path()).path()));
  EXPECT_THAT(
      m_file.rawLines(),
      ElementsAre("", "", "", "", prefix() + "FILE: File.cpp\tLINE: 42\tSTRING: a failure"));
}

TEST_F(DiagTracerTest, has_every_line_in_the_file_at_once) {
  open();
  enter("A::a");
  EXPECT_EQ(m_file.rawLines().size(), 3U);
  line(kInformation);
  EXPECT_EQ(m_file.rawLines().size(), 4U);
  leave("A::a");
  EXPECT_EQ(m_file.rawLines().size(), 5U);
}

TEST_F(DiagTracerTest, makes_no_file_at_level_0_and_none_later) {
  open(kOff);
  EXPECT_FALSE(std::filesystem::exists(m_file.path()));
  m_tracer->setTraceLevel(kInformation);
  enter("A::a");
  line(kError);
  leave("A::a");
  open(kInformation);
  enter("B::b");
  EXPECT_FALSE(std::filesystem::exists(m_file.path()));
}

TEST_F(DiagTracerTest, opens_no_file_for_a_level_that_does_not_exist) {
  for (const int level : {-1, 4, 7}) {
    open(level);
    EXPECT_FALSE(std::filesystem::exists(m_file.path())) << level;
  }
}

TEST_F(DiagTracerTest, tells_that_a_file_cannot_be_opened) {
  const std::string noDirectory = m_directory.write("plain", "");
  for (const std::string& directory : {noDirectory, m_directory.file("missing")}) {
    try {
      m_tracer->openTraceFile(directory.c_str(), kInformation);
      ADD_FAILURE() << directory << " was opened";
    } catch (const DiagCtrlFileOpenException& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::FileOpenException);
      EXPECT_STREQ(failure.getParameter(), "DiagTracer::openTraceFile()");
      EXPECT_STREQ(failure.getFile(), "DiagCtrl/DiagTracer.cpp");
    }
  }
  // The lock was given back, and the lines go nowhere.
  enter("A::a");
  line(kError);
  leave("A::a");
  EXPECT_FALSE(std::filesystem::exists(m_file.path()));
}

TEST_F(DiagTracerTest, opens_a_file_after_one_that_could_not_be_opened) {
  EXPECT_THROW(m_tracer->openTraceFile("/nonexistent/logs", kInformation),
               DiagCtrlFileOpenException);
  open();
  enter("A::a");
  EXPECT_THAT(m_file.rawLines(), ElementsAre("", "", prefix() + "@enter A::a"));
}

TEST_F(DiagTracerTest, looks_at_no_other_directory_once_its_file_is_open) {
  open(kError);
  enter("A::a");
  EXPECT_EQ(m_file.lines().size(), 0U);
  m_tracer->openTraceFile("/nonexistent/logs", kInformation);  // the file is open already
  enter("B::b");
  EXPECT_EQ(m_file.lines().size(), 1U);
}

TEST_F(DiagTracerTest, writes_to_a_regular_file_alone) {
  const std::string kept = m_directory.write("kept", "");
  const std::vector<std::function<void(const std::string&)>> places = {
      [&](const std::string& path) { std::filesystem::create_symlink(kept, path); },
      [&](const std::string& path) { std::filesystem::create_symlink("missing", path); },
      [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
      [](const std::string& path) { std::filesystem::create_directory(path); }};
  for (const auto& take : places) {
    take(m_file.path());
    EXPECT_THROW(open(), DiagCtrlFileOpenException);
    enter("A::a");
    std::filesystem::remove(m_file.path());
  }
  EXPECT_EQ(std::filesystem::file_size(kept), 0U);
  EXPECT_FALSE(std::filesystem::exists(m_directory.file("missing")));
  open();
  enter("A::a");
  EXPECT_EQ(m_file.lines().size(), 1U);
}

/// While it lives no file of the process grows beyond a size, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(std::uintmax_t size) : m_handler(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limit{size, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    signal(SIGXFSZ, m_handler);
  }

 private:
  rlimit m_before{};
  sighandler_t m_handler;
};

TEST_F(DiagTracerTest, does_not_notice_a_full_disk) {
  open();
  const FullDisk full(std::filesystem::file_size(m_file.path()));
  enter("A::a");
  line(kError);
  leave("A::a");
  EXPECT_THROW(open(), DiagCtrlFileOpenException) << "the stream is looked at when it is opened";
}

TEST_F(DiagTracerTest, loses_the_lines_from_before_the_file_is_open) {
  m_tracer->setTraceLevel(kInformation);
  enter("A::early");
  line(kError, "early");
  open();
  leave("A::early");
  EXPECT_THAT(indented(), ElementsAre("@exit A::early"));
}

// ---- Lines --------------------------------------------------------------------------------------

TEST_F(DiagTracerTest, writes_each_kind_of_line_in_its_own_form) {
  open();
  enter("Class::method");
  m_tracer->traceValue(kInformation, "DiagCtrl/Class.cpp", 17, "progress");
  m_tracer->traceValue(kInformation, "DiagCtrl/Class.cpp", 18, "requeueTestRequest()::eQueueStatus",
                       5UL);
  leave("Class::method");
  EXPECT_THAT(m_file.rawLines(),
              ElementsAre("", "", prefix() + "@enter Class::method",
                          prefix() + "FILE: DiagCtrl/Class.cpp\tLINE: 17\tSTRING: progress",
                          prefix() + "FILE: DiagCtrl/Class.cpp\tLINE: 18\tSTRING: "
                                     "requeueTestRequest()::eQueueStatus: 5",
                          prefix() + "@exit Class::method"));
}

TEST_F(DiagTracerTest, writes_values_as_signed_numbers_of_any_length) {
  open();
  enter("A::a");
  const std::map<unsigned long, std::string> values = {
      {0UL, "value: 0"},
      {static_cast<unsigned long>(-1L), "value: -1"},
      {std::numeric_limits<long>::max(), "value: 9223372036854775807"},
      {1UL << 63, "value: -9223372036854775808"}};
  for (const auto& [value, expected] : values) {
    m_tracer->traceValue(kInformation, "File.cpp", 1, "value", value);
    EXPECT_EQ(m_file.texts().back(), "FILE: File.cpp\tLINE: 1\tSTRING: " + expected);
  }
}

TEST_F(DiagTracerTest, writes_every_line_number) {
  open();
  enter("A::a");
  m_tracer->traceValue(kInformation, "File.cpp", std::numeric_limits<int>::min(), "text");
  EXPECT_EQ(m_file.texts().back(), "FILE: File.cpp\tLINE: -2147483648\tSTRING: text");
}

TEST_F(DiagTracerTest, writes_a_null_text_as_a_word) {
  open();
  enter(nullptr);
  m_tracer->traceValue(kInformation, nullptr, 1, nullptr);
  m_tracer->traceValue(kInformation, nullptr, 1, nullptr, 3UL);
  leave(nullptr);
  EXPECT_THAT(m_file.texts(),
              ElementsAre("@enter <null>", "FILE: <null>\tLINE: 1\tSTRING: <null>",
                          "FILE: <null>\tLINE: 1\tSTRING: <null>: 3", "@exit <null>"));
}

TEST_F(DiagTracerTest, writes_the_lines_up_to_its_level) {
  const std::map<int, std::size_t> passing = {
      {kOff, 0}, {kError, 1}, {kWarning, 2}, {kInformation, 3}};
  open();
  enter("A::a");
  for (const auto& [level, expected] : passing) {
    m_tracer->setTraceLevel(level);
    const std::size_t before = m_file.lines().size();
    line(kError);
    line(kWarning);
    line(kInformation);
    EXPECT_EQ(m_file.lines().size() - before, expected) << level;
  }
}

TEST_F(DiagTracerTest, writes_lines_of_level_0_even_when_it_is_off) {
  open();
  enter("A::a");
  m_tracer->setTraceLevel(kOff);
  line(kOff, "level 0");
  EXPECT_TRUE(m_file.contains("level 0"));
}

TEST_F(DiagTracerTest, is_switched_off_by_a_level_that_does_not_exist) {
  open();
  enter("A::a");
  for (const int level : {7, -1, 4}) {
    m_tracer->setTraceLevel(level);
    line(kError);
    EXPECT_EQ(m_file.lines().size(), 1U) << level;
  }
}

TEST_F(DiagTracerTest, is_switched_off_by_opening_with_a_level_that_does_not_exist) {
  open();
  enter("A::a");
  open(7);
  line(kError);
  EXPECT_EQ(m_file.lines().size(), 1U);
}

TEST_F(DiagTracerTest, takes_a_lines_level_that_does_not_exist_for_the_least_important) {
  open();
  for (const int level : {7, -1, 4}) {
    m_tracer->setTraceLevel(kWarning);
    const std::size_t before = m_file.lines().size();
    enter("A::a", level);
    line(level);
    m_tracer->traceValue(level, "File.cpp", 1, "value", 1UL);
    leave("A::a", level);
    EXPECT_EQ(m_file.lines().size(), before) << level;

    m_tracer->setTraceLevel(kInformation);
    enter("A::a", level);
    line(level);
    m_tracer->traceValue(level, "File.cpp", 1, "value", 1UL);
    leave("A::a", level);
    EXPECT_EQ(m_file.lines().size(), before + 4) << level;
  }
}

// ---- Threads and indentation --------------------------------------------------------------------

TEST_F(DiagTracerTest, steps_in_from_the_second_call_on) {
  open();
  enter("A::first");
  enter("A::nested");
  line(kInformation);
  leave("A::nested");
  leave("A::first");
  enter("A::second");
  enter("A::nested");
  leave("A::nested");
  leave("A::second");
  EXPECT_THAT(indented(),
              ElementsAre("@enter A::first", "  @enter A::nested",
                          "  FILE: File.cpp\tLINE: 42\tSTRING: text", "  @exit A::nested",
                          "@exit A::first", "  @enter A::second", "    @enter A::nested",
                          "    @exit A::nested", "  @exit A::second"));
}

TEST_F(DiagTracerTest, keeps_an_empty_indentation_at_an_exit) {
  open();
  enter("A::a");
  leave("A::a");
  leave("A::a");
  leave("A::a");
  enter("B::b");
  EXPECT_THAT(indented(), ElementsAre("@enter A::a", "@exit A::a", "@exit A::a", "@exit A::a",
                                      "  @enter B::b"));
}

TEST_F(DiagTracerTest, indents_each_thread_by_itself) {
  open();
  enter("A::here");
  enter("A::nested");
  elsewhere([&] { enter("B::there"); });
  leave("A::nested");
  EXPECT_THAT(indented(), ElementsAre("@enter A::here", "  @enter A::nested", "@enter B::there",
                                      "  @exit A::nested"));
  EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::here", "@enter A::nested", "@exit A::nested"));
}

TEST_F(DiagTracerTest, writes_no_text_for_a_thread_that_has_not_begun) {
  open();
  line(kError);
  m_tracer->traceValue(kError, "File.cpp", 1, "value", 1UL);
  leave("A::a");
  EXPECT_EQ(m_file.lines().size(), 0U);
}

TEST_F(DiagTracerTest, registers_a_thread_at_any_level) {
  open(kError);
  enter("A::a");
  line(kError, "a failure");
  line(kWarning, "a condition");
  leave("A::a");
  EXPECT_THAT(m_file.texts(), ElementsAre("FILE: File.cpp\tLINE: 42\tSTRING: a failure"));
}

TEST_F(DiagTracerTest, registers_a_thread_before_the_file_is_open) {
  enter("A::early");
  leave("A::early");
  open();
  enter("A::a");
  EXPECT_THAT(indented(), ElementsAre("  @enter A::a"));
}

TEST_F(DiagTracerTest, takes_no_step_for_a_call_that_is_not_written) {
  open(kWarning);
  enter("A::registered");
  enter("A::b");
  enter("A::c");
  line(kError);
  m_tracer->setTraceLevel(kInformation);
  enter("A::d");
  EXPECT_THAT(indented(), ElementsAre("FILE: File.cpp\tLINE: 42\tSTRING: text", "  @enter A::d"));
}

TEST_F(DiagTracerTest, stays_stepped_in_when_the_level_falls_inside_a_call) {
  open();
  enter("A::first");
  enter("A::nested");
  m_tracer->setTraceLevel(kError);
  leave("A::nested");
  leave("A::first");
  m_tracer->setTraceLevel(kInformation);
  enter("A::second");
  EXPECT_THAT(indented(),
              ElementsAre("@enter A::first", "  @enter A::nested", "    @enter A::second"));
}

TEST_F(DiagTracerTest, steps_back_too_far_when_the_level_rises_inside_a_call) {
  open();
  enter("A::first");
  enter("A::nested");
  m_tracer->setTraceLevel(kError);
  enter("A::hidden");
  m_tracer->setTraceLevel(kInformation);
  leave("A::hidden");
  leave("A::nested");
  EXPECT_THAT(indented(), ElementsAre("@enter A::first", "  @enter A::nested", "  @exit A::hidden",
                                      "@exit A::nested"));
}

TEST_F(DiagTracerTest, keeps_the_lines_of_threads_apart) {
  constexpr int kThreads = 6;
  constexpr int kCalls = 60;
  open();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      for (int call = 0; call < kCalls; ++call) {
        enter("A::call");
        line(kInformation, "inside");
        leave("A::call");
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  std::map<unsigned long, std::vector<std::string>> perThread;
  for (const TraceLine& line : m_file.lines()) {
    perThread[line.thread].push_back(line.text);
  }
  std::size_t total = 0;
  for (const auto& [thread, texts] : perThread) {
    for (std::size_t at = 0; at < texts.size(); ++at) {
      static const char* const kTexts[] = {
          "@enter A::call", "FILE: File.cpp\tLINE: 42\tSTRING: inside", "@exit A::call"};
      EXPECT_EQ(texts[at], kTexts[at % 3]);
    }
    total += texts.size();
  }
  EXPECT_EQ(total, std::size_t{kThreads * kCalls * 3});
}

TEST_F(DiagTracerTest, yields_at_an_exit_only) {
  open();
  const PlatformCalls calls;
  enter("A::a");
  line(kInformation);
  const int atEntryAndLine = calls.yields();
  leave("A::a");
  EXPECT_EQ(atEntryAndLine, 2) << "one for each lock taken";
  EXPECT_EQ(calls.yields() - atEntryAndLine, 2) << "one more than for the lock";
}

TEST_F(DiagTracerTest, starts_anew_after_it_was_deleted) {
  open();
  enter("A::a");
  delete m_tracer;
  m_tracer = DiagTracer::getInstance();
  enter("A::untold");
  EXPECT_EQ(m_file.lines().size(), 1U);

  const TemporaryDirectory other;
  m_tracer->openTraceFile(other.path().c_str(), kInformation);
  enter("B::b");
  EXPECT_THAT(TraceFile(other.path()).texts(), ElementsAre("@enter B::b"));
  EXPECT_EQ(m_file.lines().size(), 1U);
}

TEST_F(DiagTracerTest, is_one_for_all_threads_that_ask_first) {
  delete m_tracer;
  std::vector<DiagTracer*> found(8);
  std::vector<std::thread> threads;
  for (DiagTracer*& tracer : found) {
    threads.emplace_back([&tracer] { tracer = DiagTracer::getInstance(); });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(std::set<DiagTracer*>(found.begin(), found.end()).size(), 1U);
}

// ---- The scope of a method ----------------------------------------------------------------------

class TraceScopeTest : public DiagTracerTest {
 protected:
  TraceScopeTest() { open(); }
};

TEST_F(TraceScopeTest, traces_in_and_out) {
  {
    const TraceScope trace(m_tracer, "A::a");
    EXPECT_STREQ(trace.method(), "A::a");
    EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::a"));
  }
  EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::a", "@exit A::a"));
}

TEST_F(TraceScopeTest, writes_the_exit_once_when_it_is_closed_early) {
  {
    TraceScope trace(m_tracer, "A::a");
    trace.close();
    EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::a", "@exit A::a"));
    trace.close();
    trace.error("after the exit");
  }
  EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::a", "@exit A::a"));
}

TEST_F(TraceScopeTest, writes_failures_before_the_exit_when_an_exception_passes) {
  try {
    const TraceScope trace(m_tracer, "A::a");
    const TraceScope nested(m_tracer, "A::nested");
    nested.error("no good", "File.cpp", 7);
    throw 1;
  } catch (int) {
  }
  EXPECT_THAT(m_file.texts(), ElementsAre("@enter A::a", "@enter A::nested",
                                          "FILE: File.cpp\tLINE: 7\tSTRING: no good",
                                          "@exit A::nested", "@exit A::a"));
}

TEST_F(TraceScopeTest, names_the_line_that_traces) {
  const TraceScope trace(m_tracer, "A::a");
  trace.info("here");
  const std::string expected = std::string("FILE: ") + __FILE__ +
                               "\tLINE: " + std::to_string(__LINE__ - 2) + "\tSTRING: here";
  EXPECT_EQ(m_file.texts().back(), expected);
}

TEST_F(TraceScopeTest, gives_failures_conditions_and_progress_their_levels) {
  const TraceScope trace(m_tracer, "A::a");
  const std::map<int, std::size_t> passing = {
      {kOff, 0}, {kError, 2}, {kWarning, 4}, {kInformation, 6}};
  for (const auto& [level, expected] : passing) {
    m_tracer->setTraceLevel(level);
    const std::size_t before = m_file.lines().size();
    trace.error("failure");
    trace.errorValue("failure", 1);
    trace.warning("condition");
    trace.warningValue("condition", 2);
    trace.info("progress");
    trace.infoValue("progress", 3);
    EXPECT_EQ(m_file.lines().size() - before, expected) << level;
  }
  EXPECT_TRUE(m_file.texts().back().ends_with("\tSTRING: progress: 3"));
}

TEST_F(TraceScopeTest, traces_nothing_without_a_tracer) {
  {
    const TraceScope trace(nullptr, "A::a");
    trace.error("failure");
    trace.infoValue("progress", 1);
  }
  EXPECT_EQ(m_file.lines().size(), 0U);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
