#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/Figures.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/TestDuration.h"
#include "diagctl/session/Explanation.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

std::vector<std::string> found(const std::string& asked) {
  std::vector<std::string> names;
  for (const Explanation& each : explanationsOf(asked, {}, "en")) {
    names.push_back(each.family + ":" + each.name);
  }
  return names;
}

TEST(Explanation, of_a_word_is_found_whatever_its_case) {
  EXPECT_THAT(found("failed"), ElementsAre("word:FAILED", "word:failed"));
  EXPECT_THAT(found("Device-Missing"), ElementsAre("word:device-missing"));
}

TEST(Explanation, of_a_code_is_found_by_name_symptom_and_wildcard) {
  for (const char* asked : {"LOAD_LIBRARY_FAILED", "load-library-failed", "load_lib*_failed"}) {
    EXPECT_THAT(found(asked), ElementsAre("controller:LOAD_LIBRARY_FAILED")) << asked;
  }
}

TEST(Explanation, of_a_number_is_told_for_each_family_unless_one_is_named) {
  EXPECT_THAT(found("exit:2"), ElementsAre("exit:exit status 2"));
  EXPECT_THAT(found("exit:143"), ElementsAre("exit:exit status 143"));
  const auto all = found("2");
  EXPECT_EQ(std::count(all.begin(), all.end(), "exit:exit status 2"), 1);
  EXPECT_GT(all.size(), 1U);
  EXPECT_THAT(found("controller:2"), SizeIs(all.size() - 1));
}

/// One test of each kind of end, and a run that ends like that.
std::vector<RunEventBody> runOfAll(const RunEnded& end) {
  std::vector<RunEventBody> run = {RunStarted{}};
  const auto add = [&](std::vector<RunEventBody> told, const StepEnded& ended) {
    run.emplace_back(StepStarted{ended.stepId, "P", "Disk", "Read", "", 1});
    run.insert(run.end(), told.begin(), told.end());
    run.emplace_back(ended);
  };
  const auto diagnosis = [](const char* id, Verdict verdict, const char* symptom) {
    return StepDiagnosis{id, verdict, symptom, "text", "", "", 1};
  };
  std::vector<RunEventBody> figures = {diagnosis("1", Verdict::Pass, "passed")};
  for (const char* const name : {FigureName::kSeed, FigureName::kCoveredBytes, kTestDuration,
                                 FigureName::kTotalBytes, FigureName::kCoveredCores}) {
    figures.emplace_back(StepMeasurement{"1", name, 1.0, "", ""});
  }
  add(figures, {"1", RunStatus::Complete});
  add({diagnosis("2", Verdict::Fail, "failed")}, {"2", RunStatus::Complete});
  add({diagnosis("3", Verdict::Unknown, "unusual-status")}, {"3", RunStatus::Complete});
  add({StepTrouble{"4", "no-result", "text", ""}}, {"4", RunStatus::Error});
  add({}, {"5", RunStatus::Skip, true});
  int id = 5;
  for (const SkipKind kind : {SkipKind::NotPossible, SkipKind::NeedsPrivilege,
                              SkipKind::NotInThisMode, SkipKind::NotRun}) {
    add({}, {std::to_string(++id), RunStatus::Skip, false, kind});
  }
  for (const Severity severity :
       {Severity::Debug, Severity::Information, Severity::Warning, Severity::Error}) {
    run.emplace_back(RunMessage{severity, "text"});
  }
  run.emplace_back(end);
  return run;
}

std::string reportOf(const Format& format, const std::vector<RunEventBody>& run) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = format.makeReporter(printer, {});
  for (const RunEventBody& body : run) {
    reporter->handle({std::chrono::system_clock::time_point(), body});
  }
  reporter->finish();
  return out.str();
}

/// What stands in a report where its format has a word of its own.
std::set<std::string> wordsOf(const std::string& report) {
  static const std::regex kPlaces(
      R"re("(?:type|status|result|kind|severity)":"([^"]+)"|"measurement":\{"name":"([^"]+)")re"
      R"re(|(?:type|outcome|verdict)="([^"]+)"|name="verdict" value="([^"]+)")re"
      R"re(|  verdict: (\w+)|DIAGCTL (\w+): )re");
  std::set<std::string> words;
  for (std::sregex_iterator match(report.begin(), report.end(), kPlaces), end; match != end;
       ++match) {
    for (std::size_t group = 1; group < match->size(); ++group) {
      words.insert((*match)[group].str());
    }
  }
  words.erase("");
  return words;
}

TEST(Explanation, is_there_for_each_word_that_a_report_writes) {
  std::set<std::string> words = {kCoverageStep,    kMachineStep, "Machine watch", "run-failure",
                                 "operand making", "comparison", "verifiedRate"};
  for (const RunEnded& end : {RunEnded{RunStatus::Complete, RunResult::Pass},
                              RunEnded{RunStatus::Complete, RunResult::Fail},
                              RunEnded{RunStatus::Error, RunResult::NotApplicable},
                              RunEnded{RunStatus::Skip, RunResult::NotApplicable}}) {
    for (const Format& format : formats()) {
      words.merge(wordsOf(reportOf(format, runOfAll(end))));
    }
  }
  for (int outcome = 0; outcome <= static_cast<int>(StepRecord::Outcome::SkippedForMode);
       ++outcome) {
    words.insert(toText(static_cast<StepRecord::Outcome>(outcome)));
    words.insert(wordOf(static_cast<StepRecord::Outcome>(outcome)));
  }
  EXPECT_GT(words.size(), 40U) << "the places of the words are known";
  for (const std::string& word : words) {
    EXPECT_THAT(found(word), Not(IsEmpty())) << word;
  }
}

TEST(Explanation, of_what_nobody_knows_is_none) {
  for (const char* asked : {"", ":", "exit:", "nonsense", "memory:3", "99999999999999999999"}) {
    EXPECT_THAT(found(asked), IsEmpty()) << asked;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
