#pragma once

#include <filesystem>
#include <string>

namespace TarvexDiags::FrontEnd {

/// Whether somebody can have written a block device elsewhere, or can do so now past its file
/// system: a medium that is taken out, a disk at a plug for the user's own (USB, FireWire), an
/// image in a file, and what is made of such (encryption, volumes). Then the owners of its files
/// say nothing.
/// @param device  its number, as in "8:17", or its path. What is no block device is none of these.
bool isWrittenElsewhere(const std::string& device, const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::FrontEnd
