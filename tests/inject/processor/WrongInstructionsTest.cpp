// Every instruction class with its instruction doing nothing, in a process of its own each: the
// check of the class finds it within two seconds.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "packages/processor/VectorKernels.h"
#include "tests/inject/processor/ProgramText.h"
#include "tests/packages/processor/ProcessorFixture.h"

namespace TarvexDiags::Processor {
namespace {

using Tests::Function;
using Tests::Instruction;

constexpr unsigned char kNop = 0x90;
/// In front of nothing: what drew a random number tells that it did, and has not.
constexpr unsigned char kSetCarry = 0xf9;

/// The instructions that a class is for, in the functions of its check.
struct Row {
  const char* instructionClass;
  const char* instructions;               ///< a regular expression
  const char* libraryFunction = nullptr;  ///< in which they are, instead of the check's own
  unsigned char instead = kNop;           ///< of the first byte of each
  /// The cores have agreed on the results before: what none of them computes right later is
  /// compared with that.
  bool isAgreed = false;
  /// Some of them do other things: each is tried for itself, and one has to be found by name.
  bool isOneOfThem = false;
};

/// Of doubles, in the mathematical library.
constexpr const char* kArithmetic = "v?(add|sub|mul|div|fn?m(add|sub)...)sd ";

constexpr Row kRows[] = {
    {"integer add", "add +%r\\w+,%r"},
    {.instructionClass = "integer subtract", .instructions = "sub +%r\\w+,%r", .isOneOfThem = true},
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
    {"atomic add", "lock (addq|incq)"},
    {"atomic fetch and add", "lock xadd"},
    {"atomic compare and exchange", "lock cmpxchg "},
    {"atomic compare and exchange, 128-bit (CMPXCHG16B)", "lock cmpxchg16b"},
    {"atomic exchange", "xchg .*\\("},
    {"atomic exclusive or", "lock xor"},
    {"store visibility: store buffering", "xchg .*\\("},
    {"store visibility: message passing", "movq +\\$0x1,\\("},
    {"sort load", "imul "},
    {"heap sort load", "imul "},
    {"tree load", "imul "},
    {"hash load", "rol|ror"},
    {"matrix load", "mul[sp]d "},
    {"random generator (RDRAND), stuck", "rdrand ", nullptr, kSetCarry},
    {"random generator (RDRAND), bias of bits", "rdrand ", nullptr, kSetCarry},
    {"random generator (RDRAND), bytes", "rdrand ", nullptr, kSetCarry},
    {"random seeds (RDSEED), stuck", "rdseed ", nullptr, kSetCarry},
    {"random seeds (RDSEED), bias of bits", "rdseed ", nullptr, kSetCarry},
    {"random seeds (RDSEED), bytes", "rdseed ", nullptr, kSetCarry},
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
    {"double exponential", kArithmetic, "exp"},
    {"double logarithm", kArithmetic, "log"},
    {"double sine and cosine", kArithmetic, "sin"},
    {"double sine and cosine", kArithmetic, "cos"},
    {"double tangent", kArithmetic, "tan"},
    {"double arc tangent", kArithmetic, "atan"},
    {"double power", kArithmetic, "pow"},
    {"double hyperbolic tangent", kArithmetic, "tanh"},
    {"complex multiply", "mulsd "},
    {"complex divide", kArithmetic, "__divdc3"},
    {"complex exponential", kArithmetic, "cexp"},
    {"complex logarithm", kArithmetic, "log"},
    {.instructionClass = "transcendental functions, all bits",
     .instructions = "f2xm1",
     .isAgreed = true},
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

/// Classes without a row, each with the reason.
const std::map<std::string, std::string> kWithoutRow = {
    {"store visibility: load buffering", "an order of accesses, which no one instruction makes"},
    {"store visibility: coherent reads", "an order of accesses, which no one instruction makes"},
};

/// An instruction where it is in this process.
struct Placed {
  std::uintptr_t address = 0;
  const Instruction* instruction = nullptr;
};

/// What became of a check with wrong instructions.
enum class Finding {
  ByName,     ///< a wrong result of the class
  Elsewhere,  ///< a wrong result of what each check needs
  None,       ///< within two seconds
  Crash,
  Hang,  ///< the check came to no end
};

const char* nameOf(Finding finding) {
  constexpr const char* names[] = {"by name", "elsewhere", "not found", "crash", "hang"};
  return names[static_cast<std::size_t>(finding)];
}

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

  /// Runs a check with wrong instructions until it finds something or two seconds are over.
  static Finding findingOf(const Check& check, const std::vector<Placed>& wrong,
                           unsigned char instead = kNop, bool isAgreed = false) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      alarm(kLongest);
      RecordingObserver observer;
      Verifier verifier(kTestedCore, anyPartner(), 17, observer);
      verifier.begin(check.instructionClass);
      for (int round = 0; isAgreed && round < 16; ++round) {
        check.run(verifier);
      }
      _exit(static_cast<int>(isSpoilt(wrong, instead) ? firstFinding(check, verifier, observer)
                                                      : Finding::None));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status)) {
      return static_cast<Finding>(WEXITSTATUS(status));
    }
    return WTERMSIG(status) == SIGALRM ? Finding::Hang : Finding::Crash;
  }

  static Finding findingOf(const Row& row, const Check& check, const std::vector<Placed>& wrong) {
    if (!row.isOneOfThem) {
      return findingOf(check, wrong, row.instead, row.isAgreed);
    }
    Finding last = Finding::None;
    for (std::size_t index = 0; index < wrong.size() && last != Finding::ByName; ++index) {
      last = findingOf(check, {wrong[index]}, row.instead, row.isAgreed);
    }
    return last;
  }

  static bool isSpoilt(const std::vector<Placed>& wrong, unsigned char instead) {
    return std::all_of(wrong.begin(), wrong.end(), [&](const Placed& placed) {
      std::vector<unsigned char> bytes = Tests::nothing(placed.instruction->bytes.size());
      bytes.front() = instead;
      return Tests::writeText(getpid(), placed.address, bytes);
    });
  }

  static Finding firstFinding(const Check& check, Verifier& verifier,
                              const RecordingObserver& observer) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (observer.results.empty() && std::chrono::steady_clock::now() < deadline) {
      check.run(verifier);
    }
    if (observer.results.empty()) {
      return Finding::None;
    }
    return observer.results.front().instructionClass == check.instructionClass ? Finding::ByName
                                                                               : Finding::Elsewhere;
  }

  /// In seconds, the last batch included.
  static constexpr unsigned int kLongest = 3;

  /// Of all tests, those included that the processor has no instructions for.
  static const std::map<std::string, Check>& allChecks() {
    static const std::map<std::string, Check> all = [] {
      std::map<std::string, Check> checks;
      for (const ProcessorTest& test : processorTests()) {
        for (const Check& check : test.checks()) {
          checks.emplace(check.instructionClass, check);
        }
      }
      return checks;
    }();
    return all;
  }

  /// Null when there is none.
  static const Check* checkOf(const std::string& instructionClass) {
    const auto found = allChecks().find(instructionClass);
    return found == allChecks().end() ? nullptr : &found->second;
  }

  static std::vector<Placed> placedHere(const std::vector<const Instruction*>& instructions) {
    std::vector<Placed> placed;
    for (const Instruction* const instruction : instructions) {
      placed.push_back({Tests::loadOffset() + instruction->address, instruction});
    }
    return placed;
  }

  static std::vector<Placed> wrongOf(const Row& row, const Check& check) {
    const std::regex texts(std::string("(?:") + row.instructions + ").*");
    if (row.libraryFunction != nullptr) {
      std::vector<Placed> placed = placedHere(matching(named(row.libraryFunction), texts));
      return placed.empty() ? ofLibrary(row.libraryFunction, texts) : placed;
    }
    auto found = matching(reachedFrom(linked(reinterpret_cast<const void*>(check.run))), texts);
    if (found.empty()) {  // behind a pointer
      found = matching(ofTheEngine(), texts);
    }
    return placedHere(found);
  }

  /// Functions of this program, libraries that are linked into it included.
  static std::vector<const Function*> named(const std::string& symbol) {
    std::vector<const Function*> functions;
    for (const auto& [address, function] : text()) {
      if (function.symbol == symbol) {
        functions.push_back(&function);
      }
    }
    return functions;
  }

  /// In a function of a shared library, or in those that it calls when it only hands on: as the
  /// dynamic linker has chosen them for this processor.
  static std::vector<Placed> ofLibrary(const char* function, const std::regex& texts) {
    const auto start = reinterpret_cast<std::uintptr_t>(dlsym(RTLD_DEFAULT, function));
    std::vector<Placed> placed = placedFrom(start, texts);
    if (!placed.empty()) {
      return placed;
    }
    static const std::regex chosen("(?:call|jmp) .*<\\*ABS\\*\\+0x([0-9a-f]+)@plt>");
    for (const Placed& call : placedFrom(start, chosen)) {
      std::smatch match;
      std::regex_match(call.instruction->text, match, chosen);
      const std::uintptr_t offset = call.address - call.instruction->address;
      const auto resolve =
          reinterpret_cast<std::uintptr_t (*)()>(offset + std::stoull(match[1], nullptr, 16));
      const std::vector<Placed> called = placedFrom(resolve(), texts);
      placed.insert(placed.end(), called.begin(), called.end());
    }
    return placed;
  }

  /// In the function at an address; where no symbol tells its size, in the first kilobytes.
  static std::vector<Placed> placedFrom(std::uintptr_t start, const std::regex& texts) {
    static std::vector<std::unique_ptr<Tests::ProgramText>> kept;
    Dl_info library{};
    const ElfW(Sym)* symbol = nullptr;
    if (dladdr1(reinterpret_cast<const void*>(start), &library,
                reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT) == 0) {
      return {};
    }
    const auto offset = reinterpret_cast<std::uintptr_t>(library.dli_fbase);
    const bool isKnown = symbol != nullptr && library.dli_saddr == reinterpret_cast<void*>(start);
    const std::uintptr_t bytes = isKnown ? symbol->st_size : 0x800;
    kept.push_back(std::make_unique<Tests::ProgramText>(
        Tests::disassembled(library.dli_fname, start - offset, start - offset + bytes)));
    std::vector<const Function*> functions;
    for (const auto& [address, part] : *kept.back()) {
      functions.push_back(&part);
    }
    std::vector<Placed> placed;
    for (const Instruction* const instruction : matching(functions, texts)) {
      placed.push_back({offset + instruction->address, instruction});
    }
    return placed;
  }
};

