#include "packages/memory/Team.h"

#include "packages/common/CpuList.h"

namespace TarvexDiags::Memory {

Team::Team(const std::vector<int>& cpus) : mBusy(cpus.size()) {
  mThreads.reserve(cpus.size());
  for (const int cpu : cpus) {
    mThreads.emplace_back(&Team::serve, this, cpu);
  }
  // Pinned before the first work comes, so that memory is touched from where it will be tested.
  std::unique_lock hold(mLock);
  mDone.wait(hold, [this] { return mBusy == 0; });
}

Team::~Team() {
  {
    const std::lock_guard hold(mLock);
    mStopped = true;
  }
  mBegin.notify_all();
  for (std::thread& thread : mThreads) {
    thread.join();
  }
}

void Team::onAll(const std::function<void()>& work) {
  std::unique_lock hold(mLock);
  mWork = &work;
  mBusy = mThreads.size();
  ++mRound;
  mBegin.notify_all();
  mDone.wait(hold, [this] { return mBusy == 0; });
}

void Team::serve(int cpu) {
  const bool pinned = Common::pinThisThread(cpu);
  std::unique_lock hold(mLock);
  if (!pinned) {
    mRefusedCpus.push_back(cpu);
  }
  for (std::size_t round = 0;;) {
    if (--mBusy == 0) {
      mDone.notify_all();
    }
    mBegin.wait(hold, [&] { return mStopped || mRound != round; });
    if (mStopped) {
      return;
    }
    round = mRound;
    const std::function<void()>& work = *mWork;
    hold.unlock();
    work();
    hold.lock();
  }
}

}  // namespace TarvexDiags::Memory
