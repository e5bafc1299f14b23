// Typed access to configuration keys, the keywords, and the reader of the control file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "DiagCtrl/DiagControlConfig.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageDetails.h"
#include "System/SysUtil.h"
#include "tests/support/ConfigText.h"
#include "tests/support/ControlFile.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using TestSupport::ConfigText;
using TestSupport::ControlFile;
using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;

constexpr unsigned int kSize = DiagCtrlConstants::miSBuffSize;

static_assert(std::has_virtual_destructor_v<DiagUtil> &&
              std::has_virtual_destructor_v<DiagValidator> &&
              std::has_virtual_destructor_v<DiagControlConfig> &&
              !std::is_polymorphic_v<PackageDetails>);

/// The text of an array that passes to the caller.
std::string taken(char* text) {
  const std::unique_ptr<char[]> owner(text);
  return text;
}

template <class Exception>
const char* textOf(const Exception& failure) {
  return failure.getParameter();
}
const char* textOf(const DiagCtrlInvalidKey& failure) {
  return failure.getKey();
}

template <class Exception>
void expectFailure(const std::function<void()>& action, DiagCtrlBaseException::MinorCodeEnum minor,
                   const std::string& text) {
  try {
    action();
    ADD_FAILURE() << text << " did not throw";
  } catch (const Exception& failure) {
    EXPECT_EQ(failure.getMinor(), minor);
    EXPECT_EQ(textOf(failure), text);
    EXPECT_TRUE(std::string(failure.getFile()).starts_with("DiagCtrl/")) << failure.getFile();
  }
}

void expectInvalidKey(const std::function<void()>& action, const std::string& text) {
  expectFailure<DiagCtrlInvalidKey>(action, DiagCtrlBaseException::InvalidKey, text);
}

// ---- Typed access -------------------------------------------------------------------------------

class DiagUtilTest : public ::testing::Test {
 protected:
  /// Makes the value of the one key.
  void value(const std::string& text) { file(ConfigText().set("Section", "Key", text)); }
  void file(const ConfigText& text) { m_file = text.writeTo(m_directory, "test.cfg"); }

  std::string getString() {
    return taken(m_util->getString("Section", "Key", kSize, m_file.c_str()));
  }
  std::string getStrictString() {
    return taken(m_util->getAndValidateString("Section", "Key", kSize, m_file.c_str()));
  }
  unsigned int getInt() { return m_util->getInt("Section", "Key", m_file.c_str()); }
  unsigned int getStrictInt() {
    return m_util->getAndValidateInt("Section", "Key", m_file.c_str());
  }
  bool getBool() { return m_util->getBool("Section", "Key", kSize, m_file.c_str()); }
  bool getStrictBool() {
    return m_util->getAndValidateBool("Section", "Key", kSize, m_file.c_str());
  }
  unsigned int getEnum(DiagValidator::enumType kind) {
    return m_util->getEnum("Section", "Key", kSize, m_file.c_str(), kind);
  }
  unsigned int getStrictEnum(DiagValidator::enumType kind) {
    return m_util->getAndValidateEnum("Section", "Key", kSize, m_file.c_str(), kind);
  }

  /// What all eight say of a key that gives nothing.
  void expectNothing() {
    EXPECT_EQ(getString(), "");
    EXPECT_EQ(getInt(), 0U);
    EXPECT_FALSE(getBool());
    EXPECT_EQ(getEnum(DiagValidator::runMode), 0U);
    EXPECT_EQ(getEnum(DiagValidator::debugLevel), 0U);
    expectInvalidKey([&] { getStrictString(); }, "DiagUtil::getAndValidateString()");
    expectInvalidKey([&] { getStrictInt(); }, "DiagUtil::getAndValidateInt()");
    expectInvalidKey([&] { getStrictBool(); }, "DiagUtil::getAndValidateBool()");
    expectInvalidKey([&] { getStrictEnum(DiagValidator::runMode); },
                     "DiagUtil::getAndValidateEnum()");
    expectInvalidKey([&] { getStrictEnum(DiagValidator::diagMode); },
                     "DiagUtil::getAndValidateEnum()");
    EXPECT_EQ(getStrictEnum(DiagValidator::debugLevel), 0U) << "the empty text is a keyword";
  }

  const TemporaryDirectory m_directory;
  std::string m_file = m_directory.file("test.cfg");
  DiagUtil* m_util = DiagUtil::getInstance();
};