constexpr std::pair<const char*, const VectorKernels*> kWidths[] = {
    {"128-bit ", &kSseKernels}, {"256-bit ", &kAvx2Kernels}, {"512-bit ", &kAvx512Kernels}};

/// Whether each of its instructions is tried with those of all vector kernels.
bool isOfVectors(const std::string& instructionClass) {
  return std::any_of(std::begin(kWidths), std::end(kWidths), [&](const auto& width) {
    return std::any_of(width.second->begin(), width.second->end(), [&](const auto& kernel) {
      return instructionClass == std::string(width.first) + kernel.name;
    });
  });
}

TEST_F(WrongInstructionsTest, every_class_has_a_row_or_a_reason_and_every_row_a_class) {
  std::set<std::string> rows;
  for (const Row& row : kRows) {
    rows.insert(row.instructionClass);
    EXPECT_NE(checkOf(row.instructionClass), nullptr) << row.instructionClass << " is no class";
  }
  for (const auto& [name, reason] : kWithoutRow) {
    EXPECT_NE(checkOf(name), nullptr) << name << " is no class";
    EXPECT_FALSE(rows.contains(name)) << name << " has a row";
    std::printf("without a row: %s, %s\n", name.c_str(), reason.c_str());
  }
  for (const auto& [name, check] : allChecks()) {
    EXPECT_TRUE(rows.contains(name) || kWithoutRow.contains(name) || isOfVectors(name))
        << name << " has no row";
  }
}

