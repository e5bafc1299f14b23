// The program on a pseudo-terminal: bars, keys, colours.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "tests/diagctl/Program.h"
#include "tests/diagctl/Workplace.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

class DiagctlTerminal : public ::testing::Test {
 protected:
  DiagctlTerminal() {
    place.addPackage("SLOW", {{.name = "Long", .milliseconds = 60'000}},
                     {{"One", "bus/one"}, {"Two", "bus/two"}});
    place.addPackage("QUICK", {{.name = "Short", .milliseconds = 300}}, {{"Three", "bus/three"}});
    terminal.onTerminal = true;
  }

  std::vector<std::string> arguments(std::vector<std::string> more) {
    more.insert(more.begin(), {"--config", place.controlFile(), "run"});
    return more;
  }

  Workplace place;
  Program::Options terminal;
};

TEST_F(DiagctlTerminal, shows_bar_percentage_pass_and_total) {
  place.addPackage("HELD", {{.name = "Held", .behaviour = "pass,held", .milliseconds = 300}},
                   {{"Four", "bus/four"}});
  Program program(arguments({"-p", "HELD", "--passes", "2"}), terminal);
  EXPECT_TRUE(program.waitFor("[####################] 100% pass 2/2"));
  EXPECT_TRUE(program.waitFor("0 of 1 ended"));
  place.write(place.packageFile("HELD") + ".go", "");
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, HasSubstr("Held on Four"));
  EXPECT_THAT(outcome.out, HasSubstr("\033[32mPASSED"));
}

TEST_F(DiagctlTerminal, q_aborts_all) {
  Program program(arguments({"-p", "SLOW"}), terminal);
  ASSERT_TRUE(program.waitFor("Long on One"));
  ASSERT_TRUE(program.waitFor("Long on Two"));
  program.type("q");
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.out, HasSubstr("2 aborted"));
}

// What was told fills the terminal, which nobody reads until the test was aborted.
TEST_F(DiagctlTerminal, q_is_answered_before_a_flood_of_events_was_told) {
  place.addPackage(
      "FLOOD",
      {{.name = "Floods", .milliseconds = 60'000, .more = "Raises=warning\nEvent=8\nRepeats=2000"}},
      {{"Four", "bus/four"}});
  Program program(arguments({"-p", "FLOOD", "--format", "jsonl"}), terminal);
  ASSERT_TRUE(program.waitFor("Floods on Four  ["));
  program.type("q");
  ASSERT_TRUE(TestSupport::eventually(
      [this] { return std::filesystem::exists(place.packageFile("FLOOD") + ".aborted"); }));
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.out, HasSubstr("line 3 is weak."));
  EXPECT_LT(outcome.out.find("Floods on Four  [....................]   0% 0:00 ending"),
            outcome.out.find("line 3 is weak."));
}

TEST_F(DiagctlTerminal, a_aborts_one_and_the_others_go_on) {
  Program program(arguments({"-p", "SLOW"}), terminal);
  ASSERT_TRUE(program.waitFor("Long on One  [") && program.waitFor("Long on Two  ["));
  program.type("a");
  // The one that began first, and either may.
  ASSERT_TRUE(program.waitFor("abort Long on "));
  program.type("\033[B");
  ASSERT_TRUE(program.waitFor("abort Long on One?") && program.waitFor("abort Long on Two?"));
  program.type("\n");
  EXPECT_TRUE(program.waitFor("1 of 2 ended"));
  program.type("a\n");
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.out, HasSubstr("2 aborted"));
}

TEST_F(DiagctlTerminal, keys_without_a_meaning_abort_nothing) {
  place.addPackage("HELD", {{.name = "Held", .behaviour = "held"}}, {{"Four", "bus/four"}});
  Program program(arguments({"-p", "HELD"}), terminal);
  ASSERT_TRUE(program.waitFor("Held on Four  ["));
  program.type("\033Oq\033[1;5qax\n");
  ASSERT_TRUE(program.waitFor("abort Held on Four?"));
  program.type("?");
  ASSERT_TRUE(program.waitFor("? hide this help"));
  place.write(place.packageFile("HELD") + ".go", "");
  EXPECT_EQ(program.finish().exitCode, 0);
}

