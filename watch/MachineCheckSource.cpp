#include "watch/MachineCheckSource.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <utility>
#include <vector>

#include "watch/InterruptRows.h"
#include "watch/TraceRecord.h"

namespace TarvexDiags::Watching {

namespace {

constexpr std::size_t kLongestLine = 8192;
constexpr int kMostPieces = 1000;

/// The rows that count machine checks. Another source tells of heat.
std::vector<TroubleRow> rowsOfChecks(const SystemFiles& files) {
  std::vector<TroubleRow> rows = readTroubleRows(files);
  std::erase_if(rows, [](const TroubleRow& row) { return row.trouble == Trouble::Throttling; });
  return rows;
}

}  // namespace

std::optional<std::string> MachineCheckSource::open() {
  m_begin = std::chrono::system_clock::now();
  m_isEnded = false;
  const std::optional<std::string> reason = m_trace.open(m_files);
  return !reason || openCounters() ? std::nullopt : reason;
}

bool MachineCheckSource::openCounters() {
  lookAtCounters(Moment(), nullptr);
  m_growths.open();
  return !rowsOfChecks(m_files).empty();
}

void MachineCheckSource::look(Moment now, Collector& collector) {
  if (m_trace.descriptor() >= 0) {
    lookAtTrace(now, collector);
  } else {
    lookAtCounters(now, &collector);
  }
}

void MachineCheckSource::lookAtTrace(Moment now, Collector& collector) {
  char bytes[4096];
  for (int reads = 0; reads < kMostPieces; ++reads) {
    const ssize_t size = read(m_trace.descriptor(), bytes, sizeof bytes);
    if (size < 0 && errno == EINTR) {
      continue;
    }
    m_isEnded = size == 0;
    if (size <= 0) {
      break;
    }
    m_unread.append(bytes, static_cast<std::size_t>(size));
    std::string_view rest = m_unread;
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
      takeLine(rest.substr(0, end), now, collector);
      rest.remove_prefix(end + 1);
    }
    m_unread = rest.size() < kLongestLine ? std::string(rest) : std::string();
  }
}

void MachineCheckSource::takeLine(std::string_view line, Moment now, Collector& collector) {
  if (const std::uint64_t lost = lostEventsIn(line); lost > 0) {
    Finding finding{.time = now, .source = SourceKind::MachineChecks, .kind = Kind::RecordsLost};
    finding.device = "machine";
    finding.count = lost;
    collector.found(std::move(finding));
    return;
  }
  const std::optional<TraceRecord> record = parseTraceLine(line);
  if (!record) {
    return;
  }
  const auto disk = [this](const std::string& numbers) { return diskOf(numbers); };
  if (auto finding = findingFrom(*record, disk, m_begin, now)) {
    collector.found(std::move(*finding));
  }
}

std::string MachineCheckSource::diskOf(const std::string& numbers) const {
  return m_files.resolved(std::filesystem::path("sys/dev/block") / numbers).filename().string();
}

void MachineCheckSource::lookAtCounters(Moment now, Collector* collector) {
  for (const TroubleRow& row : rowsOfChecks(m_files)) {
    const Kind kind = row.trouble == Trouble::MachineCheck ? Kind::MachineCheckUncorrected
                                                           : Kind::MachineCheckCorrected;
    for (const auto& [cpu, count] : row.counts) {
      const std::uint64_t growth =
          m_growths.to(std::string(row.label) + std::to_string(cpu), count);
      if (growth > 0 && collector != nullptr) {
        Finding finding{.time = now, .source = SourceKind::MachineChecks, .kind = kind};
        finding.device = "cpu:" + std::to_string(cpu);
        finding.count = growth;
        finding.detail = row.label;
        collector->found(std::move(finding));
      }
    }
  }
}

}  // namespace TarvexDiags::Watching
