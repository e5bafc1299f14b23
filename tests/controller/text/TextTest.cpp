// Tokens and localised text, from files on disk.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ConfigText.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(GenerateStringTag, DiagCtrl::DiagnosticController::generateString);

namespace TarvexDiags::Text {
namespace {

using Diag::DiagnosticEvent;
using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagnosticController;
using DiagCtrl::ParamStringVector;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using TestSupport::ConfigText;
using TestSupport::ControllerTest;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;

class TextTest : public ControllerTest {
 protected:
  void start(const PackageConfig& config = PackageConfig(2)) {
    harness.addPackage("ALPHA", config);
    harness.trace();
    harness.start();
  }

  /// The text of a call that must succeed.
  std::string textOf(const std::function<Code(char*&)>& ask) {
    char* text = nullptr;
    EXPECT_EQ(ask(text), SUCCESS);
    const std::unique_ptr<char[]> owned(text);
    return text == nullptr ? "<null>" : text;
  }
  /// One that must fail, with the text untouched and one event, or none.
  void expectFailure(Code code, const std::string& event, const std::function<Code(char*&)>& ask) {
    harness.forget();
    char* text = nullptr;
    EXPECT_EQ(ask(text), code);
    EXPECT_THAT(text, IsNull());
    typedef std::vector<std::string> Lines;
    EXPECT_EQ(harness.ctrlEvents(), event.empty() ? Lines() : Lines{event});
  }

  Code testToken(int package, int test, std::string key, char*& text) {
    return controller().getTestToken(package, test, key.data(), text);
  }
  Code packageToken(int package, std::string key, char*& text) {
    return controller().getPackageToken(package, key.data(), text);
  }
  Code localString(int package, std::string language, std::string token, char*& text) {
    return controller().getLocalizedString(package, language.data(), token.data(), text);
  }
  Code localMessage(int package, std::string language, std::string token,
                    ParamStringVector& parameters, char*& text) {
    return controller().getLocalizedMessage(package, language.data(), token.data(), parameters,
                                            text);
  }
};

// ---- Tokens ---------------------------------------------------------------------------------

TEST_F(TextTest, a_token_is_what_the_package_file_says_at_the_moment) {
  start();
  const auto ask = [&](char*& text) { return packageToken(1, "HelpToken", text); };
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_IN_INI_FILE E 0", ask);
  harness.packages().writeConfig("ALPHA", PackageConfig().with("HelpToken", "HELP_ALPHA"));
  EXPECT_EQ(textOf(ask), "HELP_ALPHA");
}

TEST_F(TextTest, a_tests_token_lies_in_its_own_section) {
  start(PackageConfig(12).withTest(12, "HelpToken", "TWELVE").withTest(1, "HelpToken", "ONE"));
  EXPECT_EQ(textOf([&](char*& text) { return testToken(1, 12, "HelpToken", text); }), "TWELVE");
  EXPECT_EQ(textOf([&](char*& text) { return testToken(1, 1, "HelpToken", text); }), "ONE");
  for (const int test : {0, -1, 2, 13}) {
    expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_IN_INI_FILE E 0",
                  [&](char*& text) { return testToken(1, test, "HelpToken", text); });
  }
}

TEST_F(TextTest, a_withdrawn_test_still_has_its_tokens) {
  start(PackageConfig(2).withdrawTest(2).withTest(2, "HelpToken", "TWO"));
  EXPECT_EQ(textOf([&](char*& text) { return testToken(1, 2, "HelpToken", text); }), "TWO");
}

TEST_F(TextTest, an_events_token_lies_in_the_section_of_its_type) {
  start(PackageConfig()
            .token("Information", 7, "INFO_7")
            .token("Warning", 7, "WARN_7")
            .token("Error", 7, "ERR_7")
            .withKey("Error", "-1", "ERR_LARGEST"));
  const auto ask = [&](DiagnosticEvent::EventType type, unsigned int code) {
    return textOf([&](char*& text) { return controller().getMessageToken(1, type, code, text); });
  };
  EXPECT_EQ(ask(DiagnosticEvent::INFORMATION_EVENT, 7), "INFO_7");
  EXPECT_EQ(ask(DiagnosticEvent::WARNING_EVENT, 7), "WARN_7");
  EXPECT_EQ(ask(DiagnosticEvent::ERROR_EVENT, 7), "ERR_7");
  EXPECT_EQ(ask(DiagnosticEvent::ERROR_EVENT, 4294967295U), "ERR_LARGEST")
      << "codes are written as signed numbers";
}

TEST_F(TextTest, a_status_of_a_device_has_a_token_by_its_signed_number) {
  start(PackageConfig().token("DeviceStatus", 3, "BUSY").withKey("DeviceStatus", "-1", "ODD"));
  const auto ask = [&](unsigned int code) {
    return textOf([&](char*& text) { return controller().getDeviceStatusToken(1, code, text); });
  };
  EXPECT_EQ(ask(3), "BUSY");
  EXPECT_EQ(ask(4294967295U), "ODD");
}

TEST_F(TextTest, an_event_type_that_is_none_is_told_after_an_unknown_package) {
  start();
  const auto none = static_cast<DiagnosticEvent::EventType>(3);
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER E 0",
                [&](char*& text) { return controller().getMessageToken(1, none, 7, text); });
  expectFailure(PACKAGE_NOT_FOUND, "PACKAGE_NOT_FOUND E 0",
                [&](char*& text) { return controller().getMessageToken(9, none, 7, text); });
}

