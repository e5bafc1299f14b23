// Reads the health of a disk that answers anything, by ATA commands, by SCSI log pages and from the
// logs of NVMe. Whatever it sends, what is told stays short and printable, and every event has its
// parameters.
//
// Input: one byte, whose lowest bit says ATA or SCSI, the second one that records get a checksum
// that fits, and the third one NVMe. Then the answers, each of one byte (0 data, 1 a refusal with
// sense data, others nothing), two bytes of length, and so many bytes; of NVMe the two logs,
// without that first byte.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "packages/storage/AtaReader.h"
#include "packages/storage/Health.h"
#include "packages/storage/HealthRecords.h"
#include "packages/storage/ScsiReader.h"
#include "tests/fuzz/Input.h"
#include "tests/support/RecordingJournal.h"

namespace {

using namespace TarvexDiags::Storage;
using TarvexDiags::Fuzz::expect;

constexpr std::size_t kLongestParameter = 256;  // with what the standard calls a status of NVMe
constexpr std::size_t kMostEvents = 100;        // 30 attributes, with what else there is
constexpr std::size_t kMostCommands = 48;       // each at most twice

/// The rest of the input.
class Input {
 public:
  explicit Input(Record bytes) : m_bytes(bytes) {}

  bool isEmpty() const { return m_bytes.empty(); }
  std::uint8_t byte() { return byteAt(take(1), 0); }
  std::vector<std::uint8_t> bytes(std::size_t most) {
    const std::size_t length = byte() + 256U * byte();
    const Record taken = take(std::min(length, most));
    return {taken.begin(), taken.end()};
  }

 private:
  Record take(std::size_t length) {
    const Record taken = partOf(m_bytes, 0, length);
    m_bytes = m_bytes.subspan(taken.size());
    return taken;
  }

  Record m_bytes;
};

class FuzzedDisk : public CommandChannel {
 public:
  FuzzedDisk(Input& input, bool sealsRecords) : m_input(input), m_sealsRecords(sealsRecords) {}

  ScsiAnswer execute(const ScsiCommand& command) override {
    constexpr std::size_t mostSense = 252;
    expect(++m_commands <= kMostCommands);
    ScsiAnswer answer;
    const std::uint8_t kind = m_input.isEmpty() ? 1 : m_input.byte();
    if (kind == 1) {
      answer.status = 2;
      answer.sense = m_input.bytes(mostSense);
    } else if (kind == 0) {
      answer.data = m_input.bytes(command.answerBytes);
      seal(answer.data);
    }
    return answer;
  }

 private:
  void seal(std::vector<std::uint8_t>& record) const {
    if (m_sealsRecords && !record.empty()) {
      unsigned int sum = 0;
      std::for_each(record.begin(), record.end() - 1, [&](std::uint8_t byte) { sum += byte; });
      record.back() = static_cast<std::uint8_t>(0U - sum);
    }
  }

  Input& m_input;
  bool m_sealsRecords;
  std::size_t m_commands = 0;
};

bool isPrintable(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char letter) { return letter >= ' ' && letter <= '~'; });
}

void expectTidy(const TarvexDiags::Common::RecordingJournal& journal) {
  expect(journal.events().size() <= kMostEvents);
  for (const auto& event : journal.events()) {
    expect(!event.parameters.empty());
    for (const std::string& parameter : event.parameters) {
      expect(!parameter.empty() && parameter.size() <= kLongestParameter && isPrintable(parameter));
    }
  }
}

template <class Read>
void readAndJudge(Read read) {
  TarvexDiags::Common::RecordingJournal journal;
  try {
    read(journal);
  } catch (const NotSupported& reason) {
    expect(isPrintable(reason.what()));
  }
  expectTidy(journal);
}

/// As much of a record as the input has.
template <class Log>
void fill(Log& log, Input& input) {
  const std::vector<std::uint8_t> bytes = input.bytes(sizeof log);
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(&log));
}

void readNvme(Input& input) {
  nvme_smart_log health{};
  std::array<nvme_error_log_page, 16> errors{};
  fill(health, input);
  fill(errors, input);
  readAndJudge([&](auto& journal) {
    judgeHealth(healthFrom(health), {.percentUsed = 100, .celsius = 70}, "nvme0n1", journal);
  });
  readAndJudge([&](auto& journal) { judgeErrorLog(errorLogFrom(errors), 0, "nvme0n1", journal); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(Record(data, size));
  const std::uint8_t kind = input.byte();
  if ((kind & 4U) != 0) {
    readNvme(input);
    return 0;
  }
  const auto open = [&] { return std::make_unique<FuzzedDisk>(input, (kind & 2U) != 0); };
  const auto reader = (kind & 1U) == 0 ? makeAtaReader(open(), "sda", "/no/such/folder")
                                       : makeScsiReader(open, "sda", "/no/such/folder");
  readAndJudge([&](auto& journal) {
    judgeHealth(reader->health(), {.percentUsed = 100, .celsius = 70}, "sda", journal);
  });
  readAndJudge([&](auto& journal) { judgeErrorLog(reader->errorLog(), 0, "sda", journal); });
  readAndJudge([&](auto& journal) {
    Disk disk;
    disk.name = "sda";
    const auto channel = open();
    describe(disk, readAtaIdentity(*channel));
    identify(disk, 0, journal);
  });
  return 0;
}
