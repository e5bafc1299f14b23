// Cryptographic instructions: published vectors first, then random data against plain integers.

#include <array>
#include <bit>
#include <cstring>
#include <string_view>

#include "packages/processor/Batch.h"
#include "packages/processor/Checks.h"
#include "packages/processor/CryptographyInstructions.h"

namespace TarvexDiags::Processor {

#if defined(__x86_64__)

namespace {

/// Results and what they should be, as they gather.
class Gathered {
 public:
  template <typename Value>
  void add(const Value& found, const Value& expected, const std::string& operands) {
    append(m_found, found);
    append(m_expected, expected);
    m_operands.resize(m_found.size(), operands);
  }

  void verify(Verifier& verifier) {
    // Both go through the same copying, which must not make them alike.
    std::array<std::uint64_t, 1> lost = {m_lost};
    verifier.verifyCopy(lost, std::array<std::uint64_t, 1>{0});
    verifier.verify(m_found, m_expected, [this](std::size_t index) { return m_operands[index]; });
  }

 private:
  template <typename Value>
  void append(std::vector<std::uint64_t>& words, const Value& value) {
    std::array<std::uint64_t, (sizeof(Value) + 7) / 8> parts{};
    std::memcpy(parts.data(), &value, sizeof(Value));
    words.insert(words.end(), parts.begin(), parts.end());
    const std::size_t start = words.size() - parts.size();
    m_lost += std::memcmp(words.data() + start, &value, sizeof(Value)) != 0 ? 1 : 0;
  }

  std::vector<std::uint64_t> m_found;
  std::vector<std::uint64_t> m_expected;
  std::vector<std::string> m_operands;
  std::uint64_t m_lost = 0;
};

constexpr int kRandomRounds = 32;

std::uint64_t drawInteger(Verifier& verifier) {
  std::array<std::uint64_t, 1> word{};
  drawOperands<Operand::Integer>(verifier, word);
  return word[0];
}

template <std::size_t size>
std::array<std::uint8_t, size> randomBytes(Verifier& verifier) {
  std::array<std::uint64_t, size / sizeof(std::uint64_t)> words{};
  drawOperands<Operand::Random>(verifier, words);
  return std::bit_cast<std::array<std::uint8_t, size>>(words);
}

template <typename Bytes>
std::string textOf(const Bytes& bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte / 16];
    text += digits[byte % 16];
  }
  return text;
}

std::vector<std::uint8_t> countingKey(std::size_t size) {
  std::vector<std::uint8_t> key(size);
  for (std::size_t index = 0; index < size; ++index) {
    key[index] = static_cast<std::uint8_t>(index);
  }
  return key;
}

struct AesVector {
  std::size_t keyBytes;
  Block16 cipher;
};

// FIPS 197, appendix C: keys 00 01 02 ..., plain text 00 11 22 ... ff.
constexpr Block16 kAesPlain = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                               0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
constexpr std::array<AesVector, 3> kAesVectors = {{
    {16,
     {0x69, 0xc4, 0xe0, 0xd8, 0x6a, 0x7b, 0x04, 0x30, 0xd8, 0xcd, 0xb7, 0x80, 0x70, 0xb4, 0xc5,
      0x5a}},
    {24,
     {0xdd, 0xa9, 0x7c, 0xa4, 0x86, 0x4c, 0xdf, 0xe0, 0x6e, 0xaf, 0x70, 0xa0, 0xec, 0x0d, 0x71,
      0x91}},
    {32,
     {0x8e, 0xa2, 0xb7, 0xca, 0x51, 0x67, 0x45, 0xbf, 0xea, 0xfc, 0x49, 0x90, 0x4b, 0x49, 0x60,
      0x89}},
}};

void aesEncryption(Verifier& verifier) {
  Gathered gathered;
  for (const AesVector& vector : kAesVectors) {
    const auto roundKeys = aesRoundKeys(countingKey(vector.keyBytes));
    gathered.add(aesEncryptInstruction(kAesPlain, roundKeys), vector.cipher,
                 "FIPS 197 appendix C, key of " + std::to_string(vector.keyBytes) + " bytes");
  }
  const auto key = randomBytes<32>(verifier);
  const auto roundKeys = aesRoundKeys(key);
  for (int round = 0; round < kRandomRounds; ++round) {
    const auto plain = randomBytes<16>(verifier);
    gathered.add(aesEncryptInstruction(plain, roundKeys), aesEncrypt(plain, roundKeys),
                 "key " + textOf(key) + ", block " + textOf(plain));
  }
  gathered.verify(verifier);
}

