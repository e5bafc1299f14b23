#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace TarvexDiags::SecurityTest {

/// Somebody who is neither root nor whoever runs the tests.
inline constexpr uid_t kStranger = 61234;

/// For tests that need files of two owners: only root can make them.
inline bool canActForOthers() {
  return geteuid() == 0;
}

/// Makes a file or a link somebody's. @throws std::system_error
inline void give(const std::string& path, uid_t user) {
  if (lchown(path.c_str(), user, user) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

/// A directory with all that lies in it.
inline void giveAll(const std::string& directory, uid_t user) {
  give(directory, user);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    give(entry.path(), user);
  }
}

}  // namespace TarvexDiags::SecurityTest

/// Says so and leaves a test that root alone can set up.
#define SKIP_UNLESS_ROOT()                                              \
  if (!TarvexDiags::SecurityTest::canActForOthers()) {                  \
    GTEST_SKIP() << "only root can make files of others to be refused"; \
  }                                                                     \
  static_assert(true)

/// For tests in which root refuses nothing but what the test makes.
#define SKIP_UNLESS_BUILD_IS_TRUSTED()                                              \
  if (!TarvexDiags::DiagctlTest::isBuildTrusted()) {                                \
    GTEST_SKIP() << "root would refuse this build itself: it lies among files that" \
                 << " others own or may write to";                                  \
  }                                                                                 \
  static_assert(true)
