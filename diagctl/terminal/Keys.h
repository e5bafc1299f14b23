#pragma once

#include <optional>
#include <string>

namespace TarvexDiags::FrontEnd {

/// What a person types, one key at a time.
struct Key {
  enum class Kind { Character, Up, Down, PageUp, PageDown, Enter, Escape };

  Kind kind = Kind::Character;
  char character = '\0';  ///< of a Character

  bool operator==(const Key&) const = default;
};

/// Makes keys of the bytes that a terminal sends. Sequences of keys that mean nothing here are
/// swallowed whole: none of their letters is taken for one that was typed.
class KeyReader {
 public:
  /// @return the key that this byte ends, if it ends one.
  std::optional<Key> take(char byte);

  /// Nothing has come for a while: a sequence that was begun is the Escape key, or nobody's.
  std::optional<Key> takePause();

 private:
  std::string m_sequence;  ///< that was begun; empty for none
};

}  // namespace TarvexDiags::FrontEnd
