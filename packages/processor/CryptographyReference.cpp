#include "packages/processor/CryptographyReference.h"

#include <algorithm>
#include <bit>

namespace TarvexDiags::Processor {

namespace {

// --- AES: FIPS 197
// ---------------------------------------------------------------------------------

/// Multiplies in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1 (4.2).
std::uint8_t fieldProduct(std::uint8_t left, std::uint8_t right) {
  unsigned int product = 0;
  unsigned int shifted = left;
  for (int bit = 0; bit < 8; ++bit) {
    if ((right >> bit & 1) != 0) {
      product ^= shifted;
    }
    shifted = (shifted << 1) ^ ((shifted & 0x80) != 0 ? 0x11bU : 0U);
  }
  return static_cast<std::uint8_t>(product);
}

struct SubstitutionBoxes {
  std::array<std::uint8_t, 256> forward{};
  std::array<std::uint8_t, 256> inverse{};

  /// The inverse in the field, then an affine map (5.1.1).
  SubstitutionBoxes() {
    for (unsigned int value = 0; value < 256; ++value) {
      const auto byte = static_cast<std::uint8_t>(value);
      // The 254th power is the inverse, and 0 for 0.
      std::uint8_t power = 1;
      for (int factor = 0; factor < 254; ++factor) {
        power = fieldProduct(power, byte);
      }
      std::uint8_t mapped = 0x63;
      for (int turn = 0; turn < 5; ++turn) {
        mapped ^= std::rotl(power, turn);
      }
      forward[value] = mapped;
      inverse[mapped] = byte;
    }
  }
};

const SubstitutionBoxes& boxes() {
  static const SubstitutionBoxes kMade;
  return kMade;
}

void addRoundKey(Block16& state, const Block16& key) {
  std::transform(state.begin(), state.end(), key.begin(), state.begin(),
                 [](std::uint8_t left, std::uint8_t right) {
                   return static_cast<std::uint8_t>(left ^ right);
                 });
}

void substitute(Block16& state, const std::array<std::uint8_t, 256>& box) {
  for (std::uint8_t& byte : state) {
    byte = box[byte];
  }
}

/// Row r moves by r columns to the left, or to the right.
Block16 shiftedRows(const Block16& state, std::size_t direction) {
  Block16 shifted{};
  for (std::size_t column = 0; column < 4; ++column) {
    for (std::size_t row = 0; row < 4; ++row) {
      shifted[4 * column + row] = state[4 * ((column + direction * row) % 4) + row];
    }
  }
  return shifted;
}

Block16 mixedColumns(const Block16& state, const std::array<std::uint8_t, 4>& factors) {
  Block16 mixed{};
  for (std::size_t column = 0; column < 4; ++column) {
    for (std::size_t row = 0; row < 4; ++row) {
      for (std::size_t term = 0; term < 4; ++term) {
        mixed[4 * column + row] ^=
            fieldProduct(state[4 * column + term], factors[(term + 4 - row) % 4]);
      }
    }
  }
  return mixed;
}

constexpr std::array<std::uint8_t, 4> kMixFactors = {2, 3, 1, 1};
constexpr std::array<std::uint8_t, 4> kUnmixFactors = {14, 11, 13, 9};

std::uint32_t bigEndian(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

std::vector<Block16> aesRoundKeys(std::span<const std::uint8_t> key) {
  const std::size_t keyWords = key.size() / 4;
  const std::size_t rounds = keyWords + 6;
  std::vector<std::array<std::uint8_t, 4>> words(4 * (rounds + 1));
  std::uint8_t roundConstant = 1;
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (index < keyWords) {
      std::copy_n(key.begin() + static_cast<std::ptrdiff_t>(4 * index), 4, words[index].begin());
      continue;
    }
    std::array<std::uint8_t, 4> word = words[index - 1];
    if (index % keyWords == 0) {
      std::rotate(word.begin(), word.begin() + 1, word.end());
    }
    if (index % keyWords == 0 || (keyWords > 6 && index % keyWords == 4)) {
      for (std::uint8_t& byte : word) {
        byte = boxes().forward[byte];
      }
    }
    if (index % keyWords == 0) {
      word[0] ^= roundConstant;
      roundConstant = fieldProduct(roundConstant, 2);
    }
    for (std::size_t byte = 0; byte < 4; ++byte) {
      words[index][byte] = words[index - keyWords][byte] ^ word[byte];
    }
  }
  std::vector<Block16> roundKeys(rounds + 1);
  for (std::size_t index = 0; index < words.size(); ++index) {
    std::copy(words[index].begin(), words[index].end(),
              roundKeys[index / 4].begin() + static_cast<std::ptrdiff_t>(index % 4 * 4));
  }
  return roundKeys;
}

Block16 aesEncrypt(const Block16& plain, std::span<const Block16> roundKeys) {
  Block16 state = plain;
  addRoundKey(state, roundKeys.front());
  for (std::size_t round = 1; round < roundKeys.size(); ++round) {
    substitute(state, boxes().forward);
    state = shiftedRows(state, 1);
    if (round + 1 < roundKeys.size()) {
      state = mixedColumns(state, kMixFactors);
    }
    addRoundKey(state, roundKeys[round]);
  }
  return state;
}

Block16 aesDecrypt(const Block16& cipher, std::span<const Block16> roundKeys) {
  Block16 state = cipher;
  addRoundKey(state, roundKeys.back());
  for (std::size_t round = roundKeys.size() - 1; round-- > 0;) {
    state = shiftedRows(state, 3);
    substitute(state, boxes().inverse);
    addRoundKey(state, roundKeys[round]);
    if (round > 0) {
      state = mixedColumns(state, kUnmixFactors);
    }
  }
  return state;
}

// --- SHA-1 and SHA-256: FIPS 180-4
// -----------------------------------------------------------------

const std::array<std::uint32_t, 64> kSha256Constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

void sha1Block(std::array<std::uint32_t, 5>& state, const std::uint8_t* block) {
  std::array<std::uint32_t, 80> schedule{};
  for (std::size_t index = 0; index < schedule.size(); ++index) {
    schedule[index] = index < 16 ? bigEndian(block + 4 * index)
                                 : std::rotl(schedule[index - 3] ^ schedule[index - 8] ^
                                                 schedule[index - 14] ^ schedule[index - 16],
                                             1);
  }
  auto [a, b, c, d, e] = state;
  for (std::size_t index = 0; index < schedule.size(); ++index) {
    std::uint32_t mixed = b ^ c ^ d;
    std::uint32_t constant = index < 40 ? 0x6ed9eba1 : 0xca62c1d6;
    if (index < 20) {
      mixed = (b & c) | (~b & d);
      constant = 0x5a827999;
    } else if (index >= 40 && index < 60) {
      mixed = (b & c) | (b & d) | (c & d);
      constant = 0x8f1bbcdc;
    }
    const std::uint32_t next = std::rotl(a, 5) + mixed + e + constant + schedule[index];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = next;
  }
  const std::array<std::uint32_t, 5> added = {a, b, c, d, e};
  for (std::size_t index = 0; index < state.size(); ++index) {
    state[index] += added[index];
  }
}

void sha256Block(std::array<std::uint32_t, 8>& state, const std::uint8_t* block) {
  std::array<std::uint32_t, 64> schedule{};
  for (std::size_t index = 0; index < schedule.size(); ++index) {
    if (index < 16) {
      schedule[index] = bigEndian(block + 4 * index);
      continue;
    }
    const std::uint32_t early = schedule[index - 15];
    const std::uint32_t late = schedule[index - 2];
    schedule[index] = schedule[index - 16] + schedule[index - 7] +
                      (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3)) +
                      (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10));
  }
  auto [a, b, c, d, e, f, g, h] = state;
  for (std::size_t index = 0; index < schedule.size(); ++index) {
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + kSha256Constants[index] + schedule[index];
    const std::uint32_t second =
        (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const std::array<std::uint32_t, 8> added = {a, b, c, d, e, f, g, h};
  for (std::size_t index = 0; index < state.size(); ++index) {
    state[index] += added[index];
  }
}

std::vector<std::uint8_t> shaPadded(std::span<const std::uint8_t> message) {
  std::vector<std::uint8_t> padded(message.begin(), message.end());
  padded.push_back(0x80);
  while (padded.size() % 64 != 56) {
    padded.push_back(0);
  }
  const std::uint64_t bits = std::uint64_t{message.size()} * 8;
  for (int shift = 56; shift >= 0; shift -= 8) {
    padded.push_back(static_cast<std::uint8_t>(bits >> shift));
  }
  return padded;
}

// --- Polynomials
// -----------------------------------------------------------------------------------

std::array<std::uint64_t, 2> carrylessProduct(std::uint64_t left, std::uint64_t right) {
  std::array<std::uint64_t, 2> product{};
  for (int bit = 0; bit < 64; ++bit) {
    if ((right >> bit & 1) != 0) {
      product[0] ^= left << bit;
      product[1] ^= bit == 0 ? 0 : left >> (64 - bit);
    }
  }
  return product;
}

std::uint32_t crc32cStep(std::uint32_t crc, std::uint64_t bytes) {
  for (int bit = 0; bit < 64; ++bit) {
    const std::uint32_t input = static_cast<std::uint32_t>(bytes >> bit & 1);
    crc = (crc >> 1) ^ (((crc ^ input) & 1) != 0 ? 0x82f63b78U : 0U);
  }
  return crc;
}

}  // namespace TarvexDiags::Processor
