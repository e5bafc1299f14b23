#include "packages/errors/CrashRecords.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "inventory/Facts.h"

namespace TarvexDiags::Errors {

namespace {

const std::filesystem::path kRecords = "sys/fs/pstore";

/// What is written only when something went wrong; consoles and traces are kept all the time.
bool isOfCrash(std::string_view record) {
  constexpr std::string_view kKinds[] = {"dmesg-", "mce-"};
  return std::any_of(std::begin(kKinds), std::end(kKinds),
                     [&](std::string_view kind) { return record.starts_with(kind); });
}

void requireRecords(const Watching::SystemFiles& files) {
  if (files.word("sys/module/pstore/parameters/backend").starts_with("(null)")) {
    throw NotSupported(Reasons::kNoPlaceForRecords);
  }
  const std::string mounts = files.text("proc/mounts").value_or("");
  if (mounts.find(" /sys/fs/pstore ") == std::string::npos) {
    throw NotSupported(Reasons::kRecordsNotMounted);
  }
  if (Inventory::isWithheld(files, kRecords)) {
    throw NotSupported(Reasons::kRecordsNeedPrivilege);
  }
}

}  // namespace

void tellCrashRecords(const std::string& device, const Watching::SystemFiles& files,
                      RunJournal& journal) {
  requireRecords(files);
  bool isAny = false;
  for (const std::string& record : files.entries(kRecords)) {
    if (isOfCrash(record)) {
      report(journal, ErrorsEvent::CrashRecord, {device, Inventory::cleaned(record)});
      isAny = true;
    }
  }
  if (!isAny) {
    report(journal, ErrorsEvent::NoCrashRecord, {device});
  }
}

}  // namespace TarvexDiags::Errors