void aesDecryption(Verifier& verifier) {
  Gathered gathered;
  for (const AesVector& vector : kAesVectors) {
    const auto roundKeys = aesRoundKeys(countingKey(vector.keyBytes));
    gathered.add(aesDecryptInstruction(vector.cipher, roundKeys), kAesPlain,
                 "FIPS 197 appendix C, key of " + std::to_string(vector.keyBytes) + " bytes");
  }
  const auto key = randomBytes<16>(verifier);
  const auto roundKeys = aesRoundKeys(key);
  for (int round = 0; round < kRandomRounds; ++round) {
    const auto cipher = randomBytes<16>(verifier);
    gathered.add(aesDecryptInstruction(cipher, roundKeys), aesDecrypt(cipher, roundKeys),
                 "key " + textOf(key) + ", block " + textOf(cipher));
  }
  gathered.verify(verifier);
}

void aesKeyAssist(Verifier& verifier) {
  Gathered gathered;
  // FIPS 197, appendix A.1: the first word of the second round key is the first of the key and the
  // assisted last one.
  const std::array<std::uint8_t, 16> published = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                                  0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
  const std::array<std::uint8_t, 4> nextWord = {0xa0, 0xfa, 0xfe, 0x17};
  const auto firstOfNext = [](const std::array<std::uint8_t, 16>& key, const Block16& assisted) {
    std::array<std::uint8_t, 4> word{};
    for (std::size_t byte = 0; byte < word.size(); ++byte) {
      word[byte] = key[byte] ^ assisted[12 + byte];
    }
    return word;
  };
  gathered.add(firstOfNext(published, aesKeyAssistInstruction(published)), nextWord,
               "FIPS 197 appendix A.1");
  for (int round = 0; round < kRandomRounds; ++round) {
    const auto key = randomBytes<16>(verifier);
    std::array<std::uint8_t, 4> expected{};
    std::memcpy(expected.data(), aesRoundKeys(key)[1].data(), expected.size());
    gathered.add(firstOfNext(key, aesKeyAssistInstruction(key)), expected, "key " + textOf(key));
  }
  gathered.verify(verifier);
}

// FIPS 180-4's examples: "abc", and two blocks.
constexpr std::array<std::string_view, 2> kShaMessages = {
    "abc", "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"};
constexpr std::array<std::array<std::uint32_t, 5>, 2> kSha1Digests = {{
    {0xa9993e36, 0x4706816a, 0xba3e2571, 0x7850c26c, 0x9cd0d89d},
    {0x84983e44, 0x1c3bd26e, 0xbaae4aa1, 0xf95129e5, 0xe54670f1},
}};
constexpr std::array<std::array<std::uint32_t, 8>, 2> kSha256Digests = {{
    {0xba7816bf, 0x8f01cfea, 0x414140de, 0x5dae2223, 0xb00361a3, 0x96177a9c, 0xb410ff61,
     0xf20015ad},
    {0x248d6a61, 0xd20638b8, 0xe5c02693, 0x0c3e6039, 0xa33ce459, 0x64ff2167, 0xf6ecedd4,
     0x19db06c1},
}};

/// The published messages, then random blocks one after the other.
template <typename State, typename Step>
void checkHash(Verifier& verifier, const State& start, const std::array<State, 2>& digests,
               Step instruction, Step reference) {
  Gathered gathered;
  for (std::size_t index = 0; index < kShaMessages.size(); ++index) {
    State state = start;
    const std::vector<std::uint8_t> message(kShaMessages[index].begin(), kShaMessages[index].end());
    const std::vector<std::uint8_t> padded = shaPadded(message);
    for (std::size_t offset = 0; offset < padded.size(); offset += 64) {
      instruction(state, padded.data() + offset);
    }
    gathered.add(state, digests[index], "FIPS 180-4, \"" + std::string(kShaMessages[index]) + "\"");
  }
  State state = start;
  State expected = start;
  for (int round = 0; round < kRandomRounds; ++round) {
    const auto block = randomBytes<64>(verifier);
    instruction(state, block.data());
    reference(expected, block.data());
    gathered.add(state, expected, "block " + textOf(block));
  }
  gathered.verify(verifier);
}

