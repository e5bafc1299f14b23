#include "diagctl/check/CheckRules.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>

#include "diagctl/session/PackageSettings.h"
#include "diagctl/session/WatchTexts.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

const std::map<ValueKind, std::vector<std::string>>& keywords() {
  static const std::map<ValueKind, std::vector<std::string>> kTable = {
      {ValueKind::Truth, {"TRUE", "FALSE"}},
      {ValueKind::RunMode, {"SERIAL", "PARALLEL", "0", "1"}},
      {ValueKind::DiagMode, {"CUSTOMER", "FACTORY", "BRINGUP", "0", "1", "2"}},
      {ValueKind::DebugLevel,
       {"DIAG_NO", "DIAG_ERROR", "DIAG_WARNING", "DIAG_INFORMATION", "0", "1", "2", "3"}},
      {ValueKind::OpenMode, {"QUERY", "READ_ONLY", "WRITE_ONLY", "READ_WRITE"}},
      {ValueKind::OperatingSystem, {"Linux"}},
  };
  return kTable;
}

std::string findNumberFault(ValueKind kind, const std::string& value) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end) {
    return tr("'{}' is no whole number", value);
  }
  if (kind == ValueKind::Niceness && (number < 0 || number > 19)) {
    return tr("{} is not between 0 and 19", number);
  }
  return kind == ValueKind::PositiveNumber && number <= 0 ? tr("{} is not above 0", number) : "";
}

std::string findMachineIdFault(const std::string& value) {
  char* end = nullptr;
  const long number = std::strtol(value.c_str(), &end, 0);
  if (end == value.c_str() || *end != '\0') {
    return tr("'{}' is no whole number, decimal or hexadecimal", value);
  }
  return number < 0 || number > std::numeric_limits<unsigned short>::max()
             ? tr("{} is not between 0 and 65535", number)
             : "";
}

std::string findPrivilegeFault(const std::string& value) {
  const auto unknown = PackageKit::Contract::unknownPrivilege(value);
  return unknown ? tr("'{}' is no privilege", *unknown) : "";
}

std::string findFindingsFault(const std::string& value) {
  const std::vector<std::string> tokens = WatchTexts::tokens();
  for (const std::string& kind : kindsIn(value)) {
    if (std::find(tokens.begin(), tokens.end(), WatchTexts::tokenOf(kind)) == tokens.end()) {
      return tr("'{}' is no kind of finding", kind);
    }
  }
  return {};
}

std::string findPathFault(const std::string& value, bool wantsDirectory) {
  std::error_code failure;
  const fs::file_status status = fs::status(value, failure);
  if (status.type() == fs::file_type::not_found) {
    return tr("'{}' does not exist", value);
  }
  if (failure) {
    return fmt::format("'{}': {}", value, failure.message());
  }
  if (fs::is_directory(status) != wantsDirectory) {
    return wantsDirectory ? tr("'{}' is no directory", value) : tr("'{}' is a directory", value);
  }
  return wantsDirectory || fs::is_regular_file(status) ? "" : tr("'{}' is no regular file", value);
}

}  // namespace

std::string findFault(ValueKind kind, const std::string& value) {
  switch (kind) {
    case ValueKind::Text:
      return {};
    case ValueKind::Number:
    case ValueKind::PositiveNumber:
    case ValueKind::Niceness:
      return findNumberFault(kind, value);
    case ValueKind::Seconds:
      return PackageKit::valueFrom<PackageKit::Seconds>(value)
                 ? ""
                 : tr("'{}' is no number of seconds", value);
    case ValueKind::MachineId:
      return findMachineIdFault(value);
    case ValueKind::Privileges:
      return findPrivilegeFault(value);
    case ValueKind::Findings:
      return findFindingsFault(value);
    case ValueKind::Directory:
    case ValueKind::File:
      return findPathFault(value, kind == ValueKind::Directory);
    default:
      break;
  }
  const std::vector<std::string>& words = keywords().at(kind);
  const bool isKnown = std::any_of(words.begin(), words.end(), [&](const std::string& word) {
    return strcasecmp(word.c_str(), value.c_str()) == 0;
  });
  return isKnown ? "" : tr("'{}' is none of {}", value, fmt::join(words, ", "));
}

void checkKeys(const ConfigurationText& text, const std::string& file, const std::string& section,
               const std::vector<KeyRule>& rules, std::vector<Problem>& problems) {
  for (const KeyRule& rule : rules) {
    const auto value = text.value(section, rule.key);
    std::string reason;
    if (value) {
      reason = findFault(rule.kind, *value);
    } else if (rule.isRequired) {
      reason = text.keys(section).contains(rule.key) ? tr("the value is empty or too long")
                                                     : tr("the key is missing");
    }
    if (!reason.empty()) {
      problems.push_back({file, section, rule.key, reason});
    }
  }
}

void checkRemarks(const ConfigurationText& text, const std::string& file,
                  std::vector<Problem>& problems) {
  for (const ConfigurationText::Remark& remark : text.remarks()) {
    problems.push_back(
        {fmt::format("{}:{}", file, remark.line), remark.section, remark.key, remark.text});
  }
}

}  // namespace TarvexDiags::FrontEnd
