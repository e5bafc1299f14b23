#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "diagctl/report/ReportSettings.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The report that a technician reads: the machine and the plan, a line for each test with its
/// verdict and what was done, what was found and what to do about it; in the end that again for all
/// that needs somebody, and the sum.
class TextReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  TextReporter(Printer& out, const ReportSettings& settings);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  struct Finding {
    std::string text;
    std::string action;  ///< empty for none, and where it stands below another finding
  };
  /// What is told again at the end.
  struct Problem {
    StepRecord::Outcome outcome;
    std::string name;
    std::vector<Finding> findings;
    std::size_t further = 0;  ///< findings
  };

  /// What was told of a step that is no finding.
  struct News {
    BoundedTexts texts;
    std::size_t size = 0;
  };

  void writeHead(const RunStarted& start, std::chrono::system_clock::time_point time);
  void writePlan(const RunStarted& start, std::chrono::system_clock::time_point time);
  void keepNews(const RunEventBody& body);
  void keepNews(const StepMessage& message);
  void addNews(const std::string& stepId, const char* mark, const std::string& text);
  void dropNews(const std::string& stepId);
  void writeNews(const StepRecord& step);
  void tellEnded(const StepRecord& step);
  void keepProblem(const StepRecord& step);
  void keepFindings(const StepRecord& step);
  void writeStep(const StepRecord& step);
  void writeResult(StepRecord::Outcome outcome, const std::vector<std::string>& parts);
  void writeFindings(const std::string& margin, const std::vector<Finding>& findings,
                     std::size_t further);
  void writeIndented(const std::string& margin, const std::string& mark, const std::string& text);
  /// @param before the first line. @param margin before the others.
  void writeLines(const std::string& before, const std::string& margin, const std::string& text);
  void writeTrouble(const std::string& trouble);
  void writeProblems();
  void writeTroubles();
  void writeReasons();
  void writeSums();
  void closeRun();
  static std::vector<Finding> findingsOf(const StepRecord& step, std::size_t most);
  void writeVerdict(StepRecord::Outcome outcome);
  void paint(Colour colour, const std::string& text);

  Printer& m_out;
  const ReportSettings m_settings;
  bool m_hasBegun = false;
  RunRecord m_record;
  std::map<std::string, News> m_news;  ///< by step under way, if it is wanted
  std::size_t m_newsSize = 0;          ///< about how many bytes that takes
  std::vector<Problem> m_problems;
  std::size_t m_problemsSize = 0;                ///< about how many bytes they take
  std::map<std::string, std::size_t> m_reasons;  ///< why tests were skipped, and how many
  std::size_t m_furtherProblems = 0;
  std::size_t m_furtherSkips = 0;
};

}  // namespace TarvexDiags::FrontEnd
