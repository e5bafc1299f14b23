#pragma once

#include <expat.h>

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace TarvexDiags::Svg {

/// What an independent parser of XML finds in a piece of markup.
struct Parsed {
  std::string fault;  ///< empty: well-formed
  std::map<std::string, std::size_t> elements;
  std::set<std::string> ids;
  std::vector<std::string> repeatedIds;
  std::set<std::string> referred;  ///< ids that attributes lead to
  std::vector<std::string> texts;
  std::vector<std::map<std::string, std::string>> attributes;
};

inline void takeAttributes(Parsed& parsed, const std::map<std::string, std::string>& attributes) {
  for (const auto& [name, value] : attributes) {
    if (name == "id" && !parsed.ids.insert(value).second) {
      parsed.repeatedIds.push_back(value);
    }
    if (name == "href" && value.starts_with('#')) {
      parsed.referred.insert(value.substr(1));
    }
    if (name == "aria-labelledby" || name == "aria-describedby") {
      for (std::size_t from = 0; from < value.size();) {
        const std::size_t to = std::min(value.find(' ', from), value.size());
        parsed.referred.insert(value.substr(from, to - from));
        from = to + 1;
      }
    }
  }
  parsed.attributes.push_back(attributes);
}

inline Parsed parse(const std::string& markup) {
  Parsed parsed;
  const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate("UTF-8"), XML_ParserFree);
  XML_SetUserData(parser.get(), &parsed);
  XML_SetStartElementHandler(parser.get(),
                             [](void* user, const XML_Char* name, const XML_Char** pairs) {
                               auto& into = *static_cast<Parsed*>(user);
                               ++into.elements[name];
                               std::map<std::string, std::string> attributes{{"", name}};
                               for (; *pairs != nullptr; pairs += 2) {
                                 attributes[pairs[0]] = pairs[1];
                               }
                               takeAttributes(into, attributes);
                             });
  XML_SetCharacterDataHandler(parser.get(), [](void* user, const XML_Char* text, int length) {
    static_cast<Parsed*>(user)->texts.emplace_back(text, static_cast<std::size_t>(length));
  });
  if (XML_Parse(parser.get(), markup.data(), static_cast<int>(markup.size()), 1) != XML_STATUS_OK) {
    parsed.fault = std::string(XML_ErrorString(XML_GetErrorCode(parser.get()))) + " in line " +
                   std::to_string(XML_GetCurrentLineNumber(parser.get()));
  }
  return parsed;
}

}  // namespace TarvexDiags::Svg
