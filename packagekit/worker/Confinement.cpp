#include "packagekit/worker/Confinement.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "packagekit/PhysicalAddress.h"
#include "packagekit/worker/CallFilter.h"

namespace TarvexDiags::PackageKit {

namespace {

#ifdef TARVEX_INSTRUMENTED
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

bool failed(const char* what) {
  std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
  return false;
}

// Who may not drop them has no way to get them either: no program that it executes gives any.
bool boundCapabilities(const Contract::Privileges& privileges) {
  for (int number = 0; prctl(PR_CAPBSET_READ, number, 0, 0, 0) >= 0; ++number) {
    if (!privileges.hasCapability(static_cast<std::size_t>(number)) &&
        prctl(PR_CAPBSET_DROP, number, 0, 0, 0) != 0 && errno != EPERM) {
      return failed("PR_CAPBSET_DROP");
    }
  }
  return true;
}

bool keepCapabilities(const Contract::Privileges& privileges) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, sets) != 0) {
    return failed("capget");
  }
  for (int word = 0; word < _LINUX_CAPABILITY_U32S_3; ++word) {
    const auto kept = static_cast<std::uint32_t>(privileges.capabilities >> (32 * word));
    sets[word].permitted &= kept;
    sets[word].effective = sets[word].permitted;
    sets[word].inheritable = 0;
  }
  return syscall(SYS_capset, &header, sets) == 0 || failed("capset");
}

}  // namespace

void renounceMore() {
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  limit.rlim_cur = 0;
  setrlimit(RLIMIT_CORE, &limit);
}

void openPageMap() {
  int file = open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  // Its number must not become another file's.
  file = file < 0 ? open("/dev/null", O_RDONLY | O_CLOEXEC) : file;
  if (file >= 0 && file != kPageMapDescriptor) {
    dup3(file, kPageMapDescriptor, O_CLOEXEC);
    close(file);
  }
}

bool confine(const Contract::Privileges& privileges, pid_t host, bool isDebugged) {
  if (!boundCapabilities(privileges) || !keepCapabilities(privileges)) {
    return false;
  }
  if (kIsInstrumented || isDebugged) {
    return true;
  }
  return (prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 || failed("PR_SET_DUMPABLE")) &&
         refuseCalls(privileges, {getppid(), host, getpgid(host)});
}

}  // namespace TarvexDiags::PackageKit
