#include "System/internal/ConfigScanner.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace TarvexDiags::System {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// A carriage return counts as a blank, so a line may end in either way.
bool isBlank(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\v' ||
         character == '\f';
}

// Names stand in a file without blanks around them and up to their terminator; no other can match.
bool canBeWritten(const std::string& name, char terminator) {
  return !name.empty() && !isBlank(name.front()) && !isBlank(name.back()) &&
         name.find(terminator) == std::string::npos && name.find('\n') == std::string::npos;
}

}  // namespace

ConfigScanner::ConfigScanner(std::string section, std::string key, std::string& value)
    : m_section(std::move(section)), m_key(std::move(key)), m_value(value) {
  if (!canBeWritten(m_section, ']') || !canBeWritten(m_key, '=')) {
    m_state = State::NEVER;
  }
}

bool ConfigScanner::feed(const char* text, std::size_t size) {
  m_begin = m_at = text;
  m_end = text + size;
  while (m_at != m_end && m_state != State::FOUND && m_state != State::NEVER) {
    m_state = step();
  }
  m_lineIsBlank = isBlankBefore(m_end);
  return m_state == State::FOUND || m_state == State::NEVER;
}

bool ConfigScanner::found() {
  if (m_state == State::VALUE || m_state == State::VALUE_START) {
    stripValueEnd();
    m_state = State::FOUND;
  }
  return m_state == State::FOUND;
}

ConfigScanner::State ConfigScanner::step() {
  switch (m_state) {
    case State::BYTE_ORDER_MARK:
      return skipByteOrderMark();
    case State::SEEK_SECTION:
      return seekSection();
    case State::SECTION_NAME:
      return matchName(m_section, State::SECTION_END, State::SEEK_SECTION);
    case State::SECTION_END:
      return endSection();
    case State::SKIP_LINE:
      return skipLine();
    case State::LINE_START:
      return startLine();
    case State::KEY_NAME:
      return matchName(m_key, State::KEY_END, State::SKIP_LINE);
    case State::KEY_END:
      return endKey();
    case State::VALUE_START:
      return startValue();
    case State::VALUE:
      return takeValue();
    case State::FOUND:
    case State::NEVER:
      break;
  }
  return m_state;
}

ConfigScanner::State ConfigScanner::skipByteOrderMark() {
  if (*m_at != kByteOrderMark[m_matched]) {
    return State::SEEK_SECTION;
  }
  ++m_at;
  ++m_matched;
  if (m_matched < kByteOrderMark.size()) {
    return State::BYTE_ORDER_MARK;
  }
  m_begin = m_at;  // the text starts behind the mark
  m_lineIsBlank = true;
  return State::SEEK_SECTION;
}

ConfigScanner::State ConfigScanner::seekSection() {
  while (const char* const bracket = findNext('[')) {
    m_at = bracket + 1;
    if (!isBlankBefore(bracket)) {
      return State::SKIP_LINE;  // the rest of the line may hold many more
    }
    if (!isOtherSection()) {
      return enterSectionName();
    }
  }
  m_at = m_end;
  return State::SEEK_SECTION;
}

// The quick look that dismisses most sections of a file: true only when it is certain.
bool ConfigScanner::isOtherSection() const {
  const std::size_t length = m_section.size();
  return static_cast<std::size_t>(m_end - m_at) >= length && !isBlank(*m_at) &&
         m_at[length - 1] != m_section.back();
}

ConfigScanner::State ConfigScanner::enterSectionName() {
  m_inSection = false;
  m_matched = 0;
  return State::SECTION_NAME;
}

ConfigScanner::State ConfigScanner::matchName(const std::string& wanted, State matched,
                                              State mismatched) {
  if (m_matched == 0) {
    skipBlanks();
  }
  const auto left = static_cast<std::size_t>(m_end - m_at);
  const std::size_t compared = std::min(wanted.size() - m_matched, left);
  if (std::memcmp(m_at, wanted.data() + m_matched, compared) != 0) {
    return mismatched;
  }
  m_at += compared;
  m_matched += compared;
  return m_matched == wanted.size() ? matched : m_state;
}

ConfigScanner::State ConfigScanner::endSection() {
  skipBlanks();
  if (m_at == m_end) {
    return State::SECTION_END;
  }
  if (!nextIs(']')) {
    return State::SEEK_SECTION;
  }
  m_inSection = true;
  return State::SKIP_LINE;
}

ConfigScanner::State ConfigScanner::skipLine() {
  const char* const lineEnd = findNext('\n');
  if (lineEnd == nullptr) {
    m_at = m_end;
    return State::SKIP_LINE;
  }
  m_at = lineEnd + 1;
  return m_inSection ? State::LINE_START : State::SEEK_SECTION;
}

ConfigScanner::State ConfigScanner::startLine() {
  skipBlanks();
  if (m_at == m_end || nextIs('\n')) {
    return State::LINE_START;
  }
  if (nextIs('[')) {
    return enterSectionName();
  }
  if (nextIs('#') || nextIs(';')) {
    return State::SKIP_LINE;
  }
  m_matched = 0;
  return State::KEY_NAME;
}

ConfigScanner::State ConfigScanner::endKey() {
  skipBlanks();
  if (m_at == m_end) {
    return State::KEY_END;
  }
  return nextIs('=') ? State::VALUE_START : State::SKIP_LINE;
}

ConfigScanner::State ConfigScanner::startValue() {
  skipBlanks();
  return m_at == m_end ? State::VALUE_START : State::VALUE;
}

ConfigScanner::State ConfigScanner::takeValue() {
  const char* const lineEnd = findNext('\n');
  m_value.append(m_at, lineEnd == nullptr ? m_end : lineEnd);
  m_at = lineEnd == nullptr ? m_end : lineEnd + 1;
  if (lineEnd == nullptr) {
    return State::VALUE;
  }
  stripValueEnd();
  return State::FOUND;
}

bool ConfigScanner::nextIs(char wanted) {
  const bool is = *m_at == wanted;
  m_at += is ? 1 : 0;
  return is;
}

void ConfigScanner::skipBlanks() {
  while (m_at != m_end && isBlank(*m_at)) {
    ++m_at;
  }
}

const char* ConfigScanner::findNext(char wanted) const {
  return static_cast<const char*>(
      std::memchr(m_at, wanted, static_cast<std::size_t>(m_end - m_at)));
}

bool ConfigScanner::isBlankBefore(const char* position) const {
  while (position != m_begin && isBlank(position[-1])) {
    --position;
  }
  return position == m_begin ? m_lineIsBlank : position[-1] == '\n';
}

void ConfigScanner::stripValueEnd() {
  while (!m_value.empty() && isBlank(m_value.back())) {
    m_value.pop_back();
  }
}

}  // namespace TarvexDiags::System
