#pragma once

namespace TarvexDiags::PackageKit {

/// @brief The number of the interface between the kit and the sources of packages. It rises when a
/// package that was written for the number before no longer builds, or no longer finds what it was
/// promised. Shared objects of any number go with any controller: it is no part of their exports.
///
/// 2: Package::status takes the place of a function in each device. Devices, and the support of
/// their tests, are found in a worker process: what a package keeps in variables, or in a class of
/// its own around a device, is made anew in each worker and never comes from discovery. The name,
/// the tags and the properties of a device are all that goes on to tests, estimates and status.
inline constexpr int kKitInterface = 2;

}  // namespace TarvexDiags::PackageKit
