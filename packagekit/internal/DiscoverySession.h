#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "packagekit/internal/DiscoveryFrames.h"
#include "packagekit/internal/WorkerSupervisor.h"

namespace TarvexDiags::PackageKit {

/// What came out of a discovery.
struct Discovered {
  std::vector<FoundDevice> devices = {};
  std::optional<std::string> failure = {};  ///< why nothing is known of the devices
  std::string lastLines = {};               ///< what its process wrote last
  std::optional<pid_t> unkillable = {};     ///< its process, when that can't be ended
};

/// A worker that looks for devices. Whatever becomes of it, the answer is devices or a reason, and
/// is there within the limits.
class DiscoverySession final : private WorkerSupervisor {
 public:
  /// @param setup, limits, control must outlive the session. The time of `limits.start` is that of
  ///   the whole discovery.
  /// @param tellSlow called once when the discovery takes longer than `patience`, on the thread
  /// that
  ///   runs it.
  DiscoverySession(const DiscoverySetup& setup, const WorkerLimits& limits, RunControl& control,
                   std::function<void()> tellSlow, std::chrono::milliseconds patience = kPatience);

  static constexpr std::chrono::milliseconds kPatience{2000};
  static constexpr const char* kEndedOnRequest = "it was asked to end";

  /// Sends the setup and stays with the worker to its end.
  Discovered run(WorkerProcess& process);

 private:
  void handle(Frame& frame) override;
  double killGrace() const override;
  void remind() override { m_tellSlow(); }
  bool isInTest() const override { return false; }
  void handleDevice(Frame& frame);
  void handleEnd(Frame& frame);
  std::string whyThereIsNone(const WorkerEnd& end) const;

  const DiscoverySetup& m_setup;
  const WorkerLimits& m_limits;
  RunControl& m_control;
  const std::function<void()> m_tellSlow;
  const std::chrono::milliseconds m_patience;
  std::vector<FoundDevice> m_devices;
  std::size_t m_bytes = 0;
  bool m_hasToldAll = false;  ///< devices and failure are whole
  std::string m_failure;
};

}  // namespace TarvexDiags::PackageKit
