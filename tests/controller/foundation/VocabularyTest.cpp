// The failures that travel inside the library, the two tables of codes, the shared constants, and
// what all classes, enumerations and aliases have in common.

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <exception>
#include <list>
#include <map>
#include <queue>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "DiagCtrl/DiagControlConfig.h"
#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEncoreRequest.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlFileOpenException.h"
#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"
#include "DiagCtrl/DiagCtrlInitialisationFailed.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlInvalidTestRequestType.h"
#include "DiagCtrl/DiagCtrlInvalidValueInConfigFile.h"
#include "DiagCtrl/DiagCtrlKeyExistsException.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"
#include "DiagCtrl/DiagCtrlLockNotAcquired.h"
#include "DiagCtrl/DiagCtrlLockTimeOut.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/MonitorThread.h"
#include "DiagCtrl/PackageDetails.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "tests/support/VirtualPlace.h"

namespace TarvexDiags::DiagCtrl {
namespace {

// ---- Exceptions ------------------------------------------------------------------------------

using Base = DiagCtrlBaseException;

template <class Exception>
const char* textOf(const Exception& failure) {
  return failure.getParameter();
}
const char* textOf(const DiagCtrlInvalidKey& failure) {
  return failure.getKey();
}

template <class... Exceptions>
struct Family {
  static constexpr std::size_t kSize = sizeof...(Exceptions);

