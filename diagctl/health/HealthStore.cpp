#include "diagctl/health/HealthStore.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "System/SysUtil.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/report/WrittenFile.h"
#include "diagctl/session/Folders.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStateFolder = "tarvexdiags";
constexpr std::size_t kMostOfState = 1UL << 20U;
constexpr auto kClockSlack = std::chrono::seconds(5);

// A scope may be any text; its name in the folder is the same in each version of the program.
std::string nameOfScope(const std::string& scope) {
  constexpr std::uint64_t begin = 0xcbf29ce484222325U;  // FNV-1a
  constexpr std::uint64_t prime = 0x100000001b3U;
  std::uint64_t hash = begin;
  for (const char character : scope) {
    hash = (hash ^ static_cast<unsigned char>(character)) * prime;
  }
  return fmt::format("health-{:016x}.json", hash);
}

[[noreturn]] void refuseFile(const fs::path& file, const std::string& reason) {
  throw std::runtime_error(
      tr("the last result counts for nothing: {} ({})", reason, file.string()));
}

/// The text of a file that nobody but root or this user can have written. Nothing: there is none.
std::optional<std::string> readOwn(const fs::path& path) {
  const OpenedFile file(
      open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file && errno == ENOENT) {
    return std::nullopt;
  }
  struct stat info {};
  if (!file || fstat(file.get(), &info) != 0) {
    failWith(errno, path.string());
  }
  const bool isOwn = info.st_uid == geteuid() || info.st_uid == 0;
  if (!S_ISREG(info.st_mode) || !isOwn || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    refuseFile(path, tr("others could have written it"));
  }
  std::string text(kMostOfState + 1, '\0');
  std::size_t size = 0;
  ssize_t count = 1;
  while (count > 0 && size < text.size()) {
    count = read(file.get(), text.data() + size, text.size() - size);
    size += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  if (count < 0) {
    failWith(errno, path.string());
  }
  if (size > kMostOfState) {
    refuseFile(path, tr("it is too long"));
  }
  text.resize(size);
  return text;
}

void requireMeant(const HealthResult& result, const std::string& scope) {
  if (result.machineId != System::SysUtil::getMachineId()) {
    throw std::runtime_error(tr("it is of another machine"));
  }
  if (result.scope != scope) {
    throw std::runtime_error(tr("it tells of something else"));
  }
  if (result.ended > std::chrono::system_clock::now() + kClockSlack) {
    throw std::runtime_error(tr("it lies in the future"));
  }
}

}  // namespace

fs::path HealthStore::ofMachine() {
  return fs::path("/var/lib") / kStateFolder;
}

fs::path HealthStore::ofUser() {
  if (geteuid() == 0) {
    return ofMachine();
  }
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') {
    return fs::path(state) / kStateFolder;
  }
  const char* const home = std::getenv("HOME");
  if (home == nullptr || *home != '/') {
    throw std::runtime_error(
        tr("there is no place for results: neither XDG_STATE_HOME nor HOME is set"));
  }
  return fs::path(home) / ".local/state" / kStateFolder;
}

fs::path HealthStore::fileOf(const std::string& scope) const {
  return m_directory / nameOfScope(scope);
}

void HealthStore::makeDirectory() const {
  makeOwnFolders(m_directory);
  if (m_isSecure) {
    requireSecurePath(m_directory.string());
  }
}

std::optional<OpenedFile> HealthStore::tryLock() const {
  makeDirectory();
  const fs::path path = m_directory / "health.lock";
  OpenedFile lock(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0600));
  if (!lock) {
    failWith(errno, path.string());
  }
  if (flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
    return lock;
  }
  if (errno != EWOULDBLOCK) {
    failWith(errno, path.string());
  }
  return std::nullopt;
}

std::optional<HealthResult> HealthStore::last(const std::string& scope) const {
  const fs::path file = fileOf(scope);
  if (m_isSecure) {
    requireSecurePath(file.string());
  }
  const std::optional<std::string> text = readOwn(file);
  if (!text) {
    return std::nullopt;
  }
  try {
    HealthResult result = healthResultFrom(*text);
    requireMeant(result, scope);
    return result;
  } catch (const std::runtime_error& fault) {
    refuseFile(file, fault.what());
  }
}

void HealthStore::keep(const HealthResult& result) const {
  makeDirectory();
  WrittenFile file(fileOf(result.scope).string(), Access::OwnerWrites);
  file.out().write(toText(result));
  file.finish();
}

}  // namespace TarvexDiags::FrontEnd