TEST_F(TextTest, an_unknown_package_has_no_tokens) {
  start();
  for (const int package : {0, -1, 2}) {
    const auto code = PACKAGE_NOT_FOUND;
    const std::string event = "PACKAGE_NOT_FOUND E 0";
    expectFailure(code, event, [&](char*& text) { return testToken(package, 1, "X", text); });
    expectFailure(code, event, [&](char*& text) { return packageToken(package, "X", text); });
    expectFailure(code, event, [&](char*& text) {
      return controller().getMessageToken(package, DiagnosticEvent::ERROR_EVENT, 1, text);
    });
    expectFailure(code, event,
                  [&](char*& text) { return controller().getDeviceStatusToken(package, 1, text); });
  }
  EXPECT_EQ(trace().count("PACKAGE FILE NOT FOUND, INCORRECT PACKAGE INDEX:: -1"), 4U);
}

TEST_F(TextTest, an_unknown_package_is_traced_as_a_failure_and_a_missing_key_as_a_warning) {
  harness.addPackage("ALPHA");
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  harness.start();
  char* text = nullptr;
  const auto askForMissing = [&] {
    EXPECT_EQ(packageToken(1, "Missing", text), INVALID_PARAMETER);
    EXPECT_EQ(localString(1, "en", "MISSING", text), INVALID_PARAMETER);
    return trace().count("caught DiagCtrlInvalidKey Exception");
  };
  EXPECT_EQ(packageToken(9, "Mnemonic", text), PACKAGE_NOT_FOUND);
  EXPECT_EQ(localString(9, "en", "HELLO", text), PACKAGE_NOT_FOUND);
  EXPECT_TRUE(trace().contains("PACKAGE FILE NOT FOUND, INCORRECT PACKAGE INDEX:: 9"));
  EXPECT_TRUE(trace().contains(" PACKAGE NOT FOUND, INCORRECT PACKAGE INDEX: 9"));
  EXPECT_EQ(askForMissing(), 0U);
  EXPECT_EQ(controller().setDebugLog(DiagCtrlConstants::DIAG_WARNING), SUCCESS);
  EXPECT_EQ(askForMissing(), 2U);
}

