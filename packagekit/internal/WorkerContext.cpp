#include "packagekit/internal/WorkerContext.h"

#include <stdexcept>

#include "packagekit/contract/KitCodes.h"
#include "packagekit/internal/PackageLog.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr std::size_t kLongestLine = 4096;  ///< bytes of a line of the log that the host is told

}  // namespace

void WorkerContext::sendProgress(unsigned int percent) {
  if (m_progress.exchange(percent, std::memory_order_relaxed) != percent) {
    FrameWriter frame(FrameType::Progress);
    m_link.send(frame.number(percent));
  }
}

void WorkerContext::sendEvent(EventType type, unsigned int code,
                              std::vector<std::string> eventParameters) {
  if (code == TEST_THROUGHPUT && !m_tellsThroughput) {
    return;
  }
  if (Contract::isKitCode(code) && code != TEST_MEASUREMENT && code != TEST_THROUGHPUT) {
    throw std::invalid_argument("event code " + std::to_string(code) + " is reserved");
  }
  if (type == Diag::DiagnosticEvent::ERROR_EVENT) {
    m_hasRaisedError = true;
  }
  FrameWriter frame(FrameType::Event);
  m_link.send(frame.number(type).number(code).texts(eventParameters));
}

void WorkerContext::writeLog(const std::string& line) {
  if (!m_logFile.empty()) {
    writeLogLine(m_logFile,
                 "test " + std::to_string(testId()) + " on " + device().resourceTag + ": " + line);
  }
  if (m_tellsLog) {
    FrameWriter frame(FrameType::Event);
    m_link.send(frame.number(Diag::DiagnosticEvent::INFORMATION_EVENT)
                    .number(TEST_LOG_LINE)
                    .texts({line.substr(0, kLongestLine)}));
  }
}

}  // namespace TarvexDiags::PackageKit
