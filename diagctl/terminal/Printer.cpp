#include "diagctl/terminal/Printer.h"

#include <iostream>

namespace TarvexDiags::FrontEnd {

void Printer::write(std::string_view text) {
  m_stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void Printer::flush() {
  m_stream.flush();
}

bool Printer::isSound() const {
  return static_cast<bool>(m_stream);
}

Printer& standardOutput() {
  static Printer printer(std::cout);
  return printer;
}

Printer& standardError() {
  static Printer printer(std::cerr);
  return printer;
}

}  // namespace TarvexDiags::FrontEnd
