#include "report/svg/Markup.h"

#include <fmt/format.h>

namespace TarvexDiags::Svg {

void Markup::open(const char* tag, const Attributes& attributes) {
  m_text += '<';
  m_text += tag;
  for (const auto& [name, value] : attributes) {
    m_text += ' ';
    m_text += name;
    m_text += "=\"";
    escape(value);
    m_text += '"';
  }
  m_text += '>';
  m_open.push_back(tag);
}

void Markup::close() {
  m_text += "</";
  m_text += m_open.back();
  m_text += ">\n";
  m_open.pop_back();
}

void Markup::text(std::string_view text) {
  escape(text);
}

void Markup::leaf(const char* tag, const Attributes& attributes, std::string_view text) {
  open(tag, attributes);
  escape(text);
  close();
}

void Markup::escape(std::string_view text) {
  for (const char character : text) {
    switch (character) {
      case '&':
        m_text += "&amp;";
        break;
      case '<':
        m_text += "&lt;";
        break;
      case '>':
        m_text += "&gt;";
        break;
      case '"':
        m_text += "&quot;";
        break;
      case '\'':
        m_text += "&#39;";
        break;
      case '\n':
        m_text += "&#10;";
        break;
      default:
        m_text += character;
    }
  }
}

std::string pixels(double number) {
  std::string text = fmt::format("{:.1f}", number);
  if (text.ends_with(".0")) {
    text.resize(text.size() - 2);
  }
  return text == "-0" ? "0" : text;
}

}  // namespace TarvexDiags::Svg
