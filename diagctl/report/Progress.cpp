#include "diagctl/report/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include "diagctl/report/Figures.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kCelsius = "°C";
constexpr std::string_view kPerSecond = "/s";
constexpr double kColdest = -273.15;
constexpr std::chrono::milliseconds kShortestView{100};
constexpr std::chrono::seconds kLongestView{1};

/// 0 for a step that is no request, and so nothing to watch.
unsigned long numberOf(const std::string& stepId) {
  unsigned long number = 0;
  const char* const end = stepId.data() + stepId.size();
  const auto [rest, error] = std::from_chars(stepId.data(), end, number);
  return error == std::errc() && rest == end ? number : 0;
}

}  // namespace

double Progress::shareOf(const Step& step) {
  return (step.pass - 1 + std::min(step.percent, 100U) / 100.0) / std::max(step.start.passes, 1);
}

Progress::Progress(Printer& out, Look look, std::size_t total)
    : m_out(out), m_look(std::move(look)), m_total(total), m_loads(total) {}

void Progress::handle(const RunEvent& event) {
  take(event);
  draw(event.time);
}

void Progress::handleInPassing(const RunEvent& event) {
  take(event);
  const bool isEndingNews = m_isEnding && !m_isEndingDrawn;
  if (isEndingNews || std::chrono::steady_clock::now() - m_drawnAt >= kShortestView) {
    draw(event.time);
  }
}

void Progress::take(const RunEvent& event) {
  erase();
  m_hasBegun = true;
  if (std::holds_alternative<RunStarted>(event.body)) {
    m_begin = event.time;
  } else if (const auto* started = std::get_if<StepStarted>(&event.body)) {
    startStep(event, *started);
  } else if (const auto* progress = std::get_if<StepProgress>(&event.body)) {
    if (const auto step = m_steps.find(numberOf(progress->stepId)); step != m_steps.end()) {
      step->second.percent = progress->percent;
      step->second.pass = progress->pass;
      step->second.isSuspended = progress->isSuspended;
    }
  } else if (const auto* figure = std::get_if<StepMeasurement>(&event.body)) {
    takeFigure(*figure);
  } else if (const auto* throughput = std::get_if<StepThroughput>(&event.body)) {
    takeFigure({throughput->stepId, "", throughput->value, throughput->unit, ""});
  } else if (const auto* ended = std::get_if<StepEnded>(&event.body)) {
    endStep(numberOf(ended->stepId));
  } else if (const auto* message = std::get_if<RunMessage>(&event.body);
             message != nullptr &&
             (message->severity == Severity::Warning || message->severity == Severity::Error)) {
    m_out.print("{}\n", message->text);
  }
  m_isOver = m_isOver || std::holds_alternative<RunEnded>(event.body);
  takeSigns(event.body);
}

void Progress::startStep(const RunEvent& event, const StepStarted& started) {
  const unsigned long number = numberOf(started.stepId);
  if (number == 0) {
    return;
  }
  Step& step = m_steps[number];
  step.start = started;
  step.begin = event.time;
  look();
  if (!m_canvas.isDrawn) {
    m_out.say("running  {} ({} of {} ended)\n", nameOf(started), m_ended, m_total);
  }
}

void Progress::endStep(unsigned long number) {
  if (m_steps.erase(number) == 0) {
    return;
  }
  ++m_ended;
  if (number <= m_loads.size()) {
    m_loads[number - 1].seconds = 0;
  }
  // Or the key that is about to be pressed would meet another test.
  if (m_chosen == number) {
    m_chosen = 0;
  }
}

void Progress::takeFigure(const StepMeasurement& figure) {
  const auto step = m_steps.find(numberOf(figure.stepId));
  if (step != m_steps.end() && figure.unit.ends_with(kPerSecond)) {
    step->second.throughput = toPrintable(describe(figure));
  }
}

