// What the tools of this folder are tried on: a program of several threads, one after another, that
// take a lock again and again, and that calls an operation of the controller so many times as its
// argument says.

#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "DiagCtrl/ResourceLockManager.h"

namespace {

constexpr int kThreads = 3;
constexpr int kTurns = 200;

void takeTurns() {
  std::mutex mutex;
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&mutex] {
      for (int turn = 0; turn < kTurns; ++turn) {
        const std::lock_guard<std::mutex> hold(mutex);
      }
    });
    threads.back().join();
  }
}

}  // namespace

int main(int argc, char** argv) {
  takeTurns();
  auto* const locks = TarvexDiags::DiagCtrl::ResourceLockManager::getInstance();
  for (int call = argc > 1 ? std::atoi(argv[1]) : 0; call > 0; --call) {
    locks->setSystemLockFlag(false);
  }
  delete locks;
}
