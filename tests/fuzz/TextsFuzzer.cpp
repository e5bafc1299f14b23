// Fills in the variables of texts, by the controller and by the front end, which does it from
// memory when the files are gone: both tell the same.
//
// Input: a text up to a zero byte; then parameters, each up to a zero byte.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/session/TextArchive.h"
#include "tests/fuzz/Input.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(GenerateTag, DiagCtrl::DiagnosticController::generateString);

namespace {

using namespace TarvexDiags::Fuzz;
using Parameters = std::vector<std::string>;

constexpr std::size_t kSize = TarvexDiags::DiagCtrl::DiagCtrlConstants::miSBuffSize;

std::string filledByController(const std::string& text, const Parameters& parameters) {
  static auto& controller = *TarvexDiags::DiagCtrl::DiagnosticController::getInstance();
  // On the heap, so that a step over its end is seen.
  std::vector<char> buffer(kSize);
  std::copy(text.begin(), text.end(), buffer.begin());
  expect((controller.*memberOf(GenerateTag()))(buffer.data(), parameters));
  return buffer.data();
}

/// What no variable touches stays: all of a text without any, else what stands before the first.
void expectRestKept(const std::string& text, const std::string& filled) {
  const std::size_t first = text.find('$');
  if (first == std::string::npos) {
    expect(filled == text);
  } else {
    expect(filled.starts_with(text.substr(0, first)));
  }
}

/// A variable takes no more room than the longest parameter, and its own signs go.
void expectBounded(const std::string& text, const Parameters& parameters,
                   const std::string& filled) {
  std::size_t longest = 1;
  for (const std::string& parameter : parameters) {
    longest = std::max(longest, parameter.size());
  }
  const auto signs = static_cast<std::size_t>(std::count(text.begin(), text.end(), '$'));
  expect(filled.size() <= text.size() - signs + signs / 2 * longest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t mostParameters = 16;
  std::string rest = textOf(data, size);
  const std::string text = takeUntil(rest, '\0').substr(0, kSize - 1);
  Parameters parameters;
  while (!rest.empty() && parameters.size() < mostParameters) {
    parameters.push_back(takeUntil(rest, '\0'));
  }
  const std::string filled = TarvexDiags::FrontEnd::fillIn(text, parameters);
  expect(filledByController(text, parameters) == filled.substr(0, kSize - 1));
  expectRestKept(text, filled);
  expectBounded(text, parameters, filled);
  return 0;
}
