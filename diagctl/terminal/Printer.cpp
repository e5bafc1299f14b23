#include "diagctl/terminal/Printer.h"

#include <algorithm>
#include <iostream>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kReset = "\033[0m";

const char* beginOf(Colour colour) {
  switch (colour) {
    case Colour::Green:
      return "\033[32m";
    case Colour::Red:
      return "\033[31m";
    case Colour::Yellow:
      break;
  }
  return "\033[33m";
}

bool isPlain(char character) {
  return (character >= ' ' && character <= '~') || character == '\n';
}

}  // namespace

void Printer::write(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), isPlain)) {
    writeRaw(text);
  } else {
    writeRaw(toPrintable(text, "\n"));
  }
}

void Printer::paint(Colour colour, std::string_view text) {
  writeRaw(beginOf(colour));
  write(text);
  writeRaw(kReset);
}

void Printer::eraseLines(std::size_t count) {
  writeRaw(fmt::format("\033[{}A\033[J", count));
}

void Printer::writeRaw(std::string_view text) {
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

std::istream& standardInput() {
  return std::cin;
}

Printer& standardError() {
  static Printer printer(std::cerr);
  return printer;
}

}  // namespace TarvexDiags::FrontEnd
