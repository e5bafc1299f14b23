// Holds the typed access to configuration keys against what it promises, on any file, any names and
// any size of the value's buffer.
//
// Input: two bytes, the size of the buffer; the section's name up to a line end; the key's name
// likewise; the rest is the file.

#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "tests/fuzz/Input.h"
#include "tests/support/ReferenceConfigReader.h"

namespace {

using namespace TarvexDiags::Fuzz;
using TarvexDiags::DiagCtrl::DiagCtrlConstants;
using TarvexDiags::DiagCtrl::DiagCtrlInvalidKey;
using TarvexDiags::DiagCtrl::DiagUtil;
using TarvexDiags::DiagCtrl::DiagValidator;

std::string taken(char* text) {
  const std::unique_ptr<char[]> owner(text);
  return text;
}

/// The result of a strict accessor, or nothing if it refused.
template <class Read>
auto strict(Read read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const DiagCtrlInvalidKey&) {
    return std::nullopt;
  }
}

/// A tolerant accessor stands by the default where the strict one refuses.
template <class Value>
void expectAgreement(const Value& tolerant, const std::optional<Value>& strictValue) {
  expect(tolerant == strictValue.value_or(Value()));
}

std::string fileOf(const std::string& text) {
  static const MemoryFile kFile("fuzz.cfg");
  kFile.write(text);
  return kFile.path();
}

/// What a buffer of the size shows of the value: nothing that was cut, and no more than a C text.
std::string shown(const std::optional<std::string>& value, std::size_t size) {
  return value.has_value() && value->size() < size ? value->c_str() : "";
}

void checkStrings(DiagUtil& util, const char* section, const char* key, const char* file,
                  unsigned int size, const std::optional<std::string>& value) {
  const std::string expected = shown(value, size);
  expect(taken(util.getString(section, key, size, file)) == expected);
  const auto strictValue =
      strict([&] { return taken(util.getAndValidateString(section, key, size, file)); });
  expect(strictValue.has_value() == !expected.empty());
  expectAgreement(expected, strictValue);
}

void checkNumbers(DiagUtil& util, const char* section, const char* key, const char* file,
                  const std::string& text) {
  const unsigned int number = util.getInt(section, key, file);
  expect(number == static_cast<unsigned int>(std::strtol(text.c_str(), nullptr, 10)));
  const auto strictNumber = strict([&] { return util.getAndValidateInt(section, key, file); });
  expect(strictNumber.has_value() == (number != 0));
  expectAgreement(number, strictNumber);
}

void checkKeywords(DiagUtil& util, const char* section, const char* key, const char* file,
                   unsigned int size, const std::string& text) {
  const auto truth = strict([&] { return util.getAndValidateBool(section, key, size, file); });
  expect(truth.has_value() ==
         (strcasecmp(text.c_str(), "TRUE") == 0 || strcasecmp(text.c_str(), "FALSE") == 0));
  expectAgreement(util.getBool(section, key, size, file), truth);

  for (unsigned int kind = 0; kind < 4; ++kind) {
    const auto type = static_cast<DiagValidator::enumType>(kind);
    const auto keyword =
        strict([&] { return util.getAndValidateEnum(section, key, size, file, type); });
    expect(!keyword.has_value() || (kind < 3 && *keyword <= kind + 1));
    expectAgreement(util.getEnum(section, key, size, file, type), keyword);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
  if (length < 2) {
    return 0;
  }
  constexpr auto kBufferSize = static_cast<unsigned int>(DiagCtrlConstants::miSBuffSize);
  const unsigned int size = (data[0] * 256U + data[1]) % (kBufferSize + 1);
  std::string text = textOf(data + 2, length - 2);
  // Names are C texts.
  const std::string section = takeLine(text).c_str();
  const std::string key = takeLine(text).c_str();
  const std::string file = fileOf(text);

  const auto value = TarvexDiags::TestSupport::ReferenceConfigReader(text).read(section, key);
  DiagUtil& util = *DiagUtil::getInstance();
  checkStrings(util, section.c_str(), key.c_str(), file.c_str(), size, value);
  checkNumbers(util, section.c_str(), key.c_str(), file.c_str(), shown(value, kBufferSize));
  checkKeywords(util, section.c_str(), key.c_str(), file.c_str(), size, shown(value, size));
  return 0;
}
