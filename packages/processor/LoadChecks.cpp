// Work as programs do it: much of it, through all units, with one known result at the end.

#include "packages/processor/LoadChecks.h"

#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <vector>

#include "packages/common/RandomSequence.h"
#include "packages/processor/Checks.h"
#include "packages/processor/CryptographyReference.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

std::vector<std::uint64_t> numbersFrom(std::uint64_t seed, std::size_t count) {
  Common::RandomSequence random(seed);
  std::vector<std::uint64_t> numbers(count);
  std::generate(numbers.begin(), numbers.end(), [&] { return random.next(); });
  return numbers;
}

namespace {

template <typename Numbers>
constexpr std::uint64_t digestOfAll(const Numbers& numbers) {
  std::uint64_t digest = 0;
  for (const std::uint64_t number : numbers) {
    digest = Common::mixed(digest ^ number);
  }
  return digest;
}

}  // namespace

std::uint64_t digestOf(const std::vector<std::uint64_t>& numbers) {
  return digestOfAll(numbers);
}

void verifyDigest(Verifier& verifier) {
  constexpr std::array<std::uint64_t, 3> numbers = {1, 2, 0x8000000000000000};
  constexpr std::array<std::uint64_t, 1> expected = {digestOfAll(numbers)};
  std::array<std::uint64_t, 1> found = {digestOf({numbers.begin(), numbers.end()})};
  verifier.verifyCopy(found, expected);
}

namespace {

constexpr std::size_t kWordsSorted = 16384;

std::uint64_t sortLoad(std::uint64_t seed) {
  std::vector<std::uint64_t> numbers = numbersFrom(seed, kWordsSorted);
  std::sort(numbers.begin(), numbers.end());
  return digestOf(numbers);
}

/// The same numbers as sortLoad's, by another way to the same result.
std::uint64_t heapSortLoad(std::uint64_t seed) {
  std::vector<std::uint64_t> numbers = numbersFrom(seed, kWordsSorted);
  std::make_heap(numbers.begin(), numbers.end());
  std::sort_heap(numbers.begin(), numbers.end());
  return digestOf(numbers);
}

/// Pointers and branches: a tree grows and is cut.
std::uint64_t treeLoad(std::uint64_t seed) {
  std::map<std::uint64_t, std::uint64_t> tree;
  std::uint64_t digest = seed;
  for (const std::uint64_t number : numbersFrom(seed, 4096)) {
    tree[number] = digest;
    const auto above = tree.upper_bound(digest);
    digest = Common::mixed(digest ^ (above == tree.end() ? number : above->second + above->first));
    if (tree.size() > 1024) {
      tree.erase(tree.begin());
    }
  }
  return digest;
}

std::uint64_t hashLoad(std::uint64_t seed) {
  std::vector<std::uint8_t> message;
  for (const std::uint64_t number : numbersFrom(seed, 2048)) {
    for (int shift = 0; shift < 64; shift += 8) {
      message.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }
  const std::vector<std::uint8_t> padded = shaPadded(message);
  auto state = kSha256Start;
  for (std::size_t offset = 0; offset < padded.size(); offset += 64) {
    sha256Block(state, padded.data() + offset);
  }
  return std::uint64_t{state[0]} << 32 | state[1];
}

/// Whole numbers in floating point, small enough that every order of additions gives the same.
std::uint64_t matrixLoad(std::uint64_t seed) {
  constexpr std::size_t size = 64;
  const std::vector<std::uint64_t> numbers = numbersFrom(seed, 2 * size * size);
  std::vector<double> product(size * size);
  for (std::size_t row = 0; row < size; ++row) {
    for (std::size_t inner = 0; inner < size; ++inner) {
      const auto left = static_cast<double>(numbers[row * size + inner] >> 44);
      for (std::size_t column = 0; column < size; ++column) {
        const auto right = static_cast<double>(numbers[(size + inner) * size + column] >> 44);
        product[row * size + column] += left * right;
      }
    }
  }
  std::vector<std::uint64_t> words(product.size());
  std::transform(product.begin(), product.end(), words.begin(),
                 [](double value) { return std::bit_cast<std::uint64_t>(value); });
  return digestOf(words);
}

template <std::size_t number>
void checkLoad(Verifier& verifier) {
  const Load& load = kLoads[number];
  const std::uint64_t seed = drawWord(verifier) % kLoadSeeds + 1;
  std::array<std::uint64_t, 1> found = {load.run(seed)};
  const std::array<std::uint64_t, 1> expected = {load.golden[seed - 1]};
  verifier.verify(found, expected, [&](std::size_t) { return "seed " + std::to_string(seed); });
}

}  // namespace

const std::array<Load, 5> kLoads = {{
    {"sort load",
     sortLoad,
     {0x9e8fcad2c381111f, 0xcb0f712e230fb314, 0xe27e53c61dc6150e, 0x5a3a24dcfcc31a6c,
      0x3f1d3bde96ab1611, 0x0238a4e272afc138, 0x729ca85ab8f7eed3, 0xcfd746f08017bdd9}},
    {"heap sort load",
     heapSortLoad,
     {0x9e8fcad2c381111f, 0xcb0f712e230fb314, 0xe27e53c61dc6150e, 0x5a3a24dcfcc31a6c,
      0x3f1d3bde96ab1611, 0x0238a4e272afc138, 0x729ca85ab8f7eed3, 0xcfd746f08017bdd9}},
    {"tree load",
     treeLoad,
     {0x98d014327b2f4146, 0x3a5b2ec819c9d07d, 0xbfc1738f75774c0a, 0xf6f92e3a8d6e6396,
      0x93fcca68a34a4756, 0x9436a74e16ad0493, 0x3fb2c58bbe46a90f, 0x5ac6abf669491ca3}},
    {"hash load",
     hashLoad,
     {0x0999d6f713e843d8, 0x0b6c27931657f594, 0xc2351b99e65f926d, 0x09ced57ce07dc5df,
      0xf75f11844a2e46da, 0x5d2e0d475834be53, 0xa8498c8a4843060a, 0x6b95bf934696ef67}},
    {"matrix load",
     matrixLoad,
     {0x592b11171498dcd5, 0xce812c4620bd81d0, 0x5f7b3627bce6f554, 0xfa655133a8a47d5e,
      0x82796588b5ddcc2d, 0x6ebde7afd7cb0424, 0x352ea2c2dea796e3, 0x1bd51f0ccc4dc9ce}},
}};

std::vector<Check> loadChecks() {
  return {
      {kLoads[0].name, always, checkLoad<0>}, {kLoads[1].name, always, checkLoad<1>},
      {kLoads[2].name, always, checkLoad<2>}, {kLoads[3].name, always, checkLoad<3>},
      {kLoads[4].name, always, checkLoad<4>},
  };
}

}  // namespace TarvexDiags::Processor
