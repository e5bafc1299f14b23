#include "diagctl/report/OutputFile.h"

#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr mode_t kNewFile = 0666;    // less what the umask takes
constexpr mode_t kNewFolder = 0777;  // the same
constexpr mode_t kForAll = 0644;
constexpr int kMostLinks = 40;  // the kernel's own bound
constexpr int kHarmless = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

struct stat statusOf(const OpenedFile& file) {
  struct stat info {};
  fstat(file.get(), &info);
  return info;
}

bool isRoot() {
  return geteuid() == 0;
}

/// A file, whether it is one that a process had open before, and whether this one still has it.
struct Reached {
  OpenedFile file = {};
  bool wasOpen = false;
  bool isShared = false;
};

// Under sudo the terminal and the pipes that root was given belong to whoever called it.
bool mayServe(const Reached& reached) {
  const struct stat info = statusOf(reached.file);
  return S_ISREG(info.st_mode) || !isRoot() || reached.wasOpen || info.st_uid == 0;
}

/// Where a link leads that root may follow; empty for none, and for one that the kernel alone
/// follows.
std::string targetOf(const OpenedFile& link, const std::string& path) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
  target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  if (target.empty() || target.front() == '/') {
    return target;
  }
  return path.substr(0, path.rfind('/') + 1) + target;
}

bool isOfProcFileSystem(const OpenedFile& link) {
  struct statfs system {};
  return fstatfs(link.get(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// The link at the end of a path over links to what a process has open; empty for any other path.
std::string linkToWhatIsOpen(std::string path) {
  for (int links = 0; links < kMostLinks; ++links) {
    const OpenedFile link(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!link || !S_ISLNK(statusOf(link).st_mode)) {
      return "";
    }
    if (isOfProcFileSystem(link)) {
      return path;
    }
    path = targetOf(link, path);
  }
  return "";
}

/// The descriptor of this process that such a link means: one that it may write to, with the same
/// file behind it. Below 0 for none, as for what only another process has open.
int descriptorOf(const std::string& link) {
  const std::string name = link.substr(link.rfind('/') + 1);
  int descriptor = -1;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), descriptor);
  struct stat meant {};
  struct stat present {};
  const bool isSame = error == std::errc() && *end == '\0' && stat(link.c_str(), &meant) == 0 &&
                      fstat(descriptor, &present) == 0 && meant.st_dev == present.st_dev &&
                      meant.st_ino == present.st_ino;
  const int mode = isSame ? fcntl(descriptor, F_GETFL) & O_ACCMODE : O_RDONLY;
  return mode == O_RDONLY ? -1 : descriptor;
}

// Opened once more, a file is written from its own beginning or end, over what others write to it.
Reached reachWhatIsOpen(const std::string& link, int flags) {
  const int descriptor = descriptorOf(link);
  if (descriptor < 0) {
    return {OpenedFile(open(link.c_str(), flags, kNewFile)), true, false};
  }
  return {OpenedFile(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)), true, true};
}

// Each link is judged by the descriptor that its target is read from.
Reached openOverLinksOfRoot(std::string path, int flags) {
  for (int links = 0; links < kMostLinks; ++links) {
    OpenedFile file(open(path.c_str(), flags | O_NOFOLLOW, kNewFile));
    if (file || errno != ELOOP) {
      return {std::move(file)};
    }
    const OpenedFile link(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!link || statusOf(link).st_uid != 0) {
      break;
    }
    if (isOfProcFileSystem(link)) {  // as /dev/stdout: what this process has open
      return reachWhatIsOpen(path, flags);
    }
    path = targetOf(link, path);
  }
  errno = ELOOP;
  return {};
}

Reached reach(const std::string& path, int flags) {
  if (isRoot()) {
    return openOverLinksOfRoot(path, flags);
  }
  const std::string opened = linkToWhatIsOpen(path);
  return opened.empty() ? Reached{OpenedFile(open(path.c_str(), flags, kNewFile))}
                        : reachWhatIsOpen(opened, flags);
}

// With a slash behind its name a link is followed, whatever is asked for.
std::string withoutEnd(std::string path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) {
    path.pop_back();
  }
  return path;
}

