#include "packages/memory/Team.h"

#include "packages/common/CpuList.h"

namespace TarvexDiags::Memory {

Team::Team(const std::vector<int>& cpus) : m_busy(cpus.size()) {
  m_threads.reserve(cpus.size());
  for (const int cpu : cpus) {
    m_threads.emplace_back(&Team::serve, this, cpu);
  }
  // Pinned before the first work comes, so that memory is touched from where it will be tested.
  const System::LockHold hold(m_lock);
  while (m_busy != 0) {
    m_done.wait(m_lock);
  }
}

Team::~Team() {
  {
    const System::LockHold hold(m_lock);
    m_stopped = true;
  }
  m_begin.notifyAll();
  for (std::thread& thread : m_threads) {
    thread.join();
  }
}

std::vector<int> Team::refusedCpus() const {
  const System::LockHold hold(m_lock);
  return m_refusedCpus;
}

void Team::onAll(const std::function<void()>& work) {
  const System::LockHold hold(m_lock);
  m_work = &work;
  m_busy = m_threads.size();
  ++m_round;
  m_begin.notifyAll();
  while (m_busy != 0) {
    m_done.wait(m_lock);
  }
}

void Team::serve(int cpu) {
  if (!Common::pinThisThread(cpu)) {
    const System::LockHold hold(m_lock);
    m_refusedCpus.push_back(cpu);
  }
  std::size_t round = 0;
  while (const std::function<void()>* const work = nextWork(round)) {
    (*work)();
  }
}

const std::function<void()>* Team::nextWork(std::size_t& round) {
  const System::LockHold hold(m_lock);
  if (--m_busy == 0) {
    m_done.notifyAll();
  }
  while (!m_stopped && m_round == round) {
    m_begin.wait(m_lock);
  }
  round = m_round;
  return m_stopped ? nullptr : m_work;
}

}  // namespace TarvexDiags::Memory