  template <class Check>
  static void each(Check check) {
    (check.template operator()<Exceptions>(), ...);
  }
};

using AllFailures =
    Family<DiagCtrlMutexException, DiagCtrlKeyNotExistException, DiagCtrlKeyExistsException,
           DiagCtrlFileOpenException, DiagCtrlInitialisationFailed, DiagCtrlObjectNotFound,
           DiagCtrlInvalidParameter, DiagCtrlUnsupportedOperation, DiagCtrlInvalidKey,
           DiagCtrlLoadLibraryFailed, DiagCtrlReleaseLibraryFailed, DiagCtrlFunctionNotFoundInDll,
           DiagCtrlEncoreRequest, DiagCtrlInvalidTestRequestType, DiagCtrlInvalidValueInConfigFile,
           DiagCtrlLockNotAcquired, DiagCtrlLockTimeOut>;

const std::string kBaseDump =
    " The MinorCode of Exception is :9\n"
    " The Line of Exception is :4711\n"
    " The File of Exception is :DiagCtrl/Sample.cpp\n";
const std::string kDump = kBaseDump + " The Key Not Found is :Sample::method()\n";

template <class Exception>
Exception sample() {
  return Exception(Base::UnsupportedOperation, 4711, "DiagCtrl/Sample.cpp", "Sample::method()");
}

TEST(Exceptions, are_seventeen_and_their_base) {
  EXPECT_EQ(AllFailures::kSize, 17U);
  AllFailures::each([]<class Exception>() {
    EXPECT_TRUE((std::is_base_of_v<Base, Exception>)) << typeid(Exception).name();
  });
  EXPECT_FALSE((std::is_base_of_v<std::exception, Base>));
}

TEST(Exceptions, are_dumped_through_the_first_place_of_their_table) {
  EXPECT_EQ(TestSupport::placeOf(&Base::dump), 2U);
  static_assert(std::has_virtual_destructor_v<Base>);
}

TEST(Exceptions, carry_what_the_raise_site_gave) {
  AllFailures::each([]<class Exception>() {
    const Exception failure = sample<Exception>();
    EXPECT_EQ(failure.getMinor(), Base::UnsupportedOperation) << typeid(Exception).name();
    EXPECT_EQ(failure.getLine(), 4711U) << typeid(Exception).name();
    EXPECT_STREQ(failure.getFile(), "DiagCtrl/Sample.cpp") << typeid(Exception).name();
    EXPECT_STREQ(textOf(failure), "Sample::method()") << typeid(Exception).name();
  });
}

TEST(Exceptions, store_pointers_to_their_texts) {
  AllFailures::each([]<class Exception>() {
    static const char kFile[] = "DiagCtrl/Sample.cpp";
    static const char kText[] = "Sample::method()";
    const Exception failure(Base::InvalidKey, 1, kFile, kText);
    EXPECT_EQ(failure.getFile(), kFile) << typeid(Exception).name();
    EXPECT_EQ(textOf(failure), kText) << typeid(Exception).name();
    const Exception copy = failure;
    EXPECT_EQ(copy.getFile(), kFile) << typeid(Exception).name();
    EXPECT_EQ(textOf(copy), kText) << typeid(Exception).name();
  });
}

TEST(Exceptions, dump_code_line_file_and_the_one_label_for_the_text) {
  AllFailures::each([]<class Exception>() {
    Exception failure = sample<Exception>();
    EXPECT_EQ(failure.dump(), kDump) << typeid(Exception).name();
  });
}

TEST(Exceptions, repeat_the_text_in_a_second_dump) {
  AllFailures::each([]<class Exception>() {
    Exception failure = sample<Exception>();
    const std::string first = failure.dump();
    EXPECT_EQ(failure.dump(), first + kDump) << typeid(Exception).name();
  });
}

TEST(Exceptions, dump_in_full_when_caught_by_the_base) {
  AllFailures::each([]<class Exception>() {
    try {
      throw sample<Exception>();
    } catch (Base& failure) {
      EXPECT_EQ(failure.dump(), kDump) << typeid(Exception).name();
    }
  });
}

TEST(Exceptions, copy_what_was_dumped_before) {
  DiagCtrlMutexException failure = sample<DiagCtrlMutexException>();
  failure.dump();
  DiagCtrlMutexException copy = failure;
  EXPECT_EQ(copy.dump(), kDump + kDump);
  EXPECT_EQ(failure.dump(), kDump + kDump) << "the copy has a text of its own";
}

TEST(Exceptions, of_the_base_dump_without_a_text) {
  Base failure(Base::UnsupportedOperation, 4711, "DiagCtrl/Sample.cpp");
  EXPECT_EQ(failure.dump(), kBaseDump);
  EXPECT_EQ(failure.dump(), kBaseDump + kBaseDump);
}

TEST(Exceptions, number_their_minor_codes) {
  EXPECT_EQ(Base::InvalidTestRequestType, 0U);
  EXPECT_EQ(Base::LockNotAcquired, 1U);
  EXPECT_EQ(Base::MutexException, 2U);
  EXPECT_EQ(Base::KeyNotExistException, 3U);
  EXPECT_EQ(Base::KeyExistsException, 4U);
  EXPECT_EQ(Base::FileOpenException, 5U);
  EXPECT_EQ(Base::InitialisationFailed, 6U);
  EXPECT_EQ(Base::ObjectNotFound, 7U);
  EXPECT_EQ(Base::InvalidParameter, 8U);
  EXPECT_EQ(Base::UnsupportedOperation, 9U);
  EXPECT_EQ(Base::EncoreRequest, 10U);
  EXPECT_EQ(Base::InvalidValueInConfigFile, 11U);
  EXPECT_EQ(Base::LoadLibraryFailed, 12U);
  EXPECT_EQ(Base::FunctionNotFoundInDll, 13U);
  EXPECT_EQ(Base::LockTimeOut, 14U);
  EXPECT_EQ(Base::ReleaseLibraryFailed, 15U);
  EXPECT_EQ(Base::DLLNotFound, 16U);
  EXPECT_EQ(Base::InvalidKey, 17U);
}

TEST(Raise, names_file_and_line_of_the_raising_statement) {
  const unsigned long before = __LINE__;
  try {
    raise<DiagCtrlObjectNotFound>(Base::ObjectNotFound, "Sample::method()");
  } catch (const DiagCtrlObjectNotFound& failure) {
    EXPECT_EQ(failure.getLine(), before + 2);
    EXPECT_STREQ(failure.getFile(), __FILE__);
    EXPECT_EQ(failure.getMinor(), Base::ObjectNotFound);
    EXPECT_STREQ(failure.getParameter(), "Sample::method()");
  }
}

// ---- Codes -------------------------------------------------------------------------------------

/// Compares a column of the table with its numbers, which run on from one row to the next.
template <class Code>
class Column {
 public:
  Column& from(unsigned int number) {
    m_next = number;
    return *this;
  }
  Column& is(Code code, const char* name) {
    EXPECT_EQ(static_cast<unsigned int>(code), m_next) << name;
    m_numbers.insert(static_cast<unsigned int>(code));
    ++m_next;
    return *this;
  }
  const std::set<unsigned int>& numbers() const { return m_numbers; }