TEST_F(DiagUtilTest, finds_nothing_without_a_file) {
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_in_a_directory) {
  m_file = m_directory.path();
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_without_the_section) {
  file(ConfigText().set("Other", "Key", "1"));
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_without_the_key) {
  file(ConfigText().set("Section", "Other", "1"));
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_in_an_empty_value) {
  value("");
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_in_a_value_of_blanks) {
  value("   ");
  expectNothing();
}

TEST_F(DiagUtilTest, matches_names_as_they_are_spelled) {
  file(ConfigText().set("section", "Key", "1").set("Section", "key", "1"));
  expectNothing();
}

TEST_F(DiagUtilTest, finds_nothing_under_a_null_name) {
  value("1");
  EXPECT_EQ(taken(m_util->getString(nullptr, "Key", kSize, m_file.c_str())), "");
  EXPECT_EQ(taken(m_util->getString("Section", nullptr, kSize, m_file.c_str())), "");
  EXPECT_EQ(taken(m_util->getString("Section", "Key", kSize, nullptr)), "");
}

TEST_F(DiagUtilTest, reads_from_sections_with_blanks_and_numbers) {
  file(ConfigText().set("Disable Device", "NumberOfDevice", "3").set("Package12", "Os", "Linux"));
  EXPECT_EQ(m_util->getInt("Disable Device", "NumberOfDevice", m_file.c_str()), 3U);
  EXPECT_EQ(taken(m_util->getString("Package12", "Os", kSize, m_file.c_str())), "Linux");
}

TEST_F(DiagUtilTest, reads_the_file_anew_each_time) {
  value("before");
  EXPECT_EQ(getString(), "before");
  value("after");
  EXPECT_EQ(getString(), "after");
  std::filesystem::remove(m_file);
  EXPECT_EQ(getString(), "");
}

TEST_F(DiagUtilTest, reads_the_longest_value_whole) {
  const std::string longest(kSize - 1, 'x');
  value(longest);
  EXPECT_EQ(getString(), longest);
  EXPECT_EQ(getStrictString(), longest);
}

TEST_F(DiagUtilTest, drops_a_value_that_is_too_long) {
  for (const std::size_t length :
       {std::size_t{kSize}, std::size_t{kSize} + 1, std::size_t{65536}}) {
    value(std::string(length, '1'));
    expectNothing();
  }
}

TEST_F(DiagUtilTest, drops_a_value_that_does_not_fit_the_size_asked_for) {
  value("12345678");
  EXPECT_EQ(taken(m_util->getString("Section", "Key", 8, m_file.c_str())), "");
  EXPECT_EQ(taken(m_util->getString("Section", "Key", 9, m_file.c_str())), "12345678");
  EXPECT_EQ(taken(m_util->getString("Section", "Key", 0, m_file.c_str())), "");
}

TEST_F(DiagUtilTest, stays_in_its_buffer_whatever_the_size_asked_for) {
  value("text");
  EXPECT_EQ(taken(m_util->getString("Section", "Key", UINT_MAX, m_file.c_str())), "text");
  value(std::string(kSize, 'x'));
  EXPECT_EQ(taken(m_util->getString("Section", "Key", 2 * kSize, m_file.c_str())), "");
}

TEST_F(DiagUtilTest, reads_integers_in_decimal) {
  const std::map<std::string, unsigned int> values = {
      {"5", 5},
      {"+5", 5},
      {"007", 7},
      {"12abc", 12},
      {"3.9", 3},
      {"-1", UINT_MAX},
      {"2147483647", INT_MAX},
      {"-2147483648", 0x80000000U},
      {"4294967297", 1},  // narrowed
  };
  for (const auto& [text, expected] : values) {
    value(text);
    EXPECT_EQ(getInt(), expected) << text;
    EXPECT_EQ(getStrictInt(), expected) << text;
  }
}

TEST_F(DiagUtilTest, reads_no_integer_from_other_texts_and_none_is_good_enough_where_0_is_not) {
  for (const char* text : {"0", "000", "-0", "abc", "0x10", "x5", "TRUE", "0abc", "4294967296"}) {
    value(text);
    EXPECT_EQ(getInt(), 0U) << text;
    expectInvalidKey([&] { getStrictInt(); }, "DiagUtil::getAndValidateInt()");
  }
}

