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
  const std::string directory = text.value(kGlobalSection, "PackDirPath").value_or("");
  for (int i = 1; i <= std::stoi(count); ++i) {
    const std::string entry = fmt::format("Package{}", i);
    checkKeys(text, file, entry, kDisableRules, problems);
    const auto name = text.value(entry, "PackageName");
    if (name && !fs::exists(fs::path(directory) / (*name + ".cfg"))) {
      problems.push_back(
          {file, entry, "PackageName", tr("there is no package '{}' to leave out", *name)});
    }
  }
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
  const auto text = ConfigurationText::read(controlFile);
  if (!text) {
    return {{controlFile, "", "", tr("the file cannot be read")}};
  }
  std::vector<Problem> problems;
  checkRemarks(*text, controlFile, problems);
  checkKeys(*text, controlFile, kGlobalSection, kGlobalRules, problems);
  checkUnknownKeys(*text, controlFile, problems);
  checkDisabledPackages(*text, controlFile, problems);
  return problems;
}

std::vector<Problem> checkPackages(const std::string& directory, bool mayLoad) {
  std::vector<std::string> files;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (entry->path().extension() == ".cfg") {
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
