#include "tests/inject/storage/FaultyDisk.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace TarvexDiags::Inject {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kImageSize = std::uintmax_t{16} << 20;

void check(long result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

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
  const dev_t before = deviceOf(path());
  m_process = fork();
  check(m_process, "fork");
  if (m_process == 0) {
    execv(LYING_FILE_SYSTEM, const_cast<char* const*>(arguments.data()));
    _exit(127);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (deviceOf(path()) == before) {
    if (std::chrono::steady_clock::now() > end || waitpid(m_process, nullptr, WNOHANG) != 0) {
      throw std::runtime_error("the file system was not mounted");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

LyingFileSystem::~LyingFileSystem() {
  kill(m_process, SIGKILL);
  waitpid(m_process, nullptr, 0);
  umount2(path().c_str(), MNT_DETACH);
}

void LyingFileSystem::signal(int number) const {
  kill(m_process, number);
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
  check(mknod(("/dev/" + m_name).c_str(), S_IFBLK | 0600, status.st_rdev), "mknod");
  showAlone();
}

LoopDisk::~LoopDisk() {
  umount2("/sys/block", MNT_DETACH);
  unlink(("/dev/" + m_name).c_str());
}

void LoopDisk::showAlone() const {
  m_list.makeDirectory(m_name);
  m_list.write(m_name + "/size", std::to_string(fs::file_size(m_file) / 512) + "\n");
  check(unshare(CLONE_NEWNS), "unshare");
  check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
  check(mount(m_list.path().c_str(), "/sys/block", nullptr, MS_BIND, nullptr), "/sys/block");
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
