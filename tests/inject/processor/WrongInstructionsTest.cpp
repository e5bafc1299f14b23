// Every instruction class with its instruction doing nothing, in a process of its own each: the
// check of the class finds it within two seconds.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "packages/processor/VectorKernels.h"
#include "tests/inject/processor/ProgramText.h"
#include "tests/packages/processor/ProcessorFixture.h"

namespace TarvexDiags::Processor {
namespace {

using Tests::Function;
using Tests::Instruction;

/// The instructions that a class is for, in the functions of its check.
struct Row {
  const char* instructionClass;
  const char* instructions;  ///< a regular expression
};

constexpr Row kRows[] = {
    {"integer add", "add .*%r"},
    {"integer subtract", "sub .*%r"},
    {"integer add with carry", "adc "},
    {"integer multiply, low half", "imul "},
    {"integer multiply, high half", "mulq? "},
    {"integer divide", "div "},
    {"integer remainder", "div "},
    {"shift left", "shl +%cl"},
    {"shift right", "shr +%cl"},
    {"shift right signed", "sar +%cl"},
    {"rotate", "rol +%cl"},
    {"swap bytes", "bswap "},
    {"compare signed", "setl "},
    {"count ones (POPCNT)", "popcnt "},
    {"count leading zeros (LZCNT)", "lzcnt "},
    {"count trailing zeros (TZCNT)", "tzcnt "},
    {"deposit bits (PDEP)", "pdep "},
    {"extract bits (PEXT)", "pext "},
    {"IEEE 754 corner results", "divsd "},
    {"IEEE 754 exception flags", "mulsd "},
    {"double add", "addsd "},
    {"double subtract", "subsd "},
    {"double multiply", "mulsd "},
    {"double divide", "divsd "},
    {"double square root", "sqrtsd "},
    {"double fused multiply-add", "vfmadd...sd "},
    {"single add", "addss "},
    {"single subtract", "subss "},
    {"single multiply", "mulss "},
    {"single divide", "divss "},
    {"single square root", "sqrtss "},
    {"single fused multiply-add", "vfmadd...ss "},
    {"integer to double", "cvtsi2sd"},
    {"double to integer", "cvttsd2si "},
    {"AES encryption (AESENC)", "aesenc "},
    {"AES decryption (AESDEC)", "aesdec "},
    {"AES key assist (AESKEYGENASSIST)", "aeskeygenassist "},
    {"SHA-1 (SHA1RNDS4)", "sha1rnds4 "},
    {"SHA-256 (SHA256RNDS2)", "sha256rnds2 "},
    {"carry-less multiply (PCLMULQDQ)", "pclmul"},
    {"CRC-32C (CRC32)", "crc32"},
    {"atomic add", "lock (add|inc|xadd)"},
    {"atomic exchange", "xchg .*\\("},
    {"atomic exclusive or", "lock xor"},
    {"x87 add and subtract (FADD, FSUB)", "fadd"},
    {"x87 add and subtract (FADD, FSUB)", "fsub"},
    {"x87 multiply (FMUL)", "fmulp? +%st"},
    {"x87 divide (FDIV)", "fdiv"},
    {"x87 square root (FSQRT)", "fsqrt"},
    {"x87 power of two (F2XM1)", "f2xm1"},
    {"x87 sine (FSIN)", "fsin$"},
    {"x87 cosine (FCOS)", "fcos"},
    {"x87 sine and cosine (FSINCOS)", "fsincos"},
    {"x87 tangent (FPTAN)", "fptan"},
    {"x87 arc tangent (FPATAN)", "fpatan"},
    {"x87 logarithms (FYL2X, FYL2XP1)", "fyl2x$"},
    {"x87 logarithms (FYL2X, FYL2XP1)", "fyl2xp1"},
    {"x87 scale and extract (FSCALE, FXTRACT)", "fscale"},
    {"x87 scale and extract (FSCALE, FXTRACT)", "fxtract"},
    {"x87 partial remainder (FPREM)", "fprem"},
    {"complex multiply", "mulsd "},
    {"copy bytes (REP MOVSB)", "rep movsb"},
    {"copy 16-bit (REP MOVSW)", "rep movsw"},
    {"copy 32-bit (REP MOVSD)", "rep movsl"},
    {"copy 64-bit (REP MOVSQ)", "rep movsq"},
    {"copy bytes backward (REP MOVSB)", "rep movsb"},
    {"fill bytes (REP STOSB)", "rep stos %al"},
    {"fill 64-bit (REP STOSQ)", "rep stos %rax"},
    {"chain to the partner core", "aesenc "},
    {"chain from the partner core", "aesdec "},
    {"matrix product of whole numbers", "mulpd "},
    {"matrix product of fractions", "mulpd "},
    {"singular values of a matrix", "mulsd "},
};

class WrongInstructionsTest : public ::testing::Test {
 protected:
  static const Tests::ProgramText& text() {
    static const Tests::ProgramText all =
        Tests::disassembled(std::filesystem::read_symlink("/proc/self/exe").string());
    return all;
  }

