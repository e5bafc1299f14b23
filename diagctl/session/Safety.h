#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// Files that root must not load code by.
class InsecureFiles : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What makes it unsafe to load code by way of a file: an owner that is not root, or permission for
/// others to write, of the file itself, of a directory above it or of a symbolic link on the way.
/// A directory above it that others may write to is safe with the sticky bit.
/// @param path need not exist. @return a line for each finding, naming path and reason.
std::vector<std::string> findInsecurePaths(const std::string& path);

/// The findings for a control file and all that it makes the program load: the package directory
/// and every description and shared object in it, with those that descriptions name as needed.
std::vector<std::string> findInsecureFiles(const std::string& controlFile,
                                           const std::string& packageDirectory);

/// @throws InsecureFiles with all findings for a control file and what it names, if there are any.
void requireSecureFiles(const std::string& controlFile);

/// Whether the program runs as root, so that what it loads must be root's.
bool mustBeSecure();

}  // namespace TarvexDiags::FrontEnd
