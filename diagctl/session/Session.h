#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/session/Catalogue.h"
#include "diagctl/session/Inbox.h"
#include "diagctl/session/Texts.h"
#include "diagctl/session/Wakeups.h"

namespace TarvexDiags::FrontEnd {

class AheadDiscovery;
class DiscoveryWatch;

/// Settings of a session that override those of the control file.
struct SessionSettings {
  std::optional<DiagCtrl::GlobalSettings::runMode> runMode;
  std::optional<DiagCtrl::GlobalSettings::diagMode> diagMode;
  std::optional<bool> haltOnError;
};

/// An initialised and enumerated controller, shut down in the end. One at a time in a process.
/// While packages look for their devices, the first signal has them end and be left out.
class Session {
 public:
  /// Initialises and enumerates.
  /// @throws ControllerFailure if there is nothing to work with.
  Session(const std::string& controlFile, const std::string& language,
          const SessionSettings& settings);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  DiagCtrl::DiagnosticController& controller() { return m_controller; }
  const Catalogue& catalogue() const { return m_catalogue; }
  const Texts& texts() const { return m_texts; }
  /// Packages that are in the directory but not in the catalogue, with the reason.
  const std::vector<std::string>& warnings() const { return m_warnings; }
  /// Wakes at each message of the controller.
  Wakeups& wakeups() { return m_wakeups; }
  /// The controller's own events.
  Inbox<DiagCtrl::DiagCtrlEvent>& controllerEvents() { return m_controllerEvents; }
  /// Packages that could not be loaded: their tests have no verdict.
  std::size_t failedPackages() const { return m_warnings.size(); }

 private:
  void enumerate(DiscoveryWatch& discovery, const AheadDiscovery& ahead);
  void apply(const SessionSettings& settings, DiscoveryWatch& discovery,
             const AheadDiscovery& ahead);
  void enumerateAgain(DiscoveryWatch& discovery);
  void collectWarnings(DiscoveryWatch& discovery);
  void nameLostPackages();
  /// Keeps the texts of all packages, so that they can be told whatever becomes of their directory.
  void keepTexts();

  DiagCtrl::DiagnosticController& m_controller;
  std::string m_controlFile;
  Texts m_texts;
  Catalogue m_catalogue;
  std::vector<std::string> m_warnings;
  std::map<std::string, std::string> m_discoveryFailures;  ///< by base name: why
  Wakeups m_wakeups;
  Inbox<DiagCtrl::DiagCtrlEvent> m_controllerEvents;
};

}  // namespace TarvexDiags::FrontEnd