TEST_F(DiagUtilTest, reads_booleans_from_two_words_in_any_case) {
  const std::map<std::string, bool> values = {{"TRUE", true},   {"true", true},   {"True", true},
                                              {"FALSE", false}, {"false", false}, {"fAlSe", false}};
  for (const auto& [text, expected] : values) {
    value(text);
    EXPECT_EQ(getBool(), expected) << text;
    EXPECT_EQ(getStrictBool(), expected) << text;
  }
}

TEST_F(DiagUtilTest, reads_no_boolean_from_other_texts) {
  for (const char* text : {"1", "0", "yes", "no", "on", "TRUE!", "TRU", "FALSE 1"}) {
    value(text);
    EXPECT_FALSE(getBool()) << text;
    expectInvalidKey([&] { getStrictBool(); }, "DiagUtil::getAndValidateBool()");
  }
}

struct KeywordCase {
  DiagValidator::enumType kind;
  const char* text;
  unsigned int value;
};

constexpr KeywordCase kKeywordCases[] = {
    {DiagValidator::runMode, "SERIAL", 0},
    {DiagValidator::runMode, "serial", 0},
    {DiagValidator::runMode, "Serial", 0},
    {DiagValidator::runMode, "0", 0},
    {DiagValidator::runMode, "PARALLEL", 1},
    {DiagValidator::runMode, "parallel", 1},
    {DiagValidator::runMode, "1", 1},
    {DiagValidator::diagMode, "CUSTOMER", 0},
    {DiagValidator::diagMode, "0", 0},
    {DiagValidator::diagMode, "FACTORY", 1},
    {DiagValidator::diagMode, "Factory", 1},
    {DiagValidator::diagMode, "1", 1},
    {DiagValidator::diagMode, "BRINGUP", 2},
    {DiagValidator::diagMode, "bringup", 2},
    {DiagValidator::diagMode, "2", 2},
    {DiagValidator::debugLevel, "DIAG_NO", 0},
    {DiagValidator::debugLevel, "0", 0},
    {DiagValidator::debugLevel, "DIAG_ERROR", 1},
    {DiagValidator::debugLevel, "1", 1},
    {DiagValidator::debugLevel, "DIAG_WARNING", 2},
    {DiagValidator::debugLevel, "2", 2},
    {DiagValidator::debugLevel, "DIAG_INFORMATION", 3},
    {DiagValidator::debugLevel, "diag_information", 3},
    {DiagValidator::debugLevel, "3", 3},
};

constexpr KeywordCase kNoKeywords[] = {
    {DiagValidator::runMode, "2", 0},         {DiagValidator::runMode, "SERIAL1", 0},
    {DiagValidator::runMode, "CUSTOMER", 0},  {DiagValidator::runMode, "00", 0},
    {DiagValidator::diagMode, "3", 0},        {DiagValidator::diagMode, "SERIAL", 0},
    {DiagValidator::diagMode, "BRING UP", 0}, {DiagValidator::debugLevel, "4", 0},
    {DiagValidator::debugLevel, "ERROR", 0},  {DiagValidator::debugLevel, "DIAG_ERRORS", 0},
    {DiagValidator::debugLevel, "-1", 0},
};

TEST_F(DiagUtilTest, reads_keywords_and_their_numbers) {
  for (const KeywordCase& keyword : kKeywordCases) {
    value(keyword.text);
    EXPECT_EQ(getEnum(keyword.kind), keyword.value) << keyword.text;
    EXPECT_EQ(getStrictEnum(keyword.kind), keyword.value) << keyword.text;
  }
}

TEST_F(DiagUtilTest, reads_no_keyword_from_other_texts) {
  for (const KeywordCase& keyword : kNoKeywords) {
    value(keyword.text);
    EXPECT_EQ(getEnum(keyword.kind), 0U) << keyword.text;
    expectInvalidKey([&] { getStrictEnum(keyword.kind); }, "DiagUtil::getAndValidateEnum()");
  }
}

TEST_F(DiagUtilTest, fills_the_buffer_with_the_value_and_zeros) {
  value("abc");
  char buffer[16];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_GE(m_util->GetParamsValueString("Section", "Key", "default", buffer, 8, m_file.c_str()),
            0);
  EXPECT_EQ(std::string(buffer, sizeof buffer),
            std::string("abc\0\0\0\0\0", 8) + std::string(8, '#'));
}

