// The loops of every vector unit that this processor has, held against the plain form of the
// patterns.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "packages/common/RandomSequence.h"
#include "packages/memory/Kernels.h"

namespace TarvexDiags::Memory {
namespace {

/// @brief Memory for two blocks at the border of a line.
class Blocks {
 public:
  Blocks() : m_data(static_cast<std::byte*>(::operator new(2 * kBlockBytes, kAlignment))) {
    std::memset(m_data, 0x5a, 2 * kBlockBytes);
  }
  ~Blocks() { ::operator delete(m_data, kAlignment); }
  Blocks(const Blocks&) = delete;
  Blocks& operator=(const Blocks&) = delete;

  Block first(std::uint64_t index) const { return {m_data, index}; }
  Block second(std::uint64_t index) const { return {m_data + kBlockBytes, index}; }

  static std::vector<std::uint64_t> wordsOf(const Block& block) {
    std::vector<std::uint64_t> words(kWordsInBlock);
    std::memcpy(words.data(), block.data, kBlockBytes);
    return words;
  }

 private:
  static constexpr std::align_val_t kAlignment{kLineBytes};
  std::byte* m_data;
};

std::vector<Pattern> allKinds() {
  return {Pattern::constant(0x0123456789abcdefU),
          Pattern::modulo(0x5555555555555555U, 7),
          Pattern::random(99),
          Pattern::random(99).inverse(),
          Pattern::ownAddress(),
          Pattern::ownAddress().inverse()};
}

class KernelsTest : public ::testing::TestWithParam<const Kernels*> {};

TEST_P(KernelsTest, fill_writes_what_the_plain_form_says) {
  const Blocks blocks;
  for (const std::uint64_t index : {0U, 1U, 2U, 3U, 4U, 1000003U}) {
    for (const Pattern& pattern : allKinds()) {
      const Block block = blocks.first(index);
      GetParam()->fill(block, pattern);
      EXPECT_EQ(Blocks::wordsOf(block), pattern.expectedWords(block)) << pattern.name();
    }
  }
}

TEST_P(KernelsTest, fill_stays_within_its_block) {
  const Blocks blocks;
  const std::vector<std::uint64_t> before = Blocks::wordsOf(blocks.second(0));
  GetParam()->fill(blocks.first(0), Pattern::constant(0));
  EXPECT_EQ(Blocks::wordsOf(blocks.second(0)), before);
}

TEST_P(KernelsTest, march_from_each_kind_to_each_kind_verifies_one_and_writes_the_other) {
  const Blocks blocks;
  const Block block = blocks.first(6);
  FoundLine found{};
  for (const Pattern& before : allKinds()) {
    for (const Pattern& after : allKinds()) {
      kPortableKernels.fill(block, before);
      ASSERT_EQ(GetParam()->march(block, 0, before, after, found), kLinesInBlock)
          << before.name() << " to " << after.name();
      ASSERT_EQ(Blocks::wordsOf(block), after.expectedWords(block))
          << before.name() << " to " << after.name();
    }
  }
}

TEST_P(KernelsTest, verify_stops_at_the_line_of_any_flipped_bit_and_hands_it_over) {
  const Blocks blocks;
  const Block block = blocks.first(3);
  auto* const words = reinterpret_cast<std::uint64_t*>(block.data);
  Common::RandomSequence random(7);
  for (const Pattern& pattern : allKinds()) {
    GetParam()->fill(block, pattern);
    FoundLine found{};
    ASSERT_EQ(GetParam()->verify(block, 0, pattern, found), kLinesInBlock);
    for (int bit = 0; bit < 64; ++bit) {
      const std::size_t word = random.next() % kWordsInBlock;
      words[word] ^= std::uint64_t{1} << bit;
      ASSERT_EQ(GetParam()->verify(block, 0, pattern, found), word / kWordsInLine)
          << pattern.name() << " bit " << bit;
      ASSERT_EQ(found.words[word % kWordsInLine], words[word]);
      ASSERT_EQ(GetParam()->verify(block, word / kWordsInLine + 1, pattern, found), kLinesInBlock);
      words[word] ^= std::uint64_t{1} << bit;
    }
  }
}

TEST_P(KernelsTest, march_leaves_the_wrong_line_alone_and_goes_on_behind_it) {
  const Blocks blocks;
  const Block block = blocks.first(11);
  auto* const words = reinterpret_cast<std::uint64_t*>(block.data);
  const std::size_t line = 517;
  for (const Pattern& pattern : allKinds()) {
    const Pattern next = Pattern::random(5);
    GetParam()->fill(block, pattern);
    words[line * kWordsInLine + 2] ^= 0x100;
    const std::vector<std::uint64_t> before = Blocks::wordsOf(block);
    FoundLine found{};
    ASSERT_EQ(GetParam()->march(block, 0, pattern, next, found), line);
    ASSERT_EQ(GetParam()->march(block, line + 1, pattern, next, found), kLinesInBlock);
    std::vector<std::uint64_t> expected = next.expectedWords(block);
    std::copy_n(before.begin() + line * kWordsInLine, kWordsInLine,
                expected.begin() + line * kWordsInLine);
    EXPECT_EQ(Blocks::wordsOf(block), expected) << pattern.name();
  }
}

TEST_P(KernelsTest, copy_moves_a_whole_block) {
  const Blocks blocks;
  GetParam()->fill(blocks.first(0), Pattern::random(1));
  GetParam()->copy(blocks.second(1), blocks.first(0));
  EXPECT_EQ(Blocks::wordsOf(blocks.second(1)), Blocks::wordsOf(blocks.first(0)));
}

INSTANTIATE_TEST_SUITE_P(OfThisProcessor, KernelsTest, ::testing::ValuesIn(supportedKernels()),
                         [](const auto& suite) { return std::string(suite.param->name); });

TEST(KernelChoiceTest, best_kernels_are_the_widest_that_the_processor_has) {
  EXPECT_EQ(supportedKernels().front(), &kPortableKernels);
  EXPECT_EQ(&bestKernels(), supportedKernels().back());
#if defined(__x86_64__)
  EXPECT_GE(supportedKernels().size(), 2U) << "each processor of this kind has SSE2";
#endif
}

TEST(PatternTest, random_words_differ_from_seed_to_seed_and_from_block_to_block) {
  const Blocks blocks;
  const auto words = [&](std::uint64_t seed, std::uint64_t index) {
    return Pattern::random(seed).expectedWords(blocks.first(index));
  };
  EXPECT_EQ(words(1, 1), words(1, 1));
  EXPECT_NE(words(1, 1), words(2, 1));
  EXPECT_NE(words(1, 1), words(1, 2));
  const std::vector<std::uint64_t> some = words(1, 1);
  EXPECT_EQ(std::set<std::uint64_t>(some.begin(), some.end()).size(), some.size());
}

TEST(PatternTest, modulo_pattern_marks_each_twentieth_word_of_the_whole_region) {
  const Blocks blocks;
  const Pattern pattern = Pattern::modulo(0xf0, 13);
  for (std::uint64_t index = 0; index < 6; ++index) {
    const std::vector<std::uint64_t> words = pattern.expectedWords(blocks.first(index));
    for (std::size_t word = 0; word < words.size(); ++word) {
      const bool marked = (index * kWordsInBlock + word) % Pattern::kModuloDistance == 13;
      ASSERT_EQ(words[word], marked ? 0xf0 : ~std::uint64_t{0xf0}) << index << " " << word;
    }
  }
}

}  // namespace
}  // namespace TarvexDiags::Memory
