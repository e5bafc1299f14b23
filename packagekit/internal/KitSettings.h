#pragma once

#include "packagekit/Setting.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/contract/Seed.h"
#include "packagekit/contract/WorkerPlaces.h"

namespace TarvexDiags::PackageKit {

// The keys that the kit reads on behalf of every package. Their defaults are the kit's.

inline constexpr auto kTestTimeout = optionalSetting<Seconds>("TestTimeout");
inline constexpr auto kAbortGrace = optionalSetting<Seconds>("AbortGrace");
inline constexpr auto kTermGrace = optionalSetting<Seconds>("TermGrace");
inline constexpr auto kKillGrace = optionalSetting<Seconds>("KillGrace");
inline constexpr auto kStartTimeout = optionalSetting<Seconds>("StartTimeout");
inline constexpr auto kExitTimeout = optionalSetting<Seconds>("ExitTimeout");
inline constexpr auto kDiscoveryTimeout = optionalSetting<Seconds>("DiscoveryTimeout");
inline constexpr Seconds kDefaultDiscoveryTimeout{20};
inline constexpr auto kNice = optionalSetting<std::uint64_t>("Nice");
inline constexpr auto kPrivileges = optionalSetting<std::string>(Contract::kPrivilegesKey);
inline constexpr auto kMemoryLimit = optionalSetting<std::uint64_t>("MemoryLimit");
inline constexpr auto kMaxEvents = optionalSetting<std::uint64_t>("MaxEvents");
inline constexpr auto kCoreDumps = optionalSetting<bool>("CoreDumps");
inline constexpr auto kSeed = optionalSetting<std::uint64_t>(Contract::kSeedKey);
inline constexpr auto kWorkerPath = optionalSetting<std::string>(Contract::kWorkerPathKey);

/// Those that a test may have in its own section.
inline SettingList kitTestSettings() {
  return {kTestTimeout, kNice, kPrivileges};
}

/// Those that stand in section `Package` alone.
inline SettingList kitPackageSettings() {
  return {kAbortGrace,  kTermGrace, kKillGrace, kStartTimeout, kExitTimeout, kDiscoveryTimeout,
          kMemoryLimit, kMaxEvents, kCoreDumps, kSeed,         kWorkerPath};
}

}  // namespace TarvexDiags::PackageKit