  static std::uintptr_t linked(const void* function) {
    return reinterpret_cast<std::uintptr_t>(function) - Tests::loadOffset();
  }

  /// A function and those of the engine that it calls or hands on.
  static std::vector<const Function*> reachedFrom(std::uintptr_t address) {
    static const std::regex target(
        "(call|jmp|lea) .*?([0-9a-f]+) <_ZN?K?11TarvexDiags9Processor.*|lea .*# ([0-9a-f]+) <.*");
    std::vector<const Function*> functions;
    std::set<std::uintptr_t> seen;
    std::vector<std::uintptr_t> waiting = {address};
    while (!waiting.empty()) {
      const std::uintptr_t next = waiting.back();
      waiting.pop_back();
      const auto found = text().find(next);
      if (!seen.insert(next).second || found == text().end() || isShared(found->second.symbol)) {
        continue;
      }
      functions.push_back(&found->second);
      for (const Instruction& instruction : found->second.instructions) {
        std::smatch match;
        if (std::regex_match(instruction.text, match, target)) {
          const std::string number = match[3].matched ? match[3].str() : match[2].str();
          waiting.push_back(std::stoull(number, nullptr, 16));
        }
      }
    }
    return functions;
  }

  static std::vector<const Function*> ofTheEngine() {
    std::vector<const Function*> functions;
    for (const auto& [address, function] : text()) {
      if (!isShared(function.symbol)) {
        functions.push_back(&function);
      }
    }
    return functions;
  }

  static std::vector<const Instruction*> matching(const std::vector<const Function*>& functions,
                                                  const std::regex& texts) {
    std::vector<const Instruction*> instructions;
    for (const Function* const function : functions) {
      for (const Instruction& instruction : function->instructions) {
        if (std::regex_match(instruction.text, texts)) {
          instructions.push_back(&instruction);
        }
      }
    }
    return instructions;
  }

  /// What every check uses beside what it is for.
  static bool isShared(const std::string& symbol) {
    return (symbol.find("9Processor") == std::string::npos &&
            symbol.find("5Eigen") == std::string::npos) ||
           symbol.find("9Processor8Verifier") != std::string::npos ||
           symbol.find("12makeOperands") != std::string::npos;
  }

  /// Runs a check with instructions that do nothing, until it finds something or two seconds are
  /// over. @return whether it did; a crash counts, and a batch that never ends: no test passes then
  static bool isFound(const Check& check, const std::vector<const Instruction*>& wrong) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      alarm(3);
      for (const Instruction* const instruction : wrong) {
        if (!Tests::writeText(getpid(), Tests::loadOffset() + instruction->address,
                              Tests::nothing(instruction->bytes.size()))) {
          _exit(kNothingFound);
        }
      }
      _exit(findsSomething(check) ? 0 : kNothingFound);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return !WIFEXITED(status) || WEXITSTATUS(status) != kNothingFound;
  }

  static bool findsSomething(const Check& check) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    RecordingObserver observer;
    Verifier verifier(kTestedCore, anyPartner(), 17, observer);
    verifier.begin(check.instructionClass);
    while (observer.results.empty() && std::chrono::steady_clock::now() < deadline) {
      check.run(verifier);
    }
    return !observer.results.empty();
  }

  static constexpr int kNothingFound = 9;

