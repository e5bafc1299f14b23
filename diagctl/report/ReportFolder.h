#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "diagctl/report/OpenedFile.h"
#include "diagctl/report/WrittenFile.h"

namespace TarvexDiags::FrontEnd {

/// The directory of a report that is made of several files. It is opened once: whatever takes its
/// place meanwhile, the files go into the same. For one thread.
class ReportFolder {
 public:
  /// Makes it where there is none. @throws std::system_error naming it.
  explicit ReportFolder(const std::string& path);

  /// For people.
  const std::string& name() const { return m_name; }
  /// Where a file of it is, for this process alone. @param file without a directory.
  std::string pathOf(const std::string& file) const;
  /// Its file, which stands there once it is finished. It is gone before this folder is.
  /// @throws std::system_error naming it.
  std::unique_ptr<WrittenFile> make(const std::string& file) const;

 private:
  std::string m_name;
  OpenedFile m_folder;
};

/// Names of files that come from names of machines, each of them another one, also where the case
/// of letters does not count.
class FileNames {
 public:
  /// @param taken a name without its ending that none of them gets.
  explicit FileNames(const std::string& taken) : m_taken{{taken, kSecond}} {}

  /// Of letters, digits, '.', '-' and '_', beginning with a letter or a digit: it leads out of no
  /// directory and needs no quotes in a shell or a link, whatever the name is.
  std::string take(std::string_view name, std::string_view ending);

 private:
  static constexpr std::size_t kSecond = 2;

  std::map<std::string, std::size_t> m_taken;  ///< in small letters; the number of the next alike
};

}  // namespace TarvexDiags::FrontEnd
