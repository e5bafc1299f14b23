#pragma once

#include <optional>
#include <string>
#include <utility>

namespace TarvexDiags::PackageKit {

/// @brief The package's configuration file, as its author's code reads it. A small value.
///
/// Every call reads the file anew, so read a key once and not in a loop. All calls are thread-safe.
/// An empty value counts as absent. A number that is none, or out of the range of its type, counts
/// as absent too, so a spoilt file gives the default and never a wild value.
class Settings {
 public:
  explicit Settings(std::string file) : m_file(std::move(file)) {}

  /// @brief The path of the file.
  const std::string& file() const { return m_file; }

  /// @brief The value of a key in any section.
  std::optional<std::string> read(const std::string& section, const std::string& key) const;

  /// @brief The value of a key in section `Package`.
  std::optional<std::string> package(const std::string& key) const;

  /// @brief The value of a key in the section of a test, or else in section `Package`: what stands
  /// in `Package` is the default of all tests.
  std::optional<std::string> test(int testId, const std::string& key) const;

  /// @brief As `test`, for a whole decimal number.
  long testInteger(int testId, const std::string& key, long fallback) const;

  /// @brief As `test`, for a decimal number with or without fraction ("2", "0.25").
  double testNumber(int testId, const std::string& key, double fallback) const;

  /// @brief TRUE or FALSE, in any case, in section `Package`.
  bool packageFlag(const std::string& key, bool fallback) const;

  /// @brief As `test`, for TRUE or FALSE in any case.
  bool testFlag(int testId, const std::string& key, bool fallback) const;

  /// @brief The whole text as a decimal number, or nothing. Never depends on the locale.
  static std::optional<long> toInteger(const std::string& text);
  static std::optional<double> toNumber(const std::string& text);

 private:
  std::string m_file;
};

}  // namespace TarvexDiags::PackageKit
