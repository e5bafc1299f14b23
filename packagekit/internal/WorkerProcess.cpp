#include "packagekit/internal/WorkerProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace TarvexDiags::PackageKit {

namespace {

constexpr int kWorkerSocket = 3;
// Above all numbers that the worker's own descriptors get, so that no dup2 hits another's source.
constexpr int kFirstOwnDescriptor = 10;
constexpr int kPatienceMilliseconds = 5000;

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

void check(int error, const char* what) {
  if (error != 0) {
    fail(error, what);
  }
}

UniqueDescriptor moveUp(int number) {
  UniqueDescriptor low(number);
  UniqueDescriptor high(fcntl(low.get(), F_DUPFD_CLOEXEC, kFirstOwnDescriptor));
  if (!high) {
    fail(errno, "fcntl");
  }
  return high;
}

std::pair<UniqueDescriptor, UniqueDescriptor> makeSocketPair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    fail(errno, "socketpair");
  }
  UniqueDescriptor ours(ends[0]);
  UniqueDescriptor theirs = moveUp(ends[1]);
  fcntl(ours.get(), F_SETFL, O_NONBLOCK);
  return {std::move(ours), std::move(theirs)};
}

std::pair<UniqueDescriptor, UniqueDescriptor> makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    fail(errno, "pipe2");
  }
  UniqueDescriptor ours(ends[0]);
  UniqueDescriptor theirs = moveUp(ends[1]);
  fcntl(ours.get(), F_SETFL, O_NONBLOCK);
  return {std::move(ours), std::move(theirs)};
}

UniqueDescriptor makeRecords() {
  const int file = memfd_create("worker-records", MFD_CLOEXEC);
  if (file < 0) {
    fail(errno, "memfd_create");
  }
  UniqueDescriptor page = moveUp(file);
  if (ftruncate(page.get(), kReaperRecordOffset + sizeof(ReaperRecord)) != 0) {
    fail(errno, "ftruncate");
  }
  return page;
}

ReaperRecord* mapReaperRecord(int records) {
  void* const place = mmap(nullptr, sizeof(ReaperRecord), PROT_READ | PROT_WRITE, MAP_SHARED,
                           records, kReaperRecordOffset);
  if (place == MAP_FAILED) {
    fail(errno, "mmap");
  }
  return static_cast<ReaperRecord*>(place);
}

class SpawnActions {
 public:
  SpawnActions(int socket, int output, int poison) {
    check(posix_spawn_file_actions_init(&m_actions), "posix_spawn_file_actions_init");
    check(posix_spawn_file_actions_addopen(&m_actions, 0, "/dev/null", O_RDONLY, 0), "addopen");
    check(posix_spawn_file_actions_adddup2(&m_actions, output, 1), "adddup2");
    check(posix_spawn_file_actions_adddup2(&m_actions, output, 2), "adddup2");
    check(posix_spawn_file_actions_adddup2(&m_actions, socket, kWorkerSocket), "adddup2");
    check(posix_spawn_file_actions_adddup2(&m_actions, poison, kPoisonDescriptor), "adddup2");
    check(posix_spawn_file_actions_addchdir_np(&m_actions, "/"), "addchdir");
    check(posix_spawn_file_actions_addclosefrom_np(&m_actions, kPoisonDescriptor + 1),
          "addclosefrom");
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { posix_spawn_file_actions_destroy(&m_actions); }

  const posix_spawn_file_actions_t* get() const { return &m_actions; }

 private:
  posix_spawn_file_actions_t m_actions{};
};

// What the tests need of the host's environment. The rest of it is nobody's business, and much of
// it is obeyed by the loader or by libraries.
bool isPassedOn(std::string_view variable) {
  const std::string_view name = variable.substr(0, variable.find('='));
  const auto isName = [name](std::string_view passed) { return name == passed; };
  constexpr std::string_view passed[] = {"PATH", "LANG", "TZ", "TMPDIR"};
#ifdef TARVEX_INSTRUMENTED
  // Of the runtimes that such a build brings along.
  constexpr std::string_view ofRuntimes[] = {
      "ASAN_OPTIONS",      "ASAN_SYMBOLIZER_PATH", "GCOV_PREFIX",  "GCOV_PREFIX_STRIP",
      "LLVM_PROFILE_FILE", "LSAN_OPTIONS",         "TSAN_OPTIONS", "UBSAN_OPTIONS"};
  if (std::any_of(std::begin(ofRuntimes), std::end(ofRuntimes), isName)) {
    return true;
  }
#endif
  return name.starts_with("LC_") || std::any_of(std::begin(passed), std::end(passed), isName);
}

// Ends in a null pointer; the texts are the host's.
std::vector<char*> makeEnvironment() {
  std::vector<char*> variables;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    if (isPassedOn(*variable)) {
      variables.push_back(*variable);
    }
  }
  variables.push_back(nullptr);
  return variables;
}