TEST_F(DiagUtilTest, fills_the_buffer_with_the_default_where_no_value_is_or_fits) {
  char buffer[4];
  const auto read = [&](const char* key) {
    const int result =
        m_util->GetParamsValueString("Section", key, "def", buffer, sizeof buffer, m_file.c_str());
    EXPECT_STREQ(buffer, "def") << key;
    return result;
  };
  file(ConfigText().set("Section", "Empty", "").set("Section", "Long", "1234"));
  std::string ignored;
  EXPECT_LT(read("Absent"), 0);
  EXPECT_EQ(read("Empty"), System::SysUtil::ReadCfgFile("Section", "Empty", ignored, m_file, -1));
  EXPECT_GE(read("Long"), 0) << "the reader's own result, also where the default stands";
}

TEST_F(DiagUtilTest, cuts_a_default_at_the_size_of_the_buffer) {
  char buffer[6];
  std::memset(buffer, '#', sizeof buffer);
  m_util->GetParamsValueString("Section", "Key", "default", buffer, 4, m_file.c_str());
  EXPECT_EQ(std::string(buffer, sizeof buffer), "defa##");
}

TEST_F(DiagUtilTest, takes_a_default_for_an_absent_integer) {
  EXPECT_EQ(m_util->GetParamsValueInt("Section", "Key", -7, m_file.c_str()), -7);
  value("12");
  EXPECT_EQ(m_util->GetParamsValueInt("Section", "Key", -7, m_file.c_str()), 12);
  value("abc");
  EXPECT_EQ(m_util->GetParamsValueInt("Section", "Key", -7, m_file.c_str()), 0);
}

TEST_F(DiagUtilTest, traces_each_read_with_file_section_key_and_value) {
  DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(), 3);
  const TraceFile trace(m_directory.path());
  value("some text");
  getString();
  EXPECT_TRUE(
      trace.contains("\tSTRING: DiagUtil::getString " + m_file + " [Section] Key \"some text\""));
  EXPECT_EQ(trace.texts().front(), "@enter DiagUtil::getString");
  EXPECT_EQ(trace.texts().back(), "@exit DiagUtil::getString");
  EXPECT_EQ(trace.count("@enter "), trace.count("@exit "));
}

TEST_F(DiagUtilTest, closes_its_traces_and_warns_when_a_strict_read_fails) {
  DiagTracer* const tracer = DiagTracer::getInstance();
  tracer->openTraceFile(m_directory.path().c_str(), 3);
  const TraceFile trace(m_directory.path());
  expectNothing();
  EXPECT_EQ(trace.count("@enter "), trace.count("@exit "));

  const auto before = trace.lines().size();
  tracer->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  EXPECT_THROW(getStrictString(), DiagCtrlInvalidKey);
  EXPECT_EQ(trace.lines().size(), before);
  tracer->setTraceLevel(DiagCtrlConstants::DIAG_WARNING);
  EXPECT_THROW(getStrictString(), DiagCtrlInvalidKey);
  EXPECT_EQ(trace.lines().size(), before + 1);
}

TEST_F(DiagUtilTest, starts_anew_after_it_was_deleted) {
  value("7");
  delete m_util;
  m_util = DiagUtil::getInstance();
  EXPECT_EQ(getInt(), 7U);
}

// ---- Keywords -----------------------------------------------------------------------------------

class DiagValidatorTest : public ::testing::Test {
 protected:
  DiagValidator* m_validator = DiagValidator::getInstance();
};

TEST_F(DiagValidatorTest, finds_every_text_but_the_empty_one_valid) {
  EXPECT_FALSE(m_validator->validString(""));
  EXPECT_TRUE(m_validator->validString(" "));
  EXPECT_TRUE(m_validator->validString("x"));
}

TEST_F(DiagValidatorTest, knows_two_words_for_booleans) {
  EXPECT_TRUE(m_validator->validBool("TrUe"));
  EXPECT_FALSE(m_validator->validBool("FALSE"));
  for (const char* text : {"", "1", "0", "yes", " TRUE"}) {
    expectInvalidKey([&] { m_validator->validBool(text); }, "DiagValidator::validBool()");
  }
}

TEST_F(DiagValidatorTest, finds_every_boolean_valid) {
  EXPECT_TRUE(m_validator->validBool(true));
  EXPECT_FALSE(m_validator->validBool(false));
}

TEST_F(DiagValidatorTest, gives_the_number_of_a_keyword) {
  for (const KeywordCase& keyword : kKeywordCases) {
    EXPECT_EQ(m_validator->getAndValidateEnum(keyword.text, keyword.kind), keyword.value)
        << keyword.text;
  }
  EXPECT_EQ(m_validator->getAndValidateEnum("", DiagValidator::debugLevel), 0U);
}

