// Reads any record of the kernel's log, line of its trace, counters of PCI Express errors and table
// of interrupts.
//
// Input: one byte that says which, then the text. What was read is written anew and read again, and
// must be the same; of a program's record nothing is believed; the name of a task changes nothing.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tests/fuzz/Input.h"
#include "watch/AerSource.h"
#include "watch/InterruptRows.h"
#include "watch/KernelLog.h"
#include "watch/TraceRecord.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::Watching;

bool isWithin(std::string_view part, std::string_view whole) {
  return part.empty() ||
         (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

void expectWhole(const std::optional<Finding>& finding) {
  if (finding) {
    expect(finding->count >= 1);
    expect(!finding->device.empty());
    expect(kindNamed(nameOf(finding->kind)) == finding->kind);
  }
}

void readLog(std::string_view text) {
  const std::optional<KernelRecord> record = parseKernelRecord(text);
  if (!record) {
    return;
  }
  expect(isWithin(record->text, text) && isWithin(record->device, text));
  expect(record->text.find('\n') == std::string_view::npos);
  const std::optional<Finding> finding = findingFrom(*record, Moment());
  expectWhole(finding);
  expect(!finding || record->facility == 0);
  KernelRecord written = *record;
  written.facility = 1;
  expect(!findingFrom(written, Moment()));
  const std::string anew = std::to_string(record->facility * 8) + "," +
                           std::to_string(record->sequence) + ",1,-;" + std::string(record->text);
  const std::optional<KernelRecord> again = parseKernelRecord(anew);
  expect(again && again->facility == record->facility && again->sequence == record->sequence &&
         again->text == record->text);
}

void readTrace(std::string_view line) {
  expect(lostEventsIn(line) == 0 || line.starts_with("CPU:"));
  const std::optional<TraceRecord> record = parseTraceLine(line);
  if (!record) {
    return;
  }
  expect(isWithin(record->event, line) && isWithin(record->fields, line));
  const auto disk = [](const std::string& numbers) { return numbers; };
  expectWhole(findingFrom(*record, disk, Moment(), Moment()));
  std::string renamed(line);
  renamed.replace(0, 16, "] 1.2: mc_event:");
  const std::optional<TraceRecord> again = parseTraceLine(renamed);
  expect(again && again->event == record->event && again->fields == record->fields);
}

void readPcie(std::string_view text) {
  const auto rows = parseAerCounters(text);
  std::string anew;
  for (const auto& [name, count] : rows) {
    expect(!name.empty() && name.find('\n') == std::string::npos);
    anew += name + " " + std::to_string(count) + "\n";
  }
  expect(parseAerCounters(anew) == rows);
}

void readInterrupts(std::string_view text) {
  for (const auto& [label, row] : parseInterruptRows(text, {"MCE", "THR"})) {
    std::string head;
    std::string counts = label + ":";
    for (const auto& [cpu, count] : row) {
      expect(cpu >= 0);
      head += " CPU" + std::to_string(cpu);
      counts += " " + std::to_string(count);
    }
    const auto again = parseInterruptRows(head + "\n" + counts, {"MCE", "THR"});
    expect(again.size() == 1 && again.begin()->first == label && again.begin()->second == row);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      readLog(text);
      break;
    case 1:
      readTrace(text);
      break;
    case 2:
      readPcie(text);
      break;
    default:
      readInterrupts(text);
      break;
  }
  return 0;
}
