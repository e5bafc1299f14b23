// Reads any bytes as what a machine is held against, and as rules for that.
//
// What is taken is held against a machine and that against it, both ways, and whatever it is: the
// worst finding comes first, it has none against itself, and rules are read as they are written.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>

#include "inventory/Comparison.h"
#include "inventory/Document.h"
#include "inventory/Golden.h"
#include "inventory/Rules.h"
#include "tests/fuzz/Input.h"
#include "tests/inventory/Documents.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::Inventory;

void holdAgainst(const Json& expected, const Json& actual, const Rules& rules) {
  const Comparison comparison = compare(expected, actual, rules);
  expect(std::is_sorted(
      comparison.findings.begin(), comparison.findings.end(),
      [](const Finding& one, const Finding& other) { return one.gravity > other.gravity; }));
}

void readRules(const Json& document) {
  try {
    const Rules rules = Rules::parse(document, "rules.json");
    expect(Rules::parse(rules.asJson(), "again").asJson() == rules.asJson());
    holdAgainst(smallMachine(), changed(smallMachine(), "/disks", Json::object()), rules);
  } catch (const DocumentFault&) {
    return;  // told
  }
}

void readExpected(const Json& document) {
  try {
    const Golden golden = parseGolden(document, "golden.json");
    Rules rules = golden.rules;
    rules.append(Rules::shipped());
    goldenOf({4, {"machine", golden.inventory}}, rules);
  } catch (const DocumentFault&) {
    return;  // told
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Json document;
  try {
    document = parseDocument(textOf(data, size), "document.json");
  } catch (const DocumentFault&) {
    return 0;
  }
  expect(compare(document, document, Rules::shipped()).findings.empty());
  expect(differencesOf(document, document).empty());
  holdAgainst(smallMachine(), document, Rules::shipped());
  holdAgainst(document, smallMachine(), Rules::shipped());
  readRules(document);
  readExpected(document);
  return 0;
}
