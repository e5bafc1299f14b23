#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "DiagCtrl/Client.h"
#include "tests/support/ControllerHarness.h"

namespace TarvexDiags::ClientTests {

using namespace std::chrono_literals;

/// A client with a directory of scripted packages.
class ClientTest : public testing::Test {
 protected:
  /// For what is bound to come.
  static constexpr std::chrono::milliseconds kLong = 60s;

  /// Writes the control file and initialises.
  DiagCtrl::Client& start() {
    client = std::make_unique<DiagCtrl::Client>(controlFile());
    return *client;
  }
  DiagCtrl::Client& startAndEnumerate() {
    start().enumerate();
    return *client;
  }
  std::string controlFile() { return harness.control().writeTo(harness.directory()); }

  /// The code of the failure that a call throws; SUCCESS if it throws none.
  template <class Call>
  static DiagCtrl::DiagnosticController::errorCode codeOf(Call call) {
    try {
      call();
    } catch (const DiagCtrl::CallFailed& failure) {
      return failure.code();
    }
    return DiagCtrl::DiagnosticController::SUCCESS;
  }

  TestSupport::ControllerHarness harness;
  std::unique_ptr<DiagCtrl::Client> client;  // ends before the harness
};

}  // namespace TarvexDiags::ClientTests
