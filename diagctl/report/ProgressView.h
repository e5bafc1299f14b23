#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/terminal/Window.h"

namespace TarvexDiags::FrontEnd {

/// A test that runs, as a person is to see it.
struct RunningTest {
  enum class State { Running, Suspended, Ending };

  unsigned long number = 0;  ///< of its step
  std::string name;          ///< of the test and its device, printable
  unsigned int percent = 0;
  int pass = 1;
  int passes = 1;
  double elapsed = 0;           ///< seconds
  std::optional<double> left;   ///< seconds; nothing: nobody knows
  std::string throughput = {};  ///< as it was told last, printable; empty where it was not
  State state = State::Running;
};

/// All that is shown of a run under way. A plain value: what a person asked to see is part of it.
struct ProgressView {
  std::vector<RunningTest> tests;  ///< by their numbers
  std::size_t ended = 0;
  std::size_t total = 0;
  double elapsed = 0;             ///< seconds
  std::optional<double> left;     ///< seconds; nothing: nobody knows
  std::optional<double> hottest;  ///< °C
  std::size_t findings = 0;
  bool isEnding = false;
  bool showsHelp = false;
  unsigned long chosen = 0;    ///< number of the test that a person is about to abort; 0: none
  std::size_t firstShown = 0;  ///< how many tests are scrolled out at the top
};

/// The lines of a view.
struct ProgressLayout {
  std::vector<std::string> lines;  ///< each narrower than the window, all of them no higher
  std::size_t firstShown = 0;      ///< what became of the view's: there are tests to show
  std::size_t shown = 0;           ///< how many tests are
};

/// At most so many tests are shown at a time.
inline constexpr std::size_t kMostTestsShown = 12;

/// Lays a view out in a window: a line for each test, its name first, of as many as there is room
/// for, and what there is to tell of the run.
ProgressLayout linesOf(const ProgressView& view, const Window& window);

/// The same where lines are only ever added: what runs, and how far the run is.
std::string heartbeatOf(const ProgressView& view);

}  // namespace TarvexDiags::FrontEnd