TEST_F(DiagValidatorTest, refuses_other_texts) {
  for (const KeywordCase& keyword : kNoKeywords) {
    expectInvalidKey([&] { m_validator->getAndValidateEnum(keyword.text, keyword.kind); },
                     "DiagValidator::getAndValidateEnum()");
  }
  for (const auto kind : {DiagValidator::runMode, DiagValidator::diagMode}) {
    expectInvalidKey([&] { m_validator->getAndValidateEnum("", kind); },
                     "DiagValidator::getAndValidateEnum()");
  }
}

TEST_F(DiagValidatorTest, takes_numbers_up_to_the_last_of_a_kind) {
  const std::map<DiagValidator::enumType, unsigned int> largest = {
      {DiagValidator::runMode, 1}, {DiagValidator::diagMode, 2}, {DiagValidator::debugLevel, 3}};
  for (const auto& [kind, last] : largest) {
    for (unsigned int number = 0; number <= last; ++number) {
      EXPECT_EQ(m_validator->getAndValidateEnum(number, kind), number) << kind;
    }
    for (const unsigned int number : {last + 1, UINT_MAX}) {
      expectFailure<DiagCtrlInvalidParameter>(
          [&, kind = kind] { m_validator->getAndValidateEnum(number, kind); },
          DiagCtrlBaseException::InvalidParameter, "DiagValidator::getAndValidateEnum()");
    }
  }
}

TEST_F(DiagValidatorTest, knows_three_kinds) {
  for (const unsigned int number : {3U, UINT_MAX}) {
    const auto kind = static_cast<DiagValidator::enumType>(number);
    expectInvalidKey([&] { m_validator->getAndValidateEnum("0", kind); },
                     "DiagValidator::getAndValidateEnum()");
    expectFailure<DiagCtrlInvalidParameter>([&] { m_validator->getAndValidateEnum(0U, kind); },
                                            DiagCtrlBaseException::InvalidParameter,
                                            "DiagValidator::getAndValidateEnum()");
  }
}

// ---- The control file ---------------------------------------------------------------------------

class DiagControlConfigTest : public ::testing::Test {
 protected:
  void write(const ControlFile& file) { file.writeTo(m_directory); }

  std::unique_ptr<GlobalSettings> settings() {
    return std::unique_ptr<GlobalSettings>(m_config.readGlobalSettings());
  }

  /// What stands in the map, as (name, system, machine).
  struct Entry {
    std::string name;
    std::string os;
    int machine;
    bool operator==(const Entry& other) const {
      return name == other.name && os == other.os && machine == other.machine;
    }
  };
  std::vector<Entry> entries() {
    std::vector<Entry> result;
    for (const auto& [name, details] : m_config.getPackageDetailsMap()) {
      result.push_back({name, details->getOs(), details->getMachineId()});
    }
    return result;
  }

  static void expectInvalidFile(const std::function<void()>& action, const std::string& method) {
    expectFailure<DiagCtrlInvalidKey>(action, DiagCtrlBaseException::InvalidValueInConfigFile,
                                      "DiagControlConfig::" + method);
  }

  const TemporaryDirectory m_directory;
  const std::string m_path = m_directory.file("control.cfg");
  DiagControlConfig m_config{m_path.c_str()};
};

TEST_F(DiagControlConfigTest, reads_the_three_paths) {
  write(ControlFile().packDirPath("/packs").logDirPath("/logs").msgFilePath("/messages.cfg"));
  EXPECT_EQ(taken(m_config.readPackageDirPath()), "/packs");
  EXPECT_EQ(taken(m_config.readLogDirPath()), "/logs");
  EXPECT_EQ(taken(m_config.readMessageFilePath()), "/messages.cfg");
}

TEST_F(DiagControlConfigTest, bears_a_missing_message_file_only) {
  write(ControlFile().without("PackDirPath"));
  expectInvalidFile([&] { m_config.readPackageDirPath(); }, "readPackageDirPath");
  expectInvalidFile([&] { m_config.readLogDirPath(); }, "readLogDirPath");
  EXPECT_EQ(taken(m_config.readMessageFilePath()), "");
}

TEST_F(DiagControlConfigTest, takes_an_empty_path_for_a_missing_one) {
  write(ControlFile().packDirPath("").logDirPath("").msgFilePath(""));
  expectInvalidFile([&] { m_config.readPackageDirPath(); }, "readPackageDirPath");
  expectInvalidFile([&] { m_config.readLogDirPath(); }, "readLogDirPath");
  EXPECT_EQ(taken(m_config.readMessageFilePath()), "");
}

