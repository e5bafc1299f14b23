#include "diagctl/command/HealthCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <optional>
#include <string>

#include "System/SysUtil.h"
#include "diagctl/command/JsonAnswers.h"
#include "diagctl/health/HealthCheck.h"
#include "diagctl/health/HealthStore.h"
#include "diagctl/health/SlurmNode.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/RunMetrics.h"
#include "diagctl/report/SystemLog.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

using HealthClock = ChildProcess::Clock;
using std::chrono::milliseconds;

constexpr unsigned long kMostSeconds = 45;  ///< without --max-time
constexpr std::chrono::seconds kMostAge =
    std::chrono::hours(1);                   ///< of what a second caller is told
constexpr std::size_t kLongestReason = 200;  ///< of a drained node

/// What is told.
struct Answer {
  HealthAccount account;
  double seconds = 0;  ///< that the check has taken
  std::chrono::seconds age{0};
  bool isOfEarlier = false;
  bool wasInterrupted = false;
  std::optional<SystemLogLine> logged = std::nullopt;  ///< of a check that was made
};

Answer unknown(const std::string& reason) {
  Answer answer;
  answer.account.findings.push_back({.text = reason});
  return answer;
}

/// When what has to be over.
struct Deadlines {
  CheckTimes check;
  HealthClock::time_point slurm;
};

// At the end there is time to tell it all, and before that for the node.
Deadlines deadlinesOf(const HealthOptions& options) {
  const milliseconds all = std::chrono::seconds(options.mostSeconds.value_or(kMostSeconds));
  const bool asksSlurm = options.drains || options.undrainsOwn;
  const milliseconds forSlurm =
      asksSlurm ? std::min<milliseconds>(std::chrono::seconds(10), all / 4) : milliseconds(0);
  const milliseconds forTelling = std::min<milliseconds>(std::chrono::seconds(1), all / 8);
  const milliseconds forEnding = std::min<milliseconds>(std::chrono::seconds(5), all / 4);
  const HealthClock::time_point end = HealthClock::now() + all - forTelling;
  return {{end - forSlurm - forEnding, end - forSlurm}, end};
}

