#pragma once

// The checks on a core of this machine, with everything that they have to say kept.

#include <atomic>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "packages/common/CpuList.h"
#include "packages/processor/ProcessorTests.h"

namespace TarvexDiags::Processor {

/// @brief Keeps what it hears.
class RecordingObserver : public Observer {
 public:
  bool stopRequested() override { return stop; }
  void progress(double share) override { lastProgress = share; }
  void wrongResult(const WrongResult& result) override { results.push_back(result); }

  std::atomic<bool> stop{false};
  double lastProgress = 0;
  std::vector<WrongResult> results;
};

/// @brief Spoils results of one instruction class, once.
class SpoilingSeam : public ResultSeam {
 public:
  using Spoil = std::function<void(std::span<std::uint64_t> results)>;

  SpoilingSeam(std::string instructionClass, Spoil spoil)
      : mClass(std::move(instructionClass)), mSpoil(std::move(spoil)) {}

  void computed(const std::string& instructionClass, std::span<std::uint64_t> results) override {
    if (!spoiled && instructionClass == mClass) {
      spoiled = true;
      mSpoil(results);
    }
  }

  bool spoiled = false;

 private:
  std::string mClass;
  Spoil mSpoil;
};

constexpr int testedCore = 7;  // for reports alone: tests run wherever they may

///  @brief The other CPU of this machine, or the same one where there is none: slow, but it works.
inline int anyPartner() {
  return Common::allowedCpus().back();
}

}  // namespace TarvexDiags::Processor
