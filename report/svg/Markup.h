#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TarvexDiags::Svg {

/// Elements of HTML and SVG, each closed and each text escaped: whatever a name or a text holds, it
/// adds no markup, and begins no line. It is the one place that writes any. Bytes that are no
/// characters, and those that steer a terminal, stay as they are; whoever writes the page out sees
/// to them. For one thread.
class Markup {
 public:
  using Attribute = std::pair<const char*, std::string>;
  using Attributes = std::vector<Attribute>;

  /// Begins an element. @param tag and the names of attributes are the program's own words.
  void open(const char* tag, const Attributes& attributes = {});
  /// Ends the innermost element. There must be one.
  void close();
  /// Within the innermost element.
  void text(std::string_view text);
  /// A whole element.
  void leaf(const char* tag, const Attributes& attributes, std::string_view text);
  void leaf(const char* tag, std::string_view text) { leaf(tag, {}, text); }

  /// Takes over what another has written, whose elements are all closed.
  void append(const Markup& other) { m_text += other.m_text; }

  const std::string& written() const { return m_text; }
  std::size_t size() const { return m_text.size(); }

 private:
  void escape(std::string_view text);

  std::string m_text;
  std::vector<const char*> m_open;
};

/// A number as attributes have it: at most one digit behind the point, which is enough for pixels.
std::string pixels(double number);

}  // namespace TarvexDiags::Svg
