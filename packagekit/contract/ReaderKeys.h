#pragma once

namespace TarvexDiags::PackageKit::Contract {

/// @brief Keys for readers of a package's file, in the section of a test or, for all of them, in
/// `Package`: what a machine, a device and a user must have for the test, and what it writes or
/// disturbs. In English, without a full stop.
inline constexpr const char* kTestNeeds = "TestNeeds";
inline constexpr const char* kTestWrites = "TestWrites";
/// @brief Kinds of findings of the watch over the machine that the test itself brings about, with
/// commas: "link-lost". They are no warning while it runs.
inline constexpr const char* kTestProvokes = "TestProvokes";

/// @brief Sections for the same readers: what a setting means, and the unit of one that is a
/// number. The key is that of the setting.
inline constexpr const char* kSettingMeaning = "SettingMeaning";
inline constexpr const char* kSettingUnit = "SettingUnit";

}  // namespace TarvexDiags::PackageKit::Contract
