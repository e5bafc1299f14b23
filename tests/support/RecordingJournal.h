#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "packages/common/RunJournal.h"

namespace TarvexDiags::Common {

/// @brief Keeps what an engine says, and stops it when asked to.
class RecordingJournal : public RunJournal {
 public:
  struct Event {
    Severity severity;
    unsigned int code;
    std::vector<std::string> parameters;
  };

  void report(unsigned int code, std::vector<std::string> parameters) override {
    m_events.push_back({severityOfCode(code), code, std::move(parameters)});
  }
  void progress(unsigned int percent) override { m_progress.push_back(percent); }
  void processed(double amount, const char* unit) override { m_processed[unit] += amount; }
  bool stopRequested() override { return m_stopAfter >= 0 && m_questions++ >= m_stopAfter; }

  bool haltsOnError() override { return halts; }

  bool halts = false;

  /// @brief From the n-th question on, a stop is requested.
  void stopAfter(int questions) { m_stopAfter = questions; }

  const std::vector<Event>& events() const { return m_events; }
  const std::vector<unsigned int>& progressSteps() const { return m_progress; }
  /// @brief All that was done, by its unit.
  const std::map<std::string, double>& processed() const { return m_processed; }

  /// @brief The codes of all warnings and errors, in the order of their reports.
  std::vector<unsigned int> complaints() const {
    std::vector<unsigned int> codes;
    for (const Event& event : m_events) {
      if (event.severity != Severity::Information) {
        codes.push_back(event.code);
      }
    }
    return codes;
  }

  /// @brief How often a code was reported.
  template <typename Code>
  long count(Code code) const {
    return std::count_if(m_events.begin(), m_events.end(), [&](const Event& event) {
      return event.code == static_cast<unsigned int>(code);
    });
  }

  /// @brief The parameters of a code's first event; empty when there is none.
  template <typename Code>
  std::vector<std::string> parametersOf(Code code) const {
    for (const Event& event : m_events) {
      if (event.code == static_cast<unsigned int>(code)) {
        return event.parameters;
      }
    }
    return {};
  }

 private:
  std::vector<Event> m_events;
  std::vector<unsigned int> m_progress;
  std::map<std::string, double> m_processed;
  int m_stopAfter = -1;
  int m_questions = 0;
};

}  // namespace TarvexDiags::Common
