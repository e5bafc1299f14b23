#include "inventory/Redaction.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <iterator>
#include <system_error>

namespace TarvexDiags::Inventory {

namespace {

constexpr std::size_t kShort = 4;
constexpr std::string_view kHead = "redacted-";
constexpr std::size_t kHashDigits = 16;
constexpr std::size_t kMacDigits = 12;
constexpr std::size_t kGuidDigits = 16;

constexpr const char* kIdentifying[] = {"serialNumber", "uuid",     "macAddress",
                                        "hostName",     "nodeGuid", "uniqueId"};
constexpr const char* kAddresses[] = {"macAddress", "nodeGuid"};

template <class Keys>
bool isAmong(const std::string& key, const Keys& keys) {
  return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

bool isHexDigit(char sign) {
  return (sign >= '0' && sign <= '9') || (sign >= 'a' && sign <= 'f');
}

/// What is part of a word; every character beyond ASCII is.
bool isOfWord(char sign) {
  const auto byte = static_cast<unsigned char>(sign);
  return byte >= 0x80 || std::isalnum(byte) != 0;
}

bool beginsWord(std::string_view text, std::size_t place) {
  return place == 0 || !isOfWord(text[place]) || !isOfWord(text[place - 1]);
}

bool endsWord(std::string_view text, std::size_t end) {
  return end == text.size() || !isOfWord(text[end]) || !isOfWord(text[end - 1]);
}

std::size_t hexDigitsAt(std::string_view text) {
  const auto* const end = std::find_if_not(text.begin(), text.end(), isHexDigit);
  return static_cast<std::size_t>(end - text.begin());
}

/// How long the hash is with which a text begins; 0 for none.
std::size_t lengthOfHash(std::string_view text) {
  const bool isHash =
      text.starts_with(kHead) && hexDigitsAt(text.substr(kHead.size())) == kHashDigits;
  return isHash ? kHead.size() + kHashDigits : 0;
}

bool isHash(const std::string& text) {
  return !text.empty() && lengthOfHash(text) == text.size();
}

/// The digits of an address that a name such as "enx0a1b2c3d4e5f" or "ibx0a1b2c3d4e5f6071" has at a
/// place; empty for none.
std::string_view addressInName(std::string_view text, std::size_t place) {
  constexpr std::size_t kLeastPrefix = 2;
  const bool isBehindMark = place > kLeastPrefix && text[place - 1] == 'x' &&
                            std::islower(static_cast<unsigned char>(text[place - 2])) != 0 &&
                            std::islower(static_cast<unsigned char>(text[place - 3])) != 0;
  const std::size_t digits = isBehindMark ? hexDigitsAt(text.substr(place)) : 0;
  const bool isWhole =
      (digits == kMacDigits || digits == kGuidDigits) && endsWord(text, place + digits);
  return isWhole ? text.substr(place, digits) : std::string_view();
}

/// The address as the kernel writes it: by twos for an interface, by fours for an adapter.
std::string withColons(std::string_view digits) {
  const std::size_t group = digits.size() == kMacDigits ? 2 : 4;
  std::string text;
  for (std::size_t place = 0; place < digits.size(); place += group) {
    text += text.empty() ? "" : ":";
    text += digits.substr(place, group);
  }
  return text;
}

std::string withoutColons(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
  return text;
}

/// A filling such as "00000000" stands in too many texts to mean one part.
bool isFilling(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [&](char sign) { return sign == text.front(); });
}

}  // namespace

std::string Redactor::drawKey() {
  std::array<char, 32> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "no random bytes");
  }
  return {bytes.begin(), bytes.end()};
}

void Redactor::learn(const Json& document) {
  for (const auto& [key, value] : document.items()) {
    if (value.is_structured()) {
      learn(value);
    } else if (value.is_string() && document.is_object()) {
      learnValue(key, value.get<std::string>());
    }
  }
}

void Redactor::learnValue(const std::string& key, const std::string& value) {
  const bool isWord = value.size() >= kShort && value != kUnknown && !isFilling(value);
  if (!isAmong(key, kIdentifying) || !isWord || isHash(value)) {
    return;
  }
  const bool isAddress = isAmong(key, kAddresses);
  m_values[value] = {value, isAddress};
  if (isAddress && !isFilling(withoutColons(value))) {
    m_values[withoutColons(value)] = {value, isAddress};
  }
}

Json Redactor::redacted(const Json& document) const {
  if (document.is_string()) {
    return redactedText(document.get<std::string>());
  }
  if (document.is_array()) {
    Json copy = Json::array();
    for (const Json& value : document) {
      copy.push_back(redacted(value));
    }
    return copy;
  }
  if (!document.is_object()) {
    return document;
  }
  Json copy = Json::object();
  for (const auto& [key, value] : document.items()) {
    const bool isIdentifying = isAmong(key, kIdentifying) && value.is_string() &&
                               value != kUnknown && !isHash(value.get<std::string>());
    copy[redactedText(key, Meant::AddressesAlone)] =
        isIdentifying ? Json(hashOf(value.get<std::string>())) : redacted(value);
  }
  return copy;
}

std::string Redactor::redactedText(std::string_view text) const {
  return redactedText(text, Meant::Everything);
}

// One way through the text: what was put in is not looked at again.
std::string Redactor::redactedText(std::string_view text, Meant meant) const {
  std::string clean;
  for (std::size_t place = 0; place < text.size();) {
    const std::size_t hash = beginsWord(text, place) ? lengthOfHash(text.substr(place)) : 0;
    const std::string_view address = addressInName(text, place);
    if (hash > 0) {
      clean += text.substr(place, hash);
      place += hash;
    } else if (!address.empty()) {
      clean += hashOf(withColons(address));
      place += address.size();
    } else if (const auto* const known = knownAt(text, place, meant)) {
      clean += hashOf(known->second.source);
      place += known->first.size();
    } else {
      clean += text[place++];
    }
  }
  return clean;
}

const std::pair<const std::string, Redactor::Known>* Redactor::knownAt(std::string_view text,
                                                                       std::size_t place,
                                                                       Meant meant) const {
  if (!beginsWord(text, place)) {
    return nullptr;
  }
  for (const auto& value : m_values) {
    const bool isMeant = meant == Meant::Everything || value.second.isAddress;
    if (isMeant && text.substr(place).starts_with(value.first) &&
        endsWord(text, place + value.first.size())) {
      return &value;
    }
  }
  return nullptr;
}

std::string Redactor::hashOf(std::string_view value) const {
  // A file that the environment names could have it load code.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  constexpr std::size_t kBytes = kHashDigits / 2;
  constexpr const char* kDigits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  HMAC(EVP_sha256(), m_key.data(), static_cast<int>(m_key.size()),
       reinterpret_cast<const unsigned char*>(value.data()), value.size(), digest.data(), &size);
  std::string text(kHead);
  for (std::size_t index = 0; index < kBytes; ++index) {
    text += kDigits[digest[index] >> 4U];
    text += kDigits[digest[index] & 0xFU];
  }
  return text;
}

}  // namespace TarvexDiags::Inventory
