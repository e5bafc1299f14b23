#include "packages/memory/Pattern.h"

#include <cstdio>
#include <utility>

#include "packages/common/RandomSequence.h"

namespace TarvexDiags::Memory {

namespace {

std::string hexadecimal(std::uint64_t word) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "%#018llx", static_cast<unsigned long long>(word));
  return text.data();
}

}  // namespace

Pattern::Pattern(Kind kind, std::string name) : m_kind(kind), m_name(std::move(name)) {}

Pattern Pattern::constant(std::uint64_t word) {
  Pattern pattern(Kind::Periodic, hexadecimal(word));
  pattern.m_lines.fill(word);
  return pattern;
}

Pattern Pattern::modulo(std::uint64_t word, std::size_t offset) {
  Pattern pattern(Kind::Periodic, hexadecimal(word) + " at each " +
                                      std::to_string(kModuloDistance) + "th word from " +
                                      std::to_string(offset));
  pattern.m_periodLines = kMaximumLines;
  pattern.m_moduloOffset = offset;
  for (std::size_t index = 0; index < pattern.m_lines.size(); ++index) {
    pattern.m_lines[index] = index % kModuloDistance == offset ? word : ~word;
  }
  static_assert(kMaximumLines * kWordsInLine % kModuloDistance == 0);
  return pattern;
}

Pattern Pattern::random(std::uint64_t seed) {
  Pattern pattern(Kind::Random, "random, seed " + std::to_string(seed));
  pattern.m_seed = seed;
  return pattern;
}

Pattern Pattern::ownAddress() {
  return {Kind::OwnAddress, "own address"};
}

Pattern Pattern::inverse() const {
  Pattern pattern = *this;
  for (std::uint64_t& word : pattern.m_lines) {
    word = ~word;
  }
  pattern.m_mask = ~m_mask;
  pattern.m_name = "inverse of " + m_name;
  return pattern;
}

std::array<std::uint64_t, kWordsInLine> Pattern::randomColumns(const Block& block) const {
  Common::RandomSequence sequence(m_seed ^ Common::mixed(block.index));
  std::array<std::uint64_t, kWordsInLine> columns{};
  for (std::uint64_t& column : columns) {
    // 0 is the one state that never changes.
    column = sequence.next() | 1;
  }
  return columns;
}

std::uint64_t Pattern::wordAt(const Block& block, std::size_t index, std::uint64_t random) const {
  switch (m_kind) {
    case Kind::Periodic:
      return m_lines[(firstLine(block) * kWordsInLine + index) % (m_periodLines * kWordsInLine)];
    case Kind::Random:
      return random ^ m_mask;
    case Kind::OwnAddress:
      break;
  }
  const auto address = reinterpret_cast<std::uintptr_t>(block.data);
  return (address + index * sizeof(std::uint64_t)) ^ m_mask;
}

std::vector<std::uint64_t> Pattern::expectedWords(const Block& block) const {
  std::vector<std::uint64_t> words(kWordsInBlock);
  auto columns = randomColumns(block);
  for (std::size_t index = 0; index < words.size(); ++index) {
    std::uint64_t& column = columns[index % kWordsInLine];
    column = nextRandom(column);
    words[index] = wordAt(block, index, column);
  }
  return words;
}

std::array<std::uint64_t, kWordsInLine> Pattern::expectedLine(const Block& block,
                                                              std::size_t line) const {
  auto words = randomColumns(block);
  for (std::size_t word = 0; word < kWordsInLine; ++word) {
    for (std::size_t step = 0; step <= line && m_kind == Kind::Random; ++step) {
      words[word] = nextRandom(words[word]);
    }
    words[word] = wordAt(block, line * kWordsInLine + word, words[word]);
  }
  return words;
}

}  // namespace TarvexDiags::Memory
