#include "inventory/Redaction.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <system_error>

namespace TarvexDiags::Inventory {

namespace {

constexpr std::size_t kShort = 4;
constexpr const char* kIdentifying[] = {"serialNumber", "uuid",     "macAddress",
                                        "hostName",     "nodeGuid", "uniqueId"};

bool isIdentifying(const std::string& key) {
  return std::find(std::begin(kIdentifying), std::end(kIdentifying), key) != std::end(kIdentifying);
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
    } else if (value.is_string() && document.is_object() && isIdentifying(key) &&
               value != kUnknown) {
      m_values.insert(value.get<std::string>());
    }
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
    copy[redactedText(key)] = redacted(value);
  }
  return copy;
}

std::string Redactor::redactedText(std::string text) const {
  if (m_values.contains(text)) {
    return hashOf(text);
  }
  for (const std::string& value : m_values) {
    if (value.size() < kShort) {
      break;  // they are the last
    }
    const std::string hash = hashOf(value);
    for (std::size_t place = text.find(value); place != std::string::npos;
         place = text.find(value, place + hash.size())) {
      text.replace(place, value.size(), hash);
    }
  }
  return text;
}

std::string Redactor::hashOf(std::string_view value) const {
  constexpr std::size_t kBytes = 8;
  constexpr const char* kDigits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  HMAC(EVP_sha256(), m_key.data(), static_cast<int>(m_key.size()),
       reinterpret_cast<const unsigned char*>(value.data()), value.size(), digest.data(), &size);
  std::string text = "redacted-";
  for (std::size_t index = 0; index < kBytes; ++index) {
    text += kDigits[digest[index] >> 4U];
    text += kDigits[digest[index] & 0xFU];
  }
  return text;
}

}  // namespace TarvexDiags::Inventory
