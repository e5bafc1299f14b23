#include "diagctl/session/RunFolder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "diagctl-";
constexpr const char* kLockFile = "run.lock";

[[noreturn]] void fail() {
  throw std::system_error(errno, std::generic_category(),
                          tr("making a directory for the control file"));
}

fs::path makeDirectory() {
  std::error_code failure;
  const fs::path place = fs::temp_directory_path(failure);
  if (failure) {
    throw std::system_error(failure, "TMPDIR");
  }
  std::string path = (place / kPrefix).string() + "XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    fail();
  }
  return path;
}

// The file gets its name when the lock is held: nobody ever finds it free that has an owner.
OpenedFile makeLock(const fs::path& directory) {
  const std::string name = (directory / kLockFile).string();
  const std::string draft = name + ".new";
  OpenedFile lock(open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
    rename(draft.c_str(), name.c_str());
  }
  return lock;
}

bool isOwn(const struct stat& state, mode_t type) {
  return (state.st_mode & S_IFMT) == type && state.st_uid == geteuid();
}

// The lock of a directory whose owner is gone, held; none: it has one, or is none of ours.
OpenedFile takeAbandoned(const fs::path& directory) {
  struct stat state {};
  if (lstat(directory.c_str(), &state) != 0 || !isOwn(state, S_IFDIR)) {
    return {};
  }
  OpenedFile lock(
      open((directory / kLockFile).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const bool isAbandoned = lock && fstat(lock.get(), &state) == 0 && isOwn(state, S_IFREG) &&
                           flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
  return isAbandoned ? std::move(lock) : OpenedFile();
}

// With one descriptor at a time, since there may be no more: none of a level is held below it.
void removeTree(const fs::path& root) {
  std::vector<fs::path> folders{root};
  for (std::size_t index = 0; index < folders.size(); ++index) {
    std::error_code failure;
    for (fs::directory_iterator entry(folders[index], failure), end; !failure && entry != end;
         entry.increment(failure)) {
      std::error_code ignored;
      if (fs::is_directory(entry->symlink_status(ignored))) {
        folders.push_back(entry->path());
      } else {
        fs::remove(entry->path(), ignored);
      }
    }
  }
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    std::error_code ignored;
    fs::remove(*folder, ignored);
  }
}

}  // namespace

RunFolder::RunFolder() : m_path(makeDirectory()) {
  Interruption::removeWhenLeaving(m_path.string());
  m_lock = makeLock(m_path);
}

RunFolder::RunFolder(RunFolder&& other) noexcept
    : m_path(std::exchange(other.m_path, fs::path())), m_lock(std::move(other.m_lock)) {}

RunFolder::~RunFolder() {
  if (!m_path.empty()) {
    m_lock = OpenedFile();  // whose descriptor may be the last
    removeTree(m_path);
    Interruption::removeWhenLeaving("");
  }
}

void RunFolder::removeAbandoned() {
  std::error_code failure;
  const fs::path place = fs::temp_directory_path(failure);
  for (fs::directory_iterator entry(place, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (!entry->path().filename().string().starts_with(kPrefix)) {
      continue;
    }
    if (const OpenedFile lock = takeAbandoned(entry->path())) {
      std::error_code ignored;
      fs::remove_all(entry->path(), ignored);
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
