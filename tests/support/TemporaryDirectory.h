#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace TarvexDiags::TestSupport {

/// A directory of the test's own, removed with all that lies in it when the object goes.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "tarvex-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    m_path = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(m_path, ignored);
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

 private:
  std::string m_path;
};

}  // namespace TarvexDiags::TestSupport
