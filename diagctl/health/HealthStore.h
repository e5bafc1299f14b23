#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "diagctl/health/HealthResult.h"
#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// Where checks leave their results, one file for each scope, and the lock by which there is one
/// check at a time.
class HealthStore {
 public:
  /// @param directory made when something is kept or locked. @param isSecure as root: believe and
  ///   write nothing that others could change.
  HealthStore(std::filesystem::path directory, bool isSecure)
      : m_directory(std::move(directory)), m_isSecure(isSecure) {}

  /// /var/lib/tarvexdiags, which is root's.
  static std::filesystem::path ofMachine();
  /// For root that of the machine, for others $XDG_STATE_HOME/tarvexdiags (~/.local/state without
  /// the variable). @throws std::runtime_error where neither variable is set.
  static std::filesystem::path ofUser();

  /// Takes the lock, which is held until the file is closed by this process and by all that it
  /// starts. @return nothing if another check has it.
  /// @throws InsecureFiles; std::system_error naming the file.
  std::optional<OpenedFile> tryLock() const;

  /// The last result of a scope; nothing if there is none.
  /// @throws InsecureFiles; std::runtime_error naming the file and what is wrong with it.
  std::optional<HealthResult> last(const std::string& scope) const;

  /// Keeps a result in the place of the last one of its scope, whole or not at all.
  /// @throws InsecureFiles; std::system_error naming the file.
  void keep(const HealthResult& result) const;

 private:
  std::filesystem::path fileOf(const std::string& scope) const;
  void makeDirectory() const;

  std::filesystem::path m_directory;
  bool m_isSecure;
};

}  // namespace TarvexDiags::FrontEnd
