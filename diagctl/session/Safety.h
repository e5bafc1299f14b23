#pragma once

#include <set>
#include <string>
#include <vector>

#include "diagctl/terminal/FailureInLines.h"

namespace TarvexDiags::FrontEnd {

/// Files that root must not load code by: a line for each.
class InsecureFiles : public FailureInLines {
 public:
  using FailureInLines::FailureInLines;
};

/// What makes it unsafe to load code by way of a path: see PathInspection.
/// @param path need not exist. @return a line for each finding, naming file and reason.
std::vector<std::string> findInsecurePaths(const std::string& path);

/// The findings for a control file and all that is executed on its account: see
/// inspectExecutedFiles.
/// @param packageDirectory that the control file names; empty for none.
std::vector<std::string> findInsecureFiles(const std::string& controlFile,
                                           const std::string& packageDirectory,
                                           const std::set<std::string>& unread = {});

/// @throws InsecureFiles with all findings for a control file and what it names, if there are any;
///   std::runtime_error if too few files may be open to look.
void requireSecureFiles(const std::string& controlFile);

/// @throws InsecureFiles with the findings for one path, if there are any.
void requireSecurePath(const std::string& path);

/// The same for a program and all that it needs: its interpreter, shared objects, where they are
/// looked for.
void requireSecureProgram(const std::string& path);

/// Of root's environment: what has the system's libraries load code of places that nobody inspects.
/// To be called before there is a second thread.
void forgetVariablesThatNameCode();

/// Whether the program runs as root, so that what it loads must be root's.
bool mustBeSecure();

}  // namespace TarvexDiags::FrontEnd
