#include "DiagCtrl/CodeNames.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

// Each name once: those that results and events share, and those that only one of them has.
// clang-format off
#define SHARED_CODES(CODE) \
  CODE(SUCCESS) \
  CODE(INITIALISATION_FAILED) \
  CODE(UNABLE_TO_REGISTER) \
  CODE(FILE_OPEN_EXCEPTION) \
  CODE(OUT_OF_RANGE) \
  CODE(EV_REG_ID_NOT_FOUND) \
  CODE(TEST_OBJECT_NOT_FOUND) \
  CODE(REQUEST_OBJECT_NOT_FOUND) \
  CODE(RESULT_REG_ID_NOT_FOUND) \
  CODE(CTRL_EV_REG_ID_NOT_FOUND) \
  CODE(DEVICE_NOT_FOUND) \
  CODE(KEY_NOT_EXIST) \
  CODE(UNABLE_TO_ADD_TEST_REQUEST) \
  CODE(INVALID_PARAMETER) \
  CODE(FILE_NOT_FOUND) \
  CODE(UNABLE_TO_ABORT_TESTS) \
  CODE(PACKAGE_INITIALIZE_FAILED) \
  CODE(UNABLE_TO_CREATE_DEVICE_VECTOR) \
  CODE(OBJECT_NOT_FOUND) \
  CODE(UNABLE_TO_SET_STATUS) \
  CODE(IDIAGNOSTIC_NOT_FOUND) \
  CODE(UNABLE_TO_SET_PHASE) \
  CODE(INCORRECT_PHASE) \
  CODE(UNABLE_TO_INIT_EXE_MGR_THREAD) \
  CODE(UNABLE_TO_INIT_MONI_THREAD) \
  CODE(ENCORE_REQUEST) \
  CODE(RESET_FAILED) \
  CODE(PACKAGE_FILE_NOT_FOUND) \
  CODE(UNABLE_TO_GET_LOCK) \
  CODE(UNABLE_TO_SET_CTRL_PHASE) \
  CODE(FUNCTION_NOT_FOUND_IN_DLL) \
  CODE(UNABLE_TO_GET_REQUESTID_LIST) \
  CODE(DEVICE_OBJECT_NOT_FOUND) \
  CODE(INVALID_MESSAGE_STRING) \
  CODE(CTRL_EVENT_REG_ID_NOT_FOUND) \
  CODE(UNABLE_TO_LOAD_PACKAGE) \
  CODE(LOAD_LIBRARY_FAILED) \
  CODE(UNABLE_TO_GET_GLOBAL_SETTINGS) \
  CODE(PACKAGE_NOT_FOUND) \
  CODE(ABORT_ALL_ALREADY_IN_PROCESS) \
  CODE(UNABLE_TO_RESET_RESOURCE_LOCK_MAP) \
  CODE(INVALID_STRESS_MODE) \
  CODE(INVALID_QIUCK_TEST_MODE) \
  CODE(INVALID_HALT_ON_EEROR) \
  CODE(INVALID_RUN_TIME) \
  CODE(INVALID_PASS_COUNT)

#define RESULT_CODES(CODE) \
  CODE(UNABLE_TO_GET_REQUEST_ID_LIST) \
  CODE(INVALID_VALUE_IN_CONFIG_FILE) \
  CODE(UNABLE_TO_CREATE_RES_LOCK) \
  CODE(NO_PACKAGE_ENABLED) \
  CODE(INVALID_FILE_NAME_PASSED) \
  CODE(INVALID_OBJECT_PASSED) \
  CODE(INAVLID_VALUE_PASSED) \
  CODE(TEST_VECTOR_IS_EMPTY) \
  CODE(MESSAGE_TYPE_NOT_PASSED) \
  CODE(LANG_ID_IS_NULL) \
  CODE(MESSAGE_TOKEN_IS_NULL) \
  CODE(INVALID_KEY_PASSED) \
  CODE(UNABLE_TO_GET_OS) \
  CODE(UNABLE_TO_REMOVE_RES_LOCK)

#define EVENT_CODES(CODE) \
  CODE(UNABLE_TO_PROCESS_TEST_REQUEST) \
  CODE(DISABLE_TEST) \
  CODE(ERROR_RECVD_AND_HALT_ON_ERROR) \
  CODE(UNUSUAL_STATUS_AND_HALT_ON_ERROR) \
  CODE(DROP_REQUEST_ON_COMPLETION) \
  CODE(DROP_REQUEST_ON_COMPLETION_ERROR) \
  CODE(UNABLE_TO_GET_OPERATING_SYSTEM) \
  CODE(UNABLE_TO_READ_CONFIG_FILE) \
  CODE(UNABLE_TO_SET_GLOBAL_SETTINGS) \
  CODE(UNABLE_TO_CREATE_QUEUE) \
  CODE(UNABLE_TO_READ_CURRENT_DIR) \
  CODE(INVALID_PARAMETER_IN_INI_FILE) \
  CODE(INVALID_PARAMETER_INI_FILE) \
  CODE(UNABLE_TO_FIND_DLL) \
  CODE(UNABLE_TO_GET_TEST_REQUESTID_OBJ) \
  CODE(RELEASE_LIBRARY_FAILED) \
  CODE(UNABLE_TO_INIT_EXE_THREAD) \
  CODE(NO_TEST_ENABLE_TO_EXECUTE) \
  CODE(TEST_REQUEST_ABORTED) \
  CODE(UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED) \
  CODE(ESTIMATED_TIME_INVALID)
// clang-format on

#define RESULT_NAME(name) {DiagnosticController::name, #name},
#define EVENT_NAME(name) {DiagCtrlEvent::name, #name},

namespace TarvexDiags::DiagCtrl {

namespace {

template <class Code>
struct Named {
  Code code;
  const char* name;
};

constexpr Named<DiagnosticController::errorCode> kResults[] = {SHARED_CODES(RESULT_NAME)
                                                                   RESULT_CODES(RESULT_NAME)};
constexpr Named<DiagCtrlEvent::eventCode> kEvents[] = {SHARED_CODES(EVENT_NAME)
                                                           EVENT_CODES(EVENT_NAME)};

template <class Code, std::size_t size>
const char* nameIn(const Named<Code> (&arNames)[size], Code aeCode) noexcept {
  const auto* const found =
      std::find_if(std::begin(arNames), std::end(arNames),
                   [&](const Named<Code>& arNamed) { return arNamed.code == aeCode; });
  return found != std::end(arNames) ? found->name : "";
}

}  // namespace

const char* nameOf(DiagnosticController::errorCode aeCode) noexcept {
  return nameIn(kResults, aeCode);
}

const char* nameOf(DiagCtrlEvent::eventCode aeCode) noexcept {
  return nameIn(kEvents, aeCode);
}

}  // namespace TarvexDiags::DiagCtrl
