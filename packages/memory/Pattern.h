#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace TarvexDiags::Memory {

/// What a cache holds as one piece, and what the kernels compare at once.
constexpr std::size_t kLineBytes = 64;
constexpr std::size_t kWordsInLine = kLineBytes / sizeof(std::uint64_t);

/// The piece of memory for which a kernel is called; patterns are defined block by block, so that
/// any thread can begin at any block.
constexpr std::size_t kBlockBytes = 64 * 1024;
constexpr std::size_t kLinesInBlock = kBlockBytes / kLineBytes;
constexpr std::size_t kWordsInBlock = kBlockBytes / sizeof(std::uint64_t);

/// @brief A block of the tested memory: where it lies, and its number, which random values follow.
struct Block {
  std::byte* data;
  std::uint64_t index;
};

/// @brief What every word of a block should hold.
///
/// Thread-safety: a plain value.
class Pattern {
 public:
  enum class Kind {
    Periodic,    ///< a few lines, over and over
    Random,      ///< from a seed and the block's number
    OwnAddress,  ///< each word its own virtual address
  };

  /// After so many lines a period of any length up to 40 words that divides them has come round.
  static constexpr std::size_t kMaximumLines = 5;
  /// Distance of the marked words of a modulo pattern: no power of two, so that marks wander
  /// through lines, rows and channels.
  static constexpr std::size_t kModuloDistance = 20;

  /// @brief Every word the same.
  static Pattern constant(std::uint64_t word);

  /// @brief Every moduloDistance-th word, from `offset`, holds the word; the others its
  ///  complement.
  static Pattern modulo(std::uint64_t word, std::size_t offset);

  /// @brief Reproducible random words.
  static Pattern random(std::uint64_t seed);

  /// @brief Each word its own address.
  static Pattern ownAddress();

  /// @brief The pattern with every bit inverted.
  Pattern inverse() const;

  Kind kind() const { return m_kind; }
  const std::string& name() const { return m_name; }

  /// @brief The lines of one period; the first `periodLines()` count.
  const std::uint64_t* lines() const { return m_lines.data(); }
  std::size_t periodLines() const { return m_periodLines; }
  /// @brief The line of the period with which a block begins.
  std::size_t firstLine(const Block& block) const {
    return static_cast<std::size_t>((block.index * kLinesInBlock) % m_periodLines);
  }

  std::uint64_t seed() const { return m_seed; }
  /// @brief The bits in which random words and addresses are inverted.
  std::uint64_t mask() const { return m_mask; }

  /// @brief The marked offset of a modulo pattern, 0 to moduloDistance - 1.
  std::size_t moduloOffset() const { return m_moduloOffset; }

  /// @brief The states from which the eight random columns of a block begin, never 0.
  ///
  /// Word w of line l is column w's state after l + 1 steps of nextRandom, with mask() inverted.
  std::array<std::uint64_t, kWordsInLine> randomColumns(const Block& block) const;

  /// @brief What the block should hold, word by word: the plain form that kernels are held
  ///  against.
  std::vector<std::uint64_t> expectedWords(const Block& block) const;

  /// @brief One line of expectedWords.
  std::array<std::uint64_t, kWordsInLine> expectedLine(const Block& block, std::size_t line) const;

 private:
  Pattern(Kind kind, std::string name);
  /// @param random  the state of the word's column
  std::uint64_t wordAt(const Block& block, std::size_t index, std::uint64_t random) const;

  alignas(kLineBytes) std::array<std::uint64_t, kMaximumLines * kWordsInLine> m_lines{};
  std::size_t m_periodLines = 1;
  std::size_t m_moduloOffset = 0;
  std::uint64_t m_seed = 0;
  std::uint64_t m_mask = 0;
  Kind m_kind;
  std::string m_name;
};

/// @brief The step of the random columns: shifts and exclusive ors only, which every vector unit
/// has.
///
/// Marsaglia, "Xorshift RNGs", Journal of Statistical Software 8(14), 2003, shifts 13, 7, 17.
constexpr std::uint64_t nextRandom(std::uint64_t state) {
  state ^= state << 13;
  state ^= state >> 7;
  return state ^ (state << 17);
}

}  // namespace TarvexDiags::Memory