TEST_F(DiagControlConfigTest, finds_nothing_without_a_path) {
  DiagControlConfig config;
  expectInvalidFile([&] { config.readPackageDirPath(); }, "readPackageDirPath");
  expectInvalidFile([&] { config.readLogDirPath(); }, "readLogDirPath");
  expectInvalidFile([&] { config.readGlobalSettings(); }, "readGlobalSettings");
  EXPECT_EQ(taken(config.readMessageFilePath()), "");
  config.readPackageDetails();
  EXPECT_THAT(config.getPackageDetailsMap(), IsEmpty());
  EXPECT_EQ(config.readMachineId(), 1);
}

TEST_F(DiagControlConfigTest, reads_the_settings) {
  write(ControlFile()
            .with("DebugLog", "DIAG_WARNING")
            .with("RunMode", "parallel")
            .with("DiagLog", "TRUE")
            .with("HaltOnError", "true")
            .with("DiagnosticMode", "BRINGUP"));
  const auto read = settings();
  EXPECT_EQ(read->getDebugLog(), DiagCtrlConstants::DIAG_WARNING);
  EXPECT_EQ(read->getRunMode(), GlobalSettings::PARALLEL);
  EXPECT_TRUE(read->getDiagLogMode());
  EXPECT_TRUE(read->getHaltOnError());
  EXPECT_EQ(read->getDiagnosticMode(), GlobalSettings::BRINGUP);
}

TEST_F(DiagControlConfigTest, reads_settings_as_numbers) {
  write(ControlFile().with("DebugLog", "3").with("RunMode", "1").with("DiagnosticMode", "1"));
  const auto read = settings();
  EXPECT_EQ(read->getDebugLog(), DiagCtrlConstants::DIAG_INFORMATION);
  EXPECT_EQ(read->getRunMode(), GlobalSettings::PARALLEL);
  EXPECT_EQ(read->getDiagnosticMode(), GlobalSettings::FACTORY);
}

TEST_F(DiagControlConfigTest, does_without_the_tolerant_settings) {
  write(ControlFile());
  const auto read = settings();
  EXPECT_EQ(read->getDebugLog(), DiagCtrlConstants::DIAG_NO);
  EXPECT_EQ(read->getRunMode(), GlobalSettings::SERIAL);
  EXPECT_FALSE(read->getDiagLogMode());
  EXPECT_FALSE(read->getHaltOnError());
  EXPECT_EQ(read->getDiagnosticMode(), GlobalSettings::CUSTOMER);
}

TEST_F(DiagControlConfigTest, takes_a_misspelt_tolerant_setting_for_a_missing_one) {
  write(ControlFile().with("DebugLog", "DIAG_EVERYTHING").with("DiagLog", "yes"));
  const auto read = settings();
  EXPECT_EQ(read->getDebugLog(), DiagCtrlConstants::DIAG_NO);
  EXPECT_FALSE(read->getDiagLogMode());
}

TEST_F(DiagControlConfigTest, requires_the_strict_settings) {
  for (const char* key : {"RunMode", "HaltOnError", "DiagnosticMode"}) {
    write(ControlFile().without(key));
    expectInvalidFile([&] { m_config.readGlobalSettings(); }, "readGlobalSettings");
    for (const char* value : {"", "other", "7", "maybe"}) {
      write(ControlFile().with(key, value));
      expectInvalidFile([&] { m_config.readGlobalSettings(); }, "readGlobalSettings");
    }
  }
}

TEST_F(DiagControlConfigTest, gives_no_effect_to_keys_that_nobody_reads) {
  write(ControlFile().with("StressMode", "perhaps").with("Language", "xx"));
  EXPECT_EQ(settings()->getRunMode(), GlobalSettings::SERIAL);
}

/// The keys of the file in the order in which the trace tells of their reading.
std::vector<std::string> keysRead(const TraceFile& trace) {
  static const std::string kMarker = "[GlobalSettings] ";
  std::vector<std::string> keys;
  for (const std::string& text : trace.texts()) {
    const auto found = text.find(kMarker);
    if (found != std::string::npos && text.find("DiagUtil::getString ") != std::string::npos) {
      const auto start = found + kMarker.size();
      keys.push_back(text.substr(start, text.find(' ', start) - start));
    }
  }
  return keys;
}

