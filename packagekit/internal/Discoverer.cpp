#include "packagekit/internal/Discoverer.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <utility>

#include "packagekit/contract/DiscoveryLines.h"
#include "packagekit/internal/Guard.h"
#include "packagekit/internal/ProcessTexts.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr int kHostsOwnNiceness = 0;

Discovered discover(const DiscoverySetup& setup, const DiscoveryPlace& place, RunControl& control) {
  Discovered found;
  if (place.workerFile.empty()) {
    found.failure = "no worker executable was found";
    return found;
  }
  const auto failure = failureOf([&] {
    control.abortWhileReadable(Contract::discoveryDescriptor());
    if (control.isAborted()) {
      found.failure = DiscoverySession::kEndedOnRequest;
      return;
    }
    const auto tellSlow = [&place] {
      Contract::sendDiscoveryLine({Contract::DiscoveryLine::Kind::Slow, place.packageName,
                                   secondsText(place.limits.start)});
    };
    WorkerProcess process(place.workerFile, place.packageFile, kHostsOwnNiceness,
                          {place.privileges, false}, "discovery");
    found = DiscoverySession(setup, place.limits, control, tellSlow).run(process);
  });
  if (failure) {
    found.devices.clear();
    found.failure = failure;
  }
  return found;
}

}  // namespace

/// A discovery on a thread of its own. The thread outlives the worker, which would die with it.
class Discoverer::Ahead {
 public:
  /// Throws std::system_error.
  Ahead(DiscoverySetup setup, DiscoveryPlace place)
      : m_setup(std::move(setup)), m_place(std::move(place)) {
    m_control.beginRun();
    // Signals are for the client's own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&m_thread, nullptr, &Ahead::entry, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
      throw std::system_error(error, std::generic_category(), "pthread_create");
    }
  }
  Ahead(const Ahead&) = delete;
  Ahead& operator=(const Ahead&) = delete;
  ~Ahead() {
    if (!m_isJoined) {
      m_control.abort();
      pthread_join(m_thread, nullptr);
    }
  }

  const DiscoverySetup& setup() const { return m_setup; }

  Discovered wait() {
    pthread_join(m_thread, nullptr);
    m_isJoined = true;
    return std::move(m_found);
  }

 private:
  static void* entry(void* ahead) {
    auto& self = *static_cast<Ahead*>(ahead);
    self.m_found.failure.emplace();  // holds if there is no memory for any other
    failureOf([&self] { self.m_found = discover(self.m_setup, self.m_place, self.m_control); });
    return nullptr;
  }

  const DiscoverySetup m_setup;
  const DiscoveryPlace m_place;
  RunControl m_control;
  Discovered m_found;
  pthread_t m_thread{};
  bool m_isJoined = false;
};

Discoverer::Discoverer() = default;
Discoverer::~Discoverer() = default;

void Discoverer::begin(const DiscoverySetup& setup, const DiscoveryPlace& place) {
  const System::LockHold hold(m_lock);
  m_ahead.reset();
  std::unique_ptr<Ahead> ahead;
  failureOf([&] { ahead = std::make_unique<Ahead>(setup, place); });
  m_ahead = std::move(ahead);
}

Discovered Discoverer::find(const DiscoverySetup& setup, const DiscoveryPlace& place) {
  std::unique_ptr<Ahead> ahead;
  {
    const System::LockHold hold(m_lock);
    ahead = std::move(m_ahead);
  }
  if (ahead && ahead->setup() == setup) {
    return ahead->wait();
  }
  ahead.reset();
  RunControl control;
  return discover(setup, place, control);
}

}  // namespace TarvexDiags::PackageKit
