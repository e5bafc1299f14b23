#include "packages/misbehaving/OwnRights.h"

#include <fcntl.h>
#include <linux/bpf.h>
#include <linux/keyctl.h>
#include <linux/reboot.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

using namespace TarvexDiags::PackageKit;

namespace {

constexpr long kOpenTreeAttr = 467;

// A run of this package's code while it is loaded, as constructors of packages have it.
long coreLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  return static_cast<long>(limit.rlim_cur);
}
const long kCoreLimitAtLoad = coreLimit();

std::string statusField(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":\t")) {
      return line.substr(name.size() + 2);
    }
  }
  return "?";
}

std::string errorOf(long result) {
  return result < 0 ? strerrorname_np(errno) : "none";
}

std::string nameOf(const std::string& variable) {
  return " " + variable.substr(0, variable.find('='));
}

// As the kernel shows it, which may be closed to all but root, and as the process has it.
std::string variables() {
  std::string names;
  std::ifstream file("/proc/self/environ");
  for (std::string variable; std::getline(file, variable, '\0');) {
    names += nameOf(variable);
  }
  for (char** variable = environ; *variable != nullptr; ++variable) {
    names += nameOf(*variable);
  }
  return names;
}

std::string workingDirectory() {
  char path[4096] = "?";
  return getcwd(path, sizeof path) != nullptr ? path : "?";
}

pid_t parentOf(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("PPid:\t")) {
      return std::stoi(line.substr(6));
    }
  }
  return -1;
}

// By signals that do nothing.
void tellWhomItMaySignal(TestContext& context) {
  const pid_t reaper = getppid();
  const pid_t host = parentOf(reaper);
  context.measurement("signalReaper", errorOf(kill(reaper, 0)));
  context.measurement("signalHost", errorOf(kill(host, 0)));
  context.measurement("signalThread", errorOf(syscall(SYS_tgkill, host, host, 0)));
  context.measurement("signalAnyThread", errorOf(syscall(SYS_tkill, host, 0)));
  context.measurement("queueToReaper", errorOf(sigqueue(reaper, 0, {})));
  context.measurement("signalGroup", errorOf(kill(-getpgid(host), 0)));
  context.measurement("signalEverybody", errorOf(kill(-1, 0)));
  context.measurement("joinGroup", errorOf(setpgid(0, getpgid(host))));
  context.measurement("openHost", errorOf(syscall(SYS_pidfd_open, host, 0)));
  context.measurement("boundHost", errorOf(prlimit(host, RLIMIT_CPU, nullptr, nullptr)));
  context.measurement("owner", errorOf(fcntl(0, F_SETOWN, host)));
  context.measurement("signalItself", errorOf(kill(getpid(), 0)));
}

}  // namespace

std::string ownCapabilities() {
  return statusField("CapEff");
}

Verdict tellsItsRights(TestContext& context) {
  for (const char* const field :
       {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs", "Seccomp"}) {
    context.measurement(field, statusField(field));
  }
  context.measurement("dumpable", std::to_string(prctl(PR_GET_DUMPABLE, 0, 0, 0, 0)));
  context.measurement("coreLimitAtLoad", std::to_string(kCoreLimitAtLoad));
  context.measurement("coreLimit", std::to_string(coreLimit()));
  context.measurement("variables", variables());
  context.measurement("directory", workingDirectory());
  context.measurement("mount", errorOf(mount("none", "/no such directory", "tmpfs", 0, nullptr)));
  context.measurement("modules", errorOf(syscall(SYS_finit_module, -1, "", 0)));
  // Without its magic numbers.
  context.measurement("reboot", errorOf(syscall(SYS_reboot, 0, 0, 0, nullptr)));
  context.measurement("bpf", errorOf(syscall(SYS_bpf, -1, nullptr, 0)));
  context.measurement(
      "keyctl", errorOf(syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_THREAD_KEYRING, 0)));
  context.measurement("ptrace", errorOf(ptrace(PTRACE_PEEKDATA, 0, nullptr, nullptr)));
  context.measurement("openTreeAttr", errorOf(syscall(kOpenTreeAttr, -1, "", 0, nullptr, 0)));
  tellWhomItMaySignal(context);
  return passed();
}