// A result of one memory module tells nothing of the machine.
std::string scopeOf(const RunCommandOptions& run) {
  const SelectionPatterns& patterns = run.patterns;
  const WatchOptions& watch = run.watch;
  const Json scope = {describe(run.run),
                      run.config.value_or(""),
                      patterns.words,
                      patterns.packages,
                      patterns.devices,
                      patterns.tests,
                      patterns.excludedPackages,
                      patterns.excludedDevices,
                      patterns.excludedTests,
                      run.wishes.directories,
                      run.wishes.settings,
                      watch.sources.value_or(""),
                      watch.interval.value_or(""),
                      watch.settle.value_or(""),
                      watch.correctedErrorInterval.value_or("")};
  return scope.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool isSecureHealth(const HealthOptions& options) {
  return !options.run.allowsInsecure && mustBeSecure();
}

HealthStore storeOf(const HealthOptions& options) {
  return {options.state ? std::filesystem::path(*options.state) : HealthStore::ofUser(),
          isSecureHealth(options)};
}

Answer answerOf(const HealthResult& result, VanishedAs vanished, std::chrono::seconds mostAge) {
  const auto age = std::chrono::duration_cast<std::chrono::seconds>(
      std::max(std::chrono::system_clock::now() - result.ended,
               std::chrono::system_clock::duration::zero()));
  Answer answer{result.account(vanished), result.seconds, age, true};
  if (age > mostAge) {
    const std::string line = lineOf(answer.account, HealthStyle::Plain, "");
    answer = unknown(tr("the last result is {} old: {}", shortTime(age), line));
  }
  return answer;
}

/// What the last check has left, which for others than root may be one of root's.
Answer tellLast(const HealthOptions& options, VanishedAs vanished) {
  const std::string scope = scopeOf(options.run);
  const std::chrono::seconds mostAge(*options.cached);
  const bool isOwnPlace = options.state.has_value() || mustBeSecure();
  if (!isOwnPlace) {
    const auto ofMachine = HealthStore(HealthStore::ofMachine(), false).last(scope);
    if (ofMachine) {
      return answerOf(*ofMachine, vanished, mostAge);
    }
  }
  const auto last = storeOf(options).last(scope);
  return last ? answerOf(*last, vanished, mostAge) : unknown(tr("no check has left a result yet"));
}

/// What the last check has left while another one is under way.
Answer tellOther(const HealthStore& store, const std::string& scope, VanishedAs vanished) {
  const auto last = store.last(scope);
  return last ? answerOf(*last, vanished, kMostAge)
              : unknown(tr("another check is under way, and there is no result yet"));
}

/// In the process of the run.
int runForCheck(RunCommandOptions run) {
  run.isTheVerb = false;
  run.reporting = {};
  run.reporting.format = kLogFormat;
  run.reporting.vanished = VanishedAs::Trouble;
  run.isQuiet = true;
  try {
    const int code = carryOutRun(run);
    standardOutput().flush();
    return code;
  } catch (const std::exception& failure) {
    tellFailure(failure);
    return ExitCode::kNoVerdict;
  }
}

// What whoever reads the result elsewhere does not get is no pass.
template <class Act>
void attempt(HealthAccount& account, Act act) {
  try {
    act();
  } catch (const std::exception& failure) {
    tellFailure(failure);
    if (account.code == ExitCode::kPassed) {
      account.code = ExitCode::kNoVerdict;
      account.findings.insert(account.findings.begin(), {.text = reasonOf(failure)});
    }
  }
}

Answer check(const HealthOptions& options, const Deadlines& deadlines, const HealthStore& store,
             VanishedAs vanished) {
  const HealthClock::time_point begin = HealthClock::now();
  const std::string limit =
      shortTime(std::chrono::seconds(options.mostSeconds.value_or(kMostSeconds)));
  RunMetrics metrics("health", {}, vanished);
  const FinishedCheck finished =
      runCheck([&] { return runForCheck(options.run); }, deadlines.check, limit,
               [] { return Interruption::requests().abortAll.load(); },
               [&](const RunEvent& event) { metrics.handle(event); });
  standardError().write(finished.said);
  const double seconds = std::chrono::duration<double>(HealthClock::now() - begin).count();
  const HealthResult result{System::SysUtil::getMachineId(),      scopeOf(options.run),
                            std::chrono::system_clock::now(),     seconds,
                            finished.vanishedIsTrouble.account(), finished.vanishedFails.account()};
  Answer answer{result.account(vanished), seconds, {}, false, finished.wasInterrupted, {}};
  answer.logged = systemLogLineOf("health", finished.run(vanished).record(), {});
  // One that somebody has ended says nothing, unless it had found a fault.
  if (!finished.wasInterrupted || answer.account.code == ExitCode::kHardwareFailure) {
    attempt(answer.account, [&] { store.keep(result); });
    if (options.textfiles) {
      attempt(answer.account,
              [&] { writeTextfile(textfileOf(*options.textfiles, "health"), metrics); });
    }
  }
  return answer;
}

Answer answerFor(const HealthOptions& options, const Deadlines& deadlines, VanishedAs vanished) {
  try {
    if (options.cached) {
      return tellLast(options, vanished);
    }
    const HealthStore store = storeOf(options);
    const auto lock = store.tryLock();
    return lock ? check(options, deadlines, store, vanished)
                : tellOther(store, scopeOf(options.run), vanished);
  } catch (const std::exception& failure) {
    tellFailure(failure);
    return unknown(reasonOf(failure));
  }
}

// How old a result is, whoever has it; how long a check has taken, where there is no more to say.
std::string remarkOn(const Answer& answer) {
  if (answer.isOfEarlier) {
    return english("{} ago", shortTime(answer.age));
  }
  const bool hasPassed = answer.account.code == ExitCode::kPassed;
  return hasPassed ? shortTime(std::chrono::seconds(std::lround(answer.seconds))) : "";
}

void tell(const Answer& answer, HealthStyle style) {
  Printer& out = standardOutput();
  out.write(lineOf(answer.account, style, remarkOn(answer)));
  if (style == HealthStyle::Nagios) {
    out.write(" | " + performanceOf(answer.account, answer.seconds,
                                    static_cast<double>(answer.age.count())));
  }
  out.write("\n");
  if (style != HealthStyle::Npd) {
    out.write(detailsOf(answer.account));
  }
  out.flush();
}

// The verdict stands, whatever becomes of this.
void tellSlurm(const HealthOptions& options, const HealthAccount& account,
               HealthClock::time_point until) {
  const bool drains = options.drains && account.code == ExitCode::kHardwareFailure;
  const bool undrains = options.undrainsOwn && account.code == ExitCode::kPassed;
  if (!drains && !undrains) {
    return;
  }
  try {
    const SlurmNode node(options.slurmConfiguration, isSecureHealth(options), until);
    const std::string done =
        drains ? node.drain(reasonOf(account, kLongestReason)) : node.undrainOwn();
    if (!done.empty()) {
      standardError().print("diagctl: {}\n", done);
    }
  } catch (const std::exception& failure) {
    standardError().say("diagctl: warning: {}\n", reasonOf(failure));
  }
}

// Schedulers and monitors keep its line, and it may be told again to those of another language.
HealthOptions inEnglish(HealthOptions options) {
  options.run.language = PackageKit::Contract::kFallbackLanguage;
  speak(options.run.language);
  return options;
}

}  // namespace

int carryOutHealth(const HealthOptions& given) {
  const HealthOptions options = inEnglish(given);
  const Deadlines deadlines = deadlinesOf(options);
  Interruption::begin();
  const VanishedAs vanished = options.vanished.value_or(vanishedFor(options.style));
  const Answer answer = answerFor(options, deadlines, vanished);
  tell(answer, options.style);
  tellSlurm(options, answer.account, deadlines.slurm);
  if (answer.logged) {
    tellSystemLog(*answer.logged);
  }
  const bool hasSignal = answer.wasInterrupted && options.style == HealthStyle::Plain;
  return hasSignal ? ExitCode::kSignalBase + Interruption::signal()
                   : exitCodeFor(answer.account, options.style);
}

}  // namespace TarvexDiags::FrontEnd
