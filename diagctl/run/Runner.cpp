#include "diagctl/run/Runner.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/run/Comparison.h"
#include "diagctl/run/FetchOrder.h"
#include "diagctl/run/Repetition.h"
#include "diagctl/run/StepJudge.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/TimeWish.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Controller = DiagCtrl::DiagnosticController;
using Clock = std::chrono::steady_clock;
using WallTime = std::chrono::system_clock::time_point;

// As fine as a log keeps it, so that a report of the log says the same as the live one.
WallTime presentTime() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

/// Whatever is told as long as this lives happened at that time.
class HappenedAt {
 public:
  HappenedAt(std::optional<WallTime>& place, std::optional<WallTime> time)
      : m_place(place), m_before(std::exchange(place, time)) {}
  ~HappenedAt() { m_place = m_before; }
  HappenedAt(const HappenedAt&) = delete;
  HappenedAt& operator=(const HappenedAt&) = delete;

 private:
  std::optional<WallTime>& m_place;
  const std::optional<WallTime> m_before;
};

// When the test raised it, where that is told: it's no parameter of the event's own.
std::optional<WallTime> takeTime(Diag::DiagnosticEvent& event) {
  std::vector<std::string> parameters = event.getParamVector();
  const auto time = PackageKit::Contract::takeTime(parameters);
  if (time) {
    event.setParamVector(std::move(parameters));
  }
  return time;
}

// How long the loop waits for a wake-up; a lost one costs no more than that. Nothing announces the
// start of a test, so the loop looks more often where one is due: behind a start or an end.
constexpr std::chrono::milliseconds kLongestWait{100};
constexpr std::chrono::milliseconds kWaitForStart{5};
constexpr std::chrono::seconds kTick{1};

// Of the step of a fault that was found where a crash was repeated on another device.
std::string idElsewhere(const StepJudge& repetition) {
  return repetition.id() + "-elsewhere";
}

unsigned long numberOf(const StepJudge& step) {
  return std::strtoul(step.id().c_str(), nullptr, 10);
}

std::string textOf(Ending ending) {
  switch (ending) {
    case Ending::TimeUsedUp:
      return tr("The total time is used up: what still runs is ended.");
    case Ending::Failed:
      return tr("A test has failed: what still runs is ended.");
    case Ending::Interrupted:
    case Ending::None:
      break;
  }
  return tr("Interrupted: what still runs is ended.");
}

}  // namespace

/// What a step has beside if it repeats a test that crashed.
struct Runner::Repetition {
  PlannedRequest planned;
  std::string parameters;  ///< which the controller reads as long as the request lives
  RunRecord record;        ///< of what its request alone told
  Step& crashed;
  CrashTrial::Place place;
};

struct Runner::Step {
  const PlannedRequest& planned;
  StepJudge judge;
  std::unique_ptr<Repetition> repetition = nullptr;  ///< null for a step of the plan
  std::optional<CrashTrial> trial = std::nullopt;    ///< before which its end is not told
  unsigned long requestId = 0;
  bool isOver = false;  ///< nothing more comes of its request
  int pass = 0;         ///< as told last, with the progress
  unsigned int progress = 0;
  Clock::time_point toldAt = {};  ///< when progress was told last
  /// When its test did last what it told, by its own clock; nothing where its package doesn't tell.
  std::optional<WallTime> testTime = std::nullopt;
};

Runner::Runner(Session& session, const RunPlan& plan, Sink sink, RunRequests& requests,
               std::function<void()> onEnding)
    : m_session(session),
      m_plan(plan),
      m_sink(std::move(sink)),
      m_parameters(parametersOf(plan.options)),
      m_watch(session.controller()),
      m_control(session.controller(), requests, std::move(onEnding)),
      m_machineWatch([this](RunEventBody body) { tell(std::move(body)); }),
      m_runWatch(plan.options.watch, session.texts().language(), m_record, m_machineWatch,
                 plan.options.vanished, [this](RunEventBody body) { tell(std::move(body)); }) {}

Runner::~Runner() = default;

const RunRecord& Runner::run(const RunStarted& start) {
  m_collector.emplace(m_session, [this] { m_control.takeTurn(); });
  tell(start);
  tellMissingPrivileges();
  for (const std::string& warning : m_session.warnings()) {
    tell(RunTrouble{"package-not-loaded", warning});
  }
  tellMissingDevices();
  if (!m_plan.requests.empty()) {
    m_runWatch.start();
  }
  m_control.start(m_plan.options.totalSeconds);
  queueAll();
  waitForAll();
  tryCrashes();
  waitForAll();
  m_collector.reset();
  endMachineWatch();
  tellSkipped();
  tellCoverage();
  tell(endOf(verdictOf(summaryOf(m_record), m_record.troubleCount())));
  return m_record;
}

