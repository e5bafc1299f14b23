#include "diagctl/report/ReportFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "diagctl/report/OutputFile.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kLongestFileName = 100;  ///< bytes, without what tells it from others
constexpr const char* kNameless = "machine";

// Of ASCII alone, whatever the locale says.
bool isLetterOrDigit(char sign) {
  return (sign >= 'a' && sign <= 'z') || (sign >= 'A' && sign <= 'Z') ||
         (sign >= '0' && sign <= '9');
}

std::string harmless(std::string_view name) {
  std::string made(name.substr(0, kLongestFileName));
  std::replace_if(
      made.begin(), made.end(),
      [](char sign) { return !isLetterOrDigit(sign) && sign != '.' && sign != '-'; }, '_');
  made.erase(made.begin(), std::find_if(made.begin(), made.end(), isLetterOrDigit));
  return made.empty() ? kNameless : made;
}

std::string inSmallLetters(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char sign) {
    return sign >= 'A' && sign <= 'Z' ? static_cast<char>(sign - 'A' + 'a') : sign;
  });
  return text;
}

}  // namespace

ReportFolder::ReportFolder(const std::string& path) : m_name(path), m_folder(openFolder(path)) {}

std::string ReportFolder::pathOf(const std::string& file) const {
  return fmt::format("/proc/self/fd/{}/{}", m_folder.get(), file);
}

std::unique_ptr<WrittenFile> ReportFolder::make(const std::string& file) const {
  const char* const between = m_name.ends_with('/') ? "" : "/";
  return std::make_unique<WrittenFile>(pathOf(file), m_name + between + file, false);
}

std::string FileNames::take(std::string_view name, std::string_view ending) {
  const std::string wanted = harmless(name);
  std::string made = wanted;
  while (!m_taken.try_emplace(inSmallLetters(made), kSecond).second) {
    made = fmt::format("{}-{}", wanted, m_taken[inSmallLetters(wanted)]++);
  }
  return made + std::string(ending);
}

}  // namespace TarvexDiags::FrontEnd
