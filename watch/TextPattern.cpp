#include "watch/TextPattern.h"

#include <algorithm>
#include <cstddef>

namespace TarvexDiags::Watching {

namespace {

constexpr char kField = '%';

bool isDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

bool isHexadecimal(char byte) {
  return isDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
}

bool isNoBlank(char byte) {
  return byte != ' ' && byte != '\t' && byte != '\n';
}

/// The literal text up to the next field.
std::string_view literal(std::string_view pattern) {
  return pattern.substr(0, pattern.find(kField));
}

/// How long the field at the text's beginning is; nothing when it is none.
std::optional<std::size_t> fieldLength(std::string_view text, char kind, std::string_view behind) {
  if (kind == '*') {
    const std::size_t end = behind.empty() ? text.size() : text.find(behind);
    return end == std::string_view::npos ? std::nullopt : std::optional(end);
  }
  const auto isPart = kind == 'd' ? isDigit : kind == 'x' ? isHexadecimal : isNoBlank;
  std::size_t length =
      static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPart) - text.begin());
  if (kind == 'w' && !behind.empty()) {
    // "%w:" shall not take the colon.
    length = std::min(length, text.find(behind));
  }
  return length > 0 ? std::optional(length) : std::nullopt;
}

}  // namespace

std::optional<std::vector<std::string_view>> matchFront(std::string_view text,
                                                        std::string_view pattern) {
  std::vector<std::string_view> fields;
  for (;;) {
    const std::string_view head = literal(pattern);
    if (!text.starts_with(head)) {
      return std::nullopt;
    }
    text.remove_prefix(head.size());
    pattern.remove_prefix(head.size());
    if (pattern.size() < 2) {
      return fields;
    }
    const char kind = pattern[1];
    pattern.remove_prefix(2);
    const std::optional<std::size_t> length = fieldLength(text, kind, literal(pattern));
    if (!length) {
      return std::nullopt;
    }
    fields.push_back(text.substr(0, *length));
    text.remove_prefix(*length);
  }
}

std::optional<std::vector<std::string_view>> match(std::string_view text,
                                                   std::string_view pattern) {
  const std::string_view head = literal(pattern);
  for (std::size_t place = text.find(head); place != std::string_view::npos;
       place = text.find(head, place + 1)) {
    if (auto fields = matchFront(text.substr(place), pattern)) {
      return fields;
    }
  }
  return std::nullopt;
}

}  // namespace TarvexDiags::Watching