// What sensors show, and what was found: each thing once, however often it comes.
void Progress::takeSigns(const RunEventBody& body) {
  if (const auto* series = std::get_if<SeriesStarted>(&body);
      series != nullptr && series->unit == kCelsius) {
    m_temperatures[series->seriesId] = kColdest;
  } else if (const auto* element = std::get_if<SeriesElement>(&body)) {
    const auto entry = m_temperatures.find(element->seriesId);
    if (entry != m_temperatures.end()) {
      entry->second = element->value;
    }
  } else if (const auto* diagnosis = std::get_if<StepDiagnosis>(&body);
             diagnosis != nullptr && diagnosis->verdict != Verdict::Pass) {
    m_findings.insert({diagnosis->stepId, diagnosis->symptom});
  }
}

void Progress::expect(std::vector<Load> loads, bool isSerial) {
  m_loads = std::move(loads);
  m_isSerial = isSerial;
}

// At its start by what it was thought to take, then by the share that is done. Below 0: nobody
// knows.
double Progress::secondsLeft(unsigned long number,
                             std::chrono::system_clock::time_point now) const {
  constexpr double kTellingShare = 0.05;
  const double expected = m_loads[number - 1].seconds;
  const auto step = m_steps.find(number);
  if (step == m_steps.end()) {
    return expected;
  }
  const double elapsed = secondsBetween(step->second.begin, now);
  const double done = shareOf(step->second);
  if (done >= kTellingShare) {
    return elapsed * (1 - done) / done;
  }
  return expected < 0 ? expected : std::max(expected - elapsed, 0.0);
}

// Where nobody knows of a test, all are taken to be alike: by the share that is done.
std::optional<double> Progress::timeLeft(std::chrono::system_clock::time_point now) const {
  std::vector<Load> left = m_loads;
  for (unsigned long number = 1; number <= left.size(); ++number) {
    left[number - 1].seconds = secondsLeft(number, now);
  }
  const TimeNeeded sum = timeNeeded(left);
  if (sum.isComplete) {
    return m_isSerial ? sum.oneAfterTheOther : sum.sideBySide;
  }
  double done = static_cast<double>(m_ended);
  for (const auto& [number, step] : m_steps) {
    done += shareOf(step);
  }
  const double open = static_cast<double>(m_total) - done;
  return done > 0 && open > 0 ? std::optional(secondsBetween(m_begin, now) * open / done)
                              : std::nullopt;
}

RunningTest Progress::runningTest(unsigned long number, const Step& step,
                                  std::chrono::system_clock::time_point now) const {
  using State = RunningTest::State;
  RunningTest test;
  test.number = number;
  test.name = toPrintable(tr("{} on {}", testOf(step.start), deviceOf(step.start)));
  test.percent = step.percent;
  test.pass = step.pass;
  test.passes = step.start.passes;
  test.elapsed = secondsBetween(step.begin, now);
  const double done = shareOf(step);
  if (done > 0 && done < 1) {
    test.left = test.elapsed * (1 - done) / done;
  }
  test.throughput = step.throughput;
  test.state = m_isEnding || step.isEnding ? State::Ending
               : step.isSuspended          ? State::Suspended
                                           : State::Running;
  return test;
}

ProgressView Progress::viewAt(std::chrono::system_clock::time_point now) const {
  ProgressView view;
  for (const auto& [number, step] : m_steps) {
    view.tests.push_back(runningTest(number, step, now));
  }
  view.ended = m_ended;
  view.total = m_total;
  view.elapsed = secondsBetween(m_begin, now);
  view.left = timeLeft(now);
  for (const auto& [series, value] : m_temperatures) {
    if (value > view.hottest.value_or(kColdest)) {
      view.hottest = value;
    }
  }
  view.findings = m_findings.size();
  view.isEnding = m_isEnding;
  view.showsHelp = m_showsHelp;
  view.chosen = m_chosen;
  view.firstShown = m_firstShown;
  return view;
}

