#pragma once

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/TestContext.h"
#include "packagekit/internal/WorkerLink.h"

namespace TarvexDiags::PackageKit {

/// The context of a test in its worker process.
class WorkerContext : public TestContext {
 public:
  /// @param tellsLog whether the host is told what goes into the log.
  /// @param tellsThroughput whether it is told how fast the test is.
  WorkerContext(TestParameters parameters, WorkerLink& link, std::string logFile, bool tellsLog,
                bool tellsThroughput)
      : TestContext(std::move(parameters)),
        m_link(link),
        m_logFile(std::move(logFile)),
        m_tellsLog(tellsLog),
        m_tellsThroughput(tellsThroughput) {}

  bool stopRequested() const noexcept override { return m_link.stopRequested(); }
  bool sleepFor(std::chrono::nanoseconds duration) override { return m_link.sleepFor(duration); }

  bool hasRaisedError() const { return m_hasRaisedError; }

 protected:
  void sendProgress(unsigned int percent) override;
  void sendEvent(EventType type, unsigned int code,
                 std::vector<std::string> eventParameters) override;
  void writeLog(const std::string& line) override;

 private:
  WorkerLink& m_link;
  const std::string m_logFile;
  const bool m_tellsLog;
  const bool m_tellsThroughput;
  std::atomic<unsigned int> m_progress{0};
  std::atomic<bool> m_hasRaisedError{false};
};

}  // namespace TarvexDiags::PackageKit
