#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/run/RequestWatch.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/session/Inbox.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Session.h"

namespace TarvexDiags::FrontEnd {

/// Runs a plan: queues each request, tells its stream to a sink, and ends when the last of its own
/// requests has ended, whatever else the controller does.
class Runner {
 public:
  using Sink = std::function<void(const RunEvent&)>;

  Runner(Session& session, const RunPlan& plan, Sink sink, RunRequests& requests);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /// @param start the opening event of the stream.
  /// @return what the stream told, as long as the runner lives.
  const RunRecord& run(const RunStarted& start);

 private:
  struct Step;
  enum class Hold { None, Suspended, Resumed };

  void tellSkipped();
  void tellMissingDevices();
  void queueAll();
  void waitForAll();
  bool isLeft() const;
  void endAfterTotalTime(std::chrono::steady_clock::time_point begin);
  void serveRequests();
  void collect();
  void drainMessages();
  void tellMessages(const std::function<bool(unsigned int)>& isMeant);
  void prepareBegin(const Step& step);
  void endJudgedSteps(const Step& beginning);
  void collectControllerEvents();
  void collectProgress();
  void tellProgress(Step& step, unsigned int percent, const RequestWatch::Pass& pass);
  void end(Step& step);
  Step* stepOf(unsigned int requestId);
  void hold();
  void abort(Step& step);
  void abortAll();
  void tell(RunEventBody body);

  Session& m_session;
  const RunPlan& m_plan;
  Sink m_sink;
  RunRequests& m_requests;
  std::string m_parameters;
  RequestWatch m_watch;
  RunRecord m_record;
  std::vector<Step> m_steps;
  std::map<unsigned int, Step*> m_stepByRequest;
  Inbox<Diag::DiagnosticEvent> m_events;
  Inbox<Diag::DiagnosticResult> m_results;
  std::chrono::steady_clock::time_point m_changedAt;  ///< when a step began or ended last
  bool m_isAborted = false;
  Hold m_hold = Hold::None;  // what a person wants of all requests
};

}  // namespace TarvexDiags::FrontEnd
