#pragma once

namespace TarvexDiags::PackageKit::Contract {

/// @brief How a test came to its end.
enum class Ending {
  Passed,       ///< it said that the device does what it should
  Unusual,      ///< it said that it has no verdict, or a warning
  Failed,       ///< it said that the hardware is at fault
  NotPossible,  ///< it said that there was nothing to test
  Vanished,     ///< its device was gone
  Aborted,      ///< its client ended it
  Broken,       ///< a crash, a kill, a time-out, any other trouble
};

/// @brief All of a test that its verdict depends on.
struct Happenings {
  Ending ending = Ending::Passed;
  bool hasRaisedError = false;    ///< an ERROR_EVENT of the package, not of the kit
  bool hasRaisedWarning = false;  ///< a WARNING_EVENT
};

/// @brief What a device that vanished during its test is told as.
enum class VanishedAs { Trouble, Failure };

/// @brief What a test came to.
enum class Judgement {
  Passed,
  Warning,
  Failed,       ///< the hardware is at fault
  Trouble,      ///< the tool could not do its work: no verdict on the hardware
  Contradicts,  ///< trouble: the test raised an error and returned that all is well
  NotPossible,  ///< nothing was tested
  Aborted,      ///< no verdict, by the client's will
};

/// @brief The one place where tests are judged.
///
/// A test that has found a fault and then ends without a verdict has failed: the worse a fault, the
/// likelier it takes the test along, and the event stays true whatever ended the test, an abort
/// included. Only a test that goes on to say that all is well takes its own word back, and then
/// nobody can tell which of the two holds.
constexpr Judgement judge(const Happenings& test, VanishedAs vanished = VanishedAs::Trouble) {
  if (test.hasRaisedError && test.ending != Ending::Passed) {
    return Judgement::Failed;
  }
  switch (test.ending) {
    case Ending::Passed:
      if (test.hasRaisedError) {
        return Judgement::Contradicts;
      }
      return test.hasRaisedWarning ? Judgement::Warning : Judgement::Passed;
    case Ending::Unusual:
      return Judgement::Warning;
    case Ending::Failed:
      return Judgement::Failed;
    case Ending::NotPossible:
      return Judgement::NotPossible;
    case Ending::Vanished:
      return vanished == VanishedAs::Failure ? Judgement::Failed : Judgement::Trouble;
    case Ending::Aborted:
      return Judgement::Aborted;
    case Ending::Broken:
      break;
  }
  return Judgement::Trouble;
}

}  // namespace TarvexDiags::PackageKit::Contract
