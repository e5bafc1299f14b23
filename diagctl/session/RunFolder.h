#pragma once

#include <filesystem>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// A directory below that for temporary files, for as long as the object lives. A lock in it is
/// held meanwhile, which the kernel gives back whatever ends the process: so the next start can
/// tell a directory that was left behind from one that is in use.
class RunFolder {
 public:
  /// Makes one that nobody else can read. @throws std::system_error
  RunFolder();
  /// Removes it with all that is in it.
  ~RunFolder();
  RunFolder(RunFolder&& other) noexcept;
  RunFolder& operator=(RunFolder&&) = delete;
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }

  /// Removes those of this user whose owner is gone, and nothing else.
  static void removeAbandoned();

 private:
  std::filesystem::path m_path;
  OpenedFile m_lock;
};

}  // namespace TarvexDiags::FrontEnd
