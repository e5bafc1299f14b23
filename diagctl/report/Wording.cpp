#include "diagctl/report/Wording.h"

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

std::string testsText(std::size_t count) {
  return count == 1 ? tr("1 test") : tr("{} tests", count);
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
