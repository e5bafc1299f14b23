#include "diagctl/report/Wording.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string inForm(std::chrono::system_clock::time_point time, const char* form) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), form, &parts);
  return {text.data(), length};
}

}  // namespace

std::string testsText(std::size_t count) {
  return trn("1 test", "{} tests", count);
}

std::string machinesText(std::size_t count) {
  return trn("1 machine", "{} machines", count);
}

std::string runsText(std::size_t count) {
  return trn("1 run", "{} runs", count);
}

std::size_t widthOfHeads() {
  using Word = StepRecord::Outcome;
  std::size_t width = 0;
  for (const Word outcome :
       {Word::Passed, Word::Failed, Word::Warning, Word::Trouble, Word::Aborted, Word::Skipped}) {
    width = std::max(width, columnsOf(told(wordOf(outcome))));
  }
  return width;
}

std::string headOf(StepRecord::Outcome outcome) {
  return padded(told(wordOf(outcome)), widthOfHeads());
}

std::string keyOfTest(const std::string& package, const std::string& test) {
  return fmt::format("{}: {}", package, test);
}

std::string localNameOf(const RunStarted& start, const std::string& key) {
  const auto name = start.localNames.find(key);
  const bool isKnown = name != start.localNames.end() && start.language == languageOfTexts();
  return isKnown ? name->second : std::string();
}

std::string packageOf(const StepStarted& start) {
  return start.localPackage.empty() ? start.package : start.localPackage;
}

std::string testOf(const StepStarted& start) {
  if (start.package == kOwnPackage) {
    return told(start.test);
  }
  return start.localTest.empty() ? start.test : start.localTest;
}

std::string deviceOf(const StepStarted& start) {
  return start.package == kOwnPackage ? told(start.device) : start.device;
}

std::string nameOf(const StepStarted& start) {
  return tr("{}: {} on {}", packageOf(start), testOf(start), deviceOf(start));
}

std::string withoutDevice(const std::string& text, const StepStarted& start) {
  const std::string device = deviceOf(start);
  if (device.empty() || !text.starts_with(device)) {
    return text;
  }
  const std::string_view behind = std::string_view(text).substr(device.size());
  for (const std::string_view colon : {": ", " : ", "\uff1a"}) {
    if (behind.starts_with(colon) && behind.size() > colon.size()) {
      return std::string(behind.substr(colon.size()));
    }
  }
  return text;
}

std::string headOf(const StepRecord& step) {
  const std::size_t further = step.furtherFindings();
  return further == 0 ? step.headline() : tr("{} (and {} more)", step.headline(), further);
}

std::string parameterOf(const RunStarted& start, const char* key) {
  const auto entry = start.parameters.find(key);
  return entry != start.parameters.end() ? entry->second : std::string();
}

std::string timeText(std::chrono::system_clock::time_point time) {
  constexpr std::size_t kMinutes = 2;  // digits of the offset, behind its hours
  std::string text = inForm(time, "%Y-%m-%dT%H:%M:%S%z");
  return text.insert(text.size() - std::min(kMinutes, text.size()), ":");
}

std::string clockText(std::chrono::system_clock::time_point time) {
  return inForm(time, "%H:%M");
}

std::string durationText(double seconds) {
  if (seconds < 120) {
    return tr("{:.0f} s", seconds);
  }
  return seconds < 7200 ? tr("{:.0f} min", seconds / 60) : tr("{:.1f} h", seconds / 3600);
}

}  // namespace TarvexDiags::FrontEnd
