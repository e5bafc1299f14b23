#include "diagctl/report/Wording.h"

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

std::string testsText(std::size_t count) {
  return trn("1 test", "{} tests", count);
}

std::string machinesText(std::size_t count) {
  return trn("1 machine", "{} machines", count);
}

std::string runsText(std::size_t count) {
  return trn("1 run", "{} runs", count);
}

std::string testOf(const StepStarted& start) {
  return start.package == kOwnPackage ? told(start.test) : start.test;
}

std::string deviceOf(const StepStarted& start) {
  return start.package == kOwnPackage ? told(start.device) : start.device;
}

std::string nameOf(const StepStarted& start) {
  return tr("{}: {} on {}", start.package, testOf(start), deviceOf(start));
}

std::string parameterOf(const RunStarted& start, const char* key) {
  const auto entry = start.parameters.find(key);
  return entry != start.parameters.end() ? entry->second : std::string();
}

std::string durationText(double seconds) {
  if (seconds < 120) {
    return tr("{:.0f} s", seconds);
  }
  return seconds < 7200 ? tr("{:.0f} min", seconds / 60) : tr("{:.1f} h", seconds / 3600);
}

}  // namespace TarvexDiags::FrontEnd