  static const Check* checkOf(const std::string& instructionClass) {
    static const std::vector<Check> all = [] {
      std::vector<Check> checks;
      for (const ProcessorTest& test : processorTests()) {
        const std::vector<Check> more = availableChecks(test);
        checks.insert(checks.end(), more.begin(), more.end());
      }
      return checks;
    }();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Check& check) {
      return check.instructionClass == instructionClass;
    });
    return found == all.end() ? nullptr : &*found;
  }
};

TEST_F(WrongInstructionsTest, instruction_of_each_class_is_found_within_two_seconds) {
  int found = 0;
  int tried = 0;
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.instructionClass) + ": " + row.instructions);
    const Check* const check = checkOf(row.instructionClass);
    if (check == nullptr) {
      continue;  // the processor does not have it
    }
    const std::regex instructions(std::string("(?:") + row.instructions + ").*");
    std::vector<const Instruction*> wrong =
        matching(reachedFrom(linked(reinterpret_cast<const void*>(check->run))), instructions);
    if (wrong.empty()) {  // behind a pointer
      wrong = matching(ofTheEngine(), instructions);
    }
    EXPECT_FALSE(wrong.empty());
    if (wrong.empty()) {
      continue;
    }
    ++tried;
    const bool good = isFound(*check, wrong);
    EXPECT_TRUE(good) << wrong.size() << " instructions, the first " << wrong.front()->text;
    found += good ? 1 : 0;
  }
  std::printf("%d of %d classes found\n", found, tried);
}

/// Vector instructions that compute: what only moves, clears or ends is left out.
bool computes(const Instruction& instruction) {
  static const std::regex moving("v?(mov|pxor|xorp|zeroupper|pcmpeqd +(%.mm\\d+),\\2|pternlogd).*");
  static const std::regex vector(".*%[xyz]mm.*");
  return std::regex_match(instruction.text, vector) && !std::regex_match(instruction.text, moving);
}

TEST_F(WrongInstructionsTest, each_vector_instruction_of_each_width_is_found) {
  const std::pair<const char*, const VectorKernels*> widths[] = {
      {"128-bit ", &kSseKernels}, {"256-bit ", &kAvx2Kernels}, {"512-bit ", &kAvx512Kernels}};
  int found = 0;
  int tried = 0;
  for (const auto& [width, kernels] : widths) {
    for (const VectorKernel& kernel : *kernels) {
      const Check* const check = checkOf(std::string(width) + kernel.name);
      if (check == nullptr) {
        continue;
      }
      const Function& function = text().at(linked(reinterpret_cast<const void*>(kernel.run)));
      for (const Instruction& instruction : function.instructions) {
        if (!computes(instruction)) {
          continue;
        }
        ++tried;
        const bool good = isFound(*check, {&instruction});
        EXPECT_TRUE(good) << check->instructionClass << ": " << instruction.text;
        found += good ? 1 : 0;
      }
    }
  }
  EXPECT_GT(tried, 0);
  std::printf("%d of %d vector instructions found\n", found, tried);
}

/// All that computes where operands are made, but for two that change nothing: masks of an amount,
/// which a shift looks at in part alone.
TEST_F(WrongInstructionsTest, each_instruction_where_operands_are_made_is_found) {
  static const std::regex computing("(add|sub|imul|xor|or|not|shl|shr|lea) .*%r.*");
  static const std::regex harmless("xor +(%\\w+),\\1|.*\\(%rip\\).*");
  const Check* const check = checkOf("integer subtract");
  ASSERT_NE(check, nullptr);
  int found = 0;
  int tried = 0;
  for (const auto& [address, function] : text()) {
    if (function.symbol.find("12makeOperands") == std::string::npos ||
        function.symbol.find("7IntegerENS0_6Direct") == std::string::npos) {
      continue;
    }
    for (const Instruction& instruction : function.instructions) {
      if (!std::regex_match(instruction.text, computing) ||
          std::regex_match(instruction.text, harmless)) {
        continue;
      }
      ++tried;
      const bool good = isFound(*check, {&instruction});
      EXPECT_TRUE(good) << instruction.text;
      found += good ? 1 : 0;
    }
  }
  EXPECT_GT(tried, 20);
  std::printf("%d of %d instructions found where operands are made\n", found, tried);
}

}  // namespace
}  // namespace TarvexDiags::Processor
