#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Tests {

/// @brief A machine of files in a folder of its own, where packages look for /sys and /proc.
class FakeMachine {
 public:
  FakeMachine() {
    std::string name = (std::filesystem::temp_directory_path() / "machine-XXXXXX").string();
    m_root = mkdtemp(name.data());
  }
  ~FakeMachine() { std::filesystem::remove_all(m_root); }
  FakeMachine(const FakeMachine&) = delete;
  FakeMachine& operator=(const FakeMachine&) = delete;

  /// @brief Writes a file, over the one of that name.
  FakeMachine& has(const std::string& path, const std::string& text) {
    std::filesystem::create_directories((m_root / path).parent_path());
    std::ofstream(m_root / path) << text;
    return *this;
  }

  Watching::SystemFiles files() const { return Watching::SystemFiles(m_root); }
  std::string path() const { return m_root.string(); }

 private:
  std::filesystem::path m_root;
};

}  // namespace TarvexDiags::Tests