TEST_F(TextTest, an_empty_token_is_none) {
  start(PackageConfig().with("HelpToken", "").token("Error", 1, ""));
  const std::string event = "INVALID_PARAMETER_IN_INI_FILE E 0";
  expectFailure(INVALID_PARAMETER, event,
                [&](char*& text) { return packageToken(1, "HelpToken", text); });
  expectFailure(INVALID_PARAMETER, event, [&](char*& text) {
    return controller().getMessageToken(1, DiagnosticEvent::ERROR_EVENT, 1, text);
  });
  EXPECT_TRUE(trace().contains(
      "DiagnosticController::getPackageToken caught DiagCtrlInvalidKey Exception"));
}

TEST_F(TextTest, a_null_key_is_no_token) {
  start();
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_IN_INI_FILE E 0",
                [&](char*& text) { return controller().getTestToken(1, 1, nullptr, text); });
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_IN_INI_FILE E 0",
                [&](char*& text) { return controller().getPackageToken(1, nullptr, text); });
}

TEST_F(TextTest, a_token_comes_in_a_whole_buffer_that_the_client_may_write_to) {
  const std::string longest(DiagCtrlConstants::miSBuffSize - 1, 'x');
  start(PackageConfig().with("Long", longest).with("TooLong", longest + "x"));
  char* text = nullptr;
  ASSERT_EQ(packageToken(1, "Mnemonic", text), SUCCESS);
  std::fill_n(text, DiagCtrlConstants::miSBuffSize, 'y');
  delete[] text;
  EXPECT_EQ(textOf([&](char*& longText) { return packageToken(1, "Long", longText); }), longest);
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_IN_INI_FILE E 0",
                [&](char*& longText) { return packageToken(1, "TooLong", longText); });
}

// ---- Localised strings ----------------------------------------------------------------------

class LocalisedTest : public TextTest {
 protected:
  void start() {
    harness.packages().addLanguage("ALPHA", "en",
                                   {{"HELLO", "Hello $1$"}, {"SLOT", "slot"}, {"EMPTY", ""}});
    harness.packages().addLanguage("ALPHA", "de", {{"HELLO", "Hallo"}, {"ONLY", "nur"}});
    messages.set("en", "HELLO", "Message $1$").set("en", "SLOT", "message slot");
    harness.control().msgFilePath(messages.writeTo(harness.directory(), "messages.cfg"));
    TextTest::start();
  }

  ConfigText messages;
  ParamStringVector none;
};

TEST_F(LocalisedTest, a_string_is_given_as_it_stands_in_its_language) {
  start();
  EXPECT_EQ(textOf([&](char*& text) { return localString(1, "en", "HELLO", text); }), "Hello $1$");
  EXPECT_EQ(textOf([&](char*& text) { return localString(1, "de", "HELLO", text); }), "Hallo");
}

TEST_F(LocalisedTest, no_other_language_stands_in) {
  start();
  EXPECT_EQ(textOf([&](char*& text) { return localString(1, "de", "ONLY", text); }), "nur");
  const std::string event = "INVALID_PARAMETER_INI_FILE E 0";
  for (const char* language : {"en", "fr", "", "EN"}) {
    expectFailure(INVALID_PARAMETER, event,
                  [&](char*& text) { return localString(1, language, "ONLY", text); });
    expectFailure(INVALID_PARAMETER, event,
                  [&](char*& text) { return localMessage(1, language, "ONLY", none, text); });
  }
  EXPECT_TRUE(trace().contains(
      "DiagnosticController::getLocalizedString caught DiagCtrlInvalidKey Exception"));
  EXPECT_TRUE(trace().contains(
      "DiagnosticController::getLocalizedMessage caught DiagCtrlInvalidKey Exception"));
}

TEST_F(LocalisedTest, an_empty_text_is_none) {
  start();
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_INI_FILE E 0",
                [&](char*& text) { return localString(1, "en", "EMPTY", text); });
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_INI_FILE E 0",
                [&](char*& text) { return localMessage(1, "en", "EMPTY", none, text); });
}

