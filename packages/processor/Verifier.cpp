#include "packages/processor/Verifier.h"

#include <array>
#include <atomic>
#include <cstdio>

#include "packages/common/RandomSequence.h"
#include "packages/common/RunJournal.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

namespace {

/// @return the first place from `start` on at which they differ; the size when there is none
[[gnu::noinline]] std::size_t firstDifference(std::span<const std::uint64_t> found,
                                              std::span<const std::uint64_t> expected,
                                              std::size_t start) {
  while (start < found.size() && found[start] == expected[start]) {
    ++start;
  }
  return start;
}

}  // namespace

std::string hexadecimal(std::uint64_t word) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(word));
  return text.data();
}

Partner::Partner(int cpu) : m_thread(&Partner::serve, this, cpu) {}

Partner::~Partner() {
  {
    const System::LockHold hold(m_lock);
    m_stopped = true;
  }
  m_changed.notifyAll();
  m_thread.join();
}

void Partner::serve(int cpu) {
  try {
    const CoreHold hold(cpu);
    work(&hold, nullptr);
  } catch (const Common::NotSupported&) {
    work(nullptr, std::make_exception_ptr(CoreTakenAway(cpu)));
  }
}

void Partner::work(const CoreHold* hold, const std::exception_ptr& reason) {
  while (const std::function<void()>* const next = nextWork()) {
    std::exception_ptr trouble = reason;
    try {
      (*next)();
      if (hold != nullptr) {
        hold->requireAlone();
      }
    } catch (const std::exception&) {
      trouble = std::current_exception();
    }
    finishWork(trouble);
  }
}

const std::function<void()>* Partner::nextWork() {
  const System::LockHold hold(m_lock);
  while (!m_stopped && m_work == nullptr) {
    m_changed.wait(m_lock);
  }
  return m_stopped ? nullptr : m_work;
}

void Partner::finishWork(const std::exception_ptr& trouble) {
  const System::LockHold hold(m_lock);
  m_work = nullptr;
  m_trouble = trouble;
  m_changed.notifyAll();
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
    const System::LockHold hold(m_lock);
    m_work = &other;
  }
  m_changed.notifyAll();
  meet();
  here();
  const System::LockHold hold(m_lock);
  while (m_work != nullptr) {
    m_changed.wait(m_lock);
  }
  if (m_trouble != nullptr) {
    std::rethrow_exception(m_trouble);
  }
}

Verifier::Verifier(int core, int partner, std::uint64_t seed, Observer& observer, ResultSeam* seam)
    : m_core(core),
      m_partnerCpu(partner),
      m_counter(Common::mixed(seed)),
      m_observer(observer),
      m_seam(seam),
      m_agreement(core, {}) {}

Partner& Verifier::partner() {
  if (m_partner == nullptr) {
    m_partner = std::make_unique<Partner>(m_partnerCpu);
  }
  return *m_partner;
}

std::uint64_t Verifier::takeCounter(std::uint64_t count) {
  const std::uint64_t first = m_counter;
  m_counter += count;
  return first;
}

void Verifier::show(const std::string& instructionClass, std::span<std::uint64_t> found) {
  if (m_hold != nullptr) {
    m_hold->require();
  }
  if (m_seam != nullptr) {
    m_seam->computed(instructionClass, found);
  }
}

void Verifier::verifyOperands(std::span<std::uint64_t> made, std::span<const std::uint64_t> again,
                              std::uint64_t counter) {
  compare(kOperandMaking, made, again,
          [&](std::size_t index) { return "counter " + hexadecimal(counter + 2 * index); });
  // By other instructions than those that moved it.
  const std::uint64_t expected = Roundabout::add(counter, Roundabout::shiftLeft(made.size(), 1));
  if (m_counter != expected) {
    report(kOperandMaking, "counter", hexadecimal(expected), m_counter);
  }
}

void Verifier::verifyCopy(std::span<std::uint64_t> copy, std::span<const std::uint64_t> original) {
  compare(kOperandMaking, copy, original,
          [](std::size_t index) { return "copy " + std::to_string(index); });
}

void Verifier::verify(std::span<std::uint64_t> found, std::span<const std::uint64_t> expected,
                      const Operands& operands) {
  compare(m_instructionClass, found, expected, operands);
  m_checked += found.size();
}

void Verifier::verifyAgreed(Agreement::Work work, std::uint64_t seed) {
  std::array<std::uint64_t, 2> found = {work(seed)};
  std::size_t count = 1;
  if (!m_agreement.resultOf(work, seed)) {
    found[count++] = work(seed);
    letVote(work, seed, found);
  }
  const std::uint64_t agreed = *m_agreement.resultOf(work, seed);
  const std::array<std::uint64_t, 2> expected = {agreed, agreed};
  verify(std::span(found).first(count), std::span(expected).first(count),
         [&](std::size_t) { return "seed " + std::to_string(seed); });
}

void Verifier::letVote(Agreement::Work work, std::uint64_t seed,
                       const std::array<std::uint64_t, 2>& own) {
  const std::vector<Agreement::Vote> votes = m_agreement.vote(work, seed, own);
  if (votes.empty()) {
    return;
  }
  if (m_hold != nullptr) {
    m_hold->requireAlone();
  }
  m_observer.coresDisagree({m_instructionClass, seed, votes});
}

void Verifier::compare(const std::string& instructionClass, std::span<std::uint64_t> found,
                       std::span<const std::uint64_t> expected, const Operands& operands) {
  show(instructionClass, found);
  proveComparison(found, expected);
  for (std::size_t index = firstDifference(found, expected, 0); index < found.size();
       index = firstDifference(found, expected, index + 1)) {
    report(instructionClass, operands(index), hexadecimal(expected[index]), found[index]);
  }
}

void Verifier::proveComparison(std::span<std::uint64_t> found,
                               std::span<const std::uint64_t> expected) {
  if (found.empty()) {
    return;
  }
  const std::size_t place = m_comparisons % found.size();
  const std::uint64_t kept = found[place];
  found[place] = expected[place] ^ (std::uint64_t{1} << (m_comparisons % 64));
  ++m_comparisons;
  const std::size_t seen = firstDifference(found, expected, 0);
  found[place] = kept;
  if (seen > place) {
    report(kComparison, "a difference at " + std::to_string(place), hexadecimal(place), seen);
  }
}

void Verifier::verifyEach(std::span<std::uint64_t> found, const Operands& fault,
                          const Operands& operands) {
  show(m_instructionClass, found);
  m_checked += found.size();
  for (std::size_t index = 0; index < found.size(); ++index) {
    const std::string expected = fault(index);
    if (!expected.empty()) {
      report(m_instructionClass, operands(index), expected, found[index]);
    }
  }
}

void Verifier::report(const std::string& instructionClass, const std::string& operands,
                      const std::string& expected, std::uint64_t found) {
  if (++m_wrong <= kMaximumReported) {
    m_observer.wrongResult({m_core, instructionClass, operands, expected, hexadecimal(found)});
  }
}

}  // namespace TarvexDiags::Processor
