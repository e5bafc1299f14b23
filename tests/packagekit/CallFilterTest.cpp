// What a worker may still do, and what not, by the filter of its calls.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include "packagekit/worker/CallFilter.h"

namespace TarvexDiags::PackageKit {
namespace {

/// The exit status of a process that has the filter and does something: 0 if that worked, else its
/// errno.
int outcomeOf(const Guardians& guardians, const std::function<bool()>& deed) {
  const pid_t child = fork();
  if (child == 0) {
    if (!refuseCalls({}, guardians)) {
      _exit(255);
    }
    _exit(deed() ? 0 : errno);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// As the group of a host has it that was started in another namespace of processes.
constexpr pid_t kUntold = 0;

TEST(CallFilter, leaves_a_worker_its_own_group_and_limits_where_its_hosts_group_has_no_number) {
  for (const pid_t group : {kUntold, pid_t{-1}}) {
    const Guardians guardians{getppid(), getpid(), group};
    const rlimit limit{1UL << 30U, 1UL << 30U};
    EXPECT_EQ(outcomeOf(guardians, [&] { return setrlimit(RLIMIT_FSIZE, &limit) == 0; }), 0);
    EXPECT_EQ(outcomeOf(guardians, [] { return setpgid(0, 0) == 0; }), 0);
    EXPECT_EQ(outcomeOf(guardians, [] { return setpgid(0, 0) == 0 && kill(0, 0) == 0; }), 0);
  }
}

TEST(CallFilter, refuses_signals_to_guardians_their_group_and_everybody) {
  const Guardians guardians{getppid(), getpid(), getpgrp()};
  for (const pid_t whom : {getppid(), getpid(), -getpgrp(), -1}) {
    EXPECT_EQ(outcomeOf(guardians, [whom] { return kill(whom, 0) == 0; }), EPERM) << whom;
  }
  const pid_t host = getpid();
  EXPECT_EQ(outcomeOf(guardians, [host] { return sigqueue(host, 0, {}) == 0; }), EPERM);
  EXPECT_EQ(outcomeOf(guardians, [] { return setpgid(0, getpgrp()) == 0; }), EPERM);
  EXPECT_EQ(outcomeOf(guardians, [] { return kill(getpid(), 0) == 0; }), 0);
}

}  // namespace
}  // namespace TarvexDiags::PackageKit
