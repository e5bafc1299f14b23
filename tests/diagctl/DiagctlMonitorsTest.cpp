// What monitors make of the program's answers. Each reads no more than its own contract says: the
// exit status, and the first line of standard output up to a length.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Json = nlohmann::json;
namespace fs = std::filesystem;

/// A machine whose only test behaves in one way, and what is told of its last check.
class MonitoredMachine : public Diagctl {
 protected:
  void behaves(const std::string& behaviour, const std::string& device = "One") {
    fs::remove(place.path("packages/libNODE.so"));
    place.addPackage("NODE", {{.name = "Only", .behaviour = behaviour, .more = "Event=7"}},
                     {{device, "bus/one"}});
  }
  void isChecked() const { asked({"health"}); }
  Outcome asked(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", place.path("state")});
    return diagctl(withControlFile(words));
  }
};

/// What a problem detector keeps of a node.
struct Condition {
  std::string status;  ///< "True": there is a problem
  std::string message;
};

Condition detected(const Outcome& outcome, std::size_t longest) {
  const std::size_t end = outcome.out.find_last_not_of(" \n");
  const std::string text = outcome.out.substr(0, end + 1).substr(0, longest);
  return {outcome.exitCode == 0 ? "False" : outcome.exitCode == 1 ? "True" : "Unknown", text};
}

class ProblemDetector : public MonitoredMachine {
 protected:
  Condition told() const {
    const std::vector<std::string> words = m_document["rules"].at(0)["args"];
    const Outcome outcome = asked(words);
    EXPECT_THAT(outcome.err, IsEmpty()) << "each line of it is logged, again and again";
    return detected(outcome, m_document["pluginConfig"]["max_output_length"]);
  }
  const Json m_document =
      Json::parse(contentsOf(TestSupport::sourcePath("examples/fleet/node-problem-detector.json")));
};

TEST_F(ProblemDetector, sees_a_problem_in_a_failure_alone_and_knows_what_it_does_not_know) {
  EXPECT_EQ(told().status, "Unknown") << "nothing was checked";
  for (const auto& [behaviour, status] : std::vector<std::pair<std::string, std::string>>{
           {"pass", "False"}, {"warn", "False"}, {"fail", "True"}, {"nothing", "Unknown"}}) {
    behaves(behaviour);
    isChecked();
    const Condition condition = told();
    EXPECT_EQ(condition.status, status) << behaviour;
    EXPECT_THAT(condition.message, AllOf(HasSubstr(" "), Not(HasSubstr("\n")))) << behaviour;
  }
}

TEST_F(ProblemDetector, cuts_nothing_off_what_is_told_of_a_long_name) {
  std::string device;
  for (int number = 0; number < 40; ++number) {
    device += "\xc3\xa4";  // of two bytes
  }
  behaves("fail", device);
  isChecked();
  const Condition condition = told();
  EXPECT_EQ(condition.status, "True");
  EXPECT_THAT(condition.message, AllOf(StartsWith("FAIL Package NODE Only "), EndsWith(" ago")));
  EXPECT_NO_THROW(Json(condition.message).dump()) << "no UTF-8: " << condition.message;
}

TEST_F(ProblemDetector, is_answered_without_a_test_since_it_waits_for_seconds) {
  behaves("fail");
  isChecked();
  const std::string mark = place.markOf("NODE", 1, "One");
  ASSERT_TRUE(fs::remove(mark));
  EXPECT_EQ(told().status, "True");
  EXPECT_FALSE(fs::exists(mark)) << "the test has run again";
}

/// A range of the guidelines for monitoring plug-ins: "10", "10:", "~:10", "10:20", "@10:20".
bool isAlert(const std::string& range, double value) {
  if (range.empty()) {
    return false;
  }
  const bool isInside = range.front() == '@';
  const std::string bounds = range.substr(isInside ? 1 : 0);
  const std::size_t colon = bounds.find(':');
  const std::string start = colon == std::string::npos ? "0" : bounds.substr(0, colon);
  const std::string end = colon == std::string::npos ? bounds : bounds.substr(colon + 1);
  const bool isWithin =
      (start == "~" || value >= std::stod(start)) && (end.empty() || value <= std::stod(end));
  return isWithin == isInside;
}