TEST_F(WrongInstructionsTest, instruction_of_each_class_is_found_by_name_within_two_seconds) {
  int found = 0;
  int tried = 0;
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.instructionClass) + ": " + row.instructions);
    const Check* const check = checkOf(row.instructionClass);
    ASSERT_NE(check, nullptr) << "no such class";
    if (!check->available()) {
      std::printf("not on this processor: %s\n", row.instructionClass);
      continue;
    }
    const std::vector<Placed> wrong = wrongOf(row, *check);
    EXPECT_FALSE(wrong.empty());
    if (wrong.empty()) {
      continue;
    }
    ++tried;
    const Finding finding = findingOf(row, *check, wrong);
    EXPECT_EQ(finding, Finding::ByName)
        << nameOf(finding) << ", " << wrong.size() << " instructions, the first "
        << wrong.front().instruction->text;
    found += finding == Finding::ByName ? 1 : 0;
  }
  std::printf("%d of %d classes found by name\n", found, tried);
}

/// Vector instructions that compute: what only moves, clears or ends is left out.
bool computes(const Instruction& instruction) {
  static const std::regex moving("v?(mov|pxor|xorp|zeroupper|pcmpeqd +(%.mm\\d+),\\2|pternlogd).*");
  static const std::regex vector(".*%[xyz]mm.*");
  return std::regex_match(instruction.text, vector) && !std::regex_match(instruction.text, moving);
}

