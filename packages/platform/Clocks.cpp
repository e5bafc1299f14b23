#include "packages/platform/Clocks.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <utility>
#include <vector>

#include "inventory/Inventory.h"

namespace TarvexDiags::Platform {

namespace {

const std::filesystem::path kRealTimeClocks = "sys/class/rtc";
const std::filesystem::path kSources = "sys/devices/system/clocksource/clocksource0";

std::chrono::nanoseconds timeOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

bool hasWord(const std::vector<std::string>& words, const char* word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// A counter that the processors promise to be steady is given up by the kernel only when it saw
/// that it is not.
bool isCounterGivenUp(const SystemFiles& files, const std::vector<std::string>& available) {
  const Json flags = Inventory::processorFacts(files).value("flags", Json::array());
  const auto has = [&](const char* flag) {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
  };
  return has("constant_tsc") && has("nonstop_tsc") && !has("hypervisor") &&
         !hasWord(available, "tsc");
}

/// @return whether the kernel tells of its source.
bool judgeSource(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  const std::string current = files.word(kSources / "current_clocksource");
  if (current.empty()) {
    return false;
  }
  const std::vector<std::string> available =
      wordsOf(files.text(kSources / "available_clocksource").value_or(""));
  if (!available.empty() && isCounterGivenUp(files, available)) {
    report(journal, PlatformEvent::ClockSourceGivenUp, {device, current});
  } else {
    report(journal, PlatformEvent::ClockSourceInUse, {device, current, joined(available)});
  }
  return true;
}

using Readings = std::map<std::string, std::optional<std::uint64_t>>;

Readings readClocks(const SystemFiles& files) {
  Readings readings;
  for (const int number : files.numberedEntries(kRealTimeClocks, "rtc")) {
    const std::string name = "rtc" + std::to_string(number);
    readings[name] = files.number(kRealTimeClocks / name / "since_epoch");
  }
  return readings;
}

class ClockJudge {
 public:
  ClockJudge(std::string device, const SystemFiles& files, const Reference& reference,
             RunJournal& journal)
      : m_device(std::move(device)), m_files(files), m_reference(reference), m_journal(journal) {}

  void judge(std::chrono::seconds watched) {
    Readings readings = readClocks(m_files);
    std::erase_if(readings, [&](const auto& reading) {
      if (!reading.second) {
        report(m_journal, PlatformEvent::ClockUnreadable, {m_device, reading.first});
      }
      return !reading.second;
    });
    const std::vector<Advance> wrong = watch(watched, readings, PlatformEvent::ClockAdvanced);
    if (wrong.empty()) {
      return;
    }
    Readings again = readClocks(m_files);
    std::erase_if(again, [&](const auto& reading) {
      return std::none_of(wrong.begin(), wrong.end(),
                          [&](const Advance& advance) { return advance.clock == reading.first; });
    });
    for (const Advance& advance : watch(watched, again, PlatformEvent::ClockWasSet)) {
      tell(PlatformEvent::ClockWrong, advance);
    }
  }

 private:
  struct Advance {
    std::string clock;
    std::string seconds;
    std::string elapsed;
  };

  void tell(PlatformEvent event, const Advance& advance) {
    report(m_journal, event, {m_device, advance.clock, advance.seconds, advance.elapsed});
  }

  /// Watches clocks and tells of those that went right.
  /// @return the others
  std::vector<Advance> watch(std::chrono::seconds watched, const Readings& before,
                             PlatformEvent rightEvent) {
    std::vector<Advance> wrong;
    const Uptime begin = m_reference.now();
    if (before.empty() || !m_reference.wait(watched)) {
      return wrong;
    }
    const Readings after = readClocks(m_files);
    const Uptime end = m_reference.now();
    const std::chrono::nanoseconds elapsed = end.awake - begin.awake;
    if (end.all - begin.all - elapsed > std::chrono::milliseconds(100)) {
      throw NotSupported(Reasons::kMachineSlept);
    }
    for (const auto& [clock, reading] : before) {
      const auto last = after.find(clock);
      if (last == after.end() || !last->second || !reading) {
        report(m_journal, PlatformEvent::ClockUnreadable, {m_device, clock});
        continue;
      }
      const auto advanced =
          static_cast<std::int64_t>(*last->second) - static_cast<std::int64_t>(*reading);
      const Advance advance{clock, std::to_string(advanced), secondsText(elapsed)};
      if (isRight(advanced, elapsed)) {
        tell(rightEvent, advance);
      } else {
        wrong.push_back(advance);
      }
    }
    return wrong;
  }

  /// Clocks tell whole seconds alone: each end is up to one second off.
  static bool isRight(std::int64_t advanced, std::chrono::nanoseconds elapsed) {
    const std::int64_t seconds = std::chrono::round<std::chrono::seconds>(elapsed).count();
    return advanced >= seconds - 1 && advanced <= seconds + 1;
  }

  static std::string secondsText(std::chrono::nanoseconds time) {
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(1);
    text << std::chrono::duration<double>(time).count();
    return text.str();
  }

  std::string m_device;
  const SystemFiles& m_files;
  const Reference& m_reference;
  RunJournal& m_journal;
};

}  // namespace

Reference kernelTime(std::function<bool(std::chrono::seconds)> wait) {
  return {[] { return Uptime{timeOf(CLOCK_MONOTONIC), timeOf(CLOCK_BOOTTIME)}; }, std::move(wait)};
}

void judgeClocks(const std::string& device, const SystemFiles& files, std::chrono::seconds watched,
                 const Reference& reference, RunJournal& journal) {
  const bool hasSource = judgeSource(device, files, journal);
  const bool hasClock = !files.numberedEntries(kRealTimeClocks, "rtc").empty();
  if (!hasSource && !hasClock) {
    throw NotSupported(Reasons::kNoClock);
  }
  if (!hasClock) {
    report(journal, PlatformEvent::NoRealTimeClock, {device});
  } else if (watched.count() == 0) {
    report(journal, PlatformEvent::ClockNotWatched, {device});
  } else {
    ClockJudge(device, files, reference, journal).judge(watched);
  }
}

}  // namespace TarvexDiags::Platform
