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

Pattern Pattern::ownAddress(bool inverted) {
  Pattern pattern(Kind::OwnAddress, inverted ? "inverted own address" : "own address");
  pattern.m_addressMask = inverted ? ~std::uint64_t{0} : 0;
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

std::vector<std::uint64_t> Pattern::expectedWords(const Block& block) const {
  std::vector<std::uint64_t> words(kWordsInBlock);
  auto columns = randomColumns(block);
  const std::size_t first = firstLine(block) * kWordsInLine;
  const auto address = reinterpret_cast<std::uintptr_t>(block.data);
  for (std::size_t index = 0; index < words.size(); ++index) {
    std::uint64_t& column = columns[index % kWordsInLine];
    switch (m_kind) {
      case Kind::Periodic:
        words[index] = m_lines[(first + index) % (m_periodLines * kWordsInLine)];
        break;
      case Kind::Random:
        words[index] = column = nextRandom(column);
        break;
      case Kind::OwnAddress:
        words[index] = (address + index * sizeof(std::uint64_t)) ^ m_addressMask;
        break;
    }
  }
  return words;
}

}  // namespace TarvexDiags::Memory
