#include "System/SysUtil.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace TarvexDiags::System {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMachineIdDigits = 32;
constexpr long kNanosecondsPerMillisecond = 1'000'000;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

void sleepFor(Uint seconds, Uint milliseconds) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_nsec += static_cast<long>(milliseconds) * kNanosecondsPerMillisecond;
  deadline.tv_sec += static_cast<time_t>(seconds) + deadline.tv_nsec / kNanosecondsPerSecond;
  deadline.tv_nsec %= kNanosecondsPerSecond;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

std::string firstLineOf(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return SysUtil::stripSpaces(line);
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

bool isHexDigit(char character) {
  return isDigit(character) || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

bool isMachineId(const std::string& text) {
  return text.size() == kMachineIdDigits && std::all_of(text.begin(), text.end(), isHexDigit);
}

bool isVersion(const std::string& text) {
  const auto dot = std::find(text.begin(), text.end(), '.');
  return dot != text.end() && dot != text.begin() && dot + 1 != text.end() &&
         std::all_of(text.begin(), dot, isDigit) && std::all_of(dot + 1, text.end(), isDigit);
}

// The first of its entries by name that begins with the prefix; empty when there is none.
fs::path firstEntry(const fs::path& directory, const std::string& prefix) {
  fs::path first;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const fs::path& path = entry->path();
    const bool matches = path.filename().native().compare(0, prefix.size(), prefix) == 0;
    if (matches && (first.empty() || path < first)) {
      first = path;
    }
  }
  return first;
}

}  // namespace

std::string SysUtil::getOs() {
  return "Linux";
}

std::string SysUtil::getMachineId(const std::string& machineIdFile) {
  const std::string id = firstLineOf(machineIdFile);
  return isMachineId(id) ? id : std::string();
}

std::string SysUtil::GetIpmiVersion(const std::string& platformDevices) {
  const fs::path controller = firstEntry(platformDevices, "ipmi_bmc.");
  if (controller.empty()) {
    return {};
  }
  const std::string version = firstLineOf(controller / "ipmi_version");
  return isVersion(version) ? version : std::string();
}

void SysUtil::sleepForSeconds(Uint seconds) {
  sleepFor(seconds, 0);
}

void SysUtil::sleepForMilliseconds(Uint milliseconds) {
  sleepFor(milliseconds / 1000, milliseconds % 1000);
}

std::string SysUtil::stripSpaces(const std::string& text) {
  static const char blanks[] = " \t\r\n\v\f";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace TarvexDiags::System
