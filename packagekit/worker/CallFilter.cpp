#include "packagekit/worker/CallFilter.h"

#include <seccomp.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace TarvexDiags::PackageKit {

namespace {

using Contract::CallGroup;

struct Call {
  CallGroup group;
  int number;
};

constexpr Call kCalls[] = {
    {CallGroup::Modules, SCMP_SYS(init_module)},
    {CallGroup::Modules, SCMP_SYS(finit_module)},
    {CallGroup::Modules, SCMP_SYS(delete_module)},
    {CallGroup::Mount, SCMP_SYS(mount)},
    {CallGroup::Mount, SCMP_SYS(umount2)},
    {CallGroup::Mount, SCMP_SYS(pivot_root)},
    {CallGroup::Mount, SCMP_SYS(open_tree)},
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

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, Release>;

// 0, or the negative error of the library.
int load(const Filter& filter, const Contract::Privileges& privileges) {
  // Calls by the numbers of another machine would go past the rules.
  int result = seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ERRNO(EPERM));
  for (const Call& call : kCalls) {
    if (result == 0 && !privileges.has(call.group)) {
      result = seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call.number, 0);
    }
  }
  return result == 0 ? seccomp_load(filter.get()) : result;
}

}  // namespace

bool refuseCalls(const Contract::Privileges& privileges) {
  const Filter filter(seccomp_init(SCMP_ACT_ALLOW));
  const int result = filter ? load(filter, privileges) : -ENOMEM;
  if (result != 0) {
    std::fprintf(stderr, "the filter of calls: %s\n", std::strerror(-result));
  }
  return result == 0;
}

}  // namespace TarvexDiags::PackageKit
