#include "packages/processor/Verifier.h"

#include <array>
#include <atomic>
#include <cstdio>

#include "packages/common/CpuList.h"

namespace TarvexDiags::Processor {

std::string hexadecimal(std::uint64_t word) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(word));
  return text.data();
}

Partner::Partner(int cpu) : mThread(&Partner::serve, this, cpu) {}

Partner::~Partner() {
  {
    const System::LockHold hold(mLock);
    mStopped = true;
  }
  mChanged.notifyAll();
  mThread.join();
}

void Partner::serve(int cpu) {
  Common::pinThisThread(cpu);
  while (const std::function<void()>* const work = nextWork()) {
    (*work)();
    finishWork();
  }
}

const std::function<void()>* Partner::nextWork() {
  const System::LockHold hold(mLock);
  while (!mStopped && mWork == nullptr) {
    mChanged.wait(mLock);
  }
  return mStopped ? nullptr : mWork;
}

void Partner::finishWork() {
  const System::LockHold hold(mLock);
  mWork = nullptr;
  mChanged.notifyAll();
}

void Partner::together(const std::function<void()>& here, const std::function<void()>& there) {
  // Spinning, so that both begin within a few cycles; yielding, in case they share a CPU after all.
  std::atomic<int> arrived{0};
  const auto meet = [&] {
    ++arrived;
    while (arrived < 2) {
      std::this_thread::yield();
    }
  };
  const std::function<void()> other = [&] {
    meet();
    there();
  };
  {
    const System::LockHold hold(mLock);
    mWork = &other;
  }
  mChanged.notifyAll();
  meet();
  here();
  const System::LockHold hold(mLock);
  while (mWork != nullptr) {
    mChanged.wait(mLock);
  }
}

Verifier::Verifier(int core, int partner, std::uint64_t seed, Observer& observer, ResultSeam* seam)
    : mCore(core), mPartnerCpu(partner), mRandom(seed), mObserver(observer), mSeam(seam) {}

Partner& Verifier::partner() {
  if (mPartner == nullptr) {
    mPartner = std::make_unique<Partner>(mPartnerCpu);
  }
  return *mPartner;
}

void Verifier::show(std::span<std::uint64_t> found) {
  mChecked += found.size();
  if (mSeam != nullptr) {
    mSeam->computed(mInstructionClass, found);
  }
}

void Verifier::verify(std::span<std::uint64_t> found, std::span<const std::uint64_t> expected,
                      const Operands& operands) {
  show(found);
  for (std::size_t index = 0; index < found.size(); ++index) {
    if (found[index] != expected[index]) {
      report(operands(index), hexadecimal(expected[index]), found[index]);
    }
  }
}

void Verifier::verifyEach(std::span<std::uint64_t> found, const Operands& fault,
                          const Operands& operands) {
  show(found);
  for (std::size_t index = 0; index < found.size(); ++index) {
    const std::string expected = fault(index);
    if (!expected.empty()) {
      report(operands(index), expected, found[index]);
    }
  }
}

void Verifier::report(const std::string& operands, const std::string& expected,
                      std::uint64_t found) {
  if (++mWrong <= maximumReported) {
    mObserver.wrongResult({mCore, mInstructionClass, operands, expected, hexadecimal(found)});
  }
}

}  // namespace TarvexDiags::Processor
