#include "diagctl/session/Configuration.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "System/SysUtil.h"
#include "diagctl/report/OpenedFile.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

fs::path fromEnvironment(const char* variable, const char* belowHome) {
  const char* value = std::getenv(variable);
  if (value != nullptr && *value == '/') {
    return value;
  }
  const char* home = std::getenv("HOME");
  return home != nullptr && *home == '/' ? fs::path(home) / belowHome : fs::path();
}

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

// Whatever the umask allows others: root refuses a control file that they may write to.
bool writeForOneself(const std::string& path, const std::string& text) {
  const OpenedFile file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

Configuration Configuration::find(const std::optional<std::string>& named,
                                  const fs::path& systemDirectory) {
  RunFolder::removeAbandoned();
  if (named) {
    return Configuration(*named);
  }
  const fs::path user = fromEnvironment("XDG_CONFIG_HOME", ".config");
  for (const fs::path& directory : {user, systemDirectory}) {
    const fs::path candidate = directory / "tarvexdiags" / "control.cfg";
    if (!directory.empty() && isThere(candidate)) {
      return Configuration(candidate.string());
    }
  }
  const fs::path packages = bundledPackages();
  if (packages.empty()) {
    throw std::runtime_error(tr(
        "no control file and no bundled packages were found; name a control file with --config"));
  }
  return make(packages);
}

Configuration Configuration::make(const fs::path& packages) {
  RunFolder::removeAbandoned();
  RunFolder folder;
  Configuration made((folder.path() / "control.cfg").string());
  const std::string text = embeddedControlFile(packages, folder.path());
  made.m_folder.emplace(std::move(folder));
  if (!writeForOneself(made.m_path, text)) {
    throw std::runtime_error(tr("{}: cannot be written", made.m_path));
  }
  return made;
}

std::string Configuration::origin() const {
  return isEmbedded() ? tr("the built-in configuration for the bundled packages") : m_path;
}

namespace {

// Beside the program's directory in a build tree, under lib in an installed one.
fs::path besideProgram(const char* group) {
  std::error_code failure;
  const fs::path program = fs::read_symlink("/proc/self/exe", failure);
  if (failure) {
    return {};
  }
  const fs::path above = program.parent_path().parent_path();
  for (const fs::path& candidate : {above / group, above / "lib/tarvexdiags" / group,
                                    above / TARVEX_LIBDIR / "tarvexdiags" / group}) {
    if (isThere(candidate)) {
      return candidate;
    }
  }
  return {};
}

}  // namespace

std::string packageDirectoryOf(const std::string& controlFile) {
  std::string directory;
  System::SysUtil::ReadCfgFile("GlobalSettings", "PackDirPath", directory, controlFile, -1);
  return directory;
}

fs::path bundledPackages() {
  return besideProgram("packages");
}

fs::path selfTestPackages() {
  return besideProgram("selftest");
}

std::string embeddedControlFile(const fs::path& packages, const fs::path& logs) {
  return fmt::format(
      "[GlobalSettings]\n"
      "PackDirPath={}\n"
      "LogDirPath={}\n"
      "DebugLog=DIAG_NO\n"
      "RunMode=PARALLEL\n"
      "DiagLog=FALSE\n"
      "HaltOnError=FALSE\n"
      "DiagnosticMode=CUSTOMER\n",
      packages.string(), logs.string());
}

}  // namespace TarvexDiags::FrontEnd
