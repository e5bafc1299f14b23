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

Pattern::Pattern(Kind kind, std::string name) : mKind(kind), mName(std::move(name)) {}

Pattern Pattern::constant(std::uint64_t word) {
  Pattern pattern(Kind::Periodic, hexadecimal(word));
  pattern.mLines.fill(word);
  return pattern;
}

Pattern Pattern::modulo(std::uint64_t word, std::size_t offset) {
  Pattern pattern(Kind::Periodic, hexadecimal(word) + " at each " + std::to_string(moduloDistance) +
                                      "th word from " + std::to_string(offset));
  pattern.mPeriodLines = maximumLines;
  pattern.mModuloOffset = offset;
  for (std::size_t index = 0; index < pattern.mLines.size(); ++index) {
    pattern.mLines[index] = index % moduloDistance == offset ? word : ~word;
  }
  static_assert(maximumLines * wordsInLine % moduloDistance == 0);
  return pattern;
}

Pattern Pattern::random(std::uint64_t seed) {
  Pattern pattern(Kind::Random, "random, seed " + std::to_string(seed));
  pattern.mSeed = seed;
  return pattern;
}

Pattern Pattern::ownAddress(bool inverted) {
  Pattern pattern(Kind::OwnAddress, inverted ? "inverted own address" : "own address");
  pattern.mAddressMask = inverted ? ~std::uint64_t{0} : 0;
  return pattern;
}

std::array<std::uint64_t, wordsInLine> Pattern::randomColumns(const Block& block) const {
  Common::RandomSequence sequence(mSeed ^ Common::mixed(block.index));
  std::array<std::uint64_t, wordsInLine> columns{};
  for (std::uint64_t& column : columns) {
    // 0 is the one state that never changes.
    column = sequence.next() | 1;
  }
  return columns;
}

std::vector<std::uint64_t> Pattern::expectedWords(const Block& block) const {
  std::vector<std::uint64_t> words(wordsInBlock);
  auto columns = randomColumns(block);
  const std::size_t first = firstLine(block) * wordsInLine;
  const auto address = reinterpret_cast<std::uintptr_t>(block.data);
  for (std::size_t index = 0; index < words.size(); ++index) {
    std::uint64_t& column = columns[index % wordsInLine];
    switch (mKind) {
      case Kind::Periodic:
        words[index] = mLines[(first + index) % (mPeriodLines * wordsInLine)];
        break;
      case Kind::Random:
        words[index] = column = nextRandom(column);
        break;
      case Kind::OwnAddress:
        words[index] = (address + index * sizeof(std::uint64_t)) ^ mAddressMask;
        break;
    }
  }
  return words;
}

}  // namespace TarvexDiags::Memory