OpenedFile reachFolder(std::string path) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  if (!isRoot()) {
    return OpenedFile(open(path.c_str(), flags));
  }
  for (int links = 0; links < kMostLinks; ++links) {
    path = withoutEnd(path);
    OpenedFile folder(open(path.c_str(), flags | O_NOFOLLOW));
    const OpenedFile link(folder ? -1 : open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!link || !S_ISLNK(statusOf(link).st_mode)) {
      errno = link ? ENOTDIR : errno;
      return folder;
    }
    if (statusOf(link).st_uid != 0) {
      break;
    }
    path = targetOf(link, path);
  }
  errno = ELOOP;
  return {};
}

// The system call tells the mask only while it sets another, also for what other threads make.
mode_t permissionsOfNewFiles() {
  static const std::string kKey = "Umask:";
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(kKey)) {
      return kNewFile & ~static_cast<mode_t>(std::strtoul(&line[kKey.size()], nullptr, 8));
    }
  }
  return kNewFile & 0700;
}

mode_t permissionsFor(Access access) {
  switch (access) {
    case Access::EverybodyReads:
      return kForAll;
    case Access::OwnerWrites:
      return kForAll & permissionsOfNewFiles();
    case Access::AsUmaskSays:
      break;
  }
  return permissionsOfNewFiles();
}

}  // namespace

void failWith(int error, const std::string& name) {
  throw std::system_error(error != 0 ? error : EIO, std::generic_category(), name);
}

bool leadsToWhatIsOpen(const std::string& path) {
  return !linkToWhatIsOpen(path).empty();
}

OpenedFile openOutput(const std::string& path, bool appends, const std::string& name) {
  const int flags = O_WRONLY | O_CREAT | kHarmless | (appends ? O_APPEND : 0);
  Reached reached = reach(path, flags);
  OpenedFile& file = reached.file;
  if (!file) {
    failWith(errno, name);
  }
  if (!mayServe(reached)) {
    failWith(EPERM, name);
  }
  if (reached.isShared) {
    return std::move(file);
  }
  if (!appends && S_ISREG(statusOf(file).st_mode) && ftruncate(file.get(), 0) != 0) {
    failWith(errno, name);
  }
  // A reader may be slow.
  fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
  return std::move(file);
}

OpenedFile openFolder(const std::string& path) {
  const std::string named = withoutEnd(path);
  if (mkdir(named.c_str(), kNewFolder) != 0 && errno != EEXIST) {
    failWith(errno, path);
  }
  OpenedFile folder = reachFolder(named);
  if (!folder) {
    failWith(errno, path);
  }
  return folder;
}

OpenedFile makeBeside(const std::string& path, std::string& besides, const std::string& name,
                      Access access) {
  static const std::string kEnd = ".part";
  std::string made = path + ".XXXXXX" + kEnd;
  OpenedFile file(mkostemps(made.data(), static_cast<int>(kEnd.size()), O_CLOEXEC));
  if (!file) {
    failWith(errno, name);
  }
  besides = made;
  if (fchmod(file.get(), permissionsFor(access)) != 0) {
    failWith(errno, name);
  }
  return file;
}

std::unique_ptr<std::ofstream> streamTo(OpenedFile file) {
  auto stream = std::make_unique<std::ofstream>();
  // The standard's streams open names alone.
  __gnu_cxx::stdio_filebuf<char> buffer(file.get(), std::ios::out);
  if (buffer.is_open()) {
    file.release();
    *stream->rdbuf() = std::move(static_cast<std::filebuf&>(buffer));
  } else {
    stream->setstate(std::ios::failbit);
  }
  return stream;
}

bool endsWithinLine(const std::string& path) {
  const OpenedFile file(open(path.c_str(), O_RDONLY | kHarmless));
  const struct stat info = statusOf(file);
  char last = '\n';
  return file && S_ISREG(info.st_mode) && info.st_size > 0 &&
         pread(file.get(), &last, 1, info.st_size - 1) == 1 && last != '\n';
}

void synchronise(const std::string& path) {
  const OpenedFile file(open(path.c_str(), O_WRONLY | O_NOFOLLOW | kHarmless));
  if (file) {
    fsync(file.get());
  }
}

}  // namespace TarvexDiags::FrontEnd
