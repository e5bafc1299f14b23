// Work that goes from core to core: one compresses, encrypts and copies, the other decrypts and
// decompresses, and what comes out must be what went in.

#include <zstd.h>
#include <zstd_errors.h>

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "packages/processor/Checks.h"
#include "packages/processor/CryptographyInstructions.h"
#include "packages/processor/CryptographyReference.h"
#include "packages/processor/LoadChecks.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

namespace {

using Words = std::vector<std::uint64_t>;

constexpr std::size_t kMessageWords = 8 * kBatchSize;
constexpr std::size_t kMessageBytes = kMessageWords * sizeof(std::uint64_t);
constexpr int kCompressionLevel = 3;

/// Half of the bits at most, and many zeros: something to compress.
struct Compressible {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t choice, std::uint64_t word) {
    const bool empty = Arithmetic::both(choice, 3) == 0;
    return Arithmetic::choose(empty, 0, Arithmetic::both(word, 0x0f0f0f0f0f0f0f0fU));
  }
};

void requireMemory(std::size_t result) {
  if (ZSTD_isError(result) != 0 && ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation) {
    throw std::bad_alloc();
  }
}

/// In whole blocks of 16 bytes, the size in the first word; empty when the library refuses.
Words compressed(const Words& message) {
  const std::size_t bound = ZSTD_compressBound(kMessageBytes);
  Words packed(2 * (bound / 16 + 2));
  const std::size_t size =
      ZSTD_compress(packed.data() + 1, bound, message.data(), kMessageBytes, kCompressionLevel);
  requireMemory(size);
  if (ZSTD_isError(size) != 0) {
    return {};
  }
  packed[0] = size;
  packed.resize(2 * ((size + sizeof(std::uint64_t)) / 16 + 1));
  return packed;
}

/// Zeros where the library finds fault with what it is given.
Words decompressed(const Words& packed) {
  Words message(kMessageWords);
  const std::size_t room = packed.empty() ? 0 : (packed.size() - 1) * sizeof(std::uint64_t);
  if (packed.empty() || packed[0] > room) {
    return message;
  }
  const std::size_t size =
      ZSTD_decompress(message.data(), kMessageBytes, packed.data() + 1, packed[0]);
  requireMemory(size);
  return message;
}

using RoundKeys = std::vector<Block16>;

Block16 encryptedBlock(const Block16& plain, const RoundKeys& keys) {
#if defined(__x86_64__)
  static const bool kInstructions = hasAesInstructions();
  if (kInstructions) {
    return aesEncryptInstruction(plain, keys);
  }
#endif
  return aesEncrypt(plain, keys);
}

Block16 decryptedBlock(const Block16& cipher, const RoundKeys& keys) {
#if defined(__x86_64__)
  static const bool kInstructions = hasAesInstructions();
  if (kInstructions) {
    return aesDecryptInstruction(cipher, keys);
  }
#endif
  return aesDecrypt(cipher, keys);
}

using WordPair = std::array<std::uint64_t, 2>;

WordPair pairAt(const Words& words, std::size_t index) {
  return {words[index], words[index + 1]};
}

/// Each block is mixed with the cipher before it.
Words encrypted(const Words& plain, const RoundKeys& keys) {
  Words cipher(plain.size());
  WordPair before{};
  for (std::size_t index = 0; index < plain.size(); index += 2) {
    const WordPair mixed = {plain[index] ^ before[0], plain[index + 1] ^ before[1]};
    before = std::bit_cast<WordPair>(encryptedBlock(std::bit_cast<Block16>(mixed), keys));
    std::copy(before.begin(), before.end(), cipher.begin() + static_cast<std::ptrdiff_t>(index));
  }
  return cipher;
}

Words decrypted(const Words& cipher, const RoundKeys& keys) {
  Words plain(cipher.size());
  WordPair before{};
  for (std::size_t index = 0; index < cipher.size(); index += 2) {
    const WordPair block = pairAt(cipher, index);
    const auto mixed = std::bit_cast<WordPair>(decryptedBlock(std::bit_cast<Block16>(block), keys));
    plain[index] = mixed[0] ^ before[0];
    plain[index + 1] = mixed[1] ^ before[1];
    before = block;
  }
  return plain;
}

/// What one core hands to the other, and what each stage made of it on either side.
struct Parcel {
  Words message;
  RoundKeys keys;
  Words copied;
  Words unpacked;
  std::array<std::uint64_t, 3> sent{};
  std::array<std::uint64_t, 3> received{};
};

/// The first whose sides differ is the one that went wrong.
constexpr std::array<const char*, 3> kStages = {"copying", "encryption", "compression"};

void send(Parcel& parcel) {
  const Words packed = compressed(parcel.message);
  const Words cipher = encrypted(packed, parcel.keys);
  parcel.copied.resize(cipher.size());
  std::memcpy(parcel.copied.data(), cipher.data(), cipher.size() * sizeof(cipher[0]));
  parcel.sent = {digestOf(cipher), digestOf(packed), digestOf(parcel.message)};
}

void receive(Parcel& parcel) {
  const Words packed = decrypted(parcel.copied, parcel.keys);
  parcel.unpacked = decompressed(packed);
  parcel.received = {digestOf(parcel.copied), digestOf(packed), digestOf(parcel.unpacked)};
}

Parcel packedParcel(Verifier& verifier) {
  Parcel parcel;
  parcel.message.resize(kMessageWords);
  drawOperands<Compressible>(verifier, parcel.message);
  std::array<std::uint64_t, 2> key{};
  drawOperands<Operand::Random>(verifier, key);
  parcel.keys = aesRoundKeys(std::bit_cast<Block16>(key));
  return parcel;
}

void verifyParcel(Verifier& verifier, Parcel& parcel) {
  const std::string partner = ", partner core " + std::to_string(verifier.partnerCpu());
  verifyDigest(verifier);
  verifier.verify(parcel.received, parcel.sent,
                  [&](std::size_t stage) { return kStages[stage] + partner; });
  verifier.verify(parcel.unpacked, parcel.message,
                  [&](std::size_t word) { return "word " + std::to_string(word) + partner; });
}

void toPartner(Verifier& verifier) {
  Parcel parcel = packedParcel(verifier);
  send(parcel);
  verifier.partner().together([] {}, [&] { receive(parcel); });
  verifyParcel(verifier, parcel);
}

void fromPartner(Verifier& verifier) {
  Parcel parcel = packedParcel(verifier);
  verifier.partner().together([] {}, [&] { send(parcel); });
  receive(parcel);
  verifyParcel(verifier, parcel);
}

}  // namespace

std::vector<Check> chainChecks() {
  return {
      {"chain to the partner core", always, toPartner},
      {"chain from the partner core", always, fromPartner},
  };
}

}  // namespace TarvexDiags::Processor
