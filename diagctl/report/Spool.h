#pragma once

#include <cstddef>
#include <ios>
#include <istream>
#include <memory>
#include <string>
#include <string_view>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Text that is written before it is known what stands above it: out of the way of memory, where
/// there is a place for it, since a log may hold any number of runs.
class Spool {
 public:
  /// In the directory for temporary files.
  Spool();
  /// In a file without a name of that directory. @throws std::system_error naming it.
  Spool(const std::string& directory, const std::string& name);

  Printer& out() { return m_out; }
  /// Writes all of it, once; nothing is added behind that.
  void writeTo(Printer& out);

  /// A piece of the text that is found again by itself.
  struct Piece {
    std::streamoff from = 0;
    std::size_t size = 0;
    std::string held;  ///< for which the file had no room
  };
  /// Adds a text as it is.
  Piece add(std::string_view text);
  /// @throws std::system_error if it cannot be read.
  std::string read(const Piece& piece);

  /// Whether it takes memory, as there is no room for files.
  bool isInMemory() const { return m_isInMemory; }

 private:
  explicit Spool(std::unique_ptr<std::iostream> file);

  bool m_isInMemory;
  std::string m_name;
  std::unique_ptr<std::iostream> m_stream;
  Printer m_out;
};

}  // namespace TarvexDiags::FrontEnd
