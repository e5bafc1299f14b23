#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/run/Collector.h"
#include "diagctl/run/CrashTrial.h"
#include "diagctl/run/MachineWatch.h"
#include "diagctl/run/RequestControl.h"
#include "diagctl/run/RequestWatch.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/run/RunWatch.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Session.h"

namespace TarvexDiags::FrontEnd {

/// Runs a plan: queues each request, tells its stream to a sink, and ends when the last of its own
/// requests has ended, whatever else the controller does. A computing test that has crashed is
/// repeated behind the plan, here and on another device, and told to its end then.
class Runner {
 public:
  using Sink = std::function<void(const RunEvent&)>;

  /// @param onEnding called once a run is to end before its time, from any thread, before anything
  /// is told of it: what was told already may take a while to be read.
  Runner(
      Session& session, const RunPlan& plan, Sink sink, RunRequests& requests,
      std::function<void()> onEnding = [] {});
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /// @param start the opening event of the stream.
  /// @return what the stream told, as long as the runner lives.
  const RunRecord& run(const RunStarted& start);

 private:
  struct Step;
  struct Repetition;
  /// What is known of a device that a test may be compared on, the best first.
  enum class Standing { Passed, Unknown, Crashed };
  using Target = std::pair<const DeviceItem*, const TestItem*>;

  void tellSkipped();
  void tellMissingPrivileges();
  void tellMissingDevices();
  void queueAll();
  void queueUnlessEnding(Step& step);
  void queue(Step& step, const std::string& parameters);
  void tryCrashes();
  void tryCrash(Step& crashed, const std::map<Target, Standing>& standings);
  void repeat(Step& crashed, const SelectedPair& pair, CrashTrial::Place place);
  static Standing standingOf(const Step& step);
  std::optional<SelectedPair> otherFor(const Step& crashed,
                                       const std::map<Target, Standing>& standings) const;
  void tellWithin(Step& repetition, RunEventBody body);
  void tellElsewhere(const Step& repetition, StepDiagnosis fault);
  void waitForAll();
  bool isLeft() const;
  void endAfterFailure();
  void endMachineWatch();
  void tellCoverage();
  void tellEnding();
  void takeAborts();
  void stopTrialOf(unsigned long number);
  std::vector<Step*> findEnded();
  void collect();
  void tellMail();
  void tellControllerEvents(const Mail& mail);
  void tellEvent(Step& step, Diag::DiagnosticEvent& event);
  void tellMessages(Mail& mail, const std::function<bool(const Step&)>& isMeant);
  static std::string idForWatch(const Step& step);
  void prepareBegin(const Step& step);
  void endJudgedSteps(const Step& beginning);
  void collectProgress();
  void tellProgress(Step& step, unsigned int percent, const RequestWatch::Pass& pass);
  void end(Step& step);
  void endRepetition(Step& step);
  void endTrial(Step& crashed);
  void stopTrial(Step& crashed, const std::string& reason);
  Step* stepOf(unsigned int requestId);
  void tell(RunEventBody body);

  Session& m_session;
  const RunPlan& m_plan;
  Sink m_sink;
  std::string m_parameters;
  RequestWatch m_watch;
  RequestControl m_control;
  MachineWatch m_machineWatch;
  RunRecord m_record;
  RunWatch m_runWatch;
  std::deque<Step> m_steps;  ///< those of the plan, then the repetitions; none ever moves
  std::map<unsigned int, Step*> m_stepByRequest;
  std::chrono::steady_clock::time_point m_changedAt;  ///< when a step began or ended last
  /// When that happened which is told at present; nothing: now.
  std::optional<std::chrono::system_clock::time_point> m_happenedAt;
  bool m_isEndingTold = false;
  std::deque<Mail> m_mail;               ///< that was fetched and not yet told, oldest first
  std::optional<Collector> m_collector;  ///< while the run lasts; its thread calls the control
};

}  // namespace TarvexDiags::FrontEnd
