#include "packagekit/internal/PackageLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr off_t kLargestLog = 16 * 1024 * 1024;

std::string timeStamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  char text[64];
  const std::size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03ldZ", now.tv_nsec / 1'000'000);
  return text;
}

std::string onOneLine(std::string text) {
  for (char& character : text) {
    if (static_cast<unsigned char>(character) < ' ') {
      character = ' ';
    }
  }
  return text;
}

}  // namespace

void writeLogLine(const std::string& file, const std::string& line) noexcept {
  if (file.empty()) {
    return;
  }
  try {
    // Whoever may put a link or a pipe in the log's place decides nothing by it, and holds nobody
    // up.
    constexpr int kFlags =
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const UniqueDescriptor log(::open(file.c_str(), kFlags, 0644));
    struct stat state {};
    if (!log || fstat(log.get(), &state) != 0 || !S_ISREG(state.st_mode)) {
      return;
    }
    if (state.st_size > kLargestLog) {
      std::rename(file.c_str(), (file + ".1").c_str());
    }
    const std::string text =
        timeStamp() + " [" + std::to_string(getpid()) + "] " + onOneLine(line) + "\n";
    // One call for the line: appends of several processes then stay apart.
    [[maybe_unused]] const ssize_t written = ::write(log.get(), text.data(), text.size());
  } catch (const std::exception&) {
  }
}

}  // namespace TarvexDiags::PackageKit
