#include "diagctl/report/Progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostLines = 12;
constexpr int kBarWidth = 20;
constexpr const char* kCelsius = "°C";
constexpr double kColdest = -273.15;
constexpr std::chrono::milliseconds kShortestView{100};

/// 0 for a step that is no request, and so nothing to watch.
unsigned long numberOf(const std::string& stepId) {
  return std::strtoul(stepId.c_str(), nullptr, 10);
}

std::string clock(double seconds) {
  const auto whole = static_cast<long>(seconds);
  return whole >= 3600 ? fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                       : fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::string remainingTime(unsigned int percent, double elapsed) {
  return percent > 0 && percent < 100 ? clock(elapsed * (100.0 - percent) / percent) : "-";
}

// Longer lines would wrap, and could not be erased again. No character is cut in two.
std::string cut(const std::string& line, std::size_t columns) {
  return std::string(wholeCharacters(line, columns));
}

std::string bar(unsigned int percent) {
  const auto filled = static_cast<std::size_t>(std::min(percent, 100U) * kBarWidth / 100);
  return std::string(filled, '#') + std::string(kBarWidth - filled, '.');
}

std::size_t columnsOf(int descriptor) {
  winsize size{};
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

double Progress::shareOf(const Step& step) {
  return (step.pass - 1 + std::min(step.percent, 100U) / 100.0) / std::max(step.start.passes, 1);
}

Progress::Progress(Printer& out, bool isTerminal, std::size_t total)
    : m_out(out), m_isTerminal(isTerminal), m_total(total), m_loads(total) {}

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
  if (std::holds_alternative<RunStarted>(event.body)) {
    m_begin = event.time;
  } else if (const auto* started = std::get_if<StepStarted>(&event.body);
             started != nullptr && numberOf(started->stepId) != 0) {
    Step& step = m_steps[numberOf(started->stepId)];
    step.start = *started;
    step.begin = event.time;
    if (!m_isTerminal) {
      m_out.say("running  {}\n", nameOf(*started));
    }
  } else if (const auto* progress = std::get_if<StepProgress>(&event.body)) {
    Step& step = m_steps[numberOf(progress->stepId)];
    step.percent = progress->percent;
    step.pass = progress->pass;
    step.isSuspended = progress->isSuspended;
  } else if (const auto* ended = std::get_if<StepEnded>(&event.body)) {
    endStep(numberOf(ended->stepId));
  } else if (const auto* message = std::get_if<RunMessage>(&event.body);
             message != nullptr &&
             (message->severity == Severity::Warning || message->severity == Severity::Error)) {
    m_out.print("{}\n", message->text);
  }
  takeSigns(event.body);
  m_firstRunning = m_steps.empty() ? 0 : m_steps.begin()->first;
  tellEnding();
}

void Progress::endStep(unsigned long number) {
  const auto entry = m_steps.find(number);
  if (entry == m_steps.end()) {
    return;
  }
  ++m_ended;
  if (number <= m_loads.size()) {
    m_loads[number - 1].seconds = 0;
  }
  if (!m_isTerminal) {
    m_out.say("ended    {} ({} of {})\n", nameOf(entry->second.start), m_ended, m_total);
  }
  m_steps.erase(entry);
}

// What sensors show, and what the watch has found.
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
             diagnosis != nullptr && diagnosis->verdict != Verdict::Pass &&
             (diagnosis->pass == 0 || diagnosis->stepId == kMachineStep)) {
    ++m_findings;
  }
}

std::string Progress::signs() const {
  std::string signs;
  double hottest = kColdest;
  for (const auto& [series, value] : m_temperatures) {
    hottest = std::max(hottest, value);
  }
  if (hottest > kColdest) {
    signs += tr(", hottest {:.0f} °C", hottest);
  }
  if (m_findings > 0) {
    signs += trn(", 1 finding", ", {} findings", m_findings);
  }
  return signs;
}

// On a terminal the lines that are drawn say so.
void Progress::tellEnding() {
  if (m_isEnding && !std::exchange(m_isEndingTold, true) && !m_isTerminal) {
    m_out.say("ending   what still runs ({} of {} ended)\n", m_ended, m_total);
  }
}

std::string Progress::lineOf(const Step& step, std::chrono::system_clock::time_point now) const {
  const double elapsed = secondsBetween(step.begin, now);
  const std::string remaining = m_isEnding ? tr("ending")
                                : step.isSuspended
                                    ? tr("suspended")
                                    : tr("left {}", remainingTime(step.percent, elapsed));
  const std::string pass =
      step.start.passes > 1 ? tr(" pass {}/{}", step.pass, step.start.passes) : "";
  return tr("[{}] {:3}%{} {} {}  {} on {}", bar(step.percent), step.percent, pass, clock(elapsed),
            remaining, step.start.test, step.start.device);
}

void Progress::expect(std::vector<Load> loads, bool isSerial) {
  m_loads = std::move(loads);
  m_isSerial = isSerial;
}

// At its start by what it was thought to take, then by the share that is done.
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
std::string Progress::timeLeft(std::chrono::system_clock::time_point now) const {
  std::vector<Load> left = m_loads;
  for (unsigned long number = 1; number <= left.size(); ++number) {
    left[number - 1].seconds = secondsLeft(number, now);
  }
  const TimeNeeded sum = timeNeeded(left);
  if (sum.isComplete) {
    return clock(m_isSerial ? sum.oneAfterTheOther : sum.sideBySide);
  }
  double done = static_cast<double>(m_ended);
  for (const auto& [number, step] : m_steps) {
    done += shareOf(step);
  }
  const double open = static_cast<double>(m_total) - done;
  return done > 0 && open > 0 ? clock(secondsBetween(m_begin, now) * open / done) : "-";
}

std::string Progress::totalLine(std::chrono::system_clock::time_point now) const {
  const double elapsed = secondsBetween(m_begin, now);
  if (m_isEnding) {
    return tr("{} of {} ended, {}, ending{}", m_ended, m_total, clock(elapsed), signs());
  }
  return tr("{} of {} ended, {} left {}{}   s suspend  r resume  a abort one  q abort all", m_ended,
            m_total, clock(elapsed), timeLeft(now), signs());
}

void Progress::draw(std::chrono::system_clock::time_point now) {
  if (!m_isTerminal) {
    m_out.flush();
    return;
  }
  m_isEndingDrawn = m_isEnding;
  const std::size_t columns = columnsOf(STDERR_FILENO);
  std::vector<std::string> lines;
  std::size_t running = 0;
  for (const auto& [number, step] : m_steps) {
    if (++running <= kMostLines) {
      lines.push_back(lineOf(step, now));
    }
  }
  if (running > kMostLines) {
    lines.push_back(tr("... and {} more", running - kMostLines));
  }
  lines.push_back(totalLine(now));
  for (const std::string& line : lines) {
    m_out.print("{}\n", cut(toPrintable(line), columns - 1));
  }
  m_drawnLines = lines.size();
  m_drawnAt = std::chrono::steady_clock::now();
  m_out.flush();
}

void Progress::erase() {
  if (m_drawnLines > 0) {
    m_out.eraseLines(m_drawnLines);
    m_drawnLines = 0;
  }
}

void Progress::finish() {
  erase();
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
