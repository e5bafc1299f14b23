#pragma once

#include <string>

#include "Diag/DiagnosticEvent.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// One of the controller's own messages, about requests and failures. Code, type, request id and
/// parameters are those of the base.
class TARVEXDIAGS_EXPORT DiagCtrlEvent : public Diag::DiagnosticEvent {
 public:
  /// Code of a controller event. Agrees with DiagnosticController::errorCode through 31 and goes
  /// apart from 32 on, so a name may have another number there: translate by name.
  enum eventCode : unsigned int {
    SUCCESS = 1,
    INITIALISATION_FAILED = 2,
    UNABLE_TO_REGISTER = 3,
    FILE_OPEN_EXCEPTION = 4,
    OUT_OF_RANGE = 5,
    EV_REG_ID_NOT_FOUND = 7,
    TEST_OBJECT_NOT_FOUND = 8,
    REQUEST_OBJECT_NOT_FOUND = 9,
    RESULT_REG_ID_NOT_FOUND = 10,
    CTRL_EV_REG_ID_NOT_FOUND = 11,
    DEVICE_NOT_FOUND = 12,
    KEY_NOT_EXIST = 13,
    UNABLE_TO_ADD_TEST_REQUEST = 14,
    INVALID_PARAMETER = 15,
    FILE_NOT_FOUND = 16,
    UNABLE_TO_ABORT_TESTS = 17,
    PACKAGE_INITIALIZE_FAILED = 18,
    UNABLE_TO_CREATE_DEVICE_VECTOR = 19,
    OBJECT_NOT_FOUND = 20,
    UNABLE_TO_SET_STATUS = 21,
    IDIAGNOSTIC_NOT_FOUND = 22,
    UNABLE_TO_SET_PHASE = 23,
    INCORRECT_PHASE = 24,
    UNABLE_TO_INIT_EXE_MGR_THREAD = 25,
    UNABLE_TO_INIT_MONI_THREAD = 26,
    ENCORE_REQUEST = 27,
    RESET_FAILED = 28,
    PACKAGE_FILE_NOT_FOUND = 29,
    UNABLE_TO_GET_LOCK = 30,
    UNABLE_TO_SET_CTRL_PHASE = 31,
    UNABLE_TO_PROCESS_TEST_REQUEST = 32,
    DISABLE_TEST = 33,
    ERROR_RECVD_AND_HALT_ON_ERROR = 34,
    UNUSUAL_STATUS_AND_HALT_ON_ERROR = 35,
    DROP_REQUEST_ON_COMPLETION = 36,
    DROP_REQUEST_ON_COMPLETION_ERROR = 37,
    UNABLE_TO_GET_OPERATING_SYSTEM = 38,
    UNABLE_TO_READ_CONFIG_FILE = 39,
    UNABLE_TO_SET_GLOBAL_SETTINGS = 40,
    UNABLE_TO_CREATE_QUEUE = 41,
    UNABLE_TO_READ_CURRENT_DIR = 42,
    DEVICE_OBJECT_NOT_FOUND = 43,
    FUNCTION_NOT_FOUND_IN_DLL = 44,
    UNABLE_TO_GET_REQUESTID_LIST = 45,
    INVALID_PARAMETER_IN_INI_FILE = 46,
    CTRL_EVENT_REG_ID_NOT_FOUND = 47,
    INVALID_MESSAGE_STRING = 48,
    INVALID_PARAMETER_INI_FILE = 49,
    UNABLE_TO_LOAD_PACKAGE = 50,
    UNABLE_TO_FIND_DLL = 51,
    UNABLE_TO_GET_TEST_REQUESTID_OBJ = 52,
    RELEASE_LIBRARY_FAILED = 53,
    LOAD_LIBRARY_FAILED = 54,
    UNABLE_TO_GET_GLOBAL_SETTINGS = 55,
    UNABLE_TO_INIT_EXE_THREAD = 56,
    PACKAGE_NOT_FOUND = 57,
    NO_TEST_ENABLE_TO_EXECUTE = 58,
    ABORT_ALL_ALREADY_IN_PROCESS = 59,
    UNABLE_TO_RESET_RESOURCE_LOCK_MAP = 60,
    TEST_REQUEST_ABORTED = 61,
    INVALID_STRESS_MODE = 62,
    INVALID_QIUCK_TEST_MODE = 63,
    INVALID_HALT_ON_EEROR = 64,
    INVALID_RUN_TIME = 65,
    INVALID_PASS_COUNT = 66,
    UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED = 67,
    ESTIMATED_TIME_INVALID = 68,
  };

  DiagCtrlEvent();
  DiagCtrlEvent(eventCode aeEventCode, EventType aeEventType);
  DiagCtrlEvent(const DiagCtrlEvent&) = default;
  DiagCtrlEvent& operator=(const DiagCtrlEvent&) = default;
  ~DiagCtrlEvent() override;

  const std::string& dump() override;

 private:
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
