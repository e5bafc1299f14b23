#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "diagctl/Reporter.h"

namespace TarvexDiags::DiagCtl {

/// The report that a technician reads: the machine, a line for each test with its verdict, what was
/// found and what to do about it, and the sum.
class TextReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param colour whether verdicts are coloured.
  TextReporter(std::ostream& out, bool colour);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  struct Step {
    StepStarted start;
    std::chrono::system_clock::time_point begin;
    std::chrono::system_clock::time_point end;
    std::vector<std::string> lines;  ///< findings and actions
    int passes = 0;
    bool hasFailed = false;
    bool hasWarning = false;
    bool hasEnded = false;
    RunStatus status = RunStatus::complete;
  };

  Step& step(const std::string& stepId);
  void finding(const std::string& stepId, const std::string& text, const std::string& action);
  void writeStep(const Step& step);
  std::string verdictOf(const Step& step) const;
  std::string paint(const std::string& text, const char* colour) const;

  std::ostream& m_out;
  bool m_colour;
  std::map<std::string, Step> m_steps;
  std::vector<std::string> m_order;
  std::vector<std::string> m_troubles;
  std::chrono::system_clock::time_point m_begin;
  std::chrono::system_clock::time_point m_last;
  bool m_hasBegun = false;
  bool m_hasEnded = false;
  RunEnded m_end;
};

}  // namespace TarvexDiags::DiagCtl
