#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/Forecast.h"
#include "diagctl/report/ProgressView.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/terminal/Keys.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Window.h"

namespace TarvexDiags::FrontEnd {

/// What a person watches while a run is under way. Where lines can be drawn again and again: one
/// for each test that runs, and a total. Elsewhere: a plain line when a test begins, so that a
/// machine that dies leaves behind what it was at, and one each minute of how far the run is.
class Progress : public Reporter {
 public:
  /// How long a plain line is waited for, at most.
  static constexpr std::chrono::seconds kHeartbeat{60};

  using Look = std::function<Canvas()>;
  using Steady = std::chrono::steady_clock::time_point;

  /// @param out kept alive by the caller. @param look tells what there is to draw on, as often as
  /// it is asked. @param total number of tests of the run.
  Progress(Printer& out, Look look, std::size_t total);

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

  /// Sees to it that clocks go on and that the lines fit into the window, while no event comes.
  void lookAround(std::chrono::system_clock::time_point now, Steady steady);

  /// Takes a key that asks for something to be seen or for one test to be aborted, and draws.
  /// @return number of the test that is to be aborted; 0: none
  unsigned long press(const Key& key, std::chrono::system_clock::time_point now);

  /// The run is to end before its time, which is drawn next, whatever was told before and is still
  /// to be drawn. From any thread.
  void announceEnding() { m_isEnding = true; }

 private:
  struct Step {
    StepStarted start;
    std::chrono::system_clock::time_point begin;
    unsigned int percent = 0;
    int pass = 1;
    bool isSuspended = false;
    bool isEnding = false;
    std::string throughput = {};
  };

  void look();
  double secondsLeft(unsigned long number, std::chrono::system_clock::time_point now) const;
  std::optional<double> timeLeft(std::chrono::system_clock::time_point now) const;
  void take(const RunEvent& event);
  static double shareOf(const Step& step);
  void startStep(const RunEvent& event, const StepStarted& started);
  void endStep(unsigned long number);
  void takeFigure(const StepMeasurement& figure);
  void takeSigns(const RunEventBody& body);
  unsigned long stepBeside(long distance) const;
  void scroll(long distance);
  unsigned long abortChosen();
  void pressCharacter(char character);
  RunningTest runningTest(unsigned long number, const Step& step,
                          std::chrono::system_clock::time_point now) const;
  ProgressView viewAt(std::chrono::system_clock::time_point now) const;
  void draw(std::chrono::system_clock::time_point now);

  Printer& m_out;
  const Look m_look;
  std::size_t m_total;
  std::size_t m_ended = 0;
  std::map<unsigned long, Step> m_steps;  ///< that run
  std::vector<Load> m_loads;              ///< of all tests; of one that has ended, nothing
  bool m_isSerial = false;
  bool m_hasBegun = false;
  bool m_isOver = false;
  std::atomic<bool> m_isEnding{false};
  bool m_isEndingDrawn = false;
  std::chrono::system_clock::time_point m_begin;
  Canvas m_canvas;  ///< as it was drawn on last
  Steady m_drawnAt;
  Steady m_heartbeatAt;                          ///< the last one, or what counts as one
  std::map<std::string, double> m_temperatures;  ///< by series
  std::set<std::pair<std::string, std::string>> m_findings;  ///< by step and symptom
  bool m_showsHelp = false;
  unsigned long m_chosen = 0;  ///< number of the test that a person is about to abort; 0: none
  std::size_t m_firstShown = 0;
  std::size_t m_shown = 0;
};

}  // namespace TarvexDiags::FrontEnd
