#pragma once

#include <set>
#include <string>
#include <string_view>

#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief Replaces what identifies one machine among its like (serial numbers, hardware addresses,
/// UUIDs, the name of the host) by a keyed hash, so that what was equal stays equal and nobody
/// without the key can try out which value it was: the first 64 bits of HMAC-SHA-256 (RFC 2104), as
/// "redacted-0123456789abcdef".
class Redactor {
 public:
  /// @param key of any length; who has it can tell which machine a report is of.
  explicit Redactor(std::string key) : m_key(std::move(key)) {}

  /// @brief A key that nobody can guess.
  /// @throws std::system_error when the kernel gives no random bytes.
  static std::string drawKey();

  /// @brief Notes the values that stand in a document below keys that hold such.
  void learn(const Json& document);

  /// @brief The document with all values that were learnt replaced, wherever they stand: in texts
  /// and keys, too. Short ones of fewer than four characters are replaced only where they stand
  /// alone.
  Json redacted(const Json& document) const;

  /// @brief The same for a text.
  std::string redactedText(std::string text) const;

 private:
  std::string hashOf(std::string_view value) const;

  struct LongestFirst {
    bool operator()(const std::string& left, const std::string& right) const {
      return left.size() != right.size() ? left.size() > right.size() : left < right;
    }
  };

  std::string m_key;
  std::set<std::string, LongestFirst> m_values;
};

}  // namespace TarvexDiags::Inventory
