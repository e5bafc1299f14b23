#include "diagctl/session/Session.h"

#include <fmt/format.h>

#include <utility>

#include "diagctl/session/AheadDiscovery.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/DiscoveryWatch.h"
#include "diagctl/session/LostPackages.h"
#include "diagctl/session/OpenFiles.h"
#include "diagctl/session/Precedence.h"
#include "diagctl/session/Reasons.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Controller = DiagCtrl::DiagnosticController;

// While the controller starts, whose thousands of calls yield to others.
constexpr int kStartNiceness = -10;

std::string describe(const DiagCtrl::DiagCtrlEvent& event) {
  const CodeEntry* entry = findEvent(event.getEventCode());
  return entry != nullptr
             ? fmt::format("{}: {} {}", entry->name, told(entry->meaning), told(entry->nextAction))
             : tr("controller event {}", event.getEventCode());
}

// What these say is a package that stays in the directory but out of the catalogue.
bool isLoss(Controller::errorCode code) {
  return code == Controller::PACKAGE_INITIALIZE_FAILED ||
         code == Controller::UNABLE_TO_LOAD_PACKAGE ||
         code == Controller::UNABLE_TO_CREATE_DEVICE_VECTOR ||
         code == Controller::FUNCTION_NOT_FOUND_IN_DLL || code == Controller::PACKAGE_NOT_FOUND;
}

}  // namespace

Session::Session(const std::string& controlFile, const std::string& language,
                 const SessionSettings& settings)
    : m_controller(*Controller::getInstance()),
      m_controlFile(controlFile),
      m_texts(m_controller, language) {
  allowOpenFiles(openFilesFor(1));
  const Precedence precedence(kStartNiceness);
  // Before the controller has threads.
  const PackageKit::Contract::SupportInbox reasons;
  DiscoveryWatch discovery;
  require(m_controller.initialize(controlFile.c_str()),
          tr("starting with the control file {}", controlFile));
  try {
    const AheadDiscovery ahead(controlFile);
    enumerate(discovery, ahead);
    apply(settings, discovery, ahead);
    m_catalogue = readCatalogue(m_controller, language);
    keepTexts();
    addLocalNames(m_catalogue, m_texts);
    addReasons(m_catalogue, reasons.lines(), m_texts);
    nameLostPackages();
  } catch (...) {
    m_controller.shutDown();
    throw;
  }
}

Session::~Session() {
  m_controller.shutDown();
}

// The controller tells that a package was left out, and not which.
void Session::nameLostPackages() {
  m_catalogue.lostPackages = findLostPackages(packageDirectoryOf(m_controlFile), m_catalogue,
                                              m_warnings, m_discoveryFailures);
  const bool isOneEach =
      m_warnings.size() + m_discoveryFailures.size() == m_catalogue.lostPackages.size();
  std::vector<std::string> named;
  for (const LostPackage& package : m_catalogue.lostPackages) {
    named.push_back(describe(package));
  }
  if (!isOneEach) {
    named.insert(named.end(), m_warnings.begin(), m_warnings.end());
  }
  m_warnings = std::move(named);
}

void Session::keepTexts() {
  const std::string directory = packageDirectoryOf(m_controlFile);
  for (const PackageItem& package : m_catalogue.packages) {
    m_texts.keep(package.index, directory, package.baseName);
  }
}

// One package that fails leaves the others in the catalogue; its event tells of it.
void Session::enumerate(DiscoveryWatch& discovery, const AheadDiscovery& ahead) {
  m_controllerEvents.open(m_controller, m_wakeups);
  Controller::errorCode code = Controller::SUCCESS;
  discovery.follow([&] {
    DiagCtrl::GlobalSettings::diagMode mode{};
    require(m_controller.getDiagnosticMode(mode), tr("reading the diagnostic mode"));
    ahead.begin(mode);
    code = m_controller.enumerateAllPackages();
  });
  if (code != Controller::SUCCESS && !isLoss(code)) {
    throw ControllerFailure(tr("looking for packages"), code);
  }
  collectWarnings(discovery);
  if (m_warnings.empty() && m_discoveryFailures.empty() && code != Controller::SUCCESS) {
    m_warnings.emplace_back(ControllerFailure(tr("enumerating the last package"), code).what());
  }
}

void Session::collectWarnings(DiscoveryWatch& discovery) {
  require(m_controllerEvents.drain(), tr("collecting the controller's events"));
  while (const auto event = m_controllerEvents.takeFirst()) {
    m_warnings.push_back(describe(*event));
  }
  m_discoveryFailures.merge(discovery.takeFailures());
}

void Session::apply(const SessionSettings& settings, DiscoveryWatch& discovery,
                    const AheadDiscovery& ahead) {
  if (settings.runMode) {
    require(m_controller.setRunMode(*settings.runMode), tr("setting the run mode"));
  }
  if (settings.haltOnError) {
    require(m_controller.setHaltOnError(*settings.haltOnError), tr("setting halt on error"));
  }
  DiagCtrl::GlobalSettings::diagMode present{};
  require(m_controller.getDiagnosticMode(present), tr("reading the diagnostic mode"));
  if (settings.diagMode && *settings.diagMode != present) {
    require(m_controller.setDiagnosticMode(*settings.diagMode), tr("setting the diagnostic mode"));
    ahead.begin(*settings.diagMode);
    enumerateAgain(discovery);
  }
}

// Settings change only while the controller is idle, which it is not before the first enumeration.
// What a mode offers is settled by an enumeration, so each package is looked at once more; one that
// fails then leaves the catalogue, and the others keep their numbers.
void Session::enumerateAgain(DiscoveryWatch& discovery) {
  int count = 0;
  require(m_controller.getNumberOfDiagPackages(count), tr("counting the packages"));
  for (int index = 1; index <= count; ++index) {
    Controller::errorCode code = Controller::SUCCESS;
    discovery.follow([&] { code = m_controller.enumerateDiagPackages(index); });
    const std::size_t before = m_warnings.size() + m_discoveryFailures.size();
    collectWarnings(discovery);
    if (code != Controller::SUCCESS && !isLoss(code)) {
      throw ControllerFailure(tr("enumerating package {} again", index), code);
    }
    if (code != Controller::SUCCESS && m_warnings.size() + m_discoveryFailures.size() == before) {
      m_warnings.emplace_back(
          ControllerFailure(tr("enumerating package {} again", index), code).what());
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