TEST_F(DiagControlConfigTest, reads_the_settings_in_a_fixed_order_and_stops_at_the_first_fault) {
  DiagTracer* const tracer = DiagTracer::getInstance();
  tracer->openTraceFile(m_directory.path().c_str(), 3);
  const TraceFile trace(m_directory.path());
  write(ControlFile().with("DebugLog", "3").with("DiagnosticMode", "none"));
  EXPECT_THROW(m_config.readGlobalSettings(), DiagCtrlInvalidKey);
  EXPECT_THAT(keysRead(trace),
              ElementsAre("DebugLog", "RunMode", "DiagLog", "HaltOnError", "DiagnosticMode"));
  EXPECT_EQ(trace.count("@enter "), trace.count("@exit "));

  write(ControlFile().with("DebugLog", "3").without("RunMode"));
  EXPECT_THROW(m_config.readGlobalSettings(), DiagCtrlInvalidKey);
  EXPECT_EQ(keysRead(trace).back(), "RunMode");
}

TEST_F(DiagControlConfigTest, sets_the_trace_level_with_the_settings) {
  DiagTracer* const tracer = DiagTracer::getInstance();
  tracer->openTraceFile(m_directory.path().c_str(), 3);
  tracer->beginTrace(1, "Sample::method");
  const TraceFile trace(m_directory.path());
  const auto isWritten = [&](int level) {
    const auto before = trace.lines().size();
    tracer->traceValue(level, "File.cpp", 1, "text");
    return trace.lines().size() > before;
  };
  write(ControlFile().with("DebugLog", "DIAG_ERROR"));
  settings();
  EXPECT_TRUE(isWritten(1));
  EXPECT_FALSE(isWritten(2));
  write(ControlFile().with("DebugLog", "DIAG_WARNING").with("RunMode", "none"));
  EXPECT_THROW(m_config.readGlobalSettings(), DiagCtrlInvalidKey);
  EXPECT_FALSE(isWritten(2)) << "a failed read sets nothing";
}

TEST_F(DiagControlConfigTest, warns_in_its_own_name_of_what_is_wrong_with_the_file) {
  DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(),
                                           DiagCtrlConstants::DIAG_WARNING);
  const TraceFile trace(m_directory.path());
  write(ControlFile().without("PackDirPath").without("HaltOnError").disablePackage(""));
  const std::pair<const char*, std::function<void()>> readers[] = {
      {"readPackageDirPath", [&] { m_config.readPackageDirPath(); }},
      {"readLogDirPath", [&] { m_config.readLogDirPath(); }},
      {"readPackageDetails", [&] { m_config.readPackageDetails(); }},
      // Last: it would set the level, if it succeeded.
      {"readGlobalSettings", [&] { m_config.readGlobalSettings(); }},
  };
  for (const auto& [method, read] : readers) {
    EXPECT_THROW(read(), DiagCtrlInvalidKey);
    EXPECT_TRUE(
        trace.texts().back().ends_with("\tSTRING: DiagControlConfig::" + std::string(method) +
                                       " caught DiagCtrlInvalidKey Exception"))
        << trace.texts().back();
  }
}

TEST_F(DiagControlConfigTest, has_no_entries_without_a_count) {
  write(ControlFile());
  m_config.readPackageDetails();
  EXPECT_THAT(entries(), IsEmpty());
  for (const char* count : {"0", "", "some"}) {
    write(ControlFile().disablePackage("memory").withKey("DisablePackage", "NumPackages", count));
    m_config.readPackageDetails();
    EXPECT_THAT(entries(), IsEmpty()) << count;
  }
  EXPECT_THAT(m_config.getDisablePackageList(-1), IsEmpty());
}

TEST_F(DiagControlConfigTest, reads_the_entries) {
  write(ControlFile().disablePackage("memory", "Linux", "2").disablePackage("disk"));
  m_config.readPackageDetails();
  EXPECT_THAT(entries(), UnorderedElementsAre(Entry{"memory", "Linux", 2}, Entry{"disk", "", 0}));
}

TEST_F(DiagControlConfigTest, reads_no_entry_behind_the_count) {
  write(ControlFile().disablePackage("memory").disablePackage("disk").withKey("DisablePackage",
                                                                              "NumPackages", "1"));
  m_config.readPackageDetails();
  EXPECT_THAT(entries(), UnorderedElementsAre(Entry{"memory", "", 0}));
}

