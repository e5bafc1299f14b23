#include "packages/memory/Team.h"

#include "packages/common/CpuList.h"

namespace TarvexDiags::Memory {

Team::Team(const std::vector<int>& cpus) : mBusy(cpus.size()) {
  mThreads.reserve(cpus.size());
  for (const int cpu : cpus) {
    mThreads.emplace_back(&Team::serve, this, cpu);
  }
  // Pinned before the first work comes, so that memory is touched from where it will be tested.
  const System::LockHold hold(mLock);
  while (mBusy != 0) {
    mDone.wait(mLock);
  }
}

Team::~Team() {
  {
    const System::LockHold hold(mLock);
    mStopped = true;
  }
  mBegin.notifyAll();
  for (std::thread& thread : mThreads) {
    thread.join();
  }
}

std::vector<int> Team::refusedCpus() const {
  const System::LockHold hold(mLock);
  return mRefusedCpus;
}

void Team::onAll(const std::function<void()>& work) {
  const System::LockHold hold(mLock);
  mWork = &work;
  mBusy = mThreads.size();
  ++mRound;
  mBegin.notifyAll();
  while (mBusy != 0) {
    mDone.wait(mLock);
  }
}

void Team::serve(int cpu) {
  if (!Common::pinThisThread(cpu)) {
    const System::LockHold hold(mLock);
    mRefusedCpus.push_back(cpu);
  }
  std::size_t round = 0;
  while (const std::function<void()>* const work = nextWork(round)) {
    (*work)();
  }
}

const std::function<void()>* Team::nextWork(std::size_t& round) {
  const System::LockHold hold(mLock);
  if (--mBusy == 0) {
    mDone.notifyAll();
  }
  while (!mStopped && mRound == round) {
    mBegin.wait(mLock);
  }
  round = mRound;
  return mStopped ? nullptr : mWork;
}

}  // namespace TarvexDiags::Memory