TEST_F(LocalisedTest, null_arguments_are_told_language_first_in_any_phase_without_an_event) {
  char language[] = "en";
  const auto check = [&] {
    char* text = nullptr;
    DiagnosticController& c = controller();
    EXPECT_EQ(c.getLocalizedString(1, nullptr, nullptr, text), LANG_ID_IS_NULL);
    EXPECT_EQ(c.getLocalizedString(1, language, nullptr, text), MESSAGE_TOKEN_IS_NULL);
    EXPECT_EQ(c.getLocalizedMessage(1, nullptr, nullptr, none, text), LANG_ID_IS_NULL);
    EXPECT_EQ(c.getLocalizedMessage(1, language, nullptr, none, text), MESSAGE_TOKEN_IS_NULL);
    EXPECT_THAT(text, IsNull());
  };
  check();
  start();
  check();
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(LocalisedTest, a_string_never_comes_from_the_message_file) {
  start();
  for (const int package : {0, -1, 2}) {
    expectFailure(PACKAGE_NOT_FOUND, "PACKAGE_NOT_FOUND E 0",
                  [&](char*& text) { return localString(package, "en", "HELLO", text); });
  }
  EXPECT_TRUE(trace().contains(" PACKAGE NOT FOUND, INCORRECT PACKAGE INDEX: -1"));
}

TEST_F(LocalisedTest, a_refused_string_is_traced_and_a_refused_message_is_not) {
  harness.trace();
  harness.initialize();
  char* text = nullptr;
  EXPECT_EQ(localMessage(1, "en", "HELLO", none, text), INCORRECT_PHASE);
  EXPECT_FALSE(trace().contains("INCORRECT PHASE:"));
  EXPECT_EQ(localString(1, "en", "HELLO", text), INCORRECT_PHASE);
  EXPECT_TRUE(trace().contains("DiagnosticController::getLocalizedStringINCORRECT PHASE:"));
}

// ---- Localised messages ---------------------------------------------------------------------

TEST_F(LocalisedTest, an_index_below_one_reads_the_message_file_and_any_other_the_packages) {
  start();
  const auto ask = [&](int package) {
    ParamStringVector parameters{"x"};
    return textOf(
        [&](char*& text) { return localMessage(package, "en", "HELLO", parameters, text); });
  };
  EXPECT_EQ(ask(0), "Message x");
  EXPECT_EQ(ask(-1), "Message x");
  EXPECT_EQ(ask(1), "Hello x");
  expectFailure(PACKAGE_NOT_FOUND, "PACKAGE_NOT_FOUND E 0",
                [&](char*& text) { return localMessage(2, "en", "HELLO", none, text); });
}

TEST_F(LocalisedTest, without_a_message_file_an_index_below_one_is_an_unknown_package) {
  TextTest::start();
  for (const int package : {0, -1}) {
    expectFailure(PACKAGE_NOT_FOUND, "PACKAGE_NOT_FOUND E 0",
                  [&](char*& text) { return localMessage(package, "en", "HELLO", none, text); });
  }
}

TEST_F(LocalisedTest, once_there_was_no_message_file_there_is_none_in_later_runs_either) {
  TextTest::start();
  harness.shutDown();
  start();
  expectFailure(PACKAGE_NOT_FOUND, "PACKAGE_NOT_FOUND E 0",
                [&](char*& text) { return localMessage(0, "en", "HELLO", none, text); });
}

TEST_F(LocalisedTest, a_message_file_that_cannot_be_read_has_no_texts) {
  harness.control().msgFilePath("/nonexistent/messages.cfg");
  TextTest::start();
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_INI_FILE E 0",
                [&](char*& text) { return localMessage(0, "en", "HELLO", none, text); });
}

