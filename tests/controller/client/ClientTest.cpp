// The client's life, the catalogue and the texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "DiagCtrl/Client.h"
#include "tests/controller/client/ClientFixture.h"
#include "tests/support/Places.h"

namespace TarvexDiags::ClientTests {
namespace {

using DiagCtrl::CallFailed;
using DiagCtrl::Client;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;

// ---- Life
// ----------------------------------------------------------------------------------------

TEST_F(ClientTest, lasts_from_initialize_to_shut_down) {
  harness.addPackage("ALPHA");
  EXPECT_EQ(start().phase(), DiagControllerStatus::INITIALIZE);
  EXPECT_EQ(client->enumerationProgress(), 0);
  client->enumerate();
  EXPECT_EQ(client->phase(), DiagControllerStatus::IDLE);
  EXPECT_EQ(client->enumerationProgress(), 100);
  EXPECT_TRUE(client->status()->getMonThrHealth());
  client.reset();
  EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(startAndEnumerate().packages().size(), 1U) << "and may come again";
}

TEST_F(ClientTest, tells_the_call_that_failed_and_its_code_by_name_and_number) {
  try {
    const Client missing("/nonexistent/control.cfg");
    FAIL() << "a client without a control file";
  } catch (const CallFailed& failure) {
    EXPECT_EQ(failure.code(), INITIALISATION_FAILED);
    EXPECT_THAT(failure.what(), StrEq("initialize: INITIALISATION_FAILED (2)"));
  }
  EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
}

TEST_F(ClientTest, is_refused_beside_another_one_which_goes_on_undisturbed) {
  harness.addPackage("ALPHA");
  startAndEnumerate();
  EXPECT_EQ(codeOf([] { const Client other("/nonexistent/control.cfg"); }), INCORRECT_PHASE);
  EXPECT_EQ(client->package(1).getPackageBaseName(), std::string("ALPHA"));
  DiagCtrl::GlobalSettings::runMode mode{};
  EXPECT_EQ(client->controller().getRunMode(mode), SUCCESS) << "the settings are still there";
}

// ---- Enumeration
// -------------------------------------------------------------------------------------

TEST_F(ClientTest, enumerates_the_packages_with_a_mnemonic) {
  harness.addPackage("ALPHA", PackageConfig().mnemonic("FIRST"));
  harness.addPackage("BETA", PackageConfig().mnemonic("SECOND"));
  EXPECT_EQ(start().enumerate({"SECOND"}), SUCCESS);
  ASSERT_THAT(client->packages(), ElementsAre(1));
  EXPECT_EQ(client->package(1).getPackageBaseName(), std::string("BETA"));
}

TEST_F(ClientTest, has_no_catalogue_where_there_are_no_packages) {
  EXPECT_EQ(codeOf([&] { start().enumerate(); }), NO_PACKAGE_ENABLED);
  EXPECT_EQ(client->phase(), DiagControllerStatus::INITIALIZE);
}

TEST_F(ClientTest, does_without_a_package_that_failed) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA", PackageConfig().without("NumberOfTests"));
  EXPECT_EQ(start().enumerate(), PACKAGE_INITIALIZE_FAILED) << "what the last package gave";
  ASSERT_THAT(client->packages(), ElementsAre(1));
  EXPECT_EQ(client->package(1).getPackageBaseName(), std::string("ALPHA"));
}

TEST_F(ClientTest, is_told_when_an_enumeration_comes_in_the_wrong_phase) {
  harness.addPackage("ALPHA");
  startAndEnumerate();
  EXPECT_EQ(codeOf([&] { client->enumerate(); }), INCORRECT_PHASE);
}

TEST_F(ClientTest, enumerates_one_package_again) {
  auto& alpha = harness.addPackage("ALPHA");
  startAndEnumerate();
  EXPECT_EQ(client->devices(1).size(), 1U);
  alpha.setDevices(3);
  client->enumerateAgain(1);
  EXPECT_THAT(client->devices(1), ElementsAre(1, 2, 3));
  EXPECT_EQ(codeOf([&] { client->enumerateAgain(2); }), PACKAGE_NOT_FOUND);
}

// ---- Catalogue
// ---------------------------------------------------------------------------------------

TEST_F(ClientTest, hands_out_the_catalogue_as_values) {
  harness.addPackage("ALPHA", PackageConfig(3).disableTest(3).disableDevices(2, {"second"}))
      .setDevices({{.tag = "a/1", .name = "first"}, {.tag = "a/2", .name = "second", .status = 7}});
  startAndEnumerate();
  EXPECT_THAT(client->packages(), ElementsAre(1));
  EXPECT_THAT(client->devices(1), ElementsAre(1, 2));
  EXPECT_THAT(client->tests(1), ElementsAre(1, 2));
  EXPECT_THAT(client->disabledTests(1), ElementsAre(3));
  EXPECT_THAT(client->testsOn(1, 1), ElementsAre(1, 2));
  EXPECT_THAT(client->testsOn(1, 2), ElementsAre(1));
  EXPECT_THAT(client->devicesFor(1, 2), ElementsAre(1));
  EXPECT_THAT(client->disabledDevicesFor(1, 2), ElementsAre(2));
  EXPECT_EQ(client->device(1, 2).getIDevice()->getDeviceName(), "second");
  EXPECT_THAT(client->test(1, 2).getTestName(), StrEq("Test 2"));
  EXPECT_EQ(client->deviceStatus(1, 2), 7U);
}

TEST_F(ClientTest, names_the_packages_that_the_control_file_left_out) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.control().disablePackage("BETA");
  startAndEnumerate();
  EXPECT_THAT(client->disabledPackages(), ElementsAre("BETA"));
}

