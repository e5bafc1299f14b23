// Instructions that copy and fill blocks of memory by themselves, held against copying byte by
// byte.

#include <array>
#include <cstring>

#include "packages/processor/Checks.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

#if defined(__x86_64__)

namespace {

constexpr std::size_t kBytes = kBatchSize * sizeof(std::uint64_t);
/// Blocks of one batch, each with a start, a target and a length of its own.
constexpr std::size_t kBlocks = 16;

using Words = std::array<std::uint64_t, kBatchSize>;

/// A block within a batch, in bytes; the length is a multiple of the element.
struct Block {
  std::size_t from;
  std::size_t to;
  std::size_t length;
};

Block blockOf(std::uint64_t word, std::size_t elementBytes) {
  const std::size_t from = word % 64;
  const std::size_t to = word / 64 % 64;
  // Every length is as likely as every other: short ones take other ways through the processor.
  const std::size_t length = word / 4096 % (word >> 63 != 0 ? 64 : kBytes - 128);
  return {from, to, length / elementBytes * elementBytes};
}

using Run = void (*)(std::byte* to, const std::byte* from, std::size_t elements);

void copyBytes(std::byte* to, const std::byte* from, std::size_t elements) {
  asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(elements) : : "memory");
}
void copyHalves(std::byte* to, const std::byte* from, std::size_t elements) {
  asm volatile("rep movsw" : "+D"(to), "+S"(from), "+c"(elements) : : "memory");
}
void copyWords(std::byte* to, const std::byte* from, std::size_t elements) {
  asm volatile("rep movsl" : "+D"(to), "+S"(from), "+c"(elements) : : "memory");
}
void copyDoubleWords(std::byte* to, const std::byte* from, std::size_t elements) {
  asm volatile("rep movsq" : "+D"(to), "+S"(from), "+c"(elements) : : "memory");
}
/// From the last byte to the first.
void copyBackward(std::byte* to, const std::byte* from, std::size_t elements) {
  if (elements == 0) {
    return;  // there is no last byte
  }
  to += elements - 1;
  from += elements - 1;
  asm volatile("std\n\trep movsb\n\tcld" : "+D"(to), "+S"(from), "+c"(elements) : : "memory");
}

void fillBytes(std::byte* to, const std::byte* from, std::size_t elements) {
  asm volatile("rep stosb" : "+D"(to), "+c"(elements) : "a"(*from) : "memory");
}
void fillDoubleWords(std::byte* to, const std::byte* from, std::size_t elements) {
  std::uint64_t value = 0;
  std::memcpy(&value, from, sizeof(value));
  asm volatile("rep stosq" : "+D"(to), "+c"(elements) : "a"(value) : "memory");
}

std::byte* bytesOf(Words& words) {
  return reinterpret_cast<std::byte*>(words.data());
}

/// One element after the other, or the first one again and again.
void referenceCopy(Words& target, Words& source, const Block& block, std::size_t elementBytes,
                   bool fill) {
  for (std::size_t index = 0; index < block.length; ++index) {
    const std::size_t place = fill ? index % elementBytes : index;
    bytesOf(target)[block.to + index] = opaque(bytesOf(source)[block.from + place]);
  }
}

void checkBlocks(Verifier& verifier, Run run, std::size_t elementBytes, bool fill) {
  Words source{};
  std::array<std::uint64_t, kBlocks> shapes{};
  drawOperands<Operand::Random>(verifier, source);
  drawOperands<Operand::Random>(verifier, shapes);
  for (const std::uint64_t shape : shapes) {
    const Block block = blockOf(shape, elementBytes);
    Words found{};
    Words expected{};
    // What lies around the target must stay as it is.
    found.fill(~shape);
    expected.fill(~shape);
    run(bytesOf(found) + block.to, bytesOf(source) + block.from, block.length / elementBytes);
    referenceCopy(expected, source, block, elementBytes, fill);
    verifier.verify(found, expected, [&](std::size_t index) {
      return std::to_string(block.length) + " bytes from " + std::to_string(block.from) + " to " +
             std::to_string(block.to) + ", word " + std::to_string(index);
    });
  }
}

}  // namespace

std::vector<Check> blockChecks() {
  return {
      {"copy bytes (REP MOVSB)", always,
       [](Verifier& verifier) { checkBlocks(verifier, copyBytes, 1, false); }},
      {"copy 16-bit (REP MOVSW)", always,
       [](Verifier& verifier) { checkBlocks(verifier, copyHalves, 2, false); }},
      {"copy 32-bit (REP MOVSD)", always,
       [](Verifier& verifier) { checkBlocks(verifier, copyWords, 4, false); }},
      {"copy 64-bit (REP MOVSQ)", always,
       [](Verifier& verifier) { checkBlocks(verifier, copyDoubleWords, 8, false); }},
      {"copy bytes backward (REP MOVSB)", always,
       [](Verifier& verifier) { checkBlocks(verifier, copyBackward, 1, false); }},
      {"fill bytes (REP STOSB)", always,
       [](Verifier& verifier) { checkBlocks(verifier, fillBytes, 1, true); }},
      {"fill 64-bit (REP STOSQ)", always,
       [](Verifier& verifier) { checkBlocks(verifier, fillDoubleWords, 8, true); }},
  };
}

#else

std::vector<Check> blockChecks() {
  return {};
}

#endif

}  // namespace TarvexDiags::Processor
