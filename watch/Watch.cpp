#include "watch/Watch.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "watch/AerSource.h"
#include "watch/DiskSource.h"
#include "watch/KernelLogSource.h"
#include "watch/MachineCheckSource.h"
#include "watch/MemoryControllerSource.h"
#include "watch/Merger.h"
#include "watch/NetworkSource.h"
#include "watch/NvmeHealthSource.h"
#include "watch/PowerSource.h"
#include "watch/PressureSource.h"
#include "watch/SensorSource.h"
#include "watch/ThrottleSource.h"

namespace TarvexDiags::Watching {

namespace {

using std::chrono::milliseconds;
using SteadyTime = std::chrono::steady_clock::time_point;

// A second, but for what a thread may wake up early by another clock.
constexpr auto kSampleInterval = milliseconds(990);
// A source that tells without end is read at most so often.
constexpr auto kShortestPause = milliseconds(100);
// Ten sources at this share stay below 0.2 % of a core.
constexpr int kPauseForWork = 5000;
constexpr auto kLongestPause = std::chrono::seconds(60);

std::chrono::nanoseconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// Sensors and the disks' own logs ask the device, which may take its time.
bool tellsAtOnce(SourceKind kind) {
  switch (kind) {
    case SourceKind::Sensors:
    case SourceKind::Power:
    case SourceKind::NvmeHealth:
    case SourceKind::Pressure:
      return false;
    default:
      return true;
  }
}

}  // namespace

class Watch::Work : private Collector {
 public:
  Work(std::vector<std::unique_ptr<Source>> sources, WatchSettings settings, WatchSink& sink)
      : m_settings(std::move(settings)),
        m_sink(sink),
        m_judge(m_settings.policy, m_settings.span),
        m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        m_answer(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_wake || !m_answer) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_settings.interval = std::max(m_settings.interval, milliseconds(10));
    for (std::unique_ptr<Source>& source : sources) {
      m_watched.push_back({std::move(source), {}, {}, {}});
    }
  }

  void start() {
    std::promise<void> opened;
    // The thread takes no signal: they are for those who wait for them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      m_thread = std::thread([&] { run(opened); });
    } catch (...) {
      pthread_sigmask(SIG_SETMASK, &before, nullptr);
      throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    opened.get_future().wait();
  }

  bool look(milliseconds limit, Disks disks) {
    if (!m_thread.joinable()) {
      return false;
    }
    if (disks == Disks::Asked) {
      m_asksDisks = true;
    }
    const unsigned int wanted = ++m_looksWanted;
    eventfd_write(m_wake.get(), 1);
    const SteadyTime until = std::chrono::steady_clock::now() + limit;
    while (m_looksDone < wanted) {
      const auto left = std::chrono::ceil<milliseconds>(until - std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        return false;
      }
      pollfd answer{m_answer.get(), POLLIN, 0};
      poll(&answer, 1, static_cast<int>(left.count()));
      drain(m_answer);
    }
    return true;
  }

  void stop() {
    if (m_thread.joinable()) {
      m_isStopped = true;
      eventfd_write(m_wake.get(), 1);
      m_thread.join();
    }
  }

 private:
  struct Watched {
    std::unique_ptr<Source> source;
    SteadyTime next;      ///< by the clock
    SteadyTime earliest;  ///< when its descriptor says so
    SteadyTime last;
  };

  void run(std::promise<void>& opened) {
    pthread_setname_np(pthread_self(), "watch");
    open();
    opened.set_value();
    while (!m_isStopped) {
      waitForWork();
      drain(m_wake);
      serveLook();
      lookAtDue();
      tellDue();
    }
    for (Watched& watched : m_watched) {
      watched.source->look(std::chrono::system_clock::now(), *this);
    }
    tell(m_merger.rest());
    m_watched.clear();
  }

  static void drain(const PackageKit::UniqueDescriptor& event) {
    eventfd_t ignored = 0;
    eventfd_read(event.get(), &ignored);
  }

  // Whoever waits for it is about to judge a test.
  void serveLook() {
    const unsigned int wanted = m_looksWanted;
    if (wanted == m_looksDone) {
      return;
    }
    const bool asksDisks = m_asksDisks.exchange(false);
    for (Watched& watched : m_watched) {
      const SourceKind kind = watched.source->kind();
      if (tellsAtOnce(kind) || (asksDisks && kind == SourceKind::NvmeHealth)) {
        watched.source->look(std::chrono::system_clock::now(), *this);
      }
    }
    tell(m_merger.due(std::chrono::system_clock::now() + Merger::kWindow));
    m_looksDone = wanted;
    eventfd_write(m_answer.get(), 1);
  }

  void open() {
    std::erase_if(m_watched, [this](Watched& watched) {
      const auto reason = watched.source->open();
      if (reason) {
        m_sink.absent(watched.source->kind(), *reason);
      }
      return reason.has_value();
    });
    for (Watched& watched : m_watched) {
      watched.last = std::chrono::steady_clock::now();
      watched.next = watched.last + pauseOf(*watched.source);
    }
  }

  milliseconds pauseOf(const Source& source) const {
    return std::max(source.interval(), m_settings.interval);
  }

