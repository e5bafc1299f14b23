#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Diag/IDiagnostics.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/Environment.h"
#include "packagekit/Package.h"
#include "packagekit/internal/Module.h"
#include "packagekit/internal/PassRunner.h"
#include "packagekit/internal/RunControl.h"

namespace TarvexDiags::PackageKit {

/// The tests of a package, as the controller runs them. Holds the state of one request; what a pass
/// does is PassRunner's.
class KitDiagnostics : public Diag::IDiagnostics, private PassObserver {
 public:
  KitDiagnostics(Module& module, const Package& package, bool diagLog, DiagnosticMode mode);
  ~KitDiagnostics() override;

  Diag::DiagnosticResult* runDiagnostic(DeviceEnum::VirtualDevice& device,
                                        Diag::DiagnosticSettings* settings) override;
  bool IsDeviceSupported(DeviceEnum::VirtualDevice& device, int testId) override;
  Diag::DiagnosticStatus getDiagnosticStatus() override;
  void abortDiagnostic() override;
  void suspendDiagnostic() override;
  void resumeDiagnostic() override;
  std::vector<Diag::DiagnosticEvent*>* getDiagnosticEvents() override;
  std::vector<Diag::DiagnosticResult*>* getDiagnosticResults() override;

 private:
  enum class Phase { Ready, Inside, Complete };
  using Clock = std::chrono::steady_clock;

  void raise(Diag::DiagnosticEvent::EventType type, unsigned int code,
             std::vector<std::string> parameters, Clock::time_point time) override;
  void progressed(unsigned int percentOfPass) override;

  void enter(const Diag::DiagnosticSettings* settings);
  void leave(const std::optional<std::string>& failure);
  void run(const Device& device, const Diag::DiagnosticSettings& settings);
  void runOnce(const Device& device, const Diag::DiagnosticSettings& settings);
  void runStress(const Device& device, const Diag::DiagnosticSettings& settings);
  void estimate(const Device& device, const Diag::DiagnosticSettings& settings);
  PassOutcome runPass(const Device& device, const Diag::DiagnosticSettings& settings,
                      int passNumber);
  PassSetup setupOf(const Device& device, const Diag::DiagnosticSettings& settings,
                    int passNumber) const;
  bool waitWhileSuspended();
  double estimateOf(int testId, const Device& device, const Environment& environment) const;
  void deliver(const PassOutcome& outcome, int estimatedTime = 0);
  void provideSpare() TARVEXDIAGS_REQUIRES(m_lock);
  void deliverSpare();
  void logEvent(Diag::DiagnosticEvent& event);
  unsigned int progressLocked() const TARVEXDIAGS_REQUIRES(m_lock);

  Module& m_module;
  const Package& m_package;
  const bool m_diagLog;
  const DiagnosticMode m_mode;
  RunControl m_control;

  mutable System::Mutex m_lock;
  Phase m_phase TARVEXDIAGS_GUARDED_BY(m_lock) = Phase::Ready;
  bool m_isStress TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  unsigned int m_passProgress TARVEXDIAGS_GUARDED_BY(m_lock) = 0;
  unsigned int m_passesDone TARVEXDIAGS_GUARDED_BY(m_lock) = 0;
  unsigned int m_passesWanted TARVEXDIAGS_GUARDED_BY(m_lock) = 1;
  Clock::time_point m_start TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<Diag::DiagnosticEvent*> m_events TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<Diag::DiagnosticResult*> m_results TARVEXDIAGS_GUARDED_BY(m_lock);

  // Touched by the thread of the pass alone.
  unsigned int m_requestId = 0;
  std::string m_eventLog;  // empty: events are not logged
  bool m_reportsStatus = false;
  bool m_tellsTime = false;
  Diag::DiagnosticResult m_result;
  std::unique_ptr<Diag::DiagnosticResult> m_spareResult;  ///< for a pass that has no memory left
  bool m_hasDelivered = false;
};

}  // namespace TarvexDiags::PackageKit