void sha1(Verifier& verifier) {
  checkHash(verifier, kSha1Start, kSha1Digests, sha1BlockInstruction, sha1Block);
}

void sha256(Verifier& verifier) {
  checkHash(verifier, kSha256Start, kSha256Digests, sha256BlockInstruction, sha256Block);
}

struct ProductVector {
  std::uint64_t left;
  std::uint64_t right;
  std::array<std::uint64_t, 2> product;
};

// Gueron and Kounavis, "Intel Carry-Less Multiplication Instruction and its Usage for Computing the
// GCM Mode", 2010, figure 3.
constexpr std::array<ProductVector, 4> kProductVectors = {{
    {0x63746f725d53475d, 0x5b477565726f6e5d, {0x929633d5d36f0451, 0x1d4d84c85c3440c0}},
    {0x7b5b546573745665, 0x5b477565726f6e5d, {0xbabf262df4b7d5c9, 0x1a2bf6db3a30862f}},
    {0x63746f725d53475d, 0x4869285368617929, {0x7fa540ac2a281315, 0x1bd17c8d556ab5a1}},
    {0x7b5b546573745665, 0x4869285368617929, {0xd66ee03e410fd4ed, 0x1d1e1f2c592e7c45}},
}};

void carrylessMultiply(Verifier& verifier) {
  Gathered gathered;
  for (const ProductVector& vector : kProductVectors) {
    gathered.add(carrylessProductInstruction(vector.left, vector.right), vector.product,
                 hexadecimal(vector.left) + ", " + hexadecimal(vector.right));
  }
  for (int round = 0; round < kRandomRounds; ++round) {
    const std::uint64_t left = drawInteger(verifier);
    const std::uint64_t right = drawInteger(verifier);
    gathered.add(carrylessProductInstruction(left, right), carrylessProduct(left, right),
                 hexadecimal(left) + ", " + hexadecimal(right));
  }
  gathered.verify(verifier);
}

struct CrcVector {
  const char* name;
  std::array<std::uint64_t, 4> bytes;
  std::uint32_t crc;
};

// RFC 3720, B.4: 32 bytes of zeros, of ones, rising and falling.
constexpr std::array<CrcVector, 4> kCrcVectors = {{
    {"zeros", {0, 0, 0, 0}, 0x8a9136aa},
    {"ones", {~0ULL, ~0ULL, ~0ULL, ~0ULL}, 0x62a8ab43},
    {"rising",
     {0x0706050403020100, 0x0f0e0d0c0b0a0908, 0x1716151413121110, 0x1f1e1d1c1b1a1918},
     0x46dd794e},
    {"falling",
     {0x18191a1b1c1d1e1f, 0x1011121314151617, 0x08090a0b0c0d0e0f, 0x0001020304050607},
     0x113fdb5c},
}};

void crc32c(Verifier& verifier) {
  Gathered gathered;
  for (const CrcVector& vector : kCrcVectors) {
    std::uint32_t crc = ~std::uint32_t{0};
    for (const std::uint64_t bytes : vector.bytes) {
      crc = crc32cStepInstruction(crc, bytes);
    }
    gathered.add(~crc, vector.crc, std::string("RFC 3720 B.4, ") + vector.name);
  }
  for (int round = 0; round < kRandomRounds; ++round) {
    const auto crc = static_cast<std::uint32_t>(drawWord(verifier));
    const std::uint64_t bytes = drawInteger(verifier);
    gathered.add(crc32cStepInstruction(crc, bytes), crc32cStep(crc, bytes),
                 hexadecimal(crc) + ", " + hexadecimal(bytes));
  }
  gathered.verify(verifier);
}

}  // namespace

std::vector<Check> cryptographyChecks() {
  return {
      {"AES encryption (AESENC)", hasAesInstructions, aesEncryption},
      {"AES decryption (AESDEC)", hasAesInstructions, aesDecryption},
      {"AES key assist (AESKEYGENASSIST)", hasAesInstructions, aesKeyAssist},
      {"SHA-1 (SHA1RNDS4)", hasShaInstructions, sha1},
      {"SHA-256 (SHA256RNDS2)", hasShaInstructions, sha256},
      {"carry-less multiply (PCLMULQDQ)", hasCarrylessMultiply, carrylessMultiply},
      {"CRC-32C (CRC32)", hasCrc32, crc32c},
  };
}

#else

std::vector<Check> cryptographyChecks() {
  return {};
}

#endif

}  // namespace TarvexDiags::Processor
