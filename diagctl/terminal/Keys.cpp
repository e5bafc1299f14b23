#include "diagctl/terminal/Keys.h"

#include <cstddef>
#include <string_view>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr char kEscape = '\033';
constexpr std::size_t kLongestSequence = 32;

struct Sequence {
  std::string_view bytes;
  Key::Kind kind;
};

// Behind the escape character; the arrow keys as cursor keys and as those of an application.
constexpr Sequence kSequences[] = {
    {"[A", Key::Kind::Up},   {"[B", Key::Kind::Down},    {"OA", Key::Kind::Up},
    {"OB", Key::Kind::Down}, {"[5~", Key::Kind::PageUp}, {"[6~", Key::Kind::PageDown},
};

// "[" and parameters up to a letter, "O" and a letter, or any other character.
bool isComplete(std::string_view sequence) {
  if (sequence.size() < 2) {
    return sequence[0] != '[' && sequence[0] != 'O';
  }
  const char last = sequence.back();
  return sequence[0] == 'O' || (last >= '@' && last <= '~') || sequence.size() > kLongestSequence;
}

std::optional<Key> keyOf(std::string_view sequence) {
  for (const Sequence& known : kSequences) {
    if (known.bytes == sequence) {
      return Key{known.kind};
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<Key> KeyReader::take(char byte) {
  if (byte == kEscape) {
    const bool wasEscape = m_sequence.size() == 1;
    m_sequence = kEscape;
    return wasEscape ? std::optional(Key{Key::Kind::Escape}) : std::nullopt;
  }
  if (m_sequence.empty()) {
    const bool isEnter = byte == '\n' || byte == '\r';
    return isEnter ? Key{Key::Kind::Enter} : Key{Key::Kind::Character, byte};
  }
  m_sequence.push_back(byte);
  const std::string_view sequence = std::string_view(m_sequence).substr(1);
  if (!isComplete(sequence)) {
    return std::nullopt;
  }
  const std::optional<Key> key = keyOf(sequence);
  m_sequence.clear();
  return key;
}

std::optional<Key> KeyReader::takePause() {
  const bool isEscape = m_sequence.size() == 1;
  m_sequence.clear();
  return isEscape ? std::optional(Key{Key::Kind::Escape}) : std::nullopt;
}

}  // namespace TarvexDiags::FrontEnd
