#include "packagekit/internal/WorkerLink.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace TarvexDiags::PackageKit {

bool WorkerLink::receiveMore() {
  char bytes[4096];
  ssize_t size = 0;
  do {
    size = ::recv(m_socket, bytes, sizeof bytes, 0);
  } while (size < 0 && errno == EINTR);
  if (size <= 0) {
    return false;
  }
  m_reader.add(bytes, static_cast<std::size_t>(size));
  return true;
}

Frame WorkerLink::receive() {
  Frame frame;
  while (!m_reader.next(frame)) {
    if (!receiveMore()) {
      throw FrameError("the host is gone");
    }
  }
  return frame;
}

void WorkerLink::listen() {
  // Signals are for the test's own threads.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, &WorkerLink::listenerEntry, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "pthread_create");
  }
  pthread_detach(thread);
}

void* WorkerLink::listenerEntry(void* link) {
  static_cast<WorkerLink*>(link)->listenUntilTheEnd();
  return nullptr;
}

void WorkerLink::listenUntilTheEnd() {
  try {
    for (;;) {
      if (receive().type() == FrameType::Stop) {
        const System::LockHold hold(m_stopLock);
        m_stop = true;
        m_stopped.notifyAll();
      }
    }
  } catch (const FrameError&) {
    ::kill(0, SIGKILL);
  }
}

void WorkerLink::hold(FrameWriter& frame) {
  const System::LockHold hold(m_sendLock);
  m_held += frame.bytes();
}

void WorkerLink::send(FrameWriter& frame) {
  const System::LockHold hold(m_sendLock);
  m_held += frame.bytes();
  const std::string bytes = std::exchange(m_held, {});
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t size = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (size >= 0) {
      sent += static_cast<std::size_t>(size);
    } else if (errno != EINTR) {
      // Without a host nobody waits for this process.
      _exit(EXIT_FAILURE);
    }
  }
}

bool WorkerLink::sleepFor(std::chrono::nanoseconds duration) {
  const auto deadline = std::chrono::steady_clock::now() + duration;
  const System::LockHold hold(m_stopLock);
  while (!m_stop && m_stopped.waitUntil(m_stopLock, deadline)) {
  }
  return !m_stop;
}

}  // namespace TarvexDiags::PackageKit
