#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/run/MachineWatch.h"
#include "diagctl/run/WatchWishes.h"
#include "diagctl/session/Selection.h"
#include "diagctl/session/WatchTexts.h"
#include "watch/Attribution.h"
#include "watch/Watch.h"

namespace TarvexDiags::FrontEnd {

/// What a device of a package is to the watch, by the last part of its tag: "block:sda" for
/// "host/sda". None for what the machine does not have.
std::vector<std::string> resourcesOf(const std::string& tag, const Watching::SystemFiles& files);

/// Watches the machine while a run goes on, and tells what it finds: in the step of the test that
/// it belongs to, or in the step of the machine where that one has ended, or where there is none or
/// more than one. Called by the thread of the run alone.
class RunWatch {
 public:
  using Tell = std::function<void(RunEventBody)>;

  /// @param record of what was told. @param machine gets what belongs to no step. @param tell tells
  ///   and records. All are kept alive by the caller.
  /// @param during token of the text for what findings that belong to no test came during.
  RunWatch(const WatchWishes& wishes, const std::string& language, const RunRecord& record,
           MachineWatch& machine, VanishedAs vanished, Tell tell, const char* during = "THE_RUN");
  ~RunWatch();
  RunWatch(const RunWatch&) = delete;
  RunWatch& operator=(const RunWatch&) = delete;

  /// Begins, and tells once what cannot be watched here.
  void start();
  /// A test is about to begin.
  /// @param provoked kinds of findings that it brings about itself.
  void begin(const std::string& stepId, const SelectedPair& pair,
             const std::set<std::string>& provoked);
  /// A test has ended, and its step is about to: tells what came meanwhile.
  /// @param hasVanished whether it was told that its device is gone.
  void end(const std::string& stepId, bool hasVanished);
  /// Tells what has come.
  void collect();
  /// Tells all that is left.
  /// @param mayWait where the machine tells some errors late, for these, but no longer than the
  ///   tests have taken.
  void finish(bool mayWait);

 private:
  class Inbox;
  /// What was told of a kind of finding in a step.
  struct Told {
    Watching::Severity severity = Watching::Severity::Information;
    std::uint64_t count = 0;  ///< that came
    std::uint64_t told = 0;
    Watching::Moment time = {};  ///< when it was told
    Watching::Finding last = {};
  };
  /// What a test brings about itself.
  struct Provocation {
    std::set<std::string> kinds;
    std::set<std::string> sorts;  ///< of the devices: "net"
  };
  /// What was told of a sensor.
  struct Series {
    std::string id;
    std::size_t count = 0;  ///< of its elements
    double value = 0;       ///< of the last one
    Watching::Moment time = {};
  };
  using Key = std::tuple<std::string, Watching::Kind, std::string, std::string>;

  bool isOpen(const std::string& stepId) const;
  std::string duringOf(const std::vector<std::string>& tests) const;
  void tellAbsent();
  bool isProvoked(const Watching::Finding& finding) const;
  void take(Watching::Finding finding);
  void tellVanished(const Watching::Finding& finding, const std::vector<std::string>& tests);
  void tell(const std::string& stepId, const std::vector<std::string>& tests,
            const Watching::Finding& finding);
  void tellMore(Watching::Moment now);
  void tellCount(const Key& key, Told& told);
  void tellRest(const std::string& stepId);
  void settle() const;
  void tell(const Watching::Sample& sample);
  void endSeries();

  const WatchWishes& m_wishes;
  const WatchTexts m_texts;
  const RunRecord& m_record;
  MachineWatch& m_machine;
  const VanishedAs m_vanished;
  const Tell m_tell;
  const char* const m_during;
  const Watching::SystemFiles m_files;
  Watching::Attribution m_attribution;
  std::map<std::string, std::string> m_tests;     ///< names of the tests that began, by step
  std::map<std::string, Provocation> m_provoked;  ///< by step
  std::set<std::string> m_onDisks;                ///< steps whose tests run on disks
  std::map<Key, Told> m_told;
  std::map<std::string, Series> m_series;                             ///< by sensor
  std::map<std::string, std::vector<Watching::Finding>> m_vanishing;  ///< by open step
  std::chrono::steady_clock::time_point m_firstBegin;
  std::unique_ptr<Inbox> m_inbox;
  std::unique_ptr<Watching::Watch> m_watch;  ///< null when nothing is watched
};

}  // namespace TarvexDiags::FrontEnd
