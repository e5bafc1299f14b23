#include "diagctl/session/Safety.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "System/SysUtil.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

enum class Place { Itself, Above };

// What others own they can change or put something else in place of, a symbolic link included. A
// sticky directory keeps safe what root owns in it; one that is itself to be read is not kept from
// others' additions by that.
void inspect(const fs::path& path, Place place, std::vector<std::string>& findings) {
  struct stat link {};
  struct stat info {};
  if (lstat(path.c_str(), &link) != 0 || stat(path.c_str(), &info) != 0) {
    return;  // what does not exist loads nothing
  }
  for (const struct stat* each : {&link, &info}) {
    if (each->st_uid != 0) {
      findings.push_back(
          tr("{}: is owned by user {} and not by root", path.string(), each->st_uid));
      break;
    }
  }
  const bool isSticky = S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0;
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (!isSticky || place == Place::Itself)) {
    findings.push_back(tr("{}: may be written by others (mode {:o})", path.string(),
                          static_cast<unsigned int>(info.st_mode & 07777U)));
  }
}

void inspectUpwards(const fs::path& path, std::vector<std::string>& findings) {
  inspect(path, Place::Itself, findings);
  for (fs::path part = path; part != part.root_path(); part = part.parent_path()) {
    inspect(part.parent_path(), Place::Above, findings);
  }
}

// Another shared object that a package wants: looked for beside it, then as it is named.
std::vector<std::string> dependenciesOf(const fs::path& description) {
  std::string name;
  System::SysUtil::ReadCfgFile("Package", "SODependencies", name, description.string(), -1);
  if (name.empty()) {
    return {};
  }
  std::vector<std::string> paths{description.parent_path().string() + "/" + name};
  if (name.find('/') != std::string::npos) {
    paths.push_back(name);
  }
  return paths;
}

}  // namespace

bool mustBeSecure() {
  return geteuid() == 0;
}

std::vector<std::string> findInsecurePaths(const std::string& path) {
  std::error_code failure;
  const fs::path canonical = fs::weakly_canonical(path, failure);
  if (failure) {
    return {fmt::format("{}: {}", path, failure.message())};
  }
  std::vector<std::string> findings;
  inspectUpwards(canonical, findings);
  // Whoever can turn a symbolic link on the way elsewhere decides what is loaded, too.
  const fs::path named = fs::absolute(path, failure).lexically_normal();
  if (!failure && named != canonical) {
    inspectUpwards(named, findings);
  }
  return findings;
}

std::vector<std::string> findInsecureFiles(const std::string& controlFile,
                                           const std::string& packageDirectory) {
  std::vector<std::string> paths{controlFile};
  if (!packageDirectory.empty()) {
    paths.push_back(packageDirectory);
  }
  std::error_code failure;
  for (fs::directory_iterator entry(packageDirectory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const fs::path& path = entry->path();
    if (path.extension() == ".cfg" || path.extension() == ".so") {
      paths.push_back(path.string());
    }
    if (path.extension() == ".cfg") {
      const std::vector<std::string> dependencies = dependenciesOf(path);
      paths.insert(paths.end(), dependencies.begin(), dependencies.end());
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
  const std::vector<std::string> findings =
      findInsecureFiles(controlFile, packageDirectoryOf(controlFile));
  if (!findings.empty()) {
    throw InsecureFiles(tr("refused to run as root:\n  {}\n--allow-insecure overrides",
                           fmt::join(findings, "\n  ")));
  }
}

}  // namespace TarvexDiags::FrontEnd