class SpawnAttributes {
 public:
  SpawnAttributes() {
    check(posix_spawnattr_init(&m_attributes), "posix_spawnattr_init");
    sigset_t all;
    sigset_t orders;
    sigfillset(&all);
    sigemptyset(&orders);
    // An order that comes before the reaper is in its place waits for it.
    sigaddset(&orders, kLookAtOrders);
    posix_spawnattr_setsigdefault(&m_attributes, &all);
    posix_spawnattr_setsigmask(&m_attributes, &orders);
    posix_spawnattr_setpgroup(&m_attributes, 0);
    posix_spawnattr_setflags(
        &m_attributes,
        static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP));
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }

  const posix_spawnattr_t* get() const { return &m_attributes; }

 private:
  posix_spawnattr_t m_attributes{};
};

int orderOrKill(pid_t target, int signal, ReaperRecord& reaper) {
  if (target < 0) {
    return ::kill(target, signal);
  }
  reaper.order(signal);
  if (signal == SIGKILL) {
    // The test may have stopped the reaper.
    ::kill(target, SIGCONT);
  }
  return ::kill(target, kLookAtOrders);
}

struct ThreadState {
  char letter = ' ';  ///< of /proc; a space for a thread that is gone
  bool isEnding = false;
};

ThreadState stateOf(const std::string& folder) {
  constexpr unsigned int exiting = 4;  // PF_EXITING of the kernel's
  std::ifstream file(folder + "/stat");
  std::string line;
  std::getline(file, line);
  // "PID (NAME) STATE PARENT GROUP SESSION TERMINAL FOREGROUND FLAGS ...", and the name may hold
  // anything.
  std::istringstream fields(line.substr(std::min(line.rfind(')'), line.size() - 1) + 1));
  ThreadState state;
  std::string skipped;
  unsigned int flags = 0;
  fields >> state.letter >> skipped >> skipped >> skipped >> skipped >> skipped >> flags;
  state.isEnding = (flags & exiting) != 0;
  return state;
}

// Whether there are any, and the kernel holds all of them but zombies.
bool areHeld(const std::string& tasks) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(tasks.c_str()), &closedir);
  int held = 0;
  while (const dirent* const entry = directory ? readdir(directory.get()) : nullptr) {
    if (entry->d_name[0] != '.') {
      const char letter = stateOf(tasks + entry->d_name).letter;
      if (letter != 'D' && letter != 'Z') {
        return false;
      }
      held += letter == 'D' ? 1 : 0;
    }
  }
  return held > 0;
}

}  // namespace

int (*WorkerProcess::sendSignal)(pid_t, int, ReaperRecord&) = &orderOrKill;