// Who ends a run before its time does not wait for what is told late.
void Runner::endMachineWatch() {
  m_runWatch.finish(!m_control.isEnding());
  const StepRecord* const step = m_record.find(MachineWatch::kStep);
  m_machineWatch.end(step != nullptr && step->troubles > 0 ? RunStatus::Error
                                                           : RunStatus::Complete);
}

// Behind all others, where nothing is left to be added.
void Runner::tellCoverage() {
  RunCoverage coverage = m_record.coverage().told();
  if (coverage.seconds <= 0) {
    return;  // no test ran
  }
  tell(StepStarted{kCoverageStep, kOwnPackage, marked("this machine"), marked("Coverage"), "", 1});
  tell(std::move(coverage));
  tell(StepEnded{kCoverageStep});
}

void Runner::waitForAll() {
  m_changedAt = Clock::now();
  while (isLeft()) {
    collect();
    endAfterFailure();
    if (isLeft() && m_mail.empty()) {
      const bool isStartDue = Clock::now() - m_changedAt < kLongestWait;
      m_collector->waitFor(isStartDue ? kWaitForStart : kLongestWait);
    }
  }
}

bool Runner::isLeft() const {
  return std::any_of(m_steps.begin(), m_steps.end(), [](const Step& step) { return !step.isOver; });
}

void Runner::endAfterFailure() {
  const StepRecord* const machine = m_record.find(MachineWatch::kStep);
  const bool hasFailed = m_plan.options.failFast && !m_control.isEnding() && isLeft() &&
                         ((machine != nullptr && machine->hasFailed()) ||
                          std::any_of(m_steps.begin(), m_steps.end(),
                                      [](const Step& step) { return step.judge.hasFailed(); }));
  if (hasFailed) {
    m_control.end(Ending::Failed);
    takeAborts();
  }
}

void Runner::tellEnding() {
  const Ending ending = m_control.ending();
  if (ending != Ending::None && !std::exchange(m_isEndingTold, true)) {
    tell(RunMessage{Severity::Warning, textOf(ending)});
  }
}

// What runs is told to have begun, as nobody will look any more.
void Runner::takeAborts() {
  const RequestControl::Aborts aborts = m_control.takeAborts();
  tellEnding();
  for (const RequestControl::Abort& abort : aborts.requests) {
    Step* const step = stepOf(static_cast<unsigned int>(abort.requestId));
    if (step == nullptr || step->isOver) {
      continue;
    }
    if (abort.wasRunning) {
      step->judge.begin();
    }
    step->judge.abort();
  }
  stopTrialOf(aborts.step);
}

void Runner::stopTrialOf(unsigned long number) {
  for (Step& step : m_steps) {
    if (step.isOver && numberOf(step.judge) == number && step.trial && !step.trial->hasBegun()) {
      stopTrial(step, tr("It was ended before the test could be repeated."));
    }
  }
}

void Runner::tell(RunEventBody body) {
  const RunEvent event{m_happenedAt.value_or(presentTime()), std::move(body)};
  m_record.handle(event);
  m_sink(event);
}

// What was selected and cannot run is a step of the report too, behind those that have a verdict.
void Runner::tellSkipped() {
  int number = 0;
  for (const SelectedPair& pair : m_plan.skipped) {
    const std::string id = fmt::format("skipped-{}", ++number);
    tell(startOf(pair, id, passesOf(m_plan.options)));
    tell(StepMessage{id, Severity::Information, pair.package->describe(*pair.device, *pair.test),
                     ""});
    tell(StepEnded{id, RunStatus::Skip, false, pair.package->skipKindOf(*pair.device, *pair.test)});
  }
}

// Said once, before all that follows from it.
void Runner::tellMissingPrivileges() {
  if (geteuid() == 0) {
    return;
  }
  const auto needing =
      std::count_if(m_plan.skipped.begin(), m_plan.skipped.end(), [](const SelectedPair& pair) {
        return pair.package->skipKindOf(*pair.device, *pair.test) == SkipKind::NeedsPrivilege;
      });
  tell(RunMessage{Severity::Information,
                  needing == 0 ? tr("Not run by root; no selected test was found to need that.")
                               : trn("Not run by root: 1 test that needs a privilege is skipped.",
                                     "Not run by root: {} tests that need a privilege are skipped.",
                                     static_cast<std::size_t>(needing))});
}

