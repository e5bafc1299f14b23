#include "packagekit/worker/CallFilter.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <seccomp.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "packagekit/internal/ReaperRecord.h"

namespace TarvexDiags::PackageKit {

namespace {

using Contract::CallGroup;

struct Call {
  CallGroup group;
  int number;
};

// Of Linux 6.15, and the same on all machines; the library may not know its name yet.
constexpr int kOpenTreeAttr = 467;

constexpr Call kCalls[] = {
    {CallGroup::Modules, SCMP_SYS(init_module)},
    {CallGroup::Modules, SCMP_SYS(finit_module)},
    {CallGroup::Modules, SCMP_SYS(delete_module)},
    {CallGroup::Mount, SCMP_SYS(mount)},
    {CallGroup::Mount, SCMP_SYS(umount2)},
    {CallGroup::Mount, SCMP_SYS(pivot_root)},
    {CallGroup::Mount, SCMP_SYS(open_tree)},
    {CallGroup::Mount, kOpenTreeAttr},
    {CallGroup::Mount, SCMP_SYS(move_mount)},
    {CallGroup::Mount, SCMP_SYS(fsopen)},
    {CallGroup::Mount, SCMP_SYS(fsconfig)},
    {CallGroup::Mount, SCMP_SYS(fsmount)},
    {CallGroup::Mount, SCMP_SYS(fspick)},
    {CallGroup::Mount, SCMP_SYS(mount_setattr)},
    {CallGroup::Reboot, SCMP_SYS(reboot)},
    {CallGroup::Reboot, SCMP_SYS(kexec_load)},
    {CallGroup::Reboot, SCMP_SYS(kexec_file_load)},
    {CallGroup::Bpf, SCMP_SYS(bpf)},
    {CallGroup::Keyctl, SCMP_SYS(keyctl)},
    {CallGroup::Keyctl, SCMP_SYS(add_key)},
    {CallGroup::Keyctl, SCMP_SYS(request_key)},
    {CallGroup::Ptrace, SCMP_SYS(ptrace)},
    {CallGroup::Ptrace, SCMP_SYS(process_vm_readv)},
    {CallGroup::Ptrace, SCMP_SYS(process_vm_writev)},
};

/// A call one of whose arguments names a process.
struct CallOnProcess {
  int number;
  unsigned int place;
};

constexpr CallOnProcess kCallsOnProcesses[] = {
    {SCMP_SYS(kill), 0},       {SCMP_SYS(tgkill), 0},    {SCMP_SYS(rt_tgsigqueueinfo), 0},
    {SCMP_SYS(pidfd_open), 0}, {SCMP_SYS(prlimit64), 0},
};

// Of these nobody can tell whom they mean: a thread of whatever process, one behind a file, one
// named in memory.
constexpr int kCallsOnAnybody[] = {SCMP_SYS(tkill), SCMP_SYS(pidfd_send_signal)};

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, Release>;

// The kernel takes the lower half alone for a process, and for a command.
scmp_arg_cmp isAt(unsigned int place, std::int64_t value) {
  constexpr std::uint64_t kLowerHalf = 0xffffffff;
  return {place, SCMP_CMP_MASKED_EQ, kLowerHalf, static_cast<std::uint64_t>(value) & kLowerHalf};
}

int refuse(const Filter& filter, int call, const std::vector<scmp_arg_cmp>& arguments) {
  return seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(EPERM), call,
                                static_cast<unsigned int>(arguments.size()), arguments.data());
}

// Groups and everybody, below 0 as the calls have them. That of the host has no number here when it
// was made in another namespace of processes.
std::vector<std::int64_t> crowdsAround(const Guardians& guardians) {
  constexpr std::int64_t kEverybody = -1;
  std::vector<std::int64_t> crowds = {kEverybody};
  if (guardians.group > 0) {
    crowds.push_back(-static_cast<std::int64_t>(guardians.group));
  }
  return crowds;
}

// 0, or the negative error of the library.
int refuseSignals(const Filter& filter, const Guardians& guardians) {
  int result = 0;
  const auto add = [&](int call, const std::vector<scmp_arg_cmp>& arguments) {
    result = result == 0 ? refuse(filter, call, arguments) : result;
  };
  for (const std::int64_t guardian : {guardians.reaper, guardians.host}) {
    for (const CallOnProcess& call : kCallsOnProcesses) {
      add(call.number, {isAt(call.place, guardian)});
    }
    add(SCMP_SYS(fcntl), {isAt(1, F_SETOWN), isAt(2, guardian)});
  }
  for (const std::int64_t crowd : crowdsAround(guardians)) {
    add(SCMP_SYS(kill), {isAt(0, crowd)});
    add(SCMP_SYS(fcntl), {isAt(1, F_SETOWN), isAt(2, crowd)});
  }
  // The reaper hears of caretakers by a signal, and that one alone may be sent to it.
  add(SCMP_SYS(rt_sigqueueinfo), {isAt(0, guardians.host)});
  add(SCMP_SYS(rt_sigqueueinfo),
      {isAt(0, guardians.reaper),
       {1, SCMP_CMP_NE, static_cast<std::uint64_t>(caretakerForReaper()), 0}});
  for (const int call : kCallsOnAnybody) {
    add(call, {});
  }
  add(SCMP_SYS(fcntl), {isAt(1, F_SETOWN_EX)});
  add(SCMP_SYS(ioctl), {isAt(1, FIOSETOWN)});
  add(SCMP_SYS(ioctl), {isAt(1, SIOCSPGRP)});
  if (guardians.group > 0) {  // in which a signal for its own would be one for them
    add(SCMP_SYS(setpgid), {isAt(1, guardians.group)});
  }
  return result;
}

// 0, or the negative error of the library.
int load(const Filter& filter, const Contract::Privileges& privileges, const Guardians& guardians) {
  // Calls by the numbers of another machine would go past the rules.
  int result = seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ERRNO(EPERM));
  for (const Call& call : kCalls) {
    if (result == 0 && !privileges.has(call.group)) {
      result = seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call.number, 0);
    }
  }
  result = result == 0 ? refuseSignals(filter, guardians) : result;
  return result == 0 ? seccomp_load(filter.get()) : result;
}

}  // namespace

bool refuseCalls(const Contract::Privileges& privileges, const Guardians& guardians) {
  const Filter filter(seccomp_init(SCMP_ACT_ALLOW));
  const int result = filter ? load(filter, privileges, guardians) : -ENOMEM;
  if (result != 0) {
    std::fprintf(stderr, "the filter of calls: %s\n", std::strerror(-result));
  }
  return result == 0;
}

}  // namespace TarvexDiags::PackageKit