  void waitForWork() {
    const SteadyTime now = std::chrono::steady_clock::now();
    SteadyTime until = now + pauseUntilTold();
    std::vector<pollfd> descriptors = {{m_wake.get(), POLLIN, 0}};
    for (const Watched& watched : m_watched) {
      until = std::min(until, watched.next);
      const int descriptor = watched.source->descriptor();
      if (descriptor >= 0 && now >= watched.earliest) {
        descriptors.push_back({descriptor, POLLIN, 0});
      } else if (descriptor >= 0) {
        until = std::min(until, watched.earliest);
      }
    }
    const auto wait = std::chrono::ceil<milliseconds>(until - now);
    poll(descriptors.data(), descriptors.size(),
         static_cast<int>(std::max<milliseconds::rep>(wait.count(), 0)));
    m_readable.clear();
    for (const pollfd& descriptor : descriptors) {
      if (descriptor.revents != 0) {
        m_readable.insert(descriptor.fd);
      }
    }
  }

  // What was found waits until no other source can tell of it.
  static milliseconds pauseUntilTold() { return std::chrono::seconds(1); }

  void lookAtDue() {
    for (Watched& watched : m_watched) {
      const SteadyTime now = std::chrono::steady_clock::now();
      const bool isReadable = m_readable.contains(watched.source->descriptor());
      if (!isReadable && now < watched.next) {
        continue;
      }
      const auto before = processorTime();
      watched.last = now;
      watched.source->look(std::chrono::system_clock::now(), *this);
      const auto spent =
          std::chrono::ceil<milliseconds>((processorTime() - before) * kPauseForWork);
      watched.next =
          now + std::max(pauseOf(*watched.source), std::min<milliseconds>(spent, kLongestPause));
      watched.earliest = now + kShortestPause;
    }
  }

  // A source that is looked at more seldom would tell of the same event when it has long been told.
  void tellDue() {
    const Moment now = std::chrono::system_clock::now();
    if (m_merger.isAnyDue(now)) {
      for (Watched& watched : m_watched) {
        const SteadyTime begin = std::chrono::steady_clock::now();
        if (tellsAtOnce(watched.source->kind()) && begin - watched.last >= Merger::kWindow) {
          watched.last = begin;
          watched.source->look(now, *this);
        }
      }
    }
    tell(m_merger.due(now));
  }

  void found(Finding finding) override { m_merger.take(std::move(finding)); }

  void sampled(Sample sample) override {
    const auto [last, isNew] = m_lastSamples.try_emplace(sample.sensor, sample.time);
    if (isNew || sample.time - last->second >= kSampleInterval) {
      last->second = sample.time;
      m_sink.sampled(sample);
    }
  }

  void tell(std::vector<Finding> findings) {
    for (Finding& finding : findings) {
      finding.severity = m_judge.judge(finding);
      m_sink.found(finding);
    }
  }

  WatchSettings m_settings;
  WatchSink& m_sink;
  Judge m_judge;
  Merger m_merger;
  PackageKit::UniqueDescriptor m_wake;
  PackageKit::UniqueDescriptor m_answer;  ///< to whoever waits for a look
  std::vector<Watched> m_watched;
  std::set<int> m_readable;
  std::map<std::string, Moment> m_lastSamples;
  std::atomic<unsigned int> m_looksWanted{0};
  std::atomic<unsigned int> m_looksDone{0};
  std::atomic<bool> m_asksDisks{false};
  std::atomic<bool> m_isStopped{false};
  std::thread m_thread;
};

Watch::Watch(const SystemFiles& files, const WatchSettings& settings, WatchSink& sink)
    : Watch(makeSources(files, settings), settings, sink) {}

Watch::Watch(std::vector<std::unique_ptr<Source>> sources, WatchSettings settings, WatchSink& sink)
    : m_work(std::make_unique<Work>(std::move(sources), std::move(settings), sink)) {}

Watch::~Watch() {
  stop();
}

void Watch::start() {
  m_work->start();
}

bool Watch::look(std::chrono::milliseconds limit, Disks disks) {
  return m_work->look(limit, disks);
}

void Watch::stop() {
  m_work->stop();
}

std::vector<std::unique_ptr<Source>> makeSources(const SystemFiles& files,
                                                 const WatchSettings& settings) {
  std::vector<std::unique_ptr<Source>> all;
  all.push_back(std::make_unique<MemoryControllerSource>(files));
  all.push_back(std::make_unique<MachineCheckSource>(files));
  all.push_back(std::make_unique<AerSource>(files));
  all.push_back(std::make_unique<KernelLogSource>(files));
  all.push_back(std::make_unique<ThrottleSource>(files));
  all.push_back(std::make_unique<SensorSource>(files));
  all.push_back(std::make_unique<PowerSource>(files));
  all.push_back(std::make_unique<DiskSource>(files));
  all.push_back(std::make_unique<NvmeHealthSource>(files, settings.nvmeInterval));
  all.push_back(std::make_unique<NetworkSource>(files));
  all.push_back(std::make_unique<PressureSource>(files));
  std::erase_if(all, [&](const std::unique_ptr<Source>& source) {
    return !settings.sources.contains(source->kind());
  });
  return all;
}

}  // namespace TarvexDiags::Watching
