#include "diagctl/terminal/Printable.h"

#include <nlohmann/json.hpp>

namespace TarvexDiags::FrontEnd {

// The writer of JSON knows UTF-8 already, and its reader takes back what it writes.
std::string toUtf8(const std::string& text) {
  using Json = nlohmann::json;
  return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string toPrintable(const std::string& text, const std::string& lineBreak) {
  constexpr unsigned char deleteCharacter = 0x7f;
  std::string printable;
  for (const char character : toUtf8(text)) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '\n') {
      printable += lineBreak;
    } else {
      printable += byte < ' ' || byte == deleteCharacter ? ' ' : character;
    }
  }
  return printable;
}

}  // namespace TarvexDiags::FrontEnd
