#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/controller/stress/Dice.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// A package of a life, and what a controller owes to one of its kind.
struct Role {
  std::vector<Scripted::Device> devices;
  Scripted::Habits habits = {};
  unsigned int weight = 1;        ///< how often it is asked for, beside the others
  bool wantsMachine = false;      ///< it has the system lock
  bool isPatient = false;         ///< some passes last until they are aborted
  bool isSlowToHandOver = false;  ///< some objects take long for their second results

  /// It says that a pass is over only when it is.
  bool isTruthful() const { return !habits.completesEarly && !habits.completesOnAbort; }
  /// Its passes are counted right: each once.
  bool isCountedExactly() const { return isTruthful() && !habits.keepsReportingCompleted; }
  /// All results of a request that was completed are delivered.
  bool deliversAll = true;
};

typedef std::map<std::string, Role> Cast;

/// The packages of a life, by name. Devices have their tags for names; some share a resource above
/// them, some are one device under two names, two of them belong to a package that wants the
/// machine.
///
///   ALPHA, BETA  careful, with the most devices
///   STICKY       reports COMPLETED until its next pass begins
///   EARLY        reports COMPLETED as soon as a pass begins
///   FORGETFUL    an abort before a pass does not keep it from running
///   WHOLE        wants the machine; careful or sticky
///   GAMMA        bad habits at random
///   QUICK1 to 4  careful, with eight devices each; only where requests are to be many
Cast castOf(unsigned int seed, bool isParallel, bool isQuick);

}  // namespace TarvexDiags::TestSupport