/// What is read from the figures of a plug-in, by the same guidelines.
struct Figures {
  std::vector<std::string> faults;
  int worst = 0;  ///< the state that they and their thresholds come to

  explicit Figures(const std::string& text) {
    static const std::string kNumber = "-?[0-9]+(?:\\.[0-9]+)?";
    static const std::string kRange = "(@?(?:(?:~|" + kNumber + ")?:)?(?:" + kNumber + ")?)";
    static const std::regex kFigure("'([^'=]+)'=(" + kNumber + ")(s|us|ms|%|B|KB|MB|TB|c)?;" +
                                    kRange + ";" + kRange + ";(?:" + kNumber + ")?;(?:" + kNumber +
                                    ")?");
    std::istringstream words(text);
    std::set<std::string> labels;
    for (std::string word; words >> word;) {
      std::smatch match;
      if (!std::regex_match(word, match, kFigure)) {
        faults.push_back("no figure: " + word);
      } else if (!labels.insert(match[1]).second) {
        faults.push_back("twice: " + word);
      } else {
        const double value = std::stod(match[2]);
        worst = std::max(worst, isAlert(match[5], value) ? 2 : isAlert(match[4], value) ? 1 : 0);
      }
    }
    if (labels.empty()) {
      faults.emplace_back("no figures");
    }
  }
};

class MonitoringPlugin : public MonitoredMachine {
 protected:
  static std::string firstLineOf(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find('\n'));
  }
  Outcome told() const { return asked({"health", "--style", "nagios", "--cached", "26h"}); }
};

TEST_F(MonitoringPlugin, tells_state_text_and_figures_that_agree) {
  static const std::vector<std::string> kStates = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  for (const auto& [behaviour, state] : std::vector<std::pair<std::string, int>>{
           {"pass", 0}, {"warn", 1}, {"fail", 2}, {"nothing", 3}}) {
    behaves(behaviour);
    isChecked();
    const Outcome outcome = told();
    EXPECT_EQ(outcome.exitCode, state) << behaviour;
    const std::string line = firstLineOf(outcome);
    const std::size_t bar = line.find(" | ");
    ASSERT_NE(bar, std::string::npos) << line;
    EXPECT_THAT(line, StartsWith(kStates.at(static_cast<std::size_t>(state)) + " - "));
    const Figures figures(line.substr(bar + 3));
    EXPECT_THAT(figures.faults, IsEmpty()) << line;
    EXPECT_EQ(figures.worst, state == 3 ? 0 : state) << line;
    EXPECT_EQ(outcome.out.find('|', bar + 2), std::string::npos) << "would begin other figures";
    EXPECT_THAT(outcome.out, SizeIs(Le(4096U)));
    EXPECT_THAT(outcome.err, IsEmpty());
  }
}

TEST_F(MonitoringPlugin, has_one_bar_whatever_devices_are_called) {
  behaves("fail", "Disk | 'failed'=0 \\n a=b");
  isChecked();
  const std::string out = told().out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '|'), 1) << out;
}

TEST_F(MonitoringPlugin, knows_no_state_where_nothing_was_checked) {
  const Outcome outcome = told();
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(firstLineOf(outcome), StartsWith("UNKNOWN - "));
}

TEST(MonitoringRanges, are_those_of_the_guidelines) {
  EXPECT_TRUE(isAlert("0", 1));
  EXPECT_FALSE(isAlert("0", 0));
  EXPECT_TRUE(isAlert("10:", 9));
  EXPECT_FALSE(isAlert("~:10", -5));
  EXPECT_TRUE(isAlert("@10:20", 15));
  EXPECT_FALSE(isAlert("", 15));
  EXPECT_THAT(Figures("'a'=1;;0;0; 'a'=2;;;; b=1").faults, SizeIs(2));
  EXPECT_EQ(Figures("'a'=1;;0;0; 'b'=1;0;;0;").worst, 2);
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
