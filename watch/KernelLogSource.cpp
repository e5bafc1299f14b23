#include "watch/KernelLogSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "watch/KernelLog.h"
#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

constexpr const char* kFile = "dev/kmsg";
// The kernel's own limit of a record, with what it puts before and behind (kernel/printk).
constexpr std::size_t kLongestRecord = 8192;
// What is left is for the next look: a flood shall not hold the watch.
constexpr int kMostRecords = 1000;
// The kernel writes the records of one machine check in one go.
constexpr int kGoMilliseconds = 50;

/// The end of the first whole record; npos: it may go on.
std::size_t endOfRecord(std::string_view bytes) {
  for (std::size_t end = bytes.find('\n'); end != std::string_view::npos;
       end = bytes.find('\n', end + 1)) {
    if (end + 1 == bytes.size() || bytes[end + 1] != ' ') {
      return end;
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::optional<std::string> KernelLogSource::open() {
  const std::filesystem::path path = m_files.absolute(kFile);
  m_log = PackageKit::UniqueDescriptor(
      ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!m_log) {
    return because("the kernel's log cannot be read", std::strerror(errno));
  }
  struct stat status {};
  m_isDevice = fstat(m_log.get(), &status) == 0 && S_ISCHR(status.st_mode);
  // What was logged so far is not of this run.
  lseek(m_log.get(), 0, SEEK_END);
  m_begin = std::chrono::system_clock::now();
  m_lastSequence.reset();
  m_unread.clear();
  m_held.reset();
  return std::nullopt;
}

void KernelLogSource::look(Moment now, Collector& collector) {
  readAll(now, collector);
  if (m_held && comesMore()) {
    readAll(now, collector);
  }
  tellHeld(collector);
}

bool KernelLogSource::comesMore() const {
  pollfd log{m_log.get(), POLLIN, 0};
  return poll(&log, 1, kGoMilliseconds) == 1;
}

void KernelLogSource::readAll(Moment now, Collector& collector) {
  char bytes[kLongestRecord];
  for (int reads = 0; reads < kMostRecords; ++reads) {
    const ssize_t size = read(m_log.get(), bytes, sizeof bytes);
    if (size < 0 && (errno == EINTR || errno == EPIPE)) {
      // EPIPE: records were overwritten before they were read; the next one's number tells how
      // many.
      continue;
    }
    if (size <= 0) {
      break;
    }
    m_unread.append(bytes, static_cast<std::size_t>(size));
    takeRecords(now, collector);
  }
}

void KernelLogSource::takeRecords(Moment now, Collector& collector) {
  std::string_view rest = m_unread;
  for (std::size_t end = endOfRecord(rest); end != std::string_view::npos;
       end = endOfRecord(rest)) {
    takeRecord(rest.substr(0, end), now, collector);
    rest.remove_prefix(end + 1);
  }
  // A record that never ends is none.
  m_unread = rest.size() < kLongestRecord ? std::string(rest) : std::string();
}

void KernelLogSource::takeRecord(std::string_view text, Moment now, Collector& collector) {
  const std::optional<KernelRecord> record = parseKernelRecord(text);
  if (!record) {
    return;
  }
  if (m_lastSequence && record->sequence > *m_lastSequence + 1) {
    Finding lost{.time = now, .source = SourceKind::KernelLog, .kind = Kind::RecordsLost};
    lost.device = "machine";
    lost.count = record->sequence - *m_lastSequence - 1;
    collector.found(std::move(lost));
  }
  m_lastSequence = record->sequence;
  if (const auto time = m_held ? timeOfMachineCheck(*record) : std::nullopt) {
    // The kernel tells whole seconds.
    m_held->isBefore = *time + std::chrono::seconds(1) <= m_begin;
    tellHeld(collector);
  } else if (auto finding = findingFrom(*record, now)) {
    tellHeld(collector);
    m_held = std::move(finding);
    if (m_held->kind != Kind::MachineCheckCorrected &&
        m_held->kind != Kind::MachineCheckUncorrected) {
      tellHeld(collector);
    }
  }
}

void KernelLogSource::tellHeld(Collector& collector) {
  if (m_held) {
    collector.found(*std::exchange(m_held, std::nullopt));
  }
}

}  // namespace TarvexDiags::Watching
