#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "diagctl/report/Forecast.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// What a person watches while a run is under way. On a terminal: a line for each test that runs,
/// drawn anew at each change, and a total. Elsewhere: a plain line at each change of state, without
/// control characters.
class Progress : public Reporter {
 public:
  /// @param out kept alive by the caller. @param total number of tests of the run.
  Progress(Printer& out, bool isTerminal, std::size_t total);

  void handle(const RunEvent& event) override;

  /// Takes an event, and draws no more often than a person can follow, or where the run is to end:
  /// for an event behind which others wait. The last of them goes to `handle`.
  void handleInPassing(const RunEvent& event);

  void finish() override;

  /// What the run has to do, which tells how long it still takes. Before the first event.
  /// @param loads of all its tests, by their numbers from 1 on. @param isSerial one at a time
  void expect(std::vector<Load> loads, bool isSerial);

  /// Takes the drawing away, so that something else can be written; the next event draws it anew.
  void erase();

  /// The number of the step that is drawn first, for a person who aborts one; 0 for none. Known
  /// before it is drawn. From any thread.
  unsigned long firstRunning() const { return m_firstRunning; }

  /// The run is to end before its time, which the next event shows, whatever was told before and is
  /// still to be drawn. From any thread.
  void announceEnding() { m_isEnding = true; }

 private:
  struct Step {
    StepStarted start;
    std::chrono::system_clock::time_point begin;
    unsigned int percent = 0;
    int pass = 1;
    bool isSuspended = false;
  };

  /// What a test still takes, where somebody knows; below 0: nobody does.
  double secondsLeft(unsigned long number, std::chrono::system_clock::time_point now) const;
  std::string timeLeft(std::chrono::system_clock::time_point now) const;
  void take(const RunEvent& event);
  static double shareOf(const Step& step);
  void endStep(unsigned long number);
  void tellEnding();
  void takeSigns(const RunEventBody& body);
  std::string signs() const;
  void draw(std::chrono::system_clock::time_point now);
  std::string totalLine(std::chrono::system_clock::time_point now) const;
  std::string lineOf(const Step& step, std::chrono::system_clock::time_point now) const;

  Printer& m_out;
  bool m_isTerminal;
  std::size_t m_total;
  std::size_t m_ended = 0;
  std::map<unsigned long, Step> m_steps;  ///< that run
  std::vector<Load> m_loads;              ///< of all tests; of one that has ended, nothing
  bool m_isSerial = false;
  std::atomic<unsigned long> m_firstRunning{0};
  std::atomic<bool> m_isEnding{false};
  bool m_isEndingTold = false;
  bool m_isEndingDrawn = false;
  std::chrono::system_clock::time_point m_begin;
  std::chrono::steady_clock::time_point m_drawnAt;
  std::size_t m_drawnLines = 0;
  std::map<std::string, double> m_temperatures;  ///< by series
  std::size_t m_findings = 0;                    ///< of the watch over the machine
};

}  // namespace TarvexDiags::FrontEnd
