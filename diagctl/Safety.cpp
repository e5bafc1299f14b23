#include "diagctl/Safety.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "System/SysUtil.h"

namespace TarvexDiags::DiagCtl {

namespace {

namespace fs = std::filesystem;

void inspect(const fs::path& path, std::vector<std::string>& findings) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) {
    return;  // what does not exist loads nothing
  }
  if (info.st_uid != 0) {
    findings.push_back(
        fmt::format("{}: is owned by user {} and not by root", path.string(), info.st_uid));
  }
  const bool isSticky = S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0;
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !isSticky) {
    findings.push_back(fmt::format("{}: may be written by others (mode {:o})", path.string(),
                                   static_cast<unsigned int>(info.st_mode & 07777U)));
  }
}

}  // namespace

bool mustBeSecure() {
  return geteuid() == 0;
}

std::vector<std::string> findInsecurePaths(const std::string& path) {
  std::vector<std::string> findings;
  std::error_code failure;
  const fs::path absolute = fs::weakly_canonical(path, failure);
  if (failure) {
    return {fmt::format("{}: {}", path, failure.message())};
  }
  for (fs::path part = absolute; !part.empty(); part = part.parent_path()) {
    inspect(part, findings);
    if (part == part.root_path()) {
      break;
    }
  }
  return findings;
}

std::vector<std::string> findInsecureFiles(const std::string& controlFile,
                                           const std::string& packageDirectory) {
  std::vector<std::string> paths{controlFile, packageDirectory};
  std::error_code failure;
  for (fs::directory_iterator entry(packageDirectory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const fs::path& path = entry->path();
    if (path.extension() == ".cfg" || path.extension() == ".so") {
      paths.push_back(path.string());
    }
  }
  std::sort(paths.begin(), paths.end());
  std::vector<std::string> findings;
  std::set<std::string> told;
  for (const std::string& path : paths) {
    for (const std::string& finding : findInsecurePaths(path)) {
      if (told.insert(finding).second) {
        findings.push_back(finding);
      }
    }
  }
  return findings;
}

void requireSecureFiles(const std::string& controlFile) {
  std::string packages;
  System::SysUtil::ReadCfgFile("GlobalSettings", "PackDirPath", packages, controlFile, -1);
  const std::vector<std::string> findings = findInsecureFiles(controlFile, packages);
  if (!findings.empty()) {
    throw InsecureFiles(fmt::format("refused to run as root:\n  {}\n--allow-insecure overrides",
                                    fmt::join(findings, "\n  ")));
  }
}

}  // namespace TarvexDiags::DiagCtl
