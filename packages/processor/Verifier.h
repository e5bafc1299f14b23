#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packages/processor/Agreement.h"
#include "packages/processor/CoreHold.h"

namespace TarvexDiags::Processor {

/// @brief A result that the processor computed wrongly. Thread-safety: a plain value.
struct WrongResult {
  int core;
  std::string instructionClass;
  std::string operands;
  std::string expected;
  std::string found;
};

/// @brief Cores that came to different results, and no majority tells which of them is right: at
/// least one computes wrongly. Thread-safety: a plain value.
struct Disagreement {
  std::string instructionClass;
  std::uint64_t seed;
  std::vector<Agreement::Vote> votes;
};

/// @brief Who starts a test hears of it here, on the thread that runs the test.
class Observer {
 public:
  virtual ~Observer() = default;
  /// @brief Asked after each batch of work; true ends the test.
  virtual bool stopRequested() = 0;
  /// @brief How much of the test is done, 0 to 1.
  virtual void progress(double share) = 0;
  /// @brief So many results more were compared.
  virtual void checked(std::uint64_t results) { static_cast<void>(results); }
  virtual void wrongResult(const WrongResult& result) = 0;
  virtual void coresDisagree(const Disagreement& disagreement) = 0;
  /// @brief Lets the core rest, for no longer than it is asked to stop.
  virtual void rest(std::chrono::milliseconds duration) = 0;
};

/// @brief Where wrong results are put in by tests of the tests. A pass uses none.
class ResultSeam {
 public:
  virtual ~ResultSeam() = default;
  /// @brief The results of a batch, before they are compared. They may be changed.
  virtual void computed(const std::string& instructionClass, std::span<std::uint64_t> results) = 0;
};

/// @brief "0x" and sixteen digits.
std::string hexadecimal(std::uint64_t word);

/// @brief A value of which the compiler knows nothing, so that the processor has to work with it.
template <typename Value>
[[gnu::always_inline]] inline Value opaque(Value value) {
  asm volatile("" : "+m"(value));
  return value;
}

/// @brief A thread on another CPU, for work that takes two. Thread-safety: one thread.
class Partner {
 public:
  explicit Partner(int cpu);
  ~Partner();
  Partner(const Partner&) = delete;
  Partner& operator=(const Partner&) = delete;

  /// @brief Runs both at the same time, one here and one there; both wait for each other to begin.
  /// @throws CoreTakenAway when the other was not on its CPU, and what its work threw; both are
  /// done then
  void together(const std::function<void()>& here, const std::function<void()>& there);

 private:
  void serve(int cpu);
  /// Does the work that comes; the hold keeps the thread on its CPU, or is null with the reason.
  void work(const CoreHold* hold, const std::exception_ptr& reason);
  /// Waits for work; null at the end.
  const std::function<void()>* nextWork();
  /// @param trouble  what kept the work from its CPU, or null
  void finishWork(const std::exception_ptr& trouble);

  System::Mutex m_lock;
  System::ConditionVariable m_changed;
  const std::function<void()>* m_work TARVEXDIAGS_GUARDED_BY(m_lock) = nullptr;
  std::exception_ptr m_trouble TARVEXDIAGS_GUARDED_BY(m_lock);
  bool m_stopped TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  std::thread m_thread;
};

/// @brief Compares what the core computed with what it should have, and reports what differs.
///
/// Thread-safety: one thread, the one on the core.
class Verifier {
 public:
  /// So many wrong results are reported one by one; the rest is counted.
  static constexpr std::uint64_t kMaximumReported = 16;

  /// Classes of wrong results that belong to no check: what each check needs goes wrong.
  static constexpr const char* kOperandMaking = "operand making";
  static constexpr const char* kComparison = "comparison";

  using Operands = std::function<std::string(std::size_t index)>;

  /// @param core     the core's number, for reports
  /// @param partner  a CPU for work that takes two; -1 when there is none
  /// @param seam     null in a pass; observer and seam outlive the verifier
  Verifier(int core, int partner, std::uint64_t seed, Observer& observer,
           ResultSeam* seam = nullptr);

  /// @brief Takes values of the counter that operands are made of; see Operands.h.
  /// @return the first of them
  std::uint64_t takeCounter(std::uint64_t count);
  Observer& observer() { return m_observer; }

  /// @brief The thread on the other CPU, started at the first call; partnerCpu must not be -1.
  Partner& partner();
  int partnerCpu() const { return m_partnerCpu; }

  /// @brief What the results that follow are of.
  void begin(const std::string& instructionClass) { m_instructionClass = instructionClass; }

  /// @brief Lets results count only while a thread is on its core: before any is compared, the hold
  /// is asked. It outlives the verifier; without one the results count wherever they are from.
  void requireHold(const CoreHold& hold) { m_hold = &hold; }

  /// @brief Compares operands with the same made in another way, and that the counter went on
  /// behind them; wrong ones belong to the class kOperandMaking.
  /// @param counter  that of the first operand
  void verifyOperands(std::span<std::uint64_t> made, std::span<const std::uint64_t> again,
                      std::uint64_t counter);

  /// @brief Compares operands with those that they were copied from; wrong ones as above.
  void verifyCopy(std::span<std::uint64_t> copy, std::span<const std::uint64_t> original);

  /// @brief Compares word by word.
  /// @param operands  what the word at an index was computed from, asked only when it is wrong
  void verify(std::span<std::uint64_t> found, std::span<const std::uint64_t> expected,
              const Operands& operands);

  /// @brief Which cores beside the core itself have a vote on results that no table holds.
  void setVoters(std::vector<int> cores) { m_agreement = Agreement(m_core, std::move(cores)); }

  /// @brief Does work and compares the result with what most cores make of it. Where no majority
  /// tells, the observer hears of the disagreement, and the core is held to its own result.
  void verifyAgreed(Agreement::Work work, std::uint64_t seed);

  /// @brief Compares results that have no one right value.
  /// @param fault  what is wrong with the word at an index: what was expected of it, or empty
  void verifyEach(std::span<std::uint64_t> found, const Operands& fault, const Operands& operands);

  std::uint64_t wrongResults() const { return m_wrong; }
  std::uint64_t checkedResults() const { return m_checked; }

 private:
  void show(const std::string& instructionClass, std::span<std::uint64_t> found);
  void letVote(Agreement::Work work, std::uint64_t seed, const std::array<std::uint64_t, 2>& own);
  void compare(const std::string& instructionClass, std::span<std::uint64_t> found,
               std::span<const std::uint64_t> expected, const Operands& operands);
  /// Whether a difference that is made on purpose is found.
  void proveComparison(std::span<std::uint64_t> found, std::span<const std::uint64_t> expected);
  void report(const std::string& instructionClass, const std::string& operands,
              const std::string& expected, std::uint64_t found);

  int m_core;
  int m_partnerCpu;
  std::uint64_t m_counter;
  Observer& m_observer;
  ResultSeam* m_seam;
  const CoreHold* m_hold = nullptr;
  std::unique_ptr<Partner> m_partner;
  Agreement m_agreement;
  std::string m_instructionClass;
  std::uint64_t m_comparisons = 0;
  std::uint64_t m_wrong = 0;
  std::uint64_t m_checked = 0;
};

/// @brief One way to look at the processor: computes a batch of results and has them compared.
struct Check {
  std::string instructionClass;
  bool (*available)();
  void (*run)(Verifier& verifier);
};

/// @brief For checks that any processor can run.
inline bool always() {
  return true;
}

}  // namespace TarvexDiags::Processor