TEST_F(DiagControlConfigTest, keeps_two_entries_for_one_package) {
  write(ControlFile().disablePackage("memory", "WinNT").disablePackage("memory", "Linux"));
  m_config.readPackageDetails();
  EXPECT_THAT(entries(),
              UnorderedElementsAre(Entry{"memory", "WinNT", 0}, Entry{"memory", "Linux", 0}));
}

TEST_F(DiagControlConfigTest, appends_the_entries_of_each_reading) {
  write(ControlFile().disablePackage("memory"));
  m_config.readPackageDetails();
  write(ControlFile().disablePackage("disk"));
  m_config.readPackageDetails();
  EXPECT_THAT(entries(), UnorderedElementsAre(Entry{"memory", "", 0}, Entry{"disk", "", 0}));
}

TEST_F(DiagControlConfigTest, requires_a_name_in_each_entry_and_keeps_the_ones_before) {
  write(ControlFile().disablePackage("memory").withKey("DisablePackage", "NumPackages", "2"));
  expectInvalidFile([&] { m_config.readPackageDetails(); }, "readPackageDetails");
  EXPECT_THAT(entries(), UnorderedElementsAre(Entry{"memory", "", 0}));
}

TEST_F(DiagControlConfigTest, takes_an_empty_name_for_a_missing_one) {
  write(ControlFile().disablePackage(""));
  expectInvalidFile([&] { m_config.readPackageDetails(); }, "readPackageDetails");
}

TEST_F(DiagControlConfigTest, goes_on_to_the_first_missing_name_with_a_negative_count) {
  write(ControlFile().disablePackage("memory").disablePackage("disk").withKey("DisablePackage",
                                                                              "NumPackages", "-1"));
  expectInvalidFile([&] { m_config.readPackageDetails(); }, "readPackageDetails");
  EXPECT_THAT(entries(), UnorderedElementsAre(Entry{"memory", "", 0}, Entry{"disk", "", 0}));
}

TEST_F(DiagControlConfigTest, reads_machine_ids_in_three_notations_and_16_bits) {
  const std::map<std::string, int> ids = {
      {"1", 1},     {"0x1", 1},    {"0X1f", 31}, {"010", 8}, {"65535", 65535}, {"65536", 0},
      {"65537", 1}, {"-1", 65535}, {"0", 0},     {"any", 0}, {"7th", 7}};
  for (const auto& [text, expected] : ids) {
    write(ControlFile().disablePackage("memory", "", text));
    DiagControlConfig config(m_path.c_str());
    config.readPackageDetails();
    ASSERT_EQ(config.getPackageDetailsMap().size(), 1U);
    EXPECT_EQ(config.getPackageDetailsMap().begin()->second->getMachineId(), expected) << text;
  }
}

TEST_F(DiagControlConfigTest, lists_the_names_in_the_order_of_the_map) {
  write(ControlFile().disablePackage("c").disablePackage("a").disablePackage("b"));
  m_config.readPackageDetails();
  std::vector<const char*> keys;
  for (const auto& entry : m_config.getPackageDetailsMap()) {
    keys.push_back(entry.first);
  }
  for (const long timeOut : {-1L, 0L, 200L}) {
    const auto names = m_config.getDisablePackageList(timeOut);
    EXPECT_EQ(std::vector<const char*>(names.begin(), names.end()), keys);
  }
}

TEST_F(DiagControlConfigTest, leaves_the_names_to_those_who_hold_them) {
  write(ControlFile().disablePackage("memory", "Linux"));
  auto config = std::make_unique<DiagControlConfig>(m_path.c_str());
  config->readPackageDetails();
  const auto names = config->getDisablePackageList(-1);
  config.reset();
  EXPECT_STREQ(names.front(), "memory");
}

TEST_F(DiagControlConfigTest, is_the_same_machine_everywhere) {
  write(ControlFile().with("MachineId", "7"));
  EXPECT_EQ(m_config.readMachineId(), 1);
}

TEST(PackageDetails, owns_its_text) {
  PackageDetails details;
  EXPECT_EQ(details.getOs(), nullptr);
  EXPECT_EQ(details.getMachineId(), 0U);
  for (const char* text : {"Linux", "WinNT"}) {
    auto* const buffer = new char[16];
    std::strcpy(buffer, text);
    details.setOs(buffer);
    EXPECT_EQ(details.getOs(), buffer);
    details.setOs(buffer);
    EXPECT_STREQ(details.getOs(), text);
  }
  details.setMachineId(65535);
  EXPECT_EQ(details.getMachineId(), 65535U);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
