#include "tests/diagctl/Schemas.h"

#include <algorithm>

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

class Judge {
 public:
  void judge(const Json& value, const Json& schema, const std::string& place) {
    if (schema.contains("const") && value != schema["const"]) {
      tell(place, "is not " + schema["const"].dump());
    }
    if (schema.contains("enum") &&
        std::find(schema["enum"].begin(), schema["enum"].end(), value) == schema["enum"].end()) {
      tell(place, "is none of " + schema["enum"].dump());
    }
    if (schema.contains("type") && !isOfTypes(value, schema["type"])) {
      tell(place, "is no " + schema["type"].dump());
      return;
    }
    if (value.is_object()) {
      judgeKeys(value, schema, place);
    }
    for (std::size_t index = 0; value.is_array() && index < value.size(); ++index) {
      judge(value[index], schema.at("items"), place + "/" + std::to_string(index));
    }
  }

  std::vector<std::string> faults;

 private:
  void judgeKeys(const Json& value, const Json& schema, const std::string& place) {
    for (const std::string key : schema.at("required")) {
      if (!value.contains(key)) {
        tell(place, "lacks " + key);
      }
    }
    for (const auto& [key, member] : value.items()) {
      if (schema.at("properties").contains(key)) {
        judge(member, schema["properties"][key], place + "/" + key);
      } else if (schema.contains("additionalProperties")) {
        judge(member, schema["additionalProperties"], place + "/" + key);
      } else {
        tell(place, "has " + key + ", which is not described");
      }
    }
  }

  void tell(const std::string& place, const std::string& fault) {
    faults.push_back(place + " " + fault);
  }
};

}  // namespace

std::vector<std::string> faultsBySchema(const Json& document, const std::string& schema) {
  const std::string file = TestSupport::sourcePath("docs/schemas/" + schema + ".schema.json");
  Judge judge;
  judge.judge(document, Json::parse(contentsOf(file)), "");
  return judge.faults;
}

}  // namespace TarvexDiags::DiagctlTest
