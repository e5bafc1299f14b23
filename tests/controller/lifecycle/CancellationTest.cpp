// What a client call does to a thread that is to be cancelled. Most calls hold no point at which a
// thread can be cancelled, and promise that nothing leaves them; the others run a package's code,
// read files or wait, and the thread may end in them: with no lock and no flag left behind.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/TestRequest.h"
#include "tests/controller/lifecycle/ClientCallRows.h"
#include "tests/support/ClientCalls.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::CallBackObject;
using DiagCtrl::DiagCtrlConditionVar;
using DiagCtrl::DiagDevice;
using DiagCtrl::DiagnosticController;
using DiagCtrl::DiagnosticPackage;
using DiagCtrl::DiagTracer;
using DiagCtrl::DiagUtil;
using DiagCtrl::PackageTestInfo;
using DiagCtrl::TestRequest;
using Scripted::Call;
using enum DiagnosticController::errorCode;
typedef DiagnosticController C;
typedef C::errorCode Code;
typedef std::vector<int> Ints;

// ---- The promises ------------------------------------------------------------------------------

template <class Member>
constexpr bool kLetsNothingOut = false;
template <class Class, class Result, class... Arguments>
constexpr bool kLetsNothingOut<Result (Class::*)(Arguments...) noexcept> = true;
template <class Class, class Result, class... Arguments>
constexpr bool kLetsNothingOut<Result (Class::*)(Arguments...) const noexcept> = true;

struct Promise {
  const char* name;
  bool letsNothingOut;
};

#define TARVEX_PROMISE(Class, name)                  \
  Promise {                                          \
#name, kLetsNothingOut < decltype(&Class::name)> \
  }
#define TARVEX_PROMISE_OF(name, Type)                                \
  Promise {                                                          \
#name, kLetsNothingOut < decltype(static_cast <Type>(&C::name))> \
  }

constexpr Promise kWithout[] = {
    TARVEX_PROMISE(C, getDiagControllerStatus),
    TARVEX_PROMISE(C, getDebugLog),
    TARVEX_PROMISE(C, getRunMode),
    TARVEX_PROMISE(C, getDiagLogMode),
    TARVEX_PROMISE(C, getHaltOnError),
    TARVEX_PROMISE(C, getDiagnosticMode),
    TARVEX_PROMISE(C, setDebugLog),
    TARVEX_PROMISE(C, setRunMode),
    TARVEX_PROMISE(C, setDiagLogMode),
    TARVEX_PROMISE(C, setHaltOnError),
    TARVEX_PROMISE(C, setDiagnosticMode),
    TARVEX_PROMISE(C, getEnumerationProgress),
    TARVEX_PROMISE(C, getNumberOfDiagPackages),
    TARVEX_PROMISE(C, getDiagPackage),
    TARVEX_PROMISE(C, getDevice),
    TARVEX_PROMISE(C, getTest),
    TARVEX_PROMISE(C, getDeviceIdList),
    TARVEX_PROMISE(C, getValidDeviceIdList),
    TARVEX_PROMISE(C, getTestIdList),
    TARVEX_PROMISE(C, getValidTestIdList),
    TARVEX_PROMISE(C, getDisablePackageList),
    TARVEX_PROMISE(C, getDisableTestList),
    TARVEX_PROMISE(C, getDisableDeviceList),
    TARVEX_PROMISE(C, getRequestStatus),
    TARVEX_PROMISE(C, getRequestIdList),
    TARVEX_PROMISE(C, getTestRequest),
    TARVEX_PROMISE(C, clearRequestIdList),
    TARVEX_PROMISE(C, getEstimatedTime),
    TARVEX_PROMISE(C, getToTalTimeRemaining),
    TARVEX_PROMISE(C, getTimeRemaining),
    TARVEX_PROMISE(C, registerForDiagEvents),
    TARVEX_PROMISE(C, registerForDiagResults),
    TARVEX_PROMISE(C, registerForDiagCtrlEvents),
    TARVEX_PROMISE(C, getDiagnosticEvents),
    TARVEX_PROMISE(C, getDiagnosticResults),
    TARVEX_PROMISE(C, getDiagnosticCtrlEvents),
    TARVEX_PROMISE(C, getNumberOfRegistrations),
};

// The package's code, files, or a wait.
constexpr Promise kWith[] = {
    TARVEX_PROMISE(C, initialize),
    TARVEX_PROMISE(C, shutDown),
    TARVEX_PROMISE(C, resetDiagController),
    TARVEX_PROMISE(C, enumerateAllPackages),
    TARVEX_PROMISE(C, enumerateByPackageClass),
    TARVEX_PROMISE(C, enumerateDiagPackages),
    TARVEX_PROMISE(C, getDeviceStatus),
    TARVEX_PROMISE_OF(queueTest, Code (C::*)(int, unsigned int, Ints&, Diag::DiagnosticSettings&,
                                             bool, unsigned long&)),
    TARVEX_PROMISE_OF(queueTest, Code (C::*)(int, unsigned int, Ints&, Diag::DiagnosticSettings&,
                                             unsigned long&)),
    TARVEX_PROMISE_OF(queueTest,
                      Code (C::*)(int, unsigned int, Diag::DiagnosticSettings&, unsigned long&)),
    TARVEX_PROMISE_OF(queueTest,
                      Code (C::*)(int, Diag::DiagnosticSettings&, DiagCtrl::VectorTestReqId*&)),
    TARVEX_PROMISE_OF(abortTest, Code (C::*)(unsigned long)),
    TARVEX_PROMISE_OF(abortTest, Code (C::*)(std::vector<unsigned long>&)),
    TARVEX_PROMISE(C, abortAllTest),
    TARVEX_PROMISE(C, suspendTest),
    TARVEX_PROMISE(C, resumeTest),
    TARVEX_PROMISE(C, getDiagnosticStatus),
    TARVEX_PROMISE(C, getDiagnosticProgress),
    TARVEX_PROMISE(C, runEstimation),
    TARVEX_PROMISE(C, getTestToken),
    TARVEX_PROMISE(C, getPackageToken),
    TARVEX_PROMISE(C, getMessageToken),
    TARVEX_PROMISE(C, getDeviceStatusToken),
    TARVEX_PROMISE(C, getLocalizedString),
    TARVEX_PROMISE(C, getLocalizedMessage),
};

