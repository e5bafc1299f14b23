#include "packagekit/worker/Reaper.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "packagekit/internal/PoisonRecord.h"
#include "packagekit/internal/ReaperRecord.h"

namespace TarvexDiags::PackageKit {

namespace {

// For one that puts something back, such as the interfaces of the network.
constexpr time_t kCaretakerSeconds = 4;
constexpr int kMostCaretakers = 8;
// How long what was killed may take before it is looked for again.
constexpr timespec kSweepPause{0, 5'000'000};
constexpr timespec kNoTime{0, 0};

constexpr int kHostGone = SIGHUP;

time_t secondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

class Reaper {
 public:
  Reaper(pid_t host, pid_t worker, ReaperRecord& record, bool isSuspended)
      : m_host(host), m_worker(worker), m_record(record), m_isSuspended(isSuspended) {}

  /// Returns when no process is left below.
  void run(const sigset_t& signals) {
    int status = 0;
    for (obey(); !hasReapedWorker(status); obey()) {
      take(signals, nullptr);
    }
    const time_t end = secondsNow() + kCaretakerSeconds;
    hearCaretakers(end);
    while (reapOthers()) {
      killOthers(secondsNow() < end);
      take(signals, &kSweepPause);
    }
    m_record.end(status);
  }

 private:
  // False when there was none in time.
  bool take(const sigset_t& signals, const timespec* limit) {
    siginfo_t info{};
    const int number = sigtimedwait(&signals, &info, limit);
    if (number == kHostGone && info.si_pid == m_host) {
      m_hostIsGone = true;
    } else if (number == caretakerForReaper() && info.si_pid == m_worker &&
               m_caretakerCount < kMostCaretakers) {
      m_caretakers[m_caretakerCount++] = info.si_value.sival_int;
    }
    return number > 0;
  }

  // The end of the worker may overtake what it said before. Who floods this is not waited for.
  void hearCaretakers(time_t end) {
    sigset_t announcements;
    sigemptyset(&announcements);
    sigaddset(&announcements, caretakerForReaper());
    while (take(announcements, &kNoTime) && secondsNow() < end) {
    }
  }

  // Done at each signal, whoever sent it: of two that are pending the kernel keeps one.
  void obey() {
    if (m_hostIsGone || getppid() != m_host || m_record.isToBeKilled()) {
      killWorker();
      return;
    }
    if (m_isSuspended != m_record.isSuspended()) {
      m_isSuspended = !m_isSuspended;
      kill(-m_worker, m_isSuspended ? SIGSTOP : SIGCONT);
    }
    if (!m_isAskedToEnd && m_record.isAskedToEnd()) {
      m_isAskedToEnd = true;
      kill(-m_worker, SIGTERM);
    }
  }

  // It may have left its group.
  void killWorker() const {
    kill(-m_worker, SIGKILL);
    kill(m_worker, SIGKILL);
  }

  // Orphans that end beside the worker go too, or they would use up the process numbers. While the
  // worker itself is not reaped its number is its own.
  bool hasReapedWorker(int& status) const {
    for (;;) {
      siginfo_t info{};
      if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) {
        return false;
      }
      if (info.si_pid == m_worker) {
        killWorker();
        waitpid(m_worker, &status, 0);
        return true;
      }
      waitpid(info.si_pid, nullptr, 0);
    }
  }

  // False when there is none any more.
  static bool reapOthers() {
    pid_t process = 0;
    do {
      process = waitpid(-1, nullptr, WNOHANG);
    } while (process > 0);
    return process == 0;
  }

  // Children of theirs are found when they have become ours.
  void killOthers(bool sparesCaretakers) const {
    DIR* const directory = opendir("/proc");
    if (directory == nullptr) {
      return;
    }
    while (const dirent* const entry = readdir(directory)) {
      const pid_t process = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
      if (process > 0 && isChild(process) && !(sparesCaretakers && isCaretaker(process))) {
        kill(process, SIGKILL);
      }
    }
    closedir(directory);
  }

  static bool isChild(pid_t process) {
    char name[64];
    char text[512] = "";
    snprintf(name, sizeof name, "/proc/%d/stat", process);
    const int file = open(name, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
      return false;
    }
    const ssize_t size = read(file, text, sizeof text - 1);
    close(file);
    // "PID (NAME) STATE PARENT ...", and the name may hold anything.
    const char* const end = size > 0 ? strrchr(text, ')') : nullptr;
    return end != nullptr && strlen(end) > 4 && strtol(end + 4, nullptr, 10) == getpid();
  }

  bool isCaretaker(pid_t process) const {
    for (int index = 0; index < m_caretakerCount; ++index) {
      if (m_caretakers[index] == process) {
        return true;
      }
    }
    return false;
  }

  const pid_t m_host;
  const pid_t m_worker;
  ReaperRecord& m_record;
  bool m_isSuspended;
  bool m_isAskedToEnd = false;
  bool m_hostIsGone = false;
  pid_t m_caretakers[kMostCaretakers] = {};
  int m_caretakerCount = 0;
};

// Null: it cannot be had.
ReaperRecord* mapRecord() {
  void* const place = mmap(nullptr, sizeof(ReaperRecord), PROT_READ | PROT_WRITE, MAP_SHARED,
                           kPoisonDescriptor, kReaperRecordOffset);
  return place == MAP_FAILED ? nullptr : static_cast<ReaperRecord*>(place);
}

[[noreturn]] void reap(Reaper reaper, const sigset_t& signals) {
  prctl(PR_SET_NAME, "tarvex-reaper");
  // Whoever waits for the end of an output or a socket waits for the worker's.
  close_range(0, ~0U, 0);
  reaper.run(signals);
  _exit(EXIT_SUCCESS);
}

void dieWith(pid_t parent, int signal) {
  prctl(PR_SET_PDEATHSIG, signal);
  if (getppid() != parent) {
    _exit(EXIT_FAILURE);
  }
}

}  // namespace

void runBelowReaper(pid_t host) {
  sigset_t all;
  sigset_t none;
  sigfillset(&all);
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  dieWith(host, kHostGone);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  ReaperRecord* const record = mapRecord();
  // A worker may be at its end before an order that is passed on reaches it, so what was ordered so
  // far is heard before there is one.
  if (record == nullptr || !record->begin() || record->isAskedToEnd() || record->isToBeKilled()) {
    _exit(EXIT_FAILURE);
  }
  const bool startsStopped = record->isSuspended();
  const pid_t reaper = getpid();
  const pid_t worker = fork();
  if (worker < 0) {
    fprintf(stderr, "fork: %s\n", strerror(errno));
    _exit(EXIT_FAILURE);
  }
  // By both, as neither may go on before.
  setpgid(worker, worker);
  if (worker > 0) {
    record->tellWorker(worker);
    if (startsStopped) {
      // What comes now is to find it so.
      siginfo_t info{};
      waitid(P_PID, static_cast<id_t>(worker), &info, WSTOPPED | WEXITED | WNOWAIT);
    }
    reap(Reaper(host, worker, *record, startsStopped), all);
  }
  munmap(record, sizeof *record);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  dieWith(reaper, SIGKILL);
  if (startsStopped) {
    raise(SIGSTOP);
  }
}

}  // namespace TarvexDiags::PackageKit
