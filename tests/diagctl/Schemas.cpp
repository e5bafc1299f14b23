#include "tests/diagctl/Schemas.h"

#include <algorithm>
#include <regex>

#include "tests/diagctl/Workplace.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {

namespace {

using Json = nlohmann::json;

bool isOfType(const Json& value, const std::string& type) {
  return (type == "object" && value.is_object()) || (type == "array" && value.is_array()) ||
         (type == "string" && value.is_string()) || (type == "boolean" && value.is_boolean()) ||
         (type == "integer" && value.is_number_integer()) ||
         (type == "number" && value.is_number()) || (type == "null" && value.is_null());
}

bool isOfTypes(const Json& value, const Json& types) {
  if (types.is_string()) {
    return isOfType(value, types);
  }
  return std::any_of(types.begin(), types.end(),
                     [&](const Json& type) { return isOfType(value, type); });
}

Json schemaIn(const std::string& file) {
  return Json::parse(contentsOf(TestSupport::sourcePath("docs/schemas/" + file)));
}

class Judge {
 public:
  enum class Keys {
    Described,  ///< what no schema describes is a fault
    Any,
  };

  explicit Judge(Keys keys) : m_keys(keys) {}

  void judge(const Json& value, const Json& schema, const std::string& place) {
    if (schema.is_boolean()) {
      tellUnless(schema.get<bool>(), place, "must not be there");
      return;
    }
    if (schema.contains("$ref")) {
      judge(value, schemaIn(schema["$ref"]), place);
      return;
    }
    if (schema.contains("type") && !isOfTypes(value, schema["type"])) {
      tell(place, "is no " + schema["type"].dump());
      return;
    }
    judgeValue(value, schema, place);
    if (value.is_object()) {
      judgeKeys(value, schema, place);
    }
    for (std::size_t index = 0; value.is_array() && index < value.size(); ++index) {
      judge(value[index], schema.at("items"), place + "/" + std::to_string(index));
    }
    for (const Json& part : schema.value("allOf", Json::array())) {
      judgeCase(value, part, place);
    }
  }

  std::vector<std::string> faults;

 private:
  void judgeValue(const Json& value, const Json& schema, const std::string& place) {
    tellUnless(!schema.contains("const") || value == schema["const"], place,
               "is not " + schema.value("const", Json()).dump());
    const Json words = schema.value("enum", Json::array());
    tellUnless(words.empty() || std::find(words.begin(), words.end(), value) != words.end(), place,
               "is none of " + words.dump());
    tellUnless(!schema.contains("minimum") || value >= schema["minimum"], place, "is too small");
    tellUnless(!schema.contains("maximum") || value <= schema["maximum"], place, "is too large");
    tellUnless(!schema.contains("pattern") ||
                   std::regex_search(value.get<std::string>(),
                                     std::regex(schema["pattern"].get<std::string>())),
               place, "is not as its pattern");
  }

  void judgeKeys(const Json& value, const Json& schema, const std::string& place) {
    const bool isOpen = m_keys == Keys::Any || schema.value("additionalProperties", Json()) == true;
    const Json properties =
        isOpen ? schema.value("properties", Json::object()) : schema.at("properties");
    for (const std::string key :
         isOpen ? schema.value("required", Json::array()) : schema.at("required")) {
      tellUnless(value.contains(key), place, "lacks " + key);
    }
    for (const auto& [key, member] : value.items()) {
      if (properties.contains(key)) {
        judge(member, properties[key], place + "/" + key);
      } else if (schema.value("additionalProperties", Json()).is_object()) {
        judge(member, schema["additionalProperties"], place + "/" + key);
      } else {
        tellUnless(isOpen, place, "has " + key + ", which is not described");
      }
    }
  }

  void judgeCase(const Json& value, const Json& schema, const std::string& place) {
    Judge condition(Keys::Any);
    condition.judge(value, schema.at("if"), place);
    const char* const branch = condition.faults.empty() ? "then" : "else";
    if (schema.contains(branch)) {
      Judge consequence(Keys::Any);
      consequence.judge(value, schema[branch], place);
      faults.insert(faults.end(), consequence.faults.begin(), consequence.faults.end());
    }
  }

  void tellUnless(bool holds, const std::string& place, const std::string& fault) {
    if (!holds) {
      tell(place, fault);
    }
  }

  void tell(const std::string& place, const std::string& fault) {
    faults.push_back(place + " " + fault);
  }

  const Keys m_keys;
};

}  // namespace

std::vector<std::string> faultsBySchema(const Json& document, const std::string& schema) {
  Judge judge(Judge::Keys::Described);
  judge.judge(document, schemaIn(schema + ".schema.json"), "");
  return judge.faults;
}

}  // namespace TarvexDiags::DiagctlTest
