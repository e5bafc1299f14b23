#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "watch/Finding.h"
#include "watch/Policy.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief What is watched, and how.
struct WatchSettings {
  std::set<SourceKind> sources{allSources().begin(), allSources().end()};
  std::chrono::milliseconds interval = std::chrono::seconds(1);       ///< at least 10 ms
  std::chrono::milliseconds nvmeInterval = std::chrono::seconds(60);  ///< of the disks' own logs
  Policy policy;
  Judge::Span span = Judge::Span::Run;
};

/// @brief Takes what a watch tells. All calls come from the watch's thread, one at a time; the last
/// one has returned when stop() does.
class WatchSink {
 public:
  WatchSink() = default;
  WatchSink(const WatchSink&) = delete;
  WatchSink& operator=(const WatchSink&) = delete;
  virtual ~WatchSink() = default;

  /// @brief Something came. It has been judged.
  virtual void found(const Finding& finding) = 0;
  /// @brief At most one in a second of each sensor.
  virtual void sampled(const Sample& sample) = 0;
  /// @brief A source has nothing to watch here. Told once, before everything else.
  virtual void absent(SourceKind source, const std::string& reason) = 0;
};

/// @brief Watches what kernel and sensors say about the hardware, in a thread of its own, from
/// start() to stop(). It writes nothing to hardware and mounts nothing.
///
/// A source is looked at once per interval, or less often where that would take more than its share
/// of a processor. start() and stop() are called by one thread.
class Watch {
 public:
  /// @param sink is used until stop() has returned
  Watch(const SystemFiles& files, const WatchSettings& settings, WatchSink& sink);
  /// @brief The same with sources of the caller's.
  Watch(std::vector<std::unique_ptr<Source>> sources, WatchSettings settings, WatchSink& sink);
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  /// @brief Opens the sources and begins. When it returns, what comes from now on is found. Throws
  /// std::system_error when there is no thread to be had. At most once.
  void start();

  /// @brief Whether a look asks disks for their own logs, which costs them some work.
  enum class Disks { Left, Asked };

  /// @brief Looks at the counters and the logs at once, and tells what they show without waiting
  /// for other sources to tell of the same. Sensors wait for their turn, and so do disks' own logs
  /// unless they are asked for.
  /// @param limit how long to wait for it: a device that is dying may hold the kernel up
  /// @return whether all was told; false at the limit, or when the watch is not under way
  bool look(std::chrono::milliseconds limit, Disks disks = Disks::Left);

  /// @brief Looks once more, tells what is left, and ends. Does nothing when it has ended.
  void stop();

 private:
  class Work;
  std::unique_ptr<Work> m_work;
};

/// @brief The sources of that kind for this machine.
std::vector<std::unique_ptr<Source>> makeSources(const SystemFiles& files,
                                                 const WatchSettings& settings);

}  // namespace TarvexDiags::Watching