TEST_F(WrongInstructionsTest, each_vector_instruction_of_each_width_is_found) {
  int found = 0;
  int tried = 0;
  for (const auto& [width, kernels] : kWidths) {
    for (const VectorKernel& kernel : *kernels) {
      const Check* const check = checkOf(std::string(width) + kernel.name);
      ASSERT_NE(check, nullptr) << width << kernel.name;
      if (!check->available()) {
        continue;
      }
      const Function& function = text().at(linked(reinterpret_cast<const void*>(kernel.run)));
      for (const Instruction& instruction : function.instructions) {
        if (!computes(instruction)) {
          continue;
        }
        ++tried;
        const Finding finding = findingOf(*check, placedHere({&instruction}));
        EXPECT_EQ(finding, Finding::ByName)
            << nameOf(finding) << ", " << check->instructionClass << ": " << instruction.text;
        found += finding == Finding::ByName ? 1 : 0;
      }
    }
  }
  EXPECT_GT(tried, 0);
  std::printf("%d of %d vector instructions found\n", found, tried);
}

/// All that computes or compares where operands are made, but for masks of an amount, of which a
/// shift looks at that part alone. Where an instruction makes an address or ends a loop, the test
/// crashes or comes to no end, and passes no more than with a wrong result.
TEST_F(WrongInstructionsTest, each_instruction_where_operands_are_made_is_noticed) {
  static const std::regex computing("(add|sub|imul|xor|or|not|neg|and|shl|shr|lea|cmp|test) .*%.*");
  static const std::regex harmless("xor +(%\\w+),\\1|and +\\$0x3f,.*|.*\\(%rip\\).*");
  const Check* const check = checkOf("integer subtract");
  ASSERT_NE(check, nullptr);
  std::map<Finding, int> counts;
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
      const Finding finding = findingOf(*check, placedHere({&instruction}));
      EXPECT_NE(finding, Finding::None) << instruction.text;
      ++counts[finding];
    }
  }
  for (const auto& [finding, count] : counts) {
    std::printf("%d instructions where operands are made: %s\n", count, nameOf(finding));
  }
  EXPECT_GT(counts[Finding::ByName] + counts[Finding::Elsewhere],
            counts[Finding::Crash] + counts[Finding::Hang]);
}

}  // namespace
}  // namespace TarvexDiags::Processor