// A device that is not there is a finding on the hardware, and a step of the report like any other.
void Runner::tellMissingDevices() {
  if (m_plan.missingDevices == 0) {
    return;
  }
  const std::string id = "devices";
  tell(StepStarted{id, kOwnPackage, marked("this machine"), marked("Expected devices"), "", 1});
  tell(StepDiagnosis{
      id, Verdict::Fail, "device-missing",
      trn("1 device was found, {1} are expected.", "{0} devices were found, {1} are expected.",
          m_plan.expectedDevices - m_plan.missingDevices, m_plan.expectedDevices),
      tr("Compare \"diagctl list devices\" with what should be there."), "", 1});
  tell(StepEnded{id, RunStatus::Complete});
}

void Runner::queueAll() {
  for (const PlannedRequest& planned : m_plan.requests) {
    const std::size_t index = m_steps.size();
    const StepJudge::Stream stream{m_record, [this](RunEventBody body) { tell(std::move(body)); },
                                   [this, index] { prepareBegin(m_steps[index]); },
                                   m_plan.options.vanished};
    m_steps.push_back(
        {planned, StepJudge(planned, m_session.texts(), stream, std::to_string(index + 1))});
    queueUnlessEnding(m_steps.back());
  }
}

void Runner::queueUnlessEnding(Step& step) {
  if (m_control.isEnding()) {
    tellEnding();
    step.judge.abort();
    end(step);
  } else {
    queue(step, m_parameters);
  }
}

// @param parameters kept alive by the caller.
void Runner::queue(Step& step, const std::string& parameters) {
  const SelectedPair& pair = step.planned.pair;
  Diag::DiagnosticSettings settings = settingsOf(step.planned, m_plan.options, parameters);
  std::vector<int> tests{pair.test->id};
  const Controller::errorCode code =
      m_session.controller().queueTest(pair.package->index, pair.device->id, tests, settings,
                                       m_plan.options.haltOnError, step.requestId);
  if (code == Controller::SUCCESS) {
    m_stepByRequest[static_cast<unsigned int>(step.requestId)] = &step;
    m_control.add(step.requestId, numberOf(step.judge));
    return;
  }
  step.judge.takeRefusal(code);
  step.isOver = true;
}

// Behind the plan, when all is known of the other devices.
void Runner::tryCrashes() {
  std::map<Target, Standing> standings;
  for (const Step& step : m_steps) {
    standings[{step.planned.pair.device, step.planned.pair.test}] = standingOf(step);
  }
  const std::size_t planned = m_steps.size();
  for (std::size_t index = 0; index < planned; ++index) {
    Step& step = m_steps[index];
    if (step.trial && !step.trial->isOver()) {
      tryCrash(step, standings);
    }
  }
}

Runner::Standing Runner::standingOf(const Step& step) {
  if (step.judge.hasCrashed()) {
    return Standing::Crashed;
  }
  return step.judge.hasBegun() && step.judge.outcome() == StepRecord::Outcome::Passed
             ? Standing::Passed
             : Standing::Unknown;
}

void Runner::tryCrash(Step& crashed, const std::map<Target, Standing>& standings) {
  if (m_control.isEnding()) {
    stopTrial(crashed, tr("The run was ended before the test could be repeated."));
    return;
  }
  const auto other = otherFor(crashed, standings);
  if (!other) {
    crashed.trial->compareWithNone();
    repeat(crashed, crashed.planned.pair, CrashTrial::Place::Here);
    return;
  }
  crashed.trial->compareWith(other->device->name);
  repeat(crashed, crashed.planned.pair, CrashTrial::Place::Here);
  repeat(crashed, *other, CrashTrial::Place::Elsewhere);
}

void Runner::stopTrial(Step& crashed, const std::string& reason) {
  crashed.trial->stop(reason);
  endTrial(crashed);
}

// Best a device on which the test passed, last one on which it crashed too.
std::optional<SelectedPair> Runner::otherFor(const Step& crashed,
                                             const std::map<Target, Standing>& standings) const {
  const std::vector<SelectedPair> pairs = pairsToCompare(crashed.planned.pair, m_plan.offered);
  const auto standing = [&](const SelectedPair& pair) {
    const auto entry = standings.find({pair.device, pair.test});
    return entry != standings.end() ? entry->second : Standing::Unknown;
  };
  const auto best = std::min_element(pairs.begin(), pairs.end(),
                                     [&](const SelectedPair& left, const SelectedPair& right) {
                                       return standing(left) < standing(right);
                                     });
  return best != pairs.end() ? std::optional(*best) : std::nullopt;
}