 private:
  unsigned int m_next = 0;
  std::set<unsigned int> m_numbers;
};

#define RESULT(name) is(DiagnosticController::name, #name)
#define EVENT(name) is(DiagCtrlEvent::name, #name)
#define BOTH(name)      \
  results.RESULT(name); \
  events.EVENT(name)

TEST(Codes, have_the_numbers_that_clients_rely_on) {
  Column<DiagnosticController::errorCode> results;
  Column<DiagCtrlEvent::eventCode> events;
  results.from(1);
  events.from(1);
  BOTH(SUCCESS);
  BOTH(INITIALISATION_FAILED);
  BOTH(UNABLE_TO_REGISTER);
  BOTH(FILE_OPEN_EXCEPTION);
  BOTH(OUT_OF_RANGE);
  results.from(7);
  events.from(7);
  BOTH(EV_REG_ID_NOT_FOUND);
  BOTH(TEST_OBJECT_NOT_FOUND);
  BOTH(REQUEST_OBJECT_NOT_FOUND);
  BOTH(RESULT_REG_ID_NOT_FOUND);
  BOTH(CTRL_EV_REG_ID_NOT_FOUND);
  BOTH(DEVICE_NOT_FOUND);
  BOTH(KEY_NOT_EXIST);
  BOTH(UNABLE_TO_ADD_TEST_REQUEST);
  BOTH(INVALID_PARAMETER);
  BOTH(FILE_NOT_FOUND);
  BOTH(UNABLE_TO_ABORT_TESTS);
  BOTH(PACKAGE_INITIALIZE_FAILED);
  BOTH(UNABLE_TO_CREATE_DEVICE_VECTOR);
  BOTH(OBJECT_NOT_FOUND);
  BOTH(UNABLE_TO_SET_STATUS);
  BOTH(IDIAGNOSTIC_NOT_FOUND);
  BOTH(UNABLE_TO_SET_PHASE);
  BOTH(INCORRECT_PHASE);
  BOTH(UNABLE_TO_INIT_EXE_MGR_THREAD);
  BOTH(UNABLE_TO_INIT_MONI_THREAD);
  BOTH(ENCORE_REQUEST);
  BOTH(RESET_FAILED);
  BOTH(PACKAGE_FILE_NOT_FOUND);
  BOTH(UNABLE_TO_GET_LOCK);
  BOTH(UNABLE_TO_SET_CTRL_PHASE);

  results.RESULT(FUNCTION_NOT_FOUND_IN_DLL)
      .RESULT(UNABLE_TO_GET_REQUESTID_LIST)
      .RESULT(DEVICE_OBJECT_NOT_FOUND)
      .RESULT(INVALID_MESSAGE_STRING)
      .RESULT(CTRL_EVENT_REG_ID_NOT_FOUND)
      .RESULT(UNABLE_TO_LOAD_PACKAGE)
      .RESULT(UNABLE_TO_GET_REQUEST_ID_LIST)
      .RESULT(INVALID_VALUE_IN_CONFIG_FILE)
      .RESULT(LOAD_LIBRARY_FAILED)
      .RESULT(UNABLE_TO_GET_GLOBAL_SETTINGS)
      .RESULT(UNABLE_TO_CREATE_RES_LOCK)
      .RESULT(NO_PACKAGE_ENABLED)
      .RESULT(INVALID_FILE_NAME_PASSED)
      .RESULT(INVALID_OBJECT_PASSED)
      .RESULT(INAVLID_VALUE_PASSED)
      .RESULT(TEST_VECTOR_IS_EMPTY)
      .RESULT(MESSAGE_TYPE_NOT_PASSED)
      .RESULT(LANG_ID_IS_NULL)
      .RESULT(MESSAGE_TOKEN_IS_NULL)
      .RESULT(INVALID_KEY_PASSED)
      .RESULT(UNABLE_TO_GET_OS)
      .RESULT(PACKAGE_NOT_FOUND)
      .RESULT(UNABLE_TO_REMOVE_RES_LOCK)
      .RESULT(ABORT_ALL_ALREADY_IN_PROCESS)
      .RESULT(UNABLE_TO_RESET_RESOURCE_LOCK_MAP)
      .RESULT(INVALID_STRESS_MODE)
      .RESULT(INVALID_QIUCK_TEST_MODE)
      .RESULT(INVALID_HALT_ON_EEROR)
      .RESULT(INVALID_RUN_TIME)
      .RESULT(INVALID_PASS_COUNT);
  EXPECT_EQ(*results.numbers().rbegin(), 61U);
  EXPECT_EQ(results.numbers().size(), 60U) << "6 is no code";

  events.EVENT(UNABLE_TO_PROCESS_TEST_REQUEST)
      .EVENT(DISABLE_TEST)
      .EVENT(ERROR_RECVD_AND_HALT_ON_ERROR)
      .EVENT(UNUSUAL_STATUS_AND_HALT_ON_ERROR)
      .EVENT(DROP_REQUEST_ON_COMPLETION)
      .EVENT(DROP_REQUEST_ON_COMPLETION_ERROR)
      .EVENT(UNABLE_TO_GET_OPERATING_SYSTEM)
      .EVENT(UNABLE_TO_READ_CONFIG_FILE)
      .EVENT(UNABLE_TO_SET_GLOBAL_SETTINGS)
      .EVENT(UNABLE_TO_CREATE_QUEUE)
      .EVENT(UNABLE_TO_READ_CURRENT_DIR)
      .EVENT(DEVICE_OBJECT_NOT_FOUND)
      .EVENT(FUNCTION_NOT_FOUND_IN_DLL)
      .EVENT(UNABLE_TO_GET_REQUESTID_LIST)
      .EVENT(INVALID_PARAMETER_IN_INI_FILE)
      .EVENT(CTRL_EVENT_REG_ID_NOT_FOUND)
      .EVENT(INVALID_MESSAGE_STRING)
      .EVENT(INVALID_PARAMETER_INI_FILE)
      .EVENT(UNABLE_TO_LOAD_PACKAGE)
      .EVENT(UNABLE_TO_FIND_DLL)
      .EVENT(UNABLE_TO_GET_TEST_REQUESTID_OBJ)
      .EVENT(RELEASE_LIBRARY_FAILED)
      .EVENT(LOAD_LIBRARY_FAILED)
      .EVENT(UNABLE_TO_GET_GLOBAL_SETTINGS)
      .EVENT(UNABLE_TO_INIT_EXE_THREAD)
      .EVENT(PACKAGE_NOT_FOUND)
      .EVENT(NO_TEST_ENABLE_TO_EXECUTE)
      .EVENT(ABORT_ALL_ALREADY_IN_PROCESS)
      .EVENT(UNABLE_TO_RESET_RESOURCE_LOCK_MAP)
      .EVENT(TEST_REQUEST_ABORTED)
      .EVENT(INVALID_STRESS_MODE)
      .EVENT(INVALID_QIUCK_TEST_MODE)
      .EVENT(INVALID_HALT_ON_EEROR)
      .EVENT(INVALID_RUN_TIME)
      .EVENT(INVALID_PASS_COUNT)
      .EVENT(UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED)
      .EVENT(ESTIMATED_TIME_INVALID);
  EXPECT_EQ(*events.numbers().rbegin(), 68U);
  EXPECT_EQ(events.numbers().size(), 67U) << "6 is no code";
}

TEST(Codes, are_not_the_same_in_both_tables_from_32_on) {
  EXPECT_EQ(DiagnosticController::FUNCTION_NOT_FOUND_IN_DLL, 32U);
  EXPECT_EQ(DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST, 32U);
  EXPECT_EQ(DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL, 44U);
}

// ---- Constants ---------------------------------------------------------------------------------

#define EXPECT_NUMBER(name, type, value)                                        \
  EXPECT_TRUE((std::is_same_v<decltype(DiagCtrlConstants::name), const type>)); \
  EXPECT_EQ(DiagCtrlConstants::name, static_cast<type>(value))

TEST(Constants, hold_the_numbers) {
  EXPECT_NUMBER(mlSMonitorThrTimeWait, long, 2000);
  EXPECT_NUMBER(miSInitialRegId, int, 0);
  EXPECT_NUMBER(miSDefTraceLevel, int, 1);
  EXPECT_NUMBER(miSSpaceSize, int, 2);
  EXPECT_NUMBER(miSBuffSize, int, 4096);
  EXPECT_NUMBER(mSconlDefaultLockTimeOut, long, 200);
  EXPECT_NUMBER(mSusconTryCount, unsigned short, 3);
  EXPECT_NUMBER(mSusconYieldCount, unsigned short, 20);
  EXPECT_NUMBER(mSconlTimeOut, long, 10);
  EXPECT_NUMBER(mSconusInt, unsigned short, 20);
  EXPECT_NUMBER(mSconusVer4, unsigned short, 4);
  EXPECT_NUMBER(mSconusVer5, unsigned short, 5);
  EXPECT_NUMBER(mSconcSep$, char, '$');
  EXPECT_NUMBER(miSDiagTracerTempStrLen, int, 15);
  EXPECT_NUMBER(miSCtrlBaseExceptionTempStrLen, int, 10);
  EXPECT_NUMBER(mSconulWaitForBatch, unsigned long, 2);
  EXPECT_FALSE(std::is_default_constructible_v<DiagCtrlConstants>);
}

TEST(Constants, number_the_trace_levels) {
  EXPECT_EQ(DiagCtrlConstants::DIAG_NO, 0U);
  EXPECT_EQ(DiagCtrlConstants::DIAG_ERROR, 1U);
  EXPECT_EQ(DiagCtrlConstants::DIAG_WARNING, 2U);
  EXPECT_EQ(DiagCtrlConstants::DIAG_INFORMATION, 3U);
}

#define EXPECT_TEXT(name, text)                                                        \
  EXPECT_TRUE((std::is_same_v<decltype(DiagCtrlConstants::name), const char* const>)); \
  EXPECT_STREQ(DiagCtrlConstants::name, text)

TEST(Constants, hold_the_texts_of_logs_and_traces) {
  EXPECT_TEXT(mpcSLogFile, "DCevent.log");
  EXPECT_TEXT(mpcSEnvLogFile, "DC_EVENT_LOG_FILE");
  EXPECT_TEXT(mpcSPrgsLogFile, "DCprogress.log");
  EXPECT_TEXT(mpcSEnvPrgsLogFile, "DC_PROGRESS_LOG_FILE");
  EXPECT_TEXT(mpcSEnterString, "@enter ");
  EXPECT_TEXT(mpcSExitString, "@exit ");
  EXPECT_TEXT(mpcSDefTraceFile, "DiagnosticController.trace");
  EXPECT_TEXT(mpcSSpaceChar, "  ");
}

TEST(Constants, hold_the_names_in_a_control_file) {
  EXPECT_TEXT(mSconNumOfPackages, "NumPackages");
  EXPECT_TEXT(mSconRunMode, "RunMode");
  EXPECT_TEXT(mSconDiagLog, "DiagLog");
  EXPECT_TEXT(mSconDebugLog, "DebugLog");
  EXPECT_TEXT(mSconHaltOnError, "HaltOnError");
  EXPECT_TEXT(mSconDiagnosticMode, "DiagnosticMode");
  EXPECT_TEXT(mSconMachineId, "MachineId");
  EXPECT_TEXT(mSconOs, "Os");
  EXPECT_TEXT(mSconDisablePackage, "DisablePackage");
  EXPECT_TEXT(mSconGlobalSettings, "GlobalSettings");
  EXPECT_TEXT(mSconpcPackDirPath, "PackDirPath");
  EXPECT_TEXT(mSconpcLogDirPath, "LogDirPath");
  EXPECT_TEXT(mSconpcMsgFilePath, "MsgFilePath");
}

TEST(Constants, hold_the_names_in_a_packages_file) {
  EXPECT_TEXT(mSconPackageName, "PackageName");
  EXPECT_TEXT(mSconPackageMnemonic, "Mnemonic");
  EXPECT_TEXT(mSconpcDeviceType, "DeviceType");
  EXPECT_TEXT(mSconpcPackageVersion, "PackageVersion");
  EXPECT_TEXT(mSconpcPackageDesc, "PackageDescription");
  EXPECT_TEXT(mSconpcSystemLock, "SystemLock");
  EXPECT_TEXT(mSconpcResourceLockProperty, "ResourceLockProperty");
  EXPECT_TEXT(mSconpcDLLDependencies, "SODependencies");
  EXPECT_TEXT(mSconpcNumTest, "NumberOfTests");
  EXPECT_TEXT(mSconpcTestName, "TestName");
  EXPECT_TEXT(mSconpcTestDesc, "TestDescription");
  EXPECT_TEXT(mSconpcTestCapabilities, "TestCapabilities");
  EXPECT_TEXT(mSconpcTestOpenMode, "TestOpenMode");
  EXPECT_TEXT(mSconpcTestDisable, "TestDisable");
  EXPECT_TEXT(mSconpcTestEstimatedTime, "TestEstimatedTime");
  EXPECT_TEXT(mSconpcPackage, "Package");
  EXPECT_TEXT(mSconpcTestId, "TestID");
  EXPECT_TEXT(mSconpcDisDevice, "Disable Device");
  EXPECT_TEXT(mSconpcDisTest, "Disable Test");
  EXPECT_TEXT(mSconpcDeviceName, "DeviceName");
  EXPECT_TEXT(mSconpcNumDevice, "NumberOfDevice");
  EXPECT_TEXT(mSconpcDisTestId, "DisableTestID");
  EXPECT_TEXT(mSconpcDevTestId, "DisableDeviceTestID");
}

TEST(Constants, hold_the_names_in_token_and_file_names) {
  EXPECT_TEXT(mSconpcDeviceStatus, "DeviceStatus");
  EXPECT_TEXT(mSconpcInformation, "Information");
  EXPECT_TEXT(mSconpcWarning, "Warning");
  EXPECT_TEXT(mSconpcError, "Error");
  EXPECT_TEXT(mSconNull, "");
  EXPECT_TEXT(mSconpcIni, ".cfg");
  EXPECT_TEXT(mSconpcDll, ".so");
  EXPECT_TEXT(mSconpcLib, "lib");
  EXPECT_TEXT(mSconpcDoubleSlash, "/");
  EXPECT_TEXT(mSconpcResourceTagSeparator, "/");
  EXPECT_TEXT(mSconpcSep$, "$");
}

TEST(Constants, hold_the_texts_that_only_others_read) {
  EXPECT_TEXT(mSconStressMode, "StressMode");
  EXPECT_TEXT(mSconpcLanguage, "Language");
  EXPECT_TEXT(mSconpcEnglish, "en");
  EXPECT_TEXT(mSconpcGerman, "de");
  EXPECT_TEXT(mSconpcFrench, "fr");
  EXPECT_TEXT(mSconpcSpanish, "es");
  EXPECT_TEXT(mSconpcSimplifiedChinese, "zh");
  EXPECT_TEXT(mSconpcJapanese, "ja");
  EXPECT_TEXT(mSconpcIniPath, "/*.cfg");
  EXPECT_TEXT(mSconpcDllPath, "/*.so");
  EXPECT_TEXT(mSconpcWinNt, "WinNT");
  EXPECT_TEXT(mSconpcWin2K, "Win2K");
  EXPECT_TEXT(mSconpcLinux, "Linux");
  EXPECT_TEXT(mSconpcLeftBracket, "[");
  EXPECT_TEXT(mSconpcRightBracket, "]");
  EXPECT_TEXT(mSconpcEqualTo, "=");
  EXPECT_TEXT(mSconpcBackSlash, "/");
}

// ---- Enumerations, aliases, copies
// ---------------------------------------------------------------

// A value out of range is a value all the same, which can be told and refused.
template <class... Enumerations>
constexpr bool kAreUnsignedInt =
    (std::is_same_v<std::underlying_type_t<Enumerations>, unsigned int> && ...);

static_assert(
    kAreUnsignedInt<DiagnosticController::errorCode, DiagCtrlEvent::eventCode,
                    DiagControllerStatus::diagCtrlPhase, DiagCtrlConstants::debugLevel,
                    DiagCtrlBaseException::MinorCodeEnum, DiagCtrlConditionVar::WaitRetStatus,
                    DiagThread::SchedulingPolicy, DiagValidator::enumType, GlobalSettings::runMode,
                    GlobalSettings::diagMode, TestRequest::TestRequestStatus,
                    TestRequestManager::TestRequestQueueType>);

template <class Alias, class Type>
constexpr bool kIs = std::is_same_v<Alias, Type>;

static_assert(kIs<ThrIdToIndentMap, std::map<unsigned long, std::string>>);
static_assert(kIs<EventVector, std::vector<Diag::DiagnosticEvent*>> &&
              kIs<ResultVector, std::vector<Diag::DiagnosticResult*>> &&
              kIs<CtrlEventVector, std::vector<DiagCtrlEvent*>>);
static_assert(kIs<EventQueue, std::queue<Diag::DiagnosticEvent*>> &&
              kIs<ResultQueue, std::queue<Diag::DiagnosticResult*>> &&
              kIs<CtrlEventQueue, std::queue<DiagCtrlEvent*>>);
static_assert(kIs<EventQueueMap, std::map<unsigned long, EventQueue*>> &&
              kIs<ResultQueueMap, std::map<unsigned long, ResultQueue*>> &&
              kIs<CtrlEventQueueMap, std::map<unsigned long, CtrlEventQueue*>>);
static_assert(kIs<TestRequestQueue, std::deque<TestRequest*>> &&
              kIs<TestRequestMap, std::map<unsigned long, TestRequest*>> &&
              kIs<TestRequestIdList, std::list<unsigned long>>);
static_assert(kIs<ExecutionThreadMap, std::map<unsigned long, ExecutionThread*>>);
static_assert(kIs<ResStrLockMap, std::map<std::string, bool>> &&
              kIs<ResStrShareMap, std::map<std::string, int>>);
static_assert(kIs<DLL_Handle, void*> && kIs<p_Handle, void*> && kIs<pDllHandle, void*>);
static_assert(kIs<DiagIntList, std::list<int>> && kIs<DeviceVector, std::vector<DiagDevice*>> &&
              kIs<TestIdMap, std::map<int, int>>);
static_assert(kIs<VectorTestReqId, std::vector<unsigned long>> &&
              kIs<PackageNameVector, std::vector<std::string>> &&
              kIs<ParamStringVector, std::vector<std::string>> &&
              kIs<DisablePackList, std::list<const char*>> &&
              kIs<PackageList, std::list<const char*>> &&
              kIs<PackageObjectMap, std::map<int, DiagnosticPackage*>> &&
              kIs<PackageMap, std::map<int, const char*>>);

// What holds a lock or owns what a pointer leads to.
template <class... Classes>
constexpr bool kCannotBeCopied = ((!std::is_copy_constructible_v<Classes> &&
                                   !std::is_copy_assignable_v<Classes>)&&...);

static_assert(kCannotBeCopied<CallBackObject, DiagControlConfig, DiagControllerStatus,
                              DiagCtrlConditionVar, DiagCtrlLock, DiagDevice, DiagnosticController,
                              DiagnosticPackage, DiagnosticPackageInterface, DiagThread, DiagTracer,
                              DiagUtil, DiagValidator, EventManager, ExecutionManagerThread,
                              GlobalSettings, MonitorThread, PackageDetails, PackageTestInfo,
                              ResourceLockManager, TestRequest, TestRequestManager>);

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
