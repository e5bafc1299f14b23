// How the program answers to what is typed: slips, beginnings of names, and requests for help.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

struct Slip {
  std::vector<std::string> words;
  std::string message;  ///< the first line behind the name of the program
};

void PrintTo(const Slip& slip, std::ostream* out) {
  *out << ::testing::PrintToString(slip.words);
}

class Slips : public ::testing::TestWithParam<Slip> {};

TEST_P(Slips, are_told_in_the_programs_own_words) {
  const Outcome outcome = diagctl(GetParam().words);
  EXPECT_EQ(outcome.exitCode, kUsage);
  EXPECT_THAT(outcome.out, IsEmpty());
  const std::vector<std::string> lines = linesOf(outcome.err);
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], "diagctl: " + GetParam().message);
  EXPECT_THAT(lines[1], AllOf(StartsWith("\"diagctl help"), HasSubstr("tells what is possible")));
}

const std::string kTimes =
    " is no time; it is a whole number above 0, of seconds or with s, m, h or d behind it: 90s, "
    "10m, 2h, 1d";

INSTANTIATE_TEST_SUITE_P(
    OfVerbs, Slips,
    ::testing::Values(
        Slip{{"rum"}, "'rum' is no verb; did you mean 'run'?"},
        Slip{{"walk"},
             "'walk' is none of the verbs: list, show, explain, inventory, run, watch, health, "
             "estimate, report, merge, check, selftest, help, version"},
        Slip{{"e"}, "'e' may be 'explain' or 'estimate'"},
        Slip{{"help", "estimte"}, "'estimte' is no verb; did you mean 'estimate'?"},
        Slip{{"list", "tets"},
             "list: 'tets' is none of packages, devices, tests; did you mean 'tests'?"},
        Slip{{"show"}, "ITEM is missing"}, Slip{{"report"}, "LOG is missing"},
        Slip{{"merge"}, "LOG is missing"},
        Slip{{"merge", "-", "-"}, "standard input holds one log, and is named twice"},
        Slip{{"show", "one", "two"}, "'two' is a word too many"},
        Slip{{"check", "it"}, "'it' is no option, and nothing else is taken here"},
        Slip{{"inventory", "it"}, "'it' is no option, and nothing else is taken here"},
        Slip{{"inventory", "check"}, "--against is missing: what the machine should be"},
        Slip{{"inventory", "check", "--against", "a", "b"},
             "'b' is no option, and nothing else is taken here"},
        Slip{{"inventory", "golden"}, "FILE is missing"},
        Slip{{"inventory", "golden", "a", "b", "c"},
             "of 3 machines there is no majority that means anything; at least 4 are needed"},
        Slip{{"inventory", "diff", "a"}, "OTHER is missing"},
        Slip{{"inventory", "diff", "a", "b", "c"}, "'c' is a word too many"},
        Slip{{"inventory", "--against", "a"},
             "there is no option '--against' here; it is one of inventory check"}));