WorkerProcess::WorkerProcess(const std::string& executable, const std::string& packageFile,
                             int nice, const WorkerRights& rights, const std::string& purpose) {
  auto [socket, theirSocket] = makeSocketPair();
  auto [output, theirOutput] = makePipe();
  m_records = makeRecords();
  m_reaper.reset(mapReaperRecord(m_records.get()));
  const SpawnActions actions(theirSocket.get(), theirOutput.get(), m_records.get());
  const SpawnAttributes attributes;
  std::string name = executable;
  std::string package = packageFile;
  std::string host = std::to_string(getpid());
  std::string niceness = std::to_string(nice);
  std::string privileges = toText(rights.privileges);
  std::string debugged = rights.isDebugged ? "1" : "0";
  std::string shown = purpose;
  char* const arguments[] = {name.data(),
                             package.data(),
                             host.data(),
                             niceness.data(),
                             privileges.data(),
                             debugged.data(),
                             shown.empty() ? nullptr : shown.data(),
                             nullptr};
  const std::vector<char*> environment = makeEnvironment();
  check(posix_spawn(&m_pid, executable.c_str(), actions.get(), attributes.get(), arguments,
                    environment.data()),
        executable.c_str());
  m_socket = std::move(socket);
  m_output = std::move(output);
  // Where there is no such call, the supervisor looks at intervals.
  m_pidDescriptor = UniqueDescriptor(static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0)));
}

void WorkerProcess::Unmap::operator()(ReaperRecord* record) const {
  munmap(record, sizeof *record);
}

WorkerProcess::~WorkerProcess() {
  if (m_pid > 0) {
    signalGroup(SIGKILL);
    pollfd end{m_pidDescriptor.get(), POLLIN, 0};
    poll(&end, 1, kPatienceMilliseconds);
    reapIfEnded(m_pid);
  }
}

bool WorkerProcess::isZombie() const {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == m_pid;
}

bool WorkerProcess::hasEnded() const {
  if (isZombie()) {
    return true;
  }
  // Without such a child, somebody else took its status, or the host ignores SIGCHLD. Its number
  // may be another process's by now, so the descriptor is asked where there is one.
  pollfd end{m_pidDescriptor.get(), POLLIN, 0};
  return errno == ECHILD && (m_pidDescriptor ? poll(&end, 1, 0) > 0 : ::kill(m_pid, 0) != 0);
}

bool WorkerProcess::isHeldInKernel() const {
  const pid_t worker = m_reaper->workerProcess();
  if (worker <= 0) {
    return false;
  }
  const std::string tasks = "/proc/" + std::to_string(worker) + "/task/";
  const ThreadState leader = stateOf(tasks + std::to_string(worker));
  return (leader.letter == 'Z' || leader.isEnding) && areHeld(tasks);
}

void WorkerProcess::signalGroup(int signal) const {
  const bool isToEnd = signal == SIGTERM || signal == SIGKILL;
  // Where the reaper is refused it hangs before there is a worker, or is another program.
  sendSignal(isToEnd && m_reaper->refuse() ? -m_pid : m_pid, signal, *m_reaper);
}

void WorkerProcess::killRest() const {
  if (isZombie()) {
    // The number is still ours: nobody else's group can be hit.
    sendSignal(-m_pid, SIGKILL, *m_reaper);
  }
}

ProcessEnd WorkerProcess::reap() {
  const pid_t pid = std::exchange(m_pid, -1);
  int status = 0;
  pid_t result = 0;
  do {
    result = waitpid(pid, &status, 0);
  } while (result < 0 && errno == EINTR);
  // The reaper has the worker's status, and tells it even when somebody else took its own.
  if (m_reaper->isEnded()) {
    status = m_reaper->status;
  } else if (result != pid) {
    return {};
  }
  return WIFSIGNALED(status) ? ProcessEnd{ProcessEnd::Kind::Signalled, WTERMSIG(status)}
                             : ProcessEnd{ProcessEnd::Kind::Exited, WEXITSTATUS(status)};
}

std::optional<PoisonRecord> WorkerProcess::poison() const {
  PoisonRecord record;
  const bool isRead = pread(m_records.get(), &record, sizeof record, 0) == sizeof record;
  return isRead && record.isWhole() ? std::optional(record) : std::nullopt;
}

bool reapIfEnded(pid_t pid) {
  const pid_t result = waitpid(pid, nullptr, WNOHANG);
  return result == pid || (result < 0 && errno == ECHILD);
}

}  // namespace TarvexDiags::PackageKit
