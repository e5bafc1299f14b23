#pragma once

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <system_error>

namespace TarvexDiags::TestSupport {

/// A directory of the test's own, removed with all that lies in it when the object goes. A test
/// that ends its process itself does that with endTestProcess, or its directories stay.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "tarvex-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    m_path = name;
    Living& all = living();
    const std::lock_guard lock(all.mutex);
    all.paths.insert(m_path);
  }
  ~TemporaryDirectory() {
    remove(m_path);
    Living& all = living();
    const std::lock_guard lock(all.mutex);
    all.paths.erase(m_path);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return m_path; }

  /// The path of a file in the directory, whether or not there is one.
  std::string file(const std::string& name) const { return m_path + "/" + name; }

  /// Makes a directory in the directory.
  std::string makeDirectory(const std::string& name) const {
    std::filesystem::create_directories(file(name));
    return file(name);
  }

  /// Writes the text as it stands, over what was there. @return the path of the file.
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream stream(file(name), std::ios::binary | std::ios::trunc);
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    stream << text << std::flush;
    return file(name);
  }

  /// Removes every directory of the process: for its end.
  static void removeAll() {
    Living& all = living();
    const std::lock_guard lock(all.mutex);
    std::for_each(all.paths.begin(), all.paths.end(), remove);
  }

 private:
  struct Living {
    std::mutex mutex;
    std::set<std::string> paths;
  };

  static Living& living() {
    static auto* const kAll = new Living;  // outlives every directory
    return *kAll;
  }
  static void remove(const std::string& path) {
    std::error_code ignored;
    std::filesystem::permissions(path, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path, ignored);
  }

  std::string m_path;
};

/// Ends the process of a test after which something stays locked for good.
[[noreturn]] inline void endTestProcess(bool hasFailed) {
  TemporaryDirectory::removeAll();
  _exit(hasFailed ? 1 : 0);
}

}  // namespace TarvexDiags::TestSupport
