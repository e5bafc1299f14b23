#pragma once

#include <cstddef>
#include <string>

namespace TarvexDiags::System {

/**
 * @brief Looks for one key while the text of a configuration file passes by, in pieces of any size.
 *
 * Nothing of the text is kept but the value itself, so files and lines may be of any length.
 * Foreign sections, nearly all of a file, are skipped from bracket to bracket and not line by line.
 * docs/configuration-file-format.md tells the format.
 *
 * Used by one thread; needs nothing of the operating system.
 */
class ConfigScanner {
 public:
  /** @param value receives the value; empty at first, and meaningless while nothing was found. */
  ConfigScanner(std::string section, std::string key, std::string& value);

  /**
   * @brief Takes the next piece of the text.
   * @return true when no further piece can change the outcome.
   */
  bool feed(const char* text, std::size_t size);

  /** @brief Tells, after the last piece, whether the key was found. */
  bool found();

 private:
  enum class State {
    BYTE_ORDER_MARK,  // at the start of the text
    SEEK_SECTION,     // anywhere outside of the wanted section
    SECTION_NAME,     // behind "["
    SECTION_END,      // behind the wanted name
    SKIP_LINE,        // somewhere on a line that has nothing more to tell
    LINE_START,       // in the wanted section, from here on
    KEY_NAME,
    KEY_END,
    VALUE_START,  // behind "="
    VALUE,
    FOUND,
    NEVER,  // no file can hold these names
  };

  State step();
  State skipByteOrderMark();
  State seekSection();
  State enterSectionName();
  State endSection();
  State skipLine();
  State startLine();
  State startValue();
  State takeValue();
  State matchName(const std::string& wanted, State matched, State mismatched);
  State endKey();

  bool isOtherSection() const;
  bool nextIs(char wanted);
  void skipBlanks();
  const char* findNext(char wanted) const;
  bool isBlankBefore(const char* position) const;
  void stripValueEnd();

  const std::string m_section;
  const std::string m_key;
  std::string& m_value;

  State m_state = State::BYTE_ORDER_MARK;
  bool m_inSection = false;       // the wanted one
  std::size_t m_matched = 0;      // characters of the name, or of the byte order mark
  bool m_lineIsBlank = true;      // the line so far, up to the start of this piece
  const char* m_begin = nullptr;  // this piece of the text
  const char* m_at = nullptr;     // the next character
  const char* m_end = nullptr;
};

}  // namespace TarvexDiags::System