INSTANTIATE_TEST_SUITE_P(
    OfOptions, Slips,
    ::testing::Values(
        Slip{{"run", "--halt-on-eror"},
             "there is no option '--halt-on-eror'; did you mean '--halt-on-error'?"},
        Slip{{"run", "-x"}, "there is no option '-x'"},
        Slip{{"run", "--ex"},
             "'--ex' may be '--exclude-package', '--exclude-device', '--exclude-test', "
             "'--expect-devices' or '--exit-style'"},
        Slip{{"--quick", "run"}, "'--quick' stands behind its verb: \"diagctl run --quick\""},
        Slip{{"check", "--quick"},
             "there is no option '--quick' here; it is one of run, health, estimate"},
        Slip{{"run", "--serial", "--parallel"}, "--serial and --parallel exclude each other"},
        Slip{{"run", "--seed", "1", "--seed", "2"}, "--seed is given twice"},
        Slip{{"run", "--dry-run", "-o", "tap=x"},
             "--output: --dry-run runs nothing that a report could tell of"},
        Slip{{"list", "--lang", "xx"}, "--lang: 'xx' is none of en, de, fr, es, zh, ja"},
        Slip{{"run", "--dry-run", "--textfile", "x"},
             "--textfile: --dry-run runs nothing that a report could tell of"},
        Slip{{"health", "--cached", "1h", "--textfile", "x"},
             "--textfile: --cached checks nothing that metrics could tell of"},
        Slip{{"health", "--drain"}, "--drain: only style slurm knows a node"},
        Slip{{"health", "--style", "slrum"},
             "--style: 'slrum' is none of plain, slurm, nagios, npd, nhc; did you mean 'slurm'?"},
        Slip{{"run", "--split", "x"}, "there is no option '--split' here; it is one of report"},
        Slip{{"report", "a", "--split", "/dev/null"}, "--split: '/dev/null' is no directory"},
        Slip{{"report", "a", "--split", "x", "-o", "html=y"},
             "--split: the page goes into 'x', and --output names another place for it"},
        Slip{{"report", "/dev/a.html", "--split", "/dev/"},
             "--split: a page could take the place of '/dev/a.html'"},
        Slip{{"run", "--quick=yes"}, "--quick takes no value, and 'yes' is one"}));

INSTANTIATE_TEST_SUITE_P(
    OfValues, Slips,
    ::testing::Values(
        Slip{{"run", "-p"}, "--package needs a value: PATTERN"},
        Slip{{"run", "--seed="}, "--seed needs a value: N"},
        Slip{{"run", "--profile", "extendet"},
             "--profile: 'extendet' is none of quick, standard, extended; did you mean "
             "'extended'?"},
        Slip{{"run", "--mode", "vacation"},
             "--mode: 'vacation' is none of customer, factory, bringup"},
        Slip{{"run", "--format", "t"}, "--format: 't' may be 'text' or 'tap'"},
        Slip{{"run", "-o", "junti=x"},
             "--output: 'junti=x' is not FORMAT=FILE with text, jsonl, junit, tap or html; did "
             "you mean 'junit'?"},
        Slip{{"run", "--passes", "many"},
             "--passes: 'many' is no whole number from 1 to 1000000000"},
        Slip{{"run", "--seed", "0"},
             "--seed: '0' is no whole number from 1 to 9223372036854775807"},
        Slip{{"run", "--expect-devices", "few"},
             "--expect-devices: 'few' is no whole number from 0 on"},
        Slip{{"run", "--time", "0"}, "--time: '0'" + kTimes},
        Slip{{"run", "--time", "1w"}, "--time: '1w'" + kTimes},
        Slip{{"run", "--total-time", "99999999999999999d"},
             "--total-time: '99999999999999999d'" + kTimes}));

TEST_F(Diagctl, an_option_as_the_value_of_another_is_refused_and_runs_nothing) {
  addMixedPackage();
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"run", "-p", "MIX", "-p", "--dry-run"},
                                             {"run", "-t", "-q"},
                                             {"run", "--test=--dry-run"},
                                             {"run", "-t-q"},
                                             {"run", "--time", "-1"},
                                             {"run", "-o", "--strict"},
                                             {"list", "--lang", "--config"},
                                             {"--config", "--allow-insecure", "list"}}) {
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitCode, kUsage) << ::testing::PrintToString(words);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr("begins with \"-\" as options do"));
  }
}

TEST_F(Diagctl, a_word_that_looks_like_an_option_stands_behind_two_hyphens) {
  const Outcome outcome = run({"explain", "--", "--profile"});
  EXPECT_EQ(outcome.exitCode, kNothingRan);
  EXPECT_THAT(outcome.err, HasSubstr("'--profile'"));
}

