// Compares the reader of configuration files with a plain one, on any text, any names, and any way
// to cut the text into pieces.
//
// Input: one byte, the size of the pieces; the section's name up to a line end; the key's name
// likewise; the rest is the file.

#include <cstdint>
#include <optional>
#include <string>

#include "System/SysUtil.h"
#include "System/internal/ConfigScanner.h"
#include "tests/fuzz/Input.h"
#include "tests/support/ReferenceConfigReader.h"

namespace {

using namespace TarvexDiags::Fuzz;
using TarvexDiags::System::ConfigScanner;
using TarvexDiags::System::SysUtil;
using Value = std::optional<std::string>;

Value scanInPieces(const std::string& text, const std::string& section, const std::string& key,
                   std::size_t pieceSize) {
  std::string value;
  ConfigScanner scanner(section, key, value);
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    // A piece of its own on the heap, so that a step over its end is seen.
    const std::string piece = text.substr(at, pieceSize);
    if (scanner.feed(piece.data(), piece.size())) {
      break;
    }
  }
  return scanner.found() ? Value(value) : std::nullopt;
}

Value readFromFile(const std::string& text, const std::string& section, const std::string& key) {
  static const MemoryFile kFile("fuzz.cfg");
  static const std::string kPath = kFile.path();
  kFile.write(text);
  std::string value;
  const int result = SysUtil::ReadCfgFile(section, key, value, kPath, -1);
  expect(result >= 0 || value.empty());
  return result < 0 ? std::nullopt : Value(value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  std::string text = textOf(data + 1, size - 1);
  const std::string section = takeLine(text);
  const std::string key = takeLine(text);

  const Value expected = TarvexDiags::TestSupport::ReferenceConfigReader(text).read(section, key);
  expect(scanInPieces(text, section, key, std::size_t{data[0]} + 1) == expected);
  expect(readFromFile(text, section, key) == expected);
  return 0;
}