TEST_F(LocalisedTest, a_parameter_that_is_a_token_is_translated_in_the_clients_vector_too) {
  start();
  ParamStringVector parameters{"SLOT", "EMPTY", "other"};
  EXPECT_EQ(textOf([&](char*& text) { return localMessage(1, "en", "HELLO", parameters, text); }),
            "Hello slot");
  EXPECT_THAT(parameters, ElementsAre("slot", "EMPTY", "other"));
  parameters = {"SLOT"};
  EXPECT_EQ(textOf([&](char*& text) { return localMessage(0, "en", "HELLO", parameters, text); }),
            "Message message slot");
}

TEST_F(LocalisedTest, parameters_stay_as_they_are_when_there_is_no_text) {
  start();
  ParamStringVector parameters{"SLOT"};
  expectFailure(INVALID_PARAMETER, "INVALID_PARAMETER_INI_FILE E 0",
                [&](char*& text) { return localMessage(1, "en", "MISSING", parameters, text); });
  EXPECT_THAT(parameters, ElementsAre("SLOT"));
}

// ---- Variables ------------------------------------------------------------------------------

struct Variables {
  std::string text;
  ParamStringVector parameters;
  std::string result;
};

TEST_F(TextTest, variables_stand_for_parameters) {
  const ParamStringVector ab{"A", "B"};
  const std::vector<Variables> rows = {
      {"Test $1$ failed on $2$", ab, "Test A failed on B"},
      {"$2$ before $1$", ab, "B before A"},
      {"100$$ done", ab, "100$ done"},
      {"$x$ and $y$", ab, "A and B"},
      {"$2$ then $y$", ab, "B then B"},
      {"$0$", ab, "A"},
      {"$-4$", ab, "A"},
      {"$9$", ab, "B"},
      {"abc$def", ab, "abcdef"},
      {"abc$", ab, "abc"},
      {"no variables", ab, "no variables"},
      {"$", ab, ""},
      {"$$", ab, "$"},
      {"$$$", ab, "$"},
      {"$$$$", ab, "$$"},
      {"$1$$2$", ab, "AB"},
      {"$x$$y$$z$", ab, "ABB"},
      {"$ 2$", ab, "B"},
      {"$+2$", ab, "B"},
      {"$2nd$", ab, "B"},
      {"$99999999999999999999$", ab, "B"},
      {"$-99999999999999999999$", ab, "A"},
      {"100% of %s, %d and %n", ab, "100% of %s, %d and %n"},
      {"$1$", {"$2$", "B"}, "$2$"},
      {"<$1$>", {""}, "<>"},
      {"<$1$> and <$x$>", {}, "<> and <>"},
      {"a$b$c", {}, "ac"},
      {"$$", {}, "$"},
  };
  std::map<std::string, std::string> texts;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    texts["ROW_" + std::to_string(row)] = rows[row].text;
  }
  harness.packages().addLanguage("ALPHA", "en", texts);
  start();
  for (std::size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE(rows[row].text);
    ParamStringVector parameters = rows[row].parameters;
    EXPECT_EQ(textOf([&](char*& text) {
                return localMessage(1, "en", "ROW_" + std::to_string(row), parameters, text);
              }),
              rows[row].result);
  }
}

TEST_F(TextTest, an_empty_text_stays_empty) {
  const auto buffer = std::make_unique<char[]>(DiagCtrlConstants::miSBuffSize);
  const auto generate = memberOf(GenerateStringTag());
  EXPECT_TRUE((controller().*generate)(buffer.get(), {"A", "B"}));
  EXPECT_STREQ(buffer.get(), "");
}

TEST_F(TextTest, a_result_that_does_not_fit_is_cut_and_ended) {
  harness.packages().addLanguage("ALPHA", "en", {{"LONG", "$1$$2$"}});
  start();
  const std::string half(3000, 'a');
  const std::string rest(3000, 'b');
  ParamStringVector parameters{half, rest};
  const std::string result =
      textOf([&](char*& text) { return localMessage(1, "en", "LONG", parameters, text); });
  EXPECT_EQ(result, (half + rest).substr(0, DiagCtrlConstants::miSBuffSize - 1));
}

}  // namespace
}  // namespace TarvexDiags::Text
