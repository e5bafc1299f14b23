// Reads any command line, up to the verb, which is not carried out. It is understood, or told to be
// wrong with the exit code for that; nothing else comes of it, and nothing that is said steers a
// terminal.
//
// Input: words, each up to a zero byte. One that begins with the byte 1 and a number stands for a
// word that the program knows, see kKnown; what is behind the number stands behind the word.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/command/CommandLine.h"
#include "diagctl/report/ExitStatus.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Terminal.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::FrontEnd;

constexpr std::size_t kMostWords = 24;

// Half of the verbs and options would be found from scratch late.
constexpr std::array kKnown = {"run",
                               "list",
                               "show",
                               "explain",
                               "inventory",
                               "check",
                               "golden",
                               "diff",
                               "watch",
                               "health",
                               "estimate",
                               "report",
                               "merge",
                               "selftest",
                               "help",
                               "version",
                               "--config",
                               "--lang",
                               "--help",
                               "--version",
                               "--packages",
                               "--set",
                               "--format",
                               "--package",
                               "--device",
                               "--test",
                               "--exclude-test",
                               "--profile",
                               "--passes",
                               "--quick",
                               "--time",
                               "--total-time",
                               "--serial",
                               "--parallel",
                               "--mode",
                               "--output",
                               "--strict",
                               "--verbose",
                               "--exit-style",
                               "--fail-on-skip",
                               "--vanished",
                               "--redact",
                               "--seed",
                               "--dry-run",
                               "--expect-devices",
                               "--textfile",
                               "--style",
                               "--cached",
                               "--drain",
                               "--against",
                               "--root",
                               "--rules",
                               "--for",
                               "--max-time",
                               "--",
                               "-",
                               "-vvq",
                               "-p",
                               "jsonl",
                               "junit=/nowhere/r",
                               "memory.Rounds=3"};

std::vector<std::string> wordsFrom(std::string rest) {
  std::vector<std::string> words = {"diagctl"};
  while (!rest.empty() && words.size() < kMostWords) {
    std::string word = takeUntil(rest, '\0');
    if (word.size() > 1 && word.front() == '\1') {
      const auto number = static_cast<std::uint8_t>(word[1]);
      word = kKnown[number % kKnown.size()] + word.substr(2);
    }
    words.push_back(word);
  }
  return words;
}

struct Outcome {
  int code = 0;
  std::string answered;  ///< on standard output
  std::string said;      ///< on standard error
};

Outcome outcomeOf(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  static std::ostringstream out;
  static std::ostringstream error;
  std::cout.rdbuf(out.rdbuf());
  std::cerr.rdbuf(error.rdbuf());
  out.str("");
  error.str("");
  const int code = readCommandLine(static_cast<int>(words.size()), arguments.data());
  return {code, out.str(), error.str()};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  // No plans but those that are built in.
  setenv("XDG_CONFIG_HOME", "/nowhere", 1);
  setenv("HOME", "/nowhere", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Outcome outcome = outcomeOf(wordsFrom(textOf(data, size)));
  expect(outcome.code == ExitCode::kPassed || outcome.code == ExitCode::kUsage);
  const bool isWrong = outcome.code == ExitCode::kUsage;
  expect(isWrong == !outcome.said.empty());
  expect(outcome.answered.empty() || !isWrong);
  expectHarmless(outcome.answered);
  expectHarmless(outcome.said);
  return 0;
}
