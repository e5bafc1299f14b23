#pragma once

#include <sys/types.h>

#include <string>
#include <thread>

namespace TarvexDiags::SecurityTest {

/// A file system that a program of somebody's serves, until the end: a directory with a file named
/// "file", of both of which it says that they are root's. To be made where mounts are the
/// process's own.
class ServedFiles {
 public:
  /// @throws std::system_error where the kernel has no such file systems.
  ServedFiles(const std::string& directory, uid_t user);
  ServedFiles(const ServedFiles&) = delete;
  ServedFiles& operator=(const ServedFiles&) = delete;
  ~ServedFiles();

 private:
  void serve() const;

  const std::string m_directory;
  int m_device;
  std::thread m_server;
};

}  // namespace TarvexDiags::SecurityTest