TEST_F(Diagctl, names_may_be_cut_where_they_stay_the_only_ones) {
  addMixedPackage();
  const std::string good = "run   Package MIX: Good on Left";
  const auto lines = [&](const std::vector<std::string>& words) { return linesOf(run(words).out); };
  EXPECT_THAT(lines({"ru", "--dry", "--tes", "Good", "--dev=Left"}), ElementsAre(good));
  EXPECT_THAT(lines({"run", "--dry-run", "-tGood", "-d=Left", "--prof", "q"}), ElementsAre(good));
  EXPECT_THAT(lines({"run", "-qd", "Left", "--dry-run", "-t", "Good"}), ElementsAre(good));
  EXPECT_THAT(run({"list", "dev"}).out, HasSubstr("bus/left"));
}

TEST_F(Diagctl, an_option_that_repeats_takes_one_value_at_a_time) {
  addMixedPackage();
  EXPECT_EQ(run({"show", "--lang", "en", "Good"}).exitCode, kPassed);
  EXPECT_THAT(linesOf(run({"run", "--dry-run", "-t", "Good", "-t", "Bad", "-d", "Left"}).out),
              SizeIs(2));
}

TEST_F(Diagctl, words_behind_two_hyphens_are_no_options) {
  addMixedPackage();
  EXPECT_THAT(run({"show", "--", "-q"}).err, HasSubstr("'-q'"));
  EXPECT_THAT(run({"show", "--", "run"}).err, HasSubstr("'run'"));
}

TEST_F(Diagctl, without_a_verb_it_lists_the_verbs) {
  const Outcome outcome = diagctl({});
  EXPECT_EQ(outcome.exitCode, kUsage);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("Usage: diagctl"), HasSubstr("\n  run "),
                                 HasSubstr("\n  help "), HasSubstr("\n  version ")));
}

TEST_F(Diagctl, help_is_told_by_verb_and_by_option) {
  const std::string ofRun = diagctl({"run", "--help"}).out;
  EXPECT_THAT(ofRun, HasSubstr("Usage: diagctl run [OPTIONS]"));
  EXPECT_EQ(diagctl({"help", "run"}).out, ofRun);
  EXPECT_EQ(diagctl({"-h", "run"}).out, ofRun);
  EXPECT_EQ(diagctl({"help"}).out, diagctl({"--help"}).out);
  EXPECT_EQ(diagctl({"help", "run"}).exitCode, kPassed);
  EXPECT_EQ(diagctl({"version"}).out, diagctl({"--version"}).out);
}

TEST_F(Diagctl, help_of_what_is_no_verb_leads_to_the_verbs) {
  const Outcome outcome = diagctl({"help", "bogus"});
  EXPECT_EQ(outcome.exitCode, kUsage);
  EXPECT_THAT(outcome.err, HasSubstr("\n\"diagctl help\" tells what is possible"));
}

TEST_F(Diagctl, help_has_groups_and_defaults_and_no_types_and_keeps_to_the_window) {
  const std::string help = diagctl({"help", "run"}).out;
  for (const char* head : {"\nSelecting:\n", "\nHow thorough:\n", "\nHow long:\n",
                           "\nHow it runs:\n", "\nReporting:\n", "\nOptions of every verb:\n"}) {
    EXPECT_THAT(help, HasSubstr(head));
  }
  std::istringstream words(help);
  std::string inOneLine;
  for (std::string word; words >> word; inOneLine += word + " ") {
  }
  for (const char* remark :
       {"(quick, standard, extended; default: standard)", "(default: the profile's)",
        "(default: another for each run)", "(plain, nagios, npd; default: plain)"}) {
    EXPECT_THAT(inOneLine, HasSubstr(remark));
  }
  for (const char* type : {"TEXT", "INT", "UINT", "ENUM", "FLOAT", "BOOLEAN", "REQUIRED", "->"}) {
    EXPECT_THAT(help, Not(HasSubstr(type)));
  }
  for (const std::string& line : linesOf(help)) {
    EXPECT_THAT(line, SizeIs(::testing::Le(80U)));
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
