#include "diagctl/terminal/Printer.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iostream>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kReset = "\033[0m";
constexpr const char* kEraseLine = "\033[K";  // from the cursor on
constexpr const char* kEraseBelow = "\033[J";
constexpr char kErase[] = "\r\033[J";

std::atomic<bool> areBlocksHeldBack{false};
std::atomic<bool> isBlockOnTerminal{false};

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

// The system tells it once, and the first reason is the one that counts.
template <class Act>
void Printer::noteError(Act act) {
  if (!isSound()) {
    return;
  }
  errno = 0;
  act();
  if (!isSound()) {
    m_error = errno;
  }
}

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

void Printer::drawBlock(const std::vector<std::string>& lines) {
  if (areBlocksHeldBack) {
    return;
  }
  std::string block = "\r";
  for (std::size_t line = 0; line < lines.size(); ++line) {
    block.append(line == 0 ? "" : "\r\n").append(toPrintable(lines[line])).append(kEraseLine);
  }
  block.append(kEraseBelow);
  if (lines.size() > 1) {
    block.append(fmt::format("\033[{}A", lines.size() - 1));
  }
  block.push_back('\r');
  m_hasBlock = true;
  isBlockOnTerminal = &m_stream == &std::cerr;
  writeRaw(block);
}

void Printer::eraseBlock() {
  if (std::exchange(m_hasBlock, false) && !areBlocksHeldBack) {
    writeRaw(kErase);
    isBlockOnTerminal = false;
  }
}

void holdBlocksBack() {
  areBlocksHeldBack = true;
  if (isBlockOnTerminal.exchange(false)) {
    // Nothing can be done about a terminal that is gone.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, kErase, sizeof kErase - 1);
  }
}

void letBlocksBeDrawn() {
  areBlocksHeldBack = false;
}

void Printer::writeRaw(std::string_view text) {
  noteError([&] { m_stream.write(text.data(), static_cast<std::streamsize>(text.size())); });
}

void Printer::flush() {
  noteError([&] { m_stream.flush(); });
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
