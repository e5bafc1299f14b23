#pragma once

#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>

#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

/// The threads of this process. One that was joined may stand among them for a moment longer, so
/// what others have ended is waited for with threadsComeTo.
inline long threadCount() {
  std::error_code ignored;  // of an entry that goes meanwhile
  return std::distance(std::filesystem::directory_iterator("/proc/self/task", ignored), {});
}

inline bool threadsComeTo(long number) {
  return eventually([number] { return threadCount() == number; });
}

/// The threads of a process that has started one and seen its end: the runtime of a sanitizer may
/// start one of its own with the first.
inline long threadCountAfterFirst() {
  std::string task;
  std::thread([&task] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
  eventually([&] { return access(task.c_str(), F_OK) != 0; });
  return threadCount();
}

}  // namespace TarvexDiags::TestSupport