TEST_F(ClientTest, throws_what_the_catalogue_does_not_have) {
  harness.addPackage("ALPHA");
  startAndEnumerate();
  EXPECT_EQ(codeOf([&] { client->package(2); }), OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->device(1, 9); }), DEVICE_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->test(1, 9); }), TEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->devices(2); }), OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->devicesFor(1, 9); }), TEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->deviceStatus(1, 9); }), DEVICE_NOT_FOUND);
}

// ---- Texts
// -----------------------------------------------------------------------------------------

class ClientTextTest : public ClientTest {
 protected:
  ClientTextTest() {
    harness.addPackage("ALPHA", PackageConfig()
                                    .token("Error", 1, "BROKEN")
                                    .token("Error", 2, "UNTOLD")
                                    .token("DeviceStatus", 3, "ASLEEP")
                                    .with("NameToken", "ALPHA_NAME")
                                    .withTest(1, "NameToken", "TEST_NAME"));
    harness.packages().addLanguage("ALPHA", "en",
                                   {{"BROKEN", "Broken at $1$"}, {"ASLEEP", "asleep"}});
    harness.control().msgFilePath(TestSupport::sourcePath("DiagCtrl/messages.cfg"));
  }

  static Diag::DiagnosticEvent event(unsigned int code) {
    Diag::DiagnosticEvent event;
    event.setEventType(Diag::DiagnosticEvent::ERROR_EVENT);
    event.setEventCode(code);
    event.setParamVector({"slot 4"});
    return event;
  }
};

TEST_F(ClientTextTest, hands_out_tokens_and_texts_as_values) {
  startAndEnumerate();
  EXPECT_EQ(client->packageToken(1, "NameToken"), "ALPHA_NAME");
  EXPECT_EQ(client->testToken(1, 1, "NameToken"), "TEST_NAME");
  EXPECT_EQ(client->messageToken(1, event(1)), "BROKEN");
  EXPECT_EQ(client->deviceStatusToken(1, 3), "ASLEEP");
  EXPECT_EQ(client->string(1, "en", "BROKEN"), "Broken at $1$");
  EXPECT_EQ(client->message(1, "en", "BROKEN", {"ASLEEP"}), "Broken at asleep");
  EXPECT_EQ(client->message(0, "de", "TEST_REQUEST_ABORTED"), "Ein Auftrag wurde abgebrochen.");
}

TEST_F(ClientTextTest, hands_out_nothing_where_a_file_has_none) {
  startAndEnumerate();
  EXPECT_EQ(client->packageToken(1, "Nothing"), std::nullopt);
  EXPECT_EQ(client->testToken(1, 1, "Nothing"), std::nullopt);
  EXPECT_EQ(client->messageToken(1, event(9)), std::nullopt);
  EXPECT_EQ(client->deviceStatusToken(1, 9), std::nullopt);
  EXPECT_EQ(client->string(1, "en", "UNTOLD"), std::nullopt);
  EXPECT_EQ(client->message(1, "de", "BROKEN"), std::nullopt) << "no language stands in";
  EXPECT_EQ(codeOf([&] { client->string(2, "en", "BROKEN"); }), PACKAGE_NOT_FOUND);
}

TEST_F(ClientTextTest, describes_an_event_by_text_else_by_token_else_by_number) {
  startAndEnumerate();
  EXPECT_EQ(client->describe(1, event(1), "en"), "Broken at slot 4");
  EXPECT_EQ(client->describe(1, event(2), "en"), "UNTOLD");
  EXPECT_EQ(client->describe(1, event(9), "en"), "9");
}

TEST_F(ClientTextTest, describes_codes_of_both_families_in_words) {
  startAndEnumerate();
  const DiagCtrlEvent aborted(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                              Diag::DiagnosticEvent::WARNING_EVENT);
  EXPECT_EQ(client->describe(aborted, "en"), "A request was aborted.");
  EXPECT_EQ(client->describe(INVALID_RUN_TIME, "fr"),
            "La durée donnée dans les réglages de la demande est 0.");
}

TEST_F(ClientTextTest, looks_up_a_code_without_a_text_once_since_each_miss_raises_an_event) {
  auto& started = start();
  auto misses = started.ctrlEvents();
  EXPECT_EQ(started.describe(INVALID_RUN_TIME, "xx"), "INVALID_RUN_TIME") << "no catalogue yet";
  EXPECT_THAT(misses.take(), IsEmpty());
  started.enumerate();
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(started.describe(INVALID_RUN_TIME, "xx"), "INVALID_RUN_TIME");
  }
  const auto raised = misses.take();
  ASSERT_EQ(raised.size(), 1U);
  EXPECT_EQ(raised.front().getEventCode(), DiagCtrlEvent::INVALID_PARAMETER_INI_FILE);
  EXPECT_EQ(started.describe(INVALID_RUN_TIME, "en"),
            "The run time of the request's settings is 0.");
}

}  // namespace
}  // namespace TarvexDiags::ClientTests
