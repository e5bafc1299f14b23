#include "tests/inject/storage/FaultyDisk.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/Eventually.h"

namespace TarvexDiags::Inject {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kImageSize = std::uintmax_t{16} << 20;

void check(long result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

void await(const char* failure, const std::function<bool()>& condition) {
  if (!TestSupport::eventually(condition)) {
    throw std::runtime_error(failure);
  }
}

/// Mounts of this process's own: they go with it, whatever ends it.
void ownMounts() {
  static const bool kIsDone = [] {
    check(unshare(CLONE_NEWNS), "unshare");
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    return true;
  }();
  (void)kIsDone;
}

std::string contentsOf(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

char stateOf(pid_t process) {
  const std::string text = contentsOf("/proc/" + std::to_string(process) + "/stat");
  const auto name = text.rfind(')');
  return name == std::string::npos || name + 2 >= text.size() ? '?' : text[name + 2];
}

std::uint64_t bytesReadBy(pid_t process) {
  std::string word;
  std::uint64_t bytes = 0;
  std::ifstream("/proc/" + std::to_string(process) + "/io") >> word >> bytes;
  return bytes;
}

// More than the kernel asks for on its own when a file is looked at.
constexpr std::uint64_t kSomeTraffic = std::uint64_t{1} << 20;

dev_t deviceOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

}  // namespace

LyingFileSystem::LyingFileSystem(const std::string& folder,
                                 const std::vector<std::string>& faults) {
  std::vector<const char*> arguments{LYING_FILE_SYSTEM, path().c_str(), folder.c_str()};
  for (const std::string& fault : faults) {
    arguments.push_back(fault.c_str());
  }
  arguments.push_back(nullptr);
  ownMounts();
  const dev_t before = deviceOf(path());
  const pid_t parent = getpid();
  m_process = fork();
  check(m_process, "fork");
  if (m_process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(127);  // it has died already
    }
    execv(LYING_FILE_SYSTEM, const_cast<char* const*>(arguments.data()));
    _exit(127);
  }
  await("the file system was not mounted", [&] {
    if (waitpid(m_process, nullptr, WNOHANG) != 0) {
      throw std::runtime_error("the file system has ended");
    }
    return deviceOf(path()) != before;
  });
}

LyingFileSystem::~LyingFileSystem() {
  kill(m_process, SIGKILL);
  waitpid(m_process, nullptr, 0);
  umount2(path().c_str(), MNT_DETACH);
}

void LyingFileSystem::signal(int number) const {
  kill(m_process, number);
}

void LyingFileSystem::halt() const {
  signal(SIGSTOP);
  await("its program was not halted", [this] { return stateOf(m_process) == 'T'; });
}

void LyingFileSystem::awaitTraffic() const {
  const std::uint64_t before = bytesReadBy(m_process);
  await("nothing was read from the file system",
        [&] { return bytesReadBy(m_process) > before + kSomeTraffic; });
}

LoopDisk::LoopDisk(const std::string& file)
    : m_file(file), m_name("tarvextest" + std::to_string(getpid())) {
  const PackageKit::UniqueDescriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
  check(control.get(), "/dev/loop-control");
  const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
  check(number, "LOOP_CTL_GET_FREE");
  const std::string path = "/dev/loop" + std::to_string(number);
  m_device = PackageKit::UniqueDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
  check(m_device.get(), path.c_str());
  const PackageKit::UniqueDescriptor backing(open(file.c_str(), O_RDWR | O_CLOEXEC));
  check(backing.get(), file.c_str());
  loop_config configuration{};
  configuration.fd = static_cast<__u32>(backing.get());
  configuration.info.lo_flags = LO_FLAGS_AUTOCLEAR;  // it goes with its last user
  check(ioctl(m_device.get(), LOOP_CONFIGURE, &configuration), "LOOP_CONFIGURE");
  struct stat status {};
  check(fstat(m_device.get(), &status), path.c_str());
  m_number = status.st_rdev;
  check(mknod(("/dev/" + m_name).c_str(), S_IFBLK | 0600, status.st_rdev), "mknod");
  showAlone();
}

std::string LoopDisk::folder() const {
  return "/sys/dev/block/" + std::to_string(major(m_number)) + ":" +
         std::to_string(minor(m_number));
}

LoopDisk::~LoopDisk() {
  umount2("/sys/block", MNT_DETACH);
  unlink(("/dev/" + m_name).c_str());
}

void LoopDisk::showAlone() const {
  m_list.makeDirectory(m_name);
  m_list.write(m_name + "/size", std::to_string(fs::file_size(m_file) / 512) + "\n");
  ownMounts();
  check(mount(m_list.path().c_str(), "/sys/block", nullptr, MS_BIND, nullptr), "/sys/block");
}

std::uint64_t LoopDisk::figure(const char* file, int field) const {
  std::ifstream stream(folder() + "/" + file);
  std::uint64_t value = 0;
  for (int number = 0; number < field; ++number) {
    stream >> value;
  }
  return value;
}

void LoopDisk::awaitTraffic() const {
  constexpr std::uint64_t kSomeReads = 256;
  const std::uint64_t before = figure("stat", 1);
  await("nothing was read from the disk", [&] { return figure("stat", 1) > before + kSomeReads; });
}

void LoopDisk::awaitReadsInFlight(std::uint64_t count) const {
  await("no reads are in flight", [&] { return figure("inflight", 1) >= count; });
}

void LoopDisk::pull() {
  fs::resize_file(m_file, 0);
  check(ioctl(m_device.get(), LOOP_SET_CAPACITY), "LOOP_SET_CAPACITY");
}

StorageBench::StorageBench() {
  const fs::path built = fs::path(TARVEX_PACKAGE_DIR);
  const fs::path here = m_place.path("packages");
  for (const char* file : {"libstorage.so", "tarvex-package-worker", "en/storage.cfg"}) {
    fs::create_symlink(built / file, here / file);
  }
  fs::copy_file(built / "storage.cfg", here / "storage.cfg");
  std::ofstream(image()).close();
  fs::resize_file(image(), kImageSize);
  set("TestID8", "QuickFileMegabytes=8").set("Package", "SilenceSeconds=2");
}

StorageBench& StorageBench::set(const std::string& section, const std::string& setting) {
  const std::string head = "[" + section + "]\n";
  m_place.replaceIn(m_place.path("packages/storage.cfg"), head, head + setting + "\n");
  return *this;
}

std::vector<std::string> StorageBench::arguments(const std::string& test, const std::string& device,
                                                 const std::vector<std::string>& further) const {
  std::vector<std::string> all{"--allow-insecure",
                               "--config",
                               m_place.controlFile(),
                               "run",
                               "--quick",
                               "-p",
                               "storage",
                               "-t",
                               test,
                               "-d",
                               "*" + device + "*"};
  all.insert(all.end(), further.begin(), further.end());
  return all;
}

}  // namespace TarvexDiags::Inject
