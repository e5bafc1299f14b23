#pragma once

#include <atomic>
#include <chrono>
#include <string>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/internal/Frame.h"

namespace TarvexDiags::PackageKit {

/// The worker's end of the socket: sends frames, and listens on a thread of its own for the host's
/// wish to stop. When the host is gone the whole process group dies.
class WorkerLink {
 public:
  explicit WorkerLink(int socket) : m_socket(socket) {}

  /// Waits for the host's next frame. Only before listen(). Throws FrameError.
  Frame receive();

  /// Starts the listening thread, which lives as long as the process.
  void listen();

  /// Sends a whole frame; waits while the host is busy. From any thread.
  void send(FrameWriter& frame);

  /// Keeps a frame until the next one is sent: the host then wakes up once for both.
  void hold(FrameWriter& frame);

  bool stopRequested() const noexcept { return m_stop.load(std::memory_order_relaxed); }

  /// Waits; false when a stop was requested.
  bool sleepFor(std::chrono::nanoseconds duration);

 private:
  bool receiveMore();
  static void* listenerEntry(void* link);
  void listenUntilTheEnd();

  const int m_socket;
  FrameReader m_reader;
  System::Mutex m_sendLock;
  std::string m_held TARVEXDIAGS_GUARDED_BY(m_sendLock);
  System::Mutex m_stopLock;  // no wake-up between the look at m_stop and the wait
  System::ConditionVariable m_stopped;
  std::atomic<bool> m_stop{false};
};

}  // namespace TarvexDiags::PackageKit
