#pragma once

// What may reach a terminal, decided without the program's own code.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "tests/fuzz/Input.h"

namespace TarvexDiags::Fuzz {

/// How many bytes of UTF-8 begin with this one; 0 for none.
inline std::size_t lengthBy(std::uint8_t lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead < 0xc2 || lead > 0xf4) {
    return 0;
  }
  return lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
}

/// Takes a character of valid UTF-8; any other ends the process.
inline std::uint32_t takeCharacter(std::string_view& rest) {
  const auto lead = static_cast<std::uint8_t>(rest.front());
  const std::size_t length = lengthBy(lead);
  expect(length > 0 && length <= rest.size());
  std::uint32_t code = length == 1 ? lead : lead & (0x7fU >> length);
  for (std::size_t place = 1; place < length; ++place) {
    const auto byte = static_cast<std::uint8_t>(rest[place]);
    expect(byte >= 0x80 && byte < 0xc0);
    code = code * 64 + (byte & 0x3fU);
  }
  expect(length < 3 || code >= (length == 3 ? 0x800U : 0x10000U));
  expect(code <= 0x10ffff && (code < 0xd800 || code > 0xdfff));
  rest.remove_prefix(length);
  return code;
}

/// The printable characters of ASCII, and the end of a line.
inline const std::string& plainCharacters() {
  static const std::string kPlain = [] {
    std::string all = "\n";
    for (char character = ' '; character <= '~'; ++character) {
      all += character;
    }
    return all;
  }();
  return kPlain;
}

/// The text is UTF-8, and has no controls but line ends, and nothing that turns the direction of
/// what stands beside it or ends a line in another way.
inline void expectHarmless(const std::string& text) {
  std::string_view rest = text;
  for (;;) {
    // Most of a page is plain, and with the fuzzer's counters each character of it takes long.
    rest.remove_prefix(std::strspn(rest.data(), plainCharacters().c_str()));
    if (rest.empty()) {
      return;
    }
    const std::uint32_t code = takeCharacter(rest);
    expect(code > 0x9f);
    expect(code != 0x061c && code != 0x200e && code != 0x200f && code != 0x2028 && code != 0x2029);
    expect((code < 0x202a || code > 0x202e) && (code < 0x2066 || code > 0x2069));
  }
}

}  // namespace TarvexDiags::Fuzz
