#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/KitEvents.h"
#include "packagekit/TestContext.h"

namespace TarvexDiags::PackageKit::Testing {

/// @brief A context for unit tests: runs a test in the caller's process and keeps what it says.
class RecordingContext : public TestContext {
 public:
  struct Event {
    EventType type;
    unsigned int code;
    std::vector<std::string> parameters;
  };

  explicit RecordingContext(TestParameters parameters) : TestContext(std::move(parameters)) {}

  /// @brief What a client's abort does. From any thread.
  void requestStop() { m_stop = true; }

  /// @brief Makes the n-th question for a stop from now on the first that is answered with yes.
  void stopAfter(int questions) { m_questionsLeft = questions; }

  bool stopRequested() const noexcept override {
    if (m_questionsLeft.load() > 0 && --m_questionsLeft == 0) {
      m_stop = true;
    }
    return m_stop.load();
  }

  /// @brief Does not wait: only tells whether a stop was requested. Waits are summed up.
  bool sleepFor(std::chrono::nanoseconds duration) override {
    const System::LockHold hold(m_lock);
    m_slept += duration;
    return !stopRequested();
  }

  std::vector<Event> events() const {
    const System::LockHold hold(m_lock);
    return m_events;
  }
  /// @brief How fast the test was, as it would have been told once a second: figure and unit.
  std::vector<std::vector<std::string>> throughputs() const {
    const System::LockHold hold(m_lock);
    return m_throughputs;
  }
  std::vector<unsigned int> progressSteps() const {
    const System::LockHold hold(m_lock);
    return m_progress;
  }
  std::vector<std::string> logLines() const {
    const System::LockHold hold(m_lock);
    return m_log;
  }
  std::chrono::nanoseconds slept() const {
    const System::LockHold hold(m_lock);
    return m_slept;
  }

 protected:
  void sendProgress(unsigned int percent) override {
    const System::LockHold hold(m_lock);
    m_progress.push_back(percent);
  }
  void sendEvent(EventType type, unsigned int code,
                 std::vector<std::string> eventParameters) override {
    const System::LockHold hold(m_lock);
    if (code == TEST_THROUGHPUT) {
      m_throughputs.push_back(std::move(eventParameters));
      return;
    }
    m_events.push_back({type, code, std::move(eventParameters)});
  }
  void writeLog(const std::string& line) override {
    const System::LockHold hold(m_lock);
    m_log.push_back(line);
  }

 private:
  mutable System::Mutex m_lock;
  mutable std::atomic<bool> m_stop{false};
  mutable std::atomic<int> m_questionsLeft{0};
  std::vector<Event> m_events TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<std::vector<std::string>> m_throughputs TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<unsigned int> m_progress TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<std::string> m_log TARVEXDIAGS_GUARDED_BY(m_lock);
  std::chrono::nanoseconds m_slept TARVEXDIAGS_GUARDED_BY(m_lock){0};
};

}  // namespace TarvexDiags::PackageKit::Testing
