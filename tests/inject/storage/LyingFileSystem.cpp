// A file system that shows a folder and lies about what is in it: lying_file_system MOUNTPOINT
// FOLDER FAULT..., each fault from the first transfer on, or as it says. It stays in the foreground
// until it is unmounted or killed. Offsets and lengths are bytes, of every file.
//
//   read-error=OFFSET:LENGTH:ERRNO   reads that touch the range fail
//   empty-after=COUNT                reads from that number on get no bytes
//   silent=1                         who opens a file past the page cache gets no answer
//   unstable=OFFSET                  a bit of the byte flips at every second read
//   flip-write=OFFSET                a bit of the byte is written wrongly
//   lose-write=OFFSET:LENGTH         what is written to the range becomes zeros
//   full-at=OFFSET                   writes beyond find no space
//   free=BYTES                       what the file system says is free

#define FUSE_USE_VERSION 35

#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Fault {
  bool isOn = false;
  long numbers[3] = {0, 0, 0};  ///< of the argument, in order
};

std::string shownFolder;
std::map<std::string, Fault> faultsByName;
std::atomic<long> readCount{0};

const Fault& fault(const char* name) {
  static const Fault kNone;
  const auto found = faultsByName.find(name);
  return found == faultsByName.end() ? kNone : found->second;
}

/// @brief Whether the transfer touches the range of a fault; without a length, a single byte.
bool touches(const Fault& of, off_t offset, std::size_t size) {
  const off_t length = std::max(of.numbers[1], 1L);
  return of.isOn && offset < of.numbers[0] + length &&
         of.numbers[0] < offset + static_cast<off_t>(size);
}

/// @brief Turns the lowest bits over.
void flip(char& byte, int mask) {
  byte = static_cast<char>(byte ^ mask);
}

std::string pathOf(const char* path) {
  return shownFolder + path;
}

int answer(long result) {
  return result < 0 ? -errno : static_cast<int>(result);
}

int handleOf(const fuse_file_info* info) {
  return static_cast<int>(info->fh);
}

int getAttributes(const char* path, struct stat* status, fuse_file_info* info) {
  return answer(info != nullptr ? fstat(handleOf(info), status)
                                : lstat(pathOf(path).c_str(), status));
}

int openFile(const char* path, fuse_file_info* info, int flags, mode_t mode) {
  const int descriptor = open(pathOf(path).c_str(), (flags & ~O_DIRECT) | O_CLOEXEC, mode);
  info->fh = static_cast<std::uint64_t>(descriptor);
  info->direct_io = 1;  // nothing is remembered, each read asks anew
  return descriptor < 0 ? -errno : 0;
}

int openExisting(const char* path, fuse_file_info* info) {
  while (fault("silent").isOn && (info->flags & O_DIRECT) != 0) {
    pause();
  }
  return openFile(path, info, info->flags, 0);
}

int create(const char* path, mode_t mode, fuse_file_info* info) {
  return openFile(path, info, info->flags | O_CREAT, mode);
}

int readSome(const char*, char* data, std::size_t size, off_t offset, fuse_file_info* info) {
  const long number = ++readCount;
  if (const Fault& broken = fault("read-error"); touches(broken, offset, size)) {
    return static_cast<int>(-broken.numbers[2]);
  }
  if (const Fault& empty = fault("empty-after"); empty.isOn && number > empty.numbers[0]) {
    return 0;
  }
  const int result = answer(pread(handleOf(info), data, size, offset));
  if (const Fault& unstable = fault("unstable"); touches(unstable, offset, size)) {
    static std::atomic<unsigned int> looks{0};
    flip(data[unstable.numbers[0] - offset], looks++ % 2 == 0 ? 0 : 1);
  }
  return result;
}

int writeSome(const char*, const char* data, std::size_t size, off_t offset, fuse_file_info* info) {
  if (const Fault& full = fault("full-at");
      full.isOn && offset + static_cast<off_t>(size) > full.numbers[0]) {
    return -ENOSPC;
  }
  std::vector<char> written(data, data + size);
  if (const Fault& wrong = fault("flip-write"); touches(wrong, offset, size)) {
    flip(written[static_cast<std::size_t>(wrong.numbers[0] - offset)], 1);
  }
  if (const Fault& lost = fault("lose-write"); touches(lost, offset, size)) {
    const off_t first = std::max<off_t>(lost.numbers[0], offset);
    const off_t end =
        std::min<off_t>(lost.numbers[0] + lost.numbers[1], offset + static_cast<off_t>(size));
    std::fill(written.begin() + (first - offset), written.begin() + (end - offset), 0);
  }
  return answer(pwrite(handleOf(info), written.data(), size, offset));
}

int tellSpace(const char*, struct statvfs* status) {
  const int result = answer(statvfs(shownFolder.c_str(), status));
  if (const Fault& space = fault("free"); space.isOn) {
    status->f_bavail = status->f_bfree =
        static_cast<fsblkcnt_t>(space.numbers[0]) / status->f_frsize;
  }
  return result;
}

int truncateFile(const char* path, off_t size, fuse_file_info* info) {
  return answer(info != nullptr ? ftruncate(handleOf(info), size)
                                : truncate(pathOf(path).c_str(), size));
}

int renameFile(const char* from, const char* to, unsigned int) {
  return answer(rename(pathOf(from).c_str(), pathOf(to).c_str()));
}

int removeFile(const char* path) {
  return answer(unlink(pathOf(path).c_str()));
}

int flushFile(const char*, int, fuse_file_info* info) {
  return answer(fdatasync(handleOf(info)));
}

int closeFile(const char*, fuse_file_info* info) {
  return answer(close(handleOf(info)));
}

void* begin(fuse_conn_info*, fuse_config* config) {
  config->attr_timeout = 0;
  config->entry_timeout = 0;
  return nullptr;
}

void add(const std::string& argument) {
  const auto equals = argument.find('=');
  Fault added{.isOn = true};
  std::istringstream numbers(argument.substr(equals + 1));
  for (long& number : added.numbers) {
    numbers >> number;
    numbers.ignore(1, ':');
  }
  faultsByName[argument.substr(0, equals)] = added;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr, "usage: %s MOUNTPOINT FOLDER FAULT...\n", arguments[0]);
    return 64;
  }
  shownFolder = arguments[2];
  std::for_each(arguments + 3, arguments + count, add);
  fuse_operations operations{};
  operations.getattr = getAttributes;
  operations.open = openExisting;
  operations.create = create;
  operations.read = readSome;
  operations.write = writeSome;
  operations.statfs = tellSpace;
  operations.truncate = truncateFile;
  operations.rename = renameFile;  // a file that is open loses its name by getting a hidden one
  operations.unlink = removeFile;
  operations.fsync = flushFile;
  operations.release = closeFile;
  operations.init = begin;
  char foreground[] = "-f";
  char* options[] = {arguments[0], foreground, arguments[1], nullptr};
  return fuse_main(3, options, &operations, nullptr);
}
