#pragma once

// The checks on a core of this machine, with everything that they have to say kept.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "packages/common/CpuList.h"
#include "packages/processor/ProcessorDiagnostics.h"

namespace TarvexDiags::Processor {

/// @brief Keeps what it hears.
class RecordingObserver : public Observer {
 public:
  bool stopRequested() override { return stop; }
  void progress(double share) override { lastProgress = share; }
  void checked(std::uint64_t count) override { resultsChecked += count; }
  void wrongResult(const WrongResult& result) override { results.push_back(result); }
  void coresDisagree(const Disagreement& disagreement) override {
    disagreements.push_back(disagreement);
  }
  void rest(std::chrono::milliseconds duration) override {
    rested += duration;
    std::this_thread::sleep_for(duration);
  }

  std::atomic<bool> stop{false};
  double lastProgress = 0;
  std::uint64_t resultsChecked = 0;
  std::vector<WrongResult> results;
  std::vector<Disagreement> disagreements;
  std::chrono::milliseconds rested{0};
};

/// @brief Spoils results of one instruction class, once.
class SpoilingSeam : public ResultSeam {
 public:
  using Spoil = std::function<void(std::span<std::uint64_t> results)>;

  SpoilingSeam(std::string instructionClass, Spoil spoil)
      : m_class(std::move(instructionClass)), m_spoil(std::move(spoil)) {}

  void computed(const std::string& instructionClass, std::span<std::uint64_t> results) override {
    if (!spoiled && instructionClass == m_class) {
      spoiled = true;
      m_spoil(results);
    }
  }

  bool spoiled = false;

 private:
  std::string m_class;
  Spoil m_spoil;
};

/// @brief Tests that have something of their own to show, by their numbers.
enum TestNumber : int { Integer = 1, Loads = 6, RandomGenerator = 7, LoadAndRest = 13 };

inline const ProcessorTest& processorTest(int number) {
  const auto tests = processorTests();
  return *std::find_if(tests.begin(), tests.end(),
                       [&](const ProcessorTest& test) { return test.number == number; });
}

inline std::vector<int> testNumbers() {
  std::vector<int> numbers;
  for (const ProcessorTest& test : processorTests()) {
    numbers.push_back(test.number);
  }
  return numbers;
}

constexpr int kTestedCore = 7;  // for reports alone: tests run wherever they may

/// @brief The other CPU of this machine, or the same one where there is none: slow, but it works.
inline int anyPartner() {
  return Common::allowedCpus().back();
}

}  // namespace TarvexDiags::Processor
