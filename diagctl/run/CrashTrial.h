#pragma once

#include <optional>
#include <string>
#include <utility>

#include "packagekit/contract/Crash.h"

namespace TarvexDiags::FrontEnd {

/// What a crash came to, for people.
struct CrashFinding {
  PackageKit::Contract::CrashCause cause = PackageKit::Contract::CrashCause::Unknown;
  std::string symptom;  ///< of a verdict or warning; empty where there is none
  std::string text;
  std::string action;  ///< empty: as the package advises
};

/// How far the trial of a crash has come: the test is repeated on the device on which it crashed
/// and on another one, and where it crashes again tells who is to blame. Knows of nothing but names
/// and outcomes.
class CrashTrial {
 public:
  using Repetition = PackageKit::Contract::Repetition;
  enum class Place { Here, Elsewhere };

  /// @param device of the crash.
  explicit CrashTrial(std::string device) : m_device(std::move(device)) {}

  /// The repetitions begin. @param other the device to compare with.
  void compareWith(std::string other) { m_other = std::move(other); }
  /// The repetition on the device itself begins; there is no other one.
  void compareWithNone() { take(Place::Elsewhere, Repetition::NoPlace); }
  bool hasBegun() const { return m_other.has_value() || m_elsewhere.has_value() || isOver(); }

  /// Takes what became of a repetition. The first word on a place counts.
  void take(Place place, Repetition repetition);
  /// No repetition that has not ended will tell anything any more. @param reason for people.
  void stop(const std::string& reason);

  /// Whether nothing more is to come.
  bool isOver() const { return m_here.has_value() && m_elsewhere.has_value(); }
  /// What the trial came to, once it is over.
  CrashFinding finding() const;

 private:
  CrashFinding findingOfUnknown() const;

  std::string m_device;
  std::optional<std::string> m_other;
  std::optional<Repetition> m_here;
  std::optional<Repetition> m_elsewhere;
  std::string m_reason;  ///< why it was stopped
};

}  // namespace TarvexDiags::FrontEnd