// As it was when it crashed, its random values included.
void Runner::repeat(Step& crashed, const SelectedPair& pair, CrashTrial::Place place) {
  RunOptions options = m_plan.options;
  if (const std::uint64_t seed = crashed.judge.seedOfCrash(); seed != 0) {
    options.seed = seed;
  }
  auto repetition = std::make_unique<Repetition>(
      Repetition{{pair, crashed.planned.passes, crashed.planned.provoked},
                 parametersOf(options),
                 {},
                 crashed,
                 place});
  const std::size_t index = m_steps.size();
  const StepJudge::Stream stream{
      repetition->record,
      [this, index](RunEventBody body) { tellWithin(m_steps[index], std::move(body)); },
      [this, index] { prepareBegin(m_steps[index]); }, m_plan.options.vanished};
  const PlannedRequest& planned = repetition->planned;
  m_steps.push_back({planned, StepJudge(planned, m_session.texts(), stream, crashed.judge.id()),
                     std::move(repetition)});
  Step& step = m_steps.back();
  queue(step, step.repetition->parameters);
  if (step.isOver) {
    endRepetition(step);
  }
}

void Runner::tellWithin(Step& repetition, RunEventBody body) {
  const bool isElsewhere = repetition.repetition->place == CrashTrial::Place::Elsewhere;
  auto told = toldWithin(body, !isElsewhere);
  repetition.repetition->record.handle({std::chrono::system_clock::now(), std::move(body)});
  if (!told) {
    return;
  }
  auto* const fault = std::get_if<StepDiagnosis>(&*told);
  if (fault != nullptr && isElsewhere) {
    tellElsewhere(repetition, std::move(*fault));
  } else {
    tell(std::move(*told));
  }
}

// A fault of the device that a crash is compared with is none of the one that crashed: it gets a
// step of its own.
void Runner::tellElsewhere(const Step& repetition, StepDiagnosis fault) {
  fault.stepId = idElsewhere(repetition.judge);
  if (m_record.find(fault.stepId) == nullptr) {
    tell(startOf(repetition.planned.pair, fault.stepId, repetition.planned.passes));
  }
  tell(std::move(fault));
}

std::vector<Runner::Step*> Runner::findEnded() {
  std::vector<Step*> over;
  for (Step& step : m_steps) {
    if (!step.isOver && m_watch.hasEnded(step.requestId)) {
      over.push_back(&step);
    }
  }
  return over;
}

void Runner::collect() {
  const std::vector<Step*> over =
      fetchInOrder([this] { return findEnded(); }, [this] { m_collector->moveTo(m_mail); },
                   [this] { takeAborts(); });
  tellMail();
  collectProgress();
  m_runWatch.collect();
  for (Step* step : over) {
    if (!step->isOver) {
      end(*step);
    }
  }
}

Runner::Step* Runner::stepOf(unsigned int requestId) {
  const auto entry = m_stepByRequest.find(requestId);
  return entry != m_stepByRequest.end() ? entry->second : nullptr;
}

// What is fetched while this is told waits for the next turn, which knows of the aborts till then.
void Runner::tellMail() {
  for (std::size_t left = m_mail.size(); left > 0; --left) {
    tellControllerEvents(m_mail.front());
    tellMessages(m_mail.front(), [](const Step& /*step*/) { return true; });
    m_mail.pop_front();
    endAfterFailure();
  }
}

void Runner::tellControllerEvents(const Mail& mail) {
  for (const auto& event : mail.controllerEvents) {
    Step* const step = stepOf(event->getTestRequestId());
    if (step != nullptr && !step->isOver) {
      step->judge.take(*event);
    }
  }
}

// Telling one may lead to a call for other messages of the same mail, so what is told is taken out.
void Runner::tellMessages(Mail& mail, const std::function<bool(const Step&)>& isMeant) {
  const auto tellAll = [&](auto& messages, const auto& tellOne) {
    for (auto& message : messages) {
      Step* const step = message != nullptr ? stepOf(message->getTestRequestId()) : nullptr;
      if (step != nullptr && isMeant(*step)) {
        const auto taken = std::move(message);
        tellOne(*step, *taken);
      }
    }
  };
  tellAll(mail.events,
          [this](Step& step, Diag::DiagnosticEvent& event) { tellEvent(step, event); });
  tellAll(mail.results, [this](Step& step, const Diag::DiagnosticResult& result) {
    const HappenedAt then(m_happenedAt, step.testTime);
    step.judge.take(result);
  });
}

