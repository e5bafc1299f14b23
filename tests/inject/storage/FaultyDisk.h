#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/diagctl/Workplace.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::Inject {

/// A folder behind a file system that lies: see LyingFileSystem.cpp.
class LyingFileSystem {
 public:
  /// @param folder what it shows
  /// @param faults its arguments
  LyingFileSystem(const std::string& folder, const std::vector<std::string>& faults);
  ~LyingFileSystem();
  LyingFileSystem(const LyingFileSystem&) = delete;
  LyingFileSystem& operator=(const LyingFileSystem&) = delete;

  const std::string& path() const { return m_place.path(); }
  pid_t process() const { return m_process; }
  /// SIGKILL: it is gone. SIGCONT: it answers again.
  void signal(int number) const;
  /// It answers nothing any more.
  void halt() const;
  /// Waits until it is read from.
  void awaitTraffic() const;

 private:
  TestSupport::TemporaryDirectory m_place;
  pid_t m_process = -1;
};

/// A disk of the kernel's, with a file as its blocks, that programs of this process find beside no
/// other. The process gets a view of its own of the kernel's list, so there is one at a time.
class LoopDisk {
 public:
  /// Throws std::system_error.
  explicit LoopDisk(const std::string& file);
  ~LoopDisk();
  LoopDisk(const LoopDisk&) = delete;
  LoopDisk& operator=(const LoopDisk&) = delete;

  const std::string& name() const { return m_name; }
  /// It loses its blocks, as a disk that is pulled.
  void pull();
  /// Waits until it is read from.
  void awaitTraffic() const;
  /// Waits until so many reads have begun and not ended.
  void awaitReadsInFlight(std::uint64_t count) const;

 private:
  void showAlone() const;
  /// Where the kernel shows it.
  std::string folder() const;
  std::uint64_t figure(const char* file, int field) const;

  std::string m_file;
  std::string m_name;
  TestSupport::TemporaryDirectory m_list;
  PackageKit::UniqueDescriptor m_device;
  dev_t m_number = 0;
};

/// The storage package with settings of its own, and a run of one of its tests.
class StorageBench {
 public:
  StorageBench();

  /// A file of 16 MiB that stands for a disk, in a folder of its own.
  std::string image() const { return m_images.file("disk"); }
  const std::string& folder() const { return m_images.path(); }

  StorageBench& set(const std::string& section, const std::string& setting);
  /// Makes the file one of the package's devices.
  StorageBench& testFile(const std::string& path) { return set("Package", "DeviceFile1=" + path); }

  /// Arguments of a quick run of one test on one device.
  std::vector<std::string> arguments(const std::string& test, const std::string& device,
                                     const std::vector<std::string>& further = {}) const;

 private:
  DiagctlTest::Workplace m_place;
  TestSupport::TemporaryDirectory m_images;
};

}  // namespace TarvexDiags::Inject
