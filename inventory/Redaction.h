#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

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

  /// @brief The document without them: what stands below such keys is replaced whole, and what was
  /// learnt also within other texts, as by redactedText. Keys stay, but for the hardware addresses
  /// in the names of parts.
  Json redacted(const Json& document) const;

  /// @brief A text with all values that were learnt replaced where they stand as whole words, those
  /// of fewer than four characters excepted, and the hardware addresses in names such as
  /// "enx0a1b2c3d4e5f". Hashes that stand in it stay.
  std::string redactedText(std::string_view text) const;

 private:
  /// Whether names of a host may be meant, too: not in the names of parts.
  enum class Meant { Everything, AddressesAlone };

  /// A value, and that whose hash stands for it.
  struct Known {
    std::string source;
    bool isAddress = false;
  };

  struct LongestFirst {
    bool operator()(const std::string& left, const std::string& right) const {
      return left.size() != right.size() ? left.size() > right.size() : left < right;
    }
  };

  void learnValue(const std::string& key, const std::string& value);
  std::string redactedText(std::string_view text, Meant meant) const;
  /// The value with which a text begins at a place; null for none.
  const std::pair<const std::string, Known>* knownAt(std::string_view text, std::size_t place,
                                                     Meant meant) const;
  std::string hashOf(std::string_view value) const;

  std::string m_key;
  std::map<std::string, Known, LongestFirst> m_values;
};

}  // namespace TarvexDiags::Inventory