TEST_F(DiagctlTerminal, s_suspends_and_r_resumes) {
  place.addPackage("MID", {{.name = "Middle", .behaviour = "held"}}, {{"Four", "bus/four"}});
  Program program(arguments({"-p", "MID"}), terminal);
  ASSERT_TRUE(program.waitFor("Middle on Four"));
  program.type("s");
  EXPECT_TRUE(program.waitFor("suspended"));
  place.write(place.packageFile("MID") + ".go", "");
  EXPECT_FALSE(program.waitFor("PASSED", std::chrono::seconds(3)));
  program.type("r");
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
}

TEST_F(DiagctlTerminal, interrupt_typed_once_ends_the_run_with_its_report) {
  Program program(arguments({"-p", "SLOW"}), terminal);
  ASSERT_TRUE(program.waitFor("Long on One"));
  ASSERT_TRUE(program.waitFor("Long on Two"));
  program.type("\x03");
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
  EXPECT_THAT(outcome.out, HasSubstr("2 aborted"));
}

TEST_F(DiagctlTerminal, interrupt_typed_twice_leaves_at_once) {
  place.addPackage("DEAF", {{.name = "Hears nothing", .behaviour = "deaf", .milliseconds = 60'000}},
                   {{"Four", "bus/four"}});
  Program program(arguments({"-p", "DEAF"}), terminal);
  ASSERT_TRUE(program.waitFor("Hears nothing on Four"));
  program.type("\x03");
  ASSERT_TRUE(program.waitFor("Interrupted: what still runs is ended."));
  program.type("\x03");
  const Outcome outcome = program.finish(std::chrono::seconds(10));
  EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
  EXPECT_THAT(outcome.out, Not(HasSubstr("skipped")));
}

TEST_F(DiagctlTerminal, the_clock_goes_on_while_a_test_tells_nothing) {
  place.addPackage("DEAF", {{.name = "Hears nothing", .behaviour = "deaf", .milliseconds = 4000}},
                   {{"Four", "bus/four"}});
  const Outcome outcome = diagctl(arguments({"-p", "DEAF"}), terminal);
  EXPECT_EQ(outcome.exitCode, 0);
  // Which seconds are drawn is the machine's affair; a clock that stands still shows one.
  static const std::regex kClock("Hears nothing on Four  \\[\\.+\\]   0% (\\d:\\d\\d) left -");
  std::set<std::string> shown;
  for (std::sregex_iterator match(outcome.out.begin(), outcome.out.end(), kClock), end;
       match != end; ++match) {
    shown.insert((*match)[1]);
  }
  EXPECT_THAT(shown, SizeIs(Ge(2)));
}

TEST_F(DiagctlTerminal, no_color_is_honoured) {
  terminal.environment["NO_COLOR"] = "1";
  const Outcome outcome = diagctl(arguments({"-p", "QUICK"}), terminal);
  EXPECT_THAT(outcome.out, HasSubstr("PASSED"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("\033[32m")));
}

TEST_F(DiagctlTerminal, quiet_draws_nothing) {
  const Outcome outcome = diagctl(arguments({"-p", "QUICK", "--quiet"}), terminal);
  EXPECT_THAT(outcome.out, Not(HasSubstr("ended,")));
}

TEST_F(DiagctlTerminal, elsewhere_there_is_a_plain_line_for_each_test_and_nothing_else) {
  const Outcome outcome = diagctl(arguments({"-p", "QUICK"}));
  EXPECT_EQ(outcome.err, "running  Package QUICK: Short on Three (0 of 1 ended)\n");
  EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));
}

TEST_F(DiagctlTerminal, a_terminal_that_cannot_move_its_cursor_gets_plain_lines) {
  for (const char* name : {"dumb", ""}) {
    terminal.environment["TERM"] = name;
    terminal.environment["NO_COLOR"] = "1";
    const Outcome outcome = diagctl(arguments({"-p", "QUICK"}), terminal);
    EXPECT_THAT(outcome.out, HasSubstr("running  Package QUICK: Short on Three (0 of 1 ended)"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
