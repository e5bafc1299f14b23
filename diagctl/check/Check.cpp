#include "diagctl/check/Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "diagctl/check/CheckRules.h"
#include "diagctl/check/PackageCheck.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kGlobalSection = "GlobalSettings";
constexpr int kMostPackages = 1000;  // a wrong count shall not fill the screen

const std::vector<KeyRule> kGlobalRules = {
    {"PackDirPath", ValueKind::Directory, true}, {"LogDirPath", ValueKind::Directory, true},
    {"MsgFilePath", ValueKind::File, false},     {"DebugLog", ValueKind::DebugLevel, false},
    {"RunMode", ValueKind::RunMode, true},       {"DiagLog", ValueKind::Truth, false},
    {"HaltOnError", ValueKind::Truth, true},     {"DiagnosticMode", ValueKind::DiagMode, true},
};

const std::vector<KeyRule> kDisableRules = {{"PackageName", ValueKind::Text, true},
                                            {"MachineId", ValueKind::MachineId, false},
                                            {"Os", ValueKind::OperatingSystem, false}};

// A key that nobody reads is mostly a misspelt one.
void checkUnknownKeys(const ConfigurationText& text, const std::string& file,
                      std::vector<Problem>& problems) {
  for (const auto& [key, value] : text.keys(kGlobalSection)) {
    const bool isKnown =
        std::any_of(kGlobalRules.begin(), kGlobalRules.end(),
                    [&name = key](const KeyRule& rule) { return rule.key == name; });
    if (!isKnown) {
      problems.push_back({file, kGlobalSection, key, tr("no such key is read")});
    }
  }
}

void checkDisabledPackages(const ConfigurationText& text, const std::string& file,
                           std::vector<Problem>& problems) {
  const std::string section = "DisablePackage";
  checkKeys(text, file, section, {{"NumPackages", ValueKind::Number, false}}, problems);
  const std::string count = text.value(section, "NumPackages").value_or("0");
  if (!findFault(ValueKind::Number, count).empty()) {
    return;
  }
  if (std::stoi(count) > kMostPackages) {
    problems.push_back(
        {file, section, "NumPackages", tr("{} is more than {}", count, kMostPackages)});
  }
  const std::string directory = text.value(kGlobalSection, "PackDirPath").value_or("");
  for (int i = 1; i <= std::min(std::stoi(count), kMostPackages); ++i) {
    const std::string entry = fmt::format("Package{}", i);
    checkKeys(text, file, entry, kDisableRules, problems);
    const auto name = text.value(entry, "PackageName");
    std::error_code failure;
    if (name && !fs::exists(fs::path(directory) / (*name + ".cfg"), failure)) {
      problems.push_back({file, entry, "PackageName",
                          failure ? fmt::format("'{}': {}", *name, failure.message())
                                  : tr("there is no package '{}' to leave out", *name)});
    }
  }
}

// What a reader could wait for without an end.
std::string kindFaultOf(const fs::directory_entry& entry) {
  std::error_code failure;
  const fs::file_status status = entry.status(failure);
  if (status.type() == fs::file_type::not_found) {
    return tr("it is a link that leads nowhere");
  }
  if (failure) {
    return failure.message();
  }
  if (!fs::is_regular_file(status)) {
    return tr("it is no regular file");
  }
  const bool isTooLarge = entry.path().extension() == ".cfg" &&
                          entry.file_size(failure) > ConfigurationText::kLargestFile;
  return isTooLarge ? tr("it is larger than {} bytes", ConfigurationText::kLargestFile) : "";
}

std::string lastComponent(const std::string& tag) {
  const std::size_t separator = tag.rfind('/');
  return separator == std::string::npos ? tag : tag.substr(separator + 1);
}

}  // namespace

std::string toText(const Problem& problem) {
  std::string text = problem.file;
  if (!problem.section.empty()) {
    text += " [" + problem.section + "]";
  }
  if (!problem.key.empty()) {
    text += " " + problem.key;
  }
  return text + ": " + problem.reason;
}

std::vector<Problem> checkControlFile(const std::string& controlFile) {
  std::string reason;
  const auto text = ConfigurationText::read(controlFile, reason);
  if (!text) {
    return {{controlFile, "", "", tr("the file cannot be read: {}", reason)}};
  }
  std::vector<Problem> problems;
  checkRemarks(*text, controlFile, problems);
  checkKeys(*text, controlFile, kGlobalSection, kGlobalRules, problems);
  checkUnknownKeys(*text, controlFile, problems);
  checkDisabledPackages(*text, controlFile, problems);
  return problems;
}

std::vector<Problem> checkKinds(const std::string& directory) {
  std::vector<Problem> problems;
  std::vector<fs::path> folders{directory};
  for (std::size_t index = 0; index < folders.size(); ++index) {
    std::error_code failure;
    for (fs::directory_iterator entry(folders[index], failure), end; !failure && entry != end;
         entry.increment(failure)) {
      const std::string extension = entry->path().extension().string();
      std::error_code ignored;
      if (index == 0 && entry->is_directory(ignored)) {
        folders.push_back(entry->path());
      } else if (extension == ".cfg" || extension == ".so") {
        if (const std::string fault = kindFaultOf(*entry); !fault.empty()) {
          problems.push_back({entry->path().string(), "", "", fault});
        }
      }
    }
  }
  return problems;
}

std::vector<Problem> checkPackages(const std::string& directory, bool mayLoad) {
  std::vector<std::string> files;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code ignored;
    if (entry->path().extension() == ".cfg" && entry->is_regular_file(ignored)) {
      files.push_back(entry->path().string());
    }
  }
  std::sort(files.begin(), files.end());
  std::vector<Problem> problems;
  if (failure) {
    problems.push_back({directory, "", "", failure.message()});
  } else if (files.empty()) {
    problems.push_back({directory, "", "", tr("the directory holds no package")});
  }
  for (const std::string& file : files) {
    checkPackage(file, mayLoad, problems);
  }
  return problems;
}

std::vector<Problem> checkTags(const Catalogue& catalogue) {
  std::map<std::string, std::vector<std::string>> tags;  // by last component
  for (const PackageItem& package : catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
      tags[lastComponent(device.tag)].push_back(
          fmt::format("{} ({}, {})", device.tag, package.baseName, device.name));
    }
  }
  std::vector<Problem> problems;
  for (const auto& [component, users] : tags) {
    if (users.size() > 1) {
      problems.push_back({tr("resource tags"), "", component,
                          tr("several devices end alike, so they are tested one after the "
                             "other: {}",
                             fmt::join(users, ", "))});
    }
  }
  return problems;
}

}  // namespace TarvexDiags::FrontEnd