// What the calls and their clients stand on.
constexpr Promise kOthers[] = {
    TARVEX_PROMISE(C, getEventMgrPtr),
    TARVEX_PROMISE(C, getGlobalSettingsPtr),
    TARVEX_PROMISE(CallBackObject, notify),
    TARVEX_PROMISE(DiagCtrlConditionVar, signal),
    TARVEX_PROMISE(DiagTracer, beginTrace),
    TARVEX_PROMISE(DiagTracer, endTrace),
    TARVEX_PROMISE(DiagTracer, setTraceLevel),
    TARVEX_PROMISE(DiagUtil, pushDiagCtrlEvent),
    TARVEX_PROMISE(DiagnosticPackage, getPackageMnemonic),
    TARVEX_PROMISE(DiagDevice, getIDevice),
    TARVEX_PROMISE(PackageTestInfo, getTestName),
    TARVEX_PROMISE(TestRequest, getDiagnosticSettings),
};

constexpr bool isPromised(const Promise& promise) {
  return promise.letsNothingOut;
}

static_assert(std::all_of(std::begin(kWithout), std::end(kWithout), isPromised));
static_assert(std::none_of(std::begin(kWith), std::end(kWith), isPromised));
static_assert(std::all_of(std::begin(kOthers), std::end(kOthers), isPromised));
// A wait lets a cancellation pass.
static_assert(!isPromised(TARVEX_PROMISE(CallBackObject, wait)));

TEST(CancellationTest, knows_every_client_call) {
  std::multiset<std::string> known;
  for (const Promise& promise : kWithout) {
    known.insert(promise.name);
  }
  for (const Promise& promise : kWith) {
    known.insert(promise.name);
  }
  EXPECT_EQ(known, TestSupport::clientCalls());
}

// ---- The calls ---------------------------------------------------------------------------------

bool isWithout(const Row& row) {
  return std::any_of(std::begin(kWithout), std::end(kWithout),
                     [&](const Promise& promise) { return row.name == promise.name; });
}

std::vector<Row> rowsThat(bool areWithout) {
  std::vector<Row> rows;
  std::copy_if(allRows().begin(), allRows().end(), std::back_inserter(rows),
               [&](const Row& row) { return isWithout(row) == areWithout; });
  return rows;
}

class CancelledThread : public ::testing::TestWithParam<Row> {
 protected:
  /// Makes the call on a thread with a cancellation that waits for it. @return whether it returned.
  bool returns() {
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, nullptr, &CancelledThread::run, this), 0);
    void* end = nullptr;
    EXPECT_EQ(pthread_join(thread, &end), 0);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    return m_returned;
  }

  Stage stage{true};  // every line that is traced is written within the call
  Code code = OUT_OF_RANGE;

 private:
  static void* run(void* self) {
    auto& test = *static_cast<CancelledThread*>(self);
    pthread_cancel(pthread_self());
    test.code = GetParam().call(test.stage);
    test.m_returned = true;
    pthread_testcancel();
    return nullptr;
  }

  bool m_returned = false;
};

class UncancelledCall : public CancelledThread {};

TEST_P(UncancelledCall, is_done_to_its_end) {
  GetParam().scene(stage);
  GetParam().before(stage);
  EXPECT_TRUE(returns());
  EXPECT_EQ(code, SUCCESS);
  expectToBeAtRest(stage);
  GetParam().after(stage);
}

class CancelledCall : public CancelledThread {
 protected:
  /// A package whose code holds points of cancellation.
  void cancelInPackage() {
    for (const Call call :
         {Call::GetEnumerator, Call::GetDiagnostics, Call::GetDevices, Call::DeviceStatus,
          Call::IsSupported, Call::GetStatus, Call::Abort, Call::Suspend, Call::Resume}) {
      stage.alpha.on(call, [](const Scripted::CallRecord& /*record*/) { pthread_testcancel(); });
    }
  }
};

TEST_P(CancelledCall, leaves_neither_a_lock_nor_a_flag_and_can_be_made_again) {
  GetParam().scene(stage);
  cancelInPackage();
  GetParam().before(stage);
  EXPECT_FALSE(returns());
  expectToBeAtRest(stage);
  GetParam().after(stage);
  GetParam().before(stage);
  EXPECT_EQ(GetParam().call(stage), SUCCESS);
  GetParam().after(stage);
}

INSTANTIATE_TEST_SUITE_P(Call, UncancelledCall, ::testing::ValuesIn(rowsThat(true)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Call, CancelledCall, ::testing::ValuesIn(rowsThat(false)),
                         [](const auto& row) { return nameOf(row.param); });

}  // namespace
}  // namespace TarvexDiags::Lifecycle
