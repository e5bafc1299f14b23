#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "diagctl/report/OutputFile.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Whether something may be renamed to a path: a device such as /dev/full has no neighbour for
/// that, and takes anything.
bool isPlainFile(const std::string& path);

/// A file that is written and stands there whole or not at all: what is written goes beside it and
/// is renamed to it at the end, which the disk has by then. What is appended to, and what is no
/// plain file, is written in its place.
class WrittenFile {
 public:
  /// @throws std::system_error naming a file that cannot be opened.
  explicit WrittenFile(const std::string& path, bool appends = false);
  WrittenFile(const std::string& path, Access access);
  /// @param name of the file for people.
  WrittenFile(const std::string& path, std::string name, bool appends,
              Access access = Access::AsUmaskSays);
  /// Takes away what was not finished.
  ~WrittenFile();
  WrittenFile(const WrittenFile&) = delete;
  WrittenFile& operator=(const WrittenFile&) = delete;

  Printer& out() { return *m_out; }
  /// Whether writing waits for a disk at most, and never for somebody who reads.
  bool isPlain() const { return m_isPlain; }
  /// Call it right behind what was written, with errno 0 before that: it tells the reason.
  /// @throws std::system_error naming the file if it could not be written.
  void requireWritten();
  /// @throws std::system_error naming the file if it could not be written.
  void finish();

 private:
  std::string m_path;
  std::string m_name;
  std::string m_besides;  ///< what is renamed to it; empty for none
  bool m_isPlain;
  std::unique_ptr<std::ofstream> m_file;
  std::unique_ptr<Printer> m_out;
};

}  // namespace TarvexDiags::FrontEnd
