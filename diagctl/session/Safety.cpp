#include "diagctl/session/Safety.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>

#include "diagctl/session/Configuration.h"
#include "diagctl/session/ExecutedFiles.h"
#include "diagctl/session/OpenFiles.h"
#include "diagctl/session/PathInspection.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

bool mustBeSecure() {
  return geteuid() == 0;
}

void forgetVariablesThatNameCode() {
  if (!mustBeSecure()) {
    return;
  }
  for (const char* const variable :
       {"GCONV_PATH", "OPENSSL_CONF", "OPENSSL_ENGINES", "OPENSSL_MODULES"}) {
    unsetenv(variable);
  }
}

std::vector<std::string> findInsecurePaths(const std::string& path) {
  PathInspection inspection;
  inspection.inspect(path);
  return inspection.findings();
}

std::vector<std::string> findInsecureFiles(const std::string& controlFile,
                                           const std::string& packageDirectory,
                                           const std::set<std::string>& unread) {
  PathInspection inspection;
  inspectExecutedFiles(controlFile, packageDirectory, inspection, unread);
  return inspection.findings();
}

namespace {

void refuse(std::vector<std::string> findings) {
  for (std::string& finding : findings) {
    finding = toPrintable(finding);
  }
  if (!findings.empty()) {
    throw InsecureFiles(tr("refused to run as root:\n  {}\n--allow-insecure overrides",
                           fmt::join(findings, "\n  ")));
  }
}

}  // namespace

void requireSecureFiles(const std::string& controlFile) {
  allowOpenFiles(openFilesFor(1));  // a look that fails for want of them tells nothing of files
  refuse(findInsecureFiles(controlFile, packageDirectoryOf(controlFile)));
}

void requireSecureProgram(const std::string& path) {
  allowOpenFiles(openFilesFor(1));
  PathInspection inspection;
  inspectProgram(path, inspection);
  refuse(inspection.findings());
}

void requireSecurePath(const std::string& path) {
  allowOpenFiles(openFilesFor(1));
  refuse(findInsecurePaths(path));
}

}  // namespace TarvexDiags::FrontEnd
