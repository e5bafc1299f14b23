#include "diagctl/command/WatchCommand.h"

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "diagctl/command/Reporting.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/FindingReporter.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/RunMetrics.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/run/Machine.h"
#include "diagctl/run/PollInterval.h"
#include "diagctl/run/RunWatch.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Clock = std::chrono::steady_clock;

// How soon what was found, or a signal, is noticed.
constexpr std::chrono::milliseconds kTurn(50);

/// The stream of a watch: a run whose one step is that of the machine.
class Stream {
 public:
  explicit Stream(Reporter& reporter) : m_reporter(reporter) {}

  void tell(RunEventBody body) {
    const RunEvent event{
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()),
        std::move(body)};
    m_record.handle(event);
    m_reporter.handle(event);
    m_metrics.handle(event);
  }
  const RunRecord& record() const { return m_record; }
  const RunMetrics& metrics() const { return m_metrics; }

 private:
  Reporter& m_reporter;
  RunMetrics m_metrics{"watch"};
  RunRecord m_record{RunRecord::Ended::Held, kMostHeld};

  // What is told is not held: a watch may last for months.
  static constexpr std::size_t kMostHeld = 1UL << 20U;
};

/// Keeps the file of metrics at most so old while the watch goes on. One that cannot be written is
/// told once: it may be possible again.
class Textfile {
 public:
  explicit Textfile(const std::optional<std::string>& directory)
      : m_file(directory ? textfileOf(*directory, "watch") : "") {}

  void writeIfDue(const RunMetrics& metrics) {
    if (Clock::now() >= m_due) {
      write(metrics);
    }
  }
  void write(const RunMetrics& metrics) {
    m_due = Clock::now() + kMostAge;
    if (m_file.empty()) {
      return;
    }
    try {
      writeTextfile(m_file, metrics);
      m_hasFailed = false;
    } catch (const std::exception& failure) {
      if (!std::exchange(m_hasFailed, true)) {
        tellFailure(failure);
      }
    }
  }

 private:
  static constexpr std::chrono::seconds kMostAge{15};

  const std::string m_file;
  Clock::time_point m_due = Clock::time_point::min();
  bool m_hasFailed = false;
};

RunStarted openingOf(const WatchCommandOptions& options) {
  RunStarted start = describeMachine();
  start.name = "diagctl";
  start.version = TARVEX_VERSION;
  start.commandLine = options.commandLine;
  start.software.push_back({"controller", "TarvexDiags", TARVEX_VERSION});
  return start;
}

std::optional<std::chrono::milliseconds> durationOf(const WatchCommandOptions& options) {
  try {
    return options.duration ? std::optional(durationFrom(*options.duration)) : std::nullopt;
  } catch (const std::invalid_argument& fault) {
    throw UsageFault(fmt::format("--for: {}", fault.what()));
  }
}

bool isOver(const std::optional<std::chrono::milliseconds>& duration, Clock::time_point begin) {
  return Interruption::requests().abortAll || !standardOutput().isSound() ||
         (duration && Clock::now() - begin >= *duration);
}

int watch(const WatchWishes& wishes, const std::optional<std::chrono::milliseconds>& duration,
          const WatchCommandOptions& options, Reporter& reporter) {
  Stream stream(reporter);
  const auto tell = [&stream](RunEventBody body) { stream.tell(std::move(body)); };
  MachineWatch machine(tell);
  RunWatch watch(wishes, options.language, stream.record(), machine, VanishedAs::Trouble, tell,
                 "THE_WATCH");
  tell(openingOf(options));
  const Clock::time_point begin = Clock::now();
  watch.start();
  machine.begin();
  Textfile textfile(options.textfiles);
  while (!isOver(duration, begin)) {
    textfile.writeIfDue(stream.metrics());
    std::this_thread::sleep_for(kTurn);
    watch.collect();
  }
  watch.finish(false);
  const StepRecord& step = *stream.record().find(MachineWatch::kStep);
  if (step.isSilent()) {
    tell(StepDiagnosis{MachineWatch::kStep, Verdict::Pass, "passed", "", "", "", 1});
  }
  const bool isTroubled = step.troubles > 0;
  machine.end(isTroubled ? RunStatus::Error : RunStatus::Complete);
  tell(endOf(verdictOf(summaryOf(stream.record()), stream.record().troubleCount())));
  reporter.finish();
  textfile.write(stream.metrics());
  return exitCodeOf(stream.record(), {});
}

}  // namespace

int carryOutWatch(const WatchCommandOptions& options) {
  const auto duration = durationOf(options);
  Interruption::begin();
  const Configuration configuration =
      openConfiguration(options.config, options.wishes, options.isSecure);
  WatchWishes wishes = watchWishesOf(configuration, options.watch);
  wishes.settings.span = Watching::Judge::Span::Day;
  if (wishes.settings.sources.empty()) {
    throw UsageFault(tr("--watch: there is nothing to watch without a source"));
  }
  const auto interval = changePollInterval(wishes);
  std::unique_ptr<Reporter> reporter;
  if (options.format == kLogFormat) {
    reporter = std::make_unique<JsonlReporter>(standardOutput());
  } else {
    reporter = std::make_unique<FindingReporter>(standardOutput());
  }
  return watch(wishes, duration, options, *reporter);
}

}  // namespace TarvexDiags::FrontEnd
