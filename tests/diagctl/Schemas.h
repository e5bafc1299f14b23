#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace TarvexDiags::DiagctlTest {

/// What is wrong with a document by a schema of docs/schemas: types, constants, lists of values,
/// bounds, patterns, what holds in some cases, keys that are missing, and keys that no schema
/// describes. A line each with the place.
/// @param schema its name: "packages".
std::vector<std::string> faultsBySchema(const nlohmann::json& document, const std::string& schema);

}  // namespace TarvexDiags::DiagctlTest
