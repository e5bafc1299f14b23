#pragma once

#include <istream>
#include <memory>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Text that is written before it is known what stands above it: out of the way of memory, where
/// there is a place for it, since a log may hold any number of runs.
class Spool {
 public:
  Spool();

  Printer& out() { return m_out; }
  /// Writes all of it, once; nothing is added behind that.
  void writeTo(Printer& out);

 private:
  std::unique_ptr<std::iostream> m_stream;
  Printer m_out;
};

}  // namespace TarvexDiags::FrontEnd