// However late it was fetched: this program may have been stopped. A package can't date an event to
// the time before its step or what its test did before, or to one that is still to come.
void Runner::tellEvent(Step& step, Diag::DiagnosticEvent& event) {
  if (const auto raised = takeTime(event)) {
    const WallTime now = presentTime();
    const StepRecord* const record = m_record.find(step.judge.id());
    const WallTime begin = record != nullptr ? record->begin : m_record.begin();
    step.testTime = std::clamp(*raised, std::min(step.testTime.value_or(begin), now), now);
  }
  const HappenedAt then(m_happenedAt, step.testTime);
  step.judge.take(event);
  m_machineWatch.take(event);
}

void Runner::collectProgress() {
  for (Step& step : m_steps) {
    if (step.isOver || step.judge.isAborted()) {
      continue;
    }
    const auto pass = m_watch.runningPass(step.requestId);
    if (!pass) {
      continue;
    }
    step.judge.begin();
    if (const auto percent = m_watch.progress(step.requestId)) {
      tellProgress(step, *percent, *pass);
    }
  }
}

// At each change, and so often besides that a clock beside it goes on.
void Runner::tellProgress(Step& step, unsigned int percent, const RequestWatch::Pass& pass) {
  const auto now = Clock::now();
  if (percent == step.progress && pass.number == step.pass && now - step.toldAt < kTick) {
    return;
  }
  step.progress = percent;
  step.pass = pass.number;
  step.toldAt = now;
  tell(StepProgress{step.judge.id(), percent, pass.number, pass.of,
                    m_control.isSuspended(step.requestId)});
}

// What the machine shows on the device that a crash is compared with is none of the crashed one.
std::string Runner::idForWatch(const Step& step) {
  const bool isElsewhere =
      step.repetition != nullptr && step.repetition->place == CrashTrial::Place::Elsewhere;
  return isElsewhere ? idElsewhere(step.judge) : step.judge.id();
}

void Runner::prepareBegin(const Step& step) {
  endJudgedSteps(step);
  m_runWatch.begin(idForWatch(step), step.planned.pair, step.planned.provoked);
  m_changedAt = Clock::now();
}

// A test that was judged is told to its end before another one begins: its place may be the reason
// why the other could start.
void Runner::endJudgedSteps(const Step& beginning) {
  const auto giveUp = Clock::now() + kLongestWait;
  for (Step& step : m_steps) {
    if (&step == &beginning || !step.judge.hasBegun() || step.isOver ||
        !m_watch.isJudged(step.requestId)) {
      continue;
    }
    const bool isOver = m_watch.waitForEnd(step.requestId, giveUp);
    m_collector->moveTo(m_mail);
    for (Mail& mail : m_mail) {
      tellMessages(mail, [&](const Step& meant) { return &meant == &step; });
    }
    if (isOver && !step.isOver) {
      end(step);
    }
  }
}

void Runner::end(Step& step) {
  m_changedAt = Clock::now();
  step.isOver = true;
  m_control.remove(step.requestId);
  m_runWatch.end(idForWatch(step), step.judge.hasVanished());
  if (step.repetition != nullptr) {
    endRepetition(step);
  } else if (step.judge.awaitsTrial()) {
    step.judge.adjourn();
    step.trial.emplace(step.planned.pair.device->name);
  } else {
    const HappenedAt then(m_happenedAt, step.testTime);
    step.judge.end();
  }
}

void Runner::endRepetition(Step& step) {
  Repetition& repetition = *step.repetition;
  if (!step.judge.hasEnded()) {
    step.judge.end();
  }
  const CrashTrial::Repetition outcome = outcomeOf(step.judge);
  if (const std::string id = idElsewhere(step.judge);
      repetition.place == CrashTrial::Place::Elsewhere && m_record.find(id) != nullptr) {
    tell(StepEnded{id, RunStatus::Complete});
  }
  tell(messageOf(step.judge.id(), outcome, step.planned.pair.device->name));
  repetition.crashed.trial->take(repetition.place, outcome);
  endTrial(repetition.crashed);
}

void Runner::endTrial(Step& crashed) {
  if (crashed.trial->isOver() && !crashed.judge.hasEnded()) {
    crashed.judge.end(crashed.trial->finding());
  }
}

}  // namespace TarvexDiags::FrontEnd
