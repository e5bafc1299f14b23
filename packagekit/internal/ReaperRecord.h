#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>

namespace TarvexDiags::PackageKit {

/// What reaper and host agree on, in memory that they share: behind the page with the PoisonRecord,
/// which the worker can reach and this it cannot. The reaper stands between host and worker:
/// orphans below it become its children, so whatever a test leaves behind is found, wherever it has
/// gone.
///
/// The host's orders stand here, and a signal only says that there may be a new one: a signal can
/// be lost in a flood, or stay out where too many are queued, and an order can't.
struct ReaperRecord {
  static constexpr std::uint64_t kReady = 0x5245415045520001;
  static constexpr std::uint64_t kEnded = 0x5245415045520002;
  static constexpr std::uint64_t kRefused = 0x5245415045520003;

  std::uint64_t state = 0;  ///< another number: the process is no reaper, or not so far yet
  int status = 0;           ///< once ended: of the worker, as wait(2) gives it
  std::uint32_t suspended = 0;
  std::uint32_t askedToEnd = 0;
  std::uint32_t toBeKilled = 0;
  std::int32_t worker = 0;  ///< process id; 0 while there is none, or no reaper

  /// The reaper's first step, before there is a worker. False when the host has given it up.
  bool begin() { return changeFrom(0, kReady); }

  /// Of the reaper, when it has made the worker, whose number is its own until kEnded.
  void tellWorker(pid_t process) { __atomic_store_n(&worker, process, __ATOMIC_RELEASE); }
  pid_t workerProcess() const { return __atomic_load_n(&worker, __ATOMIC_ACQUIRE); }

  /// Of the host, before it kills the process itself: true when there is no reaper and will be
  /// none.
  bool refuse() { return changeFrom(0, kRefused) || present() == kRefused; }

  void end(int workerStatus) {
    status = workerStatus;
    __atomic_store_n(&state, kEnded, __ATOMIC_RELEASE);
  }
  bool isEnded() const { return present() == kEnded; }

  /// Of the host: has the worker's process group sent SIGSTOP, SIGCONT, SIGTERM or SIGKILL. Of
  /// those that come before the reaper looks, the last one of SIGSTOP and SIGCONT counts.
  void order(int signal) {
    std::uint32_t& flag = signal == SIGTERM   ? askedToEnd
                          : signal == SIGKILL ? toBeKilled
                                              : suspended;
    __atomic_store_n(&flag, signal == SIGCONT ? 0 : 1, __ATOMIC_RELEASE);
  }
  bool isSuspended() const { return isSet(suspended); }
  bool isAskedToEnd() const { return isSet(askedToEnd); }
  bool isToBeKilled() const { return isSet(toBeKilled); }

 private:
  static bool isSet(const std::uint32_t& flag) {
    return __atomic_load_n(&flag, __ATOMIC_ACQUIRE) != 0;
  }
  std::uint64_t present() const { return __atomic_load_n(&state, __ATOMIC_ACQUIRE); }
  bool changeFrom(std::uint64_t expected, std::uint64_t next) {
    return __atomic_compare_exchange_n(&state, &expected, next, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
  }
};

/// Where the record begins: behind a page of any size.
inline constexpr off_t kReaperRecordOffset = 64 * 1024;

/// The signal by which the host tells of a new order.
inline constexpr int kLookAtOrders = SIGUSR1;

/// The signal by which a worker names a process that has something to put back: its id is the
/// value.
inline int caretakerForReaper() {
  return SIGRTMIN;
}

}  // namespace TarvexDiags::PackageKit
