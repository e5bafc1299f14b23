#include "diagctl/session/PathInspection.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <system_error>
#include <utility>

#include "diagctl/report/OpenedFile.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr int kMostLinks = 40;             // the kernel's own bound
constexpr ino_t kTopOfProcFileSystem = 1;  // the number of its topmost directory
constexpr mode_t kOthers = S_IWGRP | S_IWOTH;

std::string messageOf(int error) {
  return std::generic_category().message(error);
}

/// The names of a path in their order, without those that lead nowhere.
std::deque<std::string> namesIn(const std::string& path) {
  std::deque<std::string> names;
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    if (!name.empty() && name != ".") {
      names.push_back(name);
    }
    begin = end + 1;
  }
  return names;
}

std::string workingDirectory() {
  std::error_code failure;
  return std::filesystem::current_path(failure).string();
}

bool isAbsolute(const std::string& path) {
  return !path.empty() && path.front() == '/';
}

}  // namespace

/// One path on its way.
class PathInspection::Walk {
 public:
  explicit Walk(PathInspection& inspection) : m_inspection(inspection) {}

  void follow(const std::string& path) {
    const std::string start = isAbsolute(path) ? "" : workingDirectory();
    if (!isAbsolute(path) && !isAbsolute(start)) {
      tell(tr("{}: the working directory cannot be reached from above", path));
      return;
    }
    m_names = namesIn(start + "/" + path);
    if (!goToTop()) {
      return;
    }
    while (!m_names.empty()) {
      const std::string name = std::move(m_names.front());
      m_names.pop_front();
      judge(m_path, m_info, S_ISDIR(m_info.st_mode) && (m_info.st_mode & S_ISVTX) != 0);
      if (!lookUp(name)) {
        return;
      }
    }
    judge(m_path, m_info, false);
  }

 private:
  void tell(const std::string& finding) { m_inspection.tell(finding); }

  // What others own they can change, or open to whom they like.
  void judge(const std::string& path, const struct stat& info, bool isKeptBySticky) {
    if (info.st_uid != 0) {
      tell(tr("{}: is owned by user {} and not by root", path, info.st_uid));
    }
    if (!S_ISLNK(info.st_mode) && (info.st_mode & kOthers) != 0 && !isKeptBySticky) {
      tell(tr("{}: may be written by others (mode {:o})", path,
              static_cast<unsigned int>(info.st_mode & 07777U)));
    }
  }

  bool goToTop() { return goTo(OpenedFile(open("/", O_PATH | O_CLOEXEC)), "/"); }

  bool goTo(OpenedFile place, const std::string& path) {
    if (!look(place, path, m_info)) {
      return false;
    }
    m_place = std::move(place);
    m_path = path;
    return true;
  }

  // Whoever serves a file system can also leave a question unanswered: it is asked none.
  bool look(const OpenedFile& file, const std::string& path, struct stat& info) {
    if (!file) {
      return fail(path, errno);
    }
    if (const auto stranger = m_inspection.m_mounts.strangerServing(file)) {
      tell(tr("{}: lies in a file system that a program of user {} serves", path, *stranger));
      return false;
    }
    if (m_inspection.m_mounts.isOnMediumOfOthers(file)) {
      tell(tr("{}: lies on a medium that can have been written elsewhere, mounted with nosuid",
              path));
      return false;
    }
    return fstat(file.get(), &info) == 0 || fail(path, errno);
  }

  bool fail(const std::string& path, int error) {
    if (error == ENOENT && (m_info.st_mode & kOthers) != 0) {
      tell(tr("{}: does not exist, and others may put something in its place", path));
    } else if (error != ENOENT && error != ENOTDIR) {  // what is not there loads nothing
      tell(tr("{}: {}", path, messageOf(error)));
    }
    return false;
  }

  // One name in the directory where the walk stands. @return whether the walk goes on.
  bool lookUp(const std::string& name) {
    const std::string path = pathOf(name);
    OpenedFile next(openat(m_place.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!look(next, path, info)) {
      return false;
    }
    return S_ISLNK(info.st_mode) ? followLink(next, info, path) : goTo(std::move(next), path);
  }

  bool followLink(const OpenedFile& link, const struct stat& info, const std::string& path) {
    judge(path, info, false);
    if (++m_links > kMostLinks) {
      return fail(path, ELOOP);
    }
    if (leadsPastItsText()) {
      tell(tr("{}: is a link that does not tell where it leads", path));
      return false;
    }
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
    if (length < 0) {
      return fail(path, errno);
    }
    target.resize(static_cast<std::size_t>(length));
    const std::deque<std::string> names = namesIn(target);
    m_names.insert(m_names.begin(), names.begin(), names.end());
    return !isAbsolute(target) || goToTop();
  }

  // Below the topmost directory of that file system a link leads to what a process has open.
  bool leadsPastItsText() const {
    struct statfs system {};
    return fstatfs(m_place.get(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC &&
           m_info.st_ino != kTopOfProcFileSystem;
  }

  std::string pathOf(const std::string& name) const {
    if (name == "..") {
      return m_path.substr(0, std::max<std::size_t>(m_path.rfind('/'), 1));
    }
    return m_path == "/" ? m_path + name : m_path + "/" + name;
  }

  PathInspection& m_inspection;
  std::deque<std::string> m_names;  ///< that are still to be looked up
  OpenedFile m_place;               ///< where the walk stands
  struct stat m_info {};            ///< of that
  std::string m_path;               ///< to that, for people
  int m_links = 0;
};

void PathInspection::inspect(const std::string& path) {
  if (m_inspected.insert(path).second) {
    Walk(*this).follow(path);
  }
}

void PathInspection::tell(const std::string& finding) {
  if (m_told.insert(finding).second) {
    m_findings.push_back(finding);
  }
}

}  // namespace TarvexDiags::FrontEnd