// What was drawn before a stop, or before others got the terminal, is no longer where it was.
void Progress::look() {
  const Canvas canvas = m_look();
  if (!canvas.isDrawn || canvas.continuations != m_canvas.continuations) {
    m_out.forgetBlock();
  }
  m_canvas = canvas;
}

void Progress::draw(std::chrono::system_clock::time_point now) {
  look();
  m_isEndingDrawn = m_isEnding;
  if (m_canvas.isDrawn) {
    const ProgressLayout part = linesOf(viewAt(now), m_canvas.window);
    m_firstShown = part.firstShown;
    m_shown = part.shown;
    m_out.drawBlock(part.lines);
    m_drawnAt = std::chrono::steady_clock::now();
  }
  m_out.flush();
}

void Progress::lookAround(std::chrono::system_clock::time_point now, Steady steady) {
  if (!m_hasBegun || m_isOver) {
    return;
  }
  const Canvas canvas = m_look();
  if (canvas.isDrawn) {
    m_heartbeatAt = steady;
    const bool isNews = canvas != m_canvas || (m_isEnding && !m_isEndingDrawn);
    if (isNews || steady - m_drawnAt >= kLongestView) {
      draw(now);
    }
    return;
  }
  look();
  if (m_heartbeatAt == Steady()) {
    m_heartbeatAt = steady;
  } else if (steady - m_heartbeatAt >= kHeartbeat) {
    m_heartbeatAt = steady;
    m_out.say("still    {}\n", heartbeatOf(viewAt(now)));
    m_out.flush();
  }
}

/// The test so many places further among those that run; the last or the first at the ends.
unsigned long Progress::stepBeside(long distance) const {
  const auto chosen = m_steps.find(m_chosen);
  const long index = std::distance(m_steps.begin(), chosen) + distance;
  const long last = static_cast<long>(m_steps.size()) - 1;
  return std::next(m_steps.begin(), std::clamp(index, 0L, last))->first;
}

void Progress::scroll(long distance) {
  if (m_chosen != 0) {
    m_chosen = stepBeside(distance);
    return;
  }
  const long first = static_cast<long>(m_firstShown) + distance;
  m_firstShown = static_cast<std::size_t>(std::max(first, 0L));
}

unsigned long Progress::abortChosen() {
  if (m_chosen != 0) {
    m_steps[m_chosen].isEnding = true;
  }
  return std::exchange(m_chosen, 0);
}

// Any other key leaves a test that was chosen be.
void Progress::pressCharacter(char character) {
  if (character == '?') {
    m_showsHelp = !m_showsHelp;
  } else if (character == 'a' && m_chosen == 0 && !m_steps.empty() && !m_isEnding) {
    const auto first = static_cast<long>(std::min(m_firstShown, m_steps.size() - 1));
    m_chosen = std::next(m_steps.begin(), first)->first;
  } else {
    m_chosen = 0;
  }
}

unsigned long Progress::press(const Key& key, std::chrono::system_clock::time_point now) {
  if (!m_canvas.isDrawn || !m_hasBegun || m_isOver) {
    return 0;  // nobody sees what is chosen
  }
  unsigned long aborted = 0;
  const auto page = static_cast<long>(std::max<std::size_t>(m_shown, 1));
  switch (key.kind) {
    case Key::Kind::Up:
      scroll(-1);
      break;
    case Key::Kind::Down:
      scroll(1);
      break;
    case Key::Kind::PageUp:
      scroll(-page);
      break;
    case Key::Kind::PageDown:
      scroll(page);
      break;
    case Key::Kind::Enter:
      aborted = abortChosen();
      break;
    case Key::Kind::Escape:
      m_chosen = 0;
      m_showsHelp = false;
      break;
    case Key::Kind::Character:
      pressCharacter(key.character);
      break;
  }
  draw(now);
  return aborted;
}

void Progress::erase() {
  if (m_out.hasBlock()) {
    look();
    m_out.eraseBlock();
  }
}

void Progress::finish() {
  erase();
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
