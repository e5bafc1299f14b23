#include "diagctl/session/CodeTable.h"

#include <algorithm>

#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Severity = CodeEntry::Severity;
using Effect = CodeEntry::Effect;

using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;

// A name with its number in each of the two enumerations that have it.
#define BOTH(name) #name, DiagnosticController::name, DiagCtrlEvent::name
#define RESULT(name) #name, DiagnosticController::name, std::nullopt
#define EVENT(name) #name, std::nullopt, DiagCtrlEvent::name

// clang-format off
const std::vector<CodeEntry> kTable = {
    {BOTH(SUCCESS), Severity::Success,
     marked("The call did what it was asked to."),
     marked("Nothing to do.")},
    {BOTH(INITIALISATION_FAILED), Severity::Error,
     marked("The control file could not be read, or a required key is missing or wrong."),
     marked("Run \"diagctl check\": it names file, section and key.")},
    {BOTH(UNABLE_TO_REGISTER), Severity::Error,
     marked("The queue of a registration could not be made."),
     marked("Start the front end again; if it stays, the library is damaged.")},
    {BOTH(FILE_OPEN_EXCEPTION), Severity::Error,
     marked("A file could not be opened. The library declares this code and does not use it."),
     marked("Nothing to do.")},
    {BOTH(OUT_OF_RANGE), Severity::Error,
     marked("A value is out of range. The library declares this code and does not use it."),
     marked("Nothing to do.")},
    {BOTH(EV_REG_ID_NOT_FOUND), Severity::Error,
     marked("Declared for unknown registrations of events; the library answers RESULT_REG_ID_NOT_FOUND instead."),
     marked("Nothing to do.")},
    {BOTH(TEST_OBJECT_NOT_FOUND), Severity::Error,
     marked("The package has no test of this number, or it was withdrawn for this machine."),
     marked("Run \"diagctl list tests\" for the tests on offer.")},
    {BOTH(REQUEST_OBJECT_NOT_FOUND), Severity::Error,
     marked("No request has this id, or the requests were cleared."),
     marked("Use an id that a queueing call returned.")},
    {BOTH(RESULT_REG_ID_NOT_FOUND), Severity::Error,
     marked("No registration for results or events has this id."),
     marked("Register again after each start; ids do not survive a shut-down.")},
    {BOTH(CTRL_EV_REG_ID_NOT_FOUND), Severity::Error,
     marked("No registration for controller events has this id."),
     marked("Register again after each start; ids do not survive a shut-down.")},
    {BOTH(DEVICE_NOT_FOUND), Severity::Error,
     marked("The package has no device of this number."),
     marked("Run \"diagctl list devices\" for the devices that were found.")},
    {BOTH(KEY_NOT_EXIST), Severity::Error,
     marked("A key does not exist. The library declares this code and does not use it."),
     marked("Nothing to do.")},
    {BOTH(UNABLE_TO_ADD_TEST_REQUEST), Severity::Error,
     marked("The package gave no diagnostics object for the request, or the configuration was lost."),
     marked("Look into the package's log; run \"diagctl check\".")},
    {BOTH(INVALID_PARAMETER), Severity::Error,
     marked("An argument is invalid, or a token or text is missing from a file."),
     marked("Run \"diagctl check\": it names the missing token or text.")},
    {BOTH(FILE_NOT_FOUND), Severity::Error,
     marked("A file does not exist. The library declares this code and does not use it."),
     marked("Nothing to do.")},
    {BOTH(UNABLE_TO_ABORT_TESTS), Severity::Error,
     marked("The abort of all tests failed; what was running goes on until it ends by itself."),
     marked("Wait for the running tests, or end the front end a second time to leave at once.")},
    {BOTH(PACKAGE_INITIALIZE_FAILED), Severity::Warning,
     marked("The description of a package is faulty; the package was left out."),
     marked("Run \"diagctl check\": it names file, section, key and reason.")},
    {BOTH(UNABLE_TO_CREATE_DEVICE_VECTOR), Severity::Warning,
     marked("A package could not tell its devices; the package was left out."),
     marked("Look into the package's log for the reason.")},
    {BOTH(OBJECT_NOT_FOUND), Severity::Error,
     marked("There is no package or request of this number."),
     marked("Run \"diagctl list packages\" for the packages that were found.")},
    {BOTH(UNABLE_TO_SET_STATUS), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(IDIAGNOSTIC_NOT_FOUND), Severity::Error,
     marked("The request has ended, and its package was given back."),
     marked("Ask for the state of the request instead.")},
    {BOTH(UNABLE_TO_SET_PHASE), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(INCORRECT_PHASE), Severity::Error,
     marked("The call is not allowed in the present phase of the controller."),
     marked("Wait for the phase that the call needs: settings change only while idle.")},
    {BOTH(UNABLE_TO_INIT_EXE_MGR_THREAD), Severity::Error,
     marked("Declared; a dispatcher that cannot start reports UNABLE_TO_INIT_MONI_THREAD."),
     marked("Nothing to do.")},
    {BOTH(UNABLE_TO_INIT_MONI_THREAD), Severity::Error,
     marked("One of the controller's two threads could not be started."),
     marked("Check the limits on threads and memory (ulimit -u, ulimit -v).")},
    {BOTH(ENCORE_REQUEST), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(RESET_FAILED), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(PACKAGE_FILE_NOT_FOUND), Severity::Error,
     marked("The package directory could not be read."),
     marked("Check PackDirPath of the control file and the permissions of the directory.")},
    {BOTH(UNABLE_TO_GET_LOCK), Severity::Error,
     marked("A lock could not be taken, or the settings were lost to a second initialisation with a bad file."),
     marked("Shut down and start again with a good control file.")},
    {BOTH(UNABLE_TO_SET_CTRL_PHASE), Severity::Error,
     marked("The phase of the controller could not be set."),
     marked("Shut down and start again.")},
    {BOTH(FUNCTION_NOT_FOUND_IN_DLL), Severity::Error,
     marked("The shared object of a package lacks a required export."),
     marked("Install the package again; its library does not fit its description.")},
    {EVENT(UNABLE_TO_PROCESS_TEST_REQUEST), Severity::Error,
     marked("A request had to wait: its package wants the whole machine, and other tests are still running."),
     marked("Nothing to do: it starts when the others have ended."),
     Effect::Nothing},
    {EVENT(DISABLE_TEST), Severity::Warning,
     marked("A listed test is disabled on its device and was skipped."),
     marked("Run \"diagctl show\" on the test to see why.")},
    {BOTH(UNABLE_TO_GET_REQUESTID_LIST), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(DEVICE_OBJECT_NOT_FOUND), Severity::Error,
     marked("The device to queue a test on does not exist, or the package has no devices."),
     marked("Run \"diagctl list devices\".")},
    {EVENT(ERROR_RECVD_AND_HALT_ON_ERROR), Severity::Error,
     marked("A pass ended with a bad result, and the request was halted."),
     marked("See the result of the pass for the cause."),
     Effect::Nothing},
    {BOTH(INVALID_MESSAGE_STRING), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {EVENT(UNUSUAL_STATUS_AND_HALT_ON_ERROR), Severity::Error,
     marked("Declared; both bad results raise ERROR_RECVD_AND_HALT_ON_ERROR."),
     marked("Nothing to do.")},
    {BOTH(CTRL_EVENT_REG_ID_NOT_FOUND), Severity::Error,
     marked("No registration for controller events has this id."),
     marked("Register again after each start; ids do not survive a shut-down.")},
    {EVENT(DROP_REQUEST_ON_COMPLETION), Severity::Information,
     marked("A request has ended."),
     marked("Nothing to do."),
     Effect::Nothing},
    {EVENT(DROP_REQUEST_ON_COMPLETION_ERROR), Severity::Error,
     marked("A request could not be sent back for another pass and has ended early."),
     marked("Queue it again.")},
    {BOTH(UNABLE_TO_LOAD_PACKAGE), Severity::Warning,
     marked("The shared object of a package, or one that it depends on, could not be loaded; the package was left out."),
     marked("Run \"diagctl check\"; look at the library with ldd.")},
    {EVENT(UNABLE_TO_GET_OPERATING_SYSTEM), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {RESULT(UNABLE_TO_GET_REQUEST_ID_LIST), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {RESULT(INVALID_VALUE_IN_CONFIG_FILE), Severity::Error,
     marked("An entry of DisablePackage in the control file has no name."),
     marked("Run \"diagctl check\": it names the section.")},
    {EVENT(UNABLE_TO_READ_CONFIG_FILE), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(LOAD_LIBRARY_FAILED), Severity::Error,
     marked("The shared object of a package could not be loaded for a request."),
     marked("Check that the library is still there and readable; run \"diagctl check\".")},
    {EVENT(UNABLE_TO_SET_GLOBAL_SETTINGS), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {EVENT(UNABLE_TO_CREATE_QUEUE), Severity::Error,
     marked("The queue of a registration could not be made."),
     marked("Start the front end again.")},
    {BOTH(UNABLE_TO_GET_GLOBAL_SETTINGS), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {RESULT(UNABLE_TO_CREATE_RES_LOCK), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {EVENT(UNABLE_TO_READ_CURRENT_DIR), Severity::Error,
     marked("The package directory could not be read."),
     marked("Check PackDirPath of the control file and the permissions of the directory.")},
    {RESULT(NO_PACKAGE_ENABLED), Severity::Error,
     marked("The package directory holds no package."),
     marked("Check PackDirPath: a package is NAME.cfg beside libNAME.so.")},
    {RESULT(INVALID_FILE_NAME_PASSED), Severity::Error,
     marked("No control file was named."),
     marked("Name one with --config.")},
    {RESULT(INVALID_OBJECT_PASSED), Severity::Error,
     marked("A registration was made without an object."),
     marked("A fault of the front end: please report it.")},
    {RESULT(INAVLID_VALUE_PASSED), Severity::Error,
     marked("A setting was given a value out of its range."),
     marked("Use one of the values that --help names.")},
    {EVENT(INVALID_PARAMETER_IN_INI_FILE), Severity::Error,
     marked("A package's configuration file has no token for this code."),
     marked("Run \"diagctl check\": it names the missing token.")},
    {RESULT(TEST_VECTOR_IS_EMPTY), Severity::Error,
     marked("A request was queued without a test."),
     marked("Select at least one test.")},
    {RESULT(MESSAGE_TYPE_NOT_PASSED), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {EVENT(INVALID_PARAMETER_INI_FILE), Severity::Error,
     marked("A language file has no text for a token."),
     marked("Run \"diagctl check\": it names the missing text.")},
    {RESULT(LANG_ID_IS_NULL), Severity::Error,
     marked("A text was asked for without a language."),
     marked("Name one with --lang.")},
    {RESULT(MESSAGE_TOKEN_IS_NULL), Severity::Error,
     marked("A text was asked for without a token."),
     marked("A fault of the front end: please report it.")},
    {RESULT(INVALID_KEY_PASSED), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {EVENT(UNABLE_TO_FIND_DLL), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {RESULT(UNABLE_TO_GET_OS), Severity::Error,
     marked("The name of the operating system could not be told."),
     marked("The framework library is damaged: install it again.")},
    {EVENT(UNABLE_TO_GET_TEST_REQUESTID_OBJ), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(PACKAGE_NOT_FOUND), Severity::Error,
     marked("There is no package of this number, or a package failed in its enumeration."),
     marked("Run \"diagctl list packages\".")},
    {EVENT(RELEASE_LIBRARY_FAILED), Severity::Error,
     marked("The shared object of a package could not be given back."),
     marked("Shut down and start again; look into the package's log.")},
    {RESULT(UNABLE_TO_REMOVE_RES_LOCK), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(ABORT_ALL_ALREADY_IN_PROCESS), Severity::Warning,
     marked("An earlier abort of all tests has not ended."),
     marked("Shut down and start again.")},
    {EVENT(UNABLE_TO_INIT_EXE_THREAD), Severity::Error,
     marked("The thread of a pass could not be started; the request was aborted."),
     marked("Check the limits on threads and memory (ulimit -u, ulimit -v), then run the test again.")},
    {BOTH(UNABLE_TO_RESET_RESOURCE_LOCK_MAP), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
    {BOTH(INVALID_STRESS_MODE), Severity::Error,
     marked("The stress flag of the settings is neither true nor false."),
     marked("A fault of the front end: please report it.")},
    {BOTH(INVALID_QIUCK_TEST_MODE), Severity::Error,
     marked("The quick flag of the settings is neither true nor false."),
     marked("A fault of the front end: please report it.")},
    {EVENT(NO_TEST_ENABLE_TO_EXECUTE), Severity::Warning,
     marked("None of the request's tests is enabled on its device; the request has ended as aborted."),
     marked("Run \"diagctl list tests\" to see what is enabled where.")},
    {BOTH(INVALID_HALT_ON_EEROR), Severity::Error,
     marked("The halt flag of the settings is neither true nor false."),
     marked("A fault of the front end: please report it.")},
    {BOTH(INVALID_RUN_TIME), Severity::Error,
     marked("The run time of the settings is 0."),
     marked("Give at least one second with --time.")},
    {BOTH(INVALID_PASS_COUNT), Severity::Error,
     marked("The number of passes of the settings is 0."),
     marked("Ask for at least one pass with --passes.")},
    {EVENT(TEST_REQUEST_ABORTED), Severity::Warning,
     marked("A request was aborted."),
     marked("Nothing to do, if you asked for it; else see the event before it."),
     Effect::Aborted},
    {EVENT(UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED), Severity::Error,
     marked("A request could not be processed and was aborted."),
     marked("Run the test again; if it stays, shut down and start again.")},
    {EVENT(ESTIMATED_TIME_INVALID), Severity::Error,
     marked("Declared; the library does not use it."),
     marked("Nothing to do.")},
};

// Of a newer library, say: what it means cannot be told, so it cannot be told to be harmless.
const CodeEntry kUnknownEvent = {
    "UNKNOWN_CONTROLLER_EVENT", std::nullopt, std::nullopt, Severity::Error,
    marked("The controller raised an event that this program does not know."),
    marked("Check that the program and the library are of the same version."),
    Effect::Trouble};
// clang-format on

template <class Matches>
const CodeEntry* findIf(Matches matches) {
  const auto entry = std::find_if(kTable.begin(), kTable.end(), matches);
  return entry != kTable.end() ? &*entry : nullptr;
}

}  // namespace

const std::vector<CodeEntry>& codeTable() {
  return kTable;
}

const CodeEntry* findEvent(unsigned int number) {
  return findIf([&](const CodeEntry& entry) { return entry.eventNumber == number; });
}

const CodeEntry& entryOfEvent(unsigned int number) {
  const CodeEntry* const entry = findEvent(number);
  return entry != nullptr ? *entry : kUnknownEvent;
}

const CodeEntry* findResult(unsigned int number) {
  return findIf([&](const CodeEntry& entry) { return entry.resultNumber == number; });
}

std::string_view toText(CodeEntry::Severity severity) {
  switch (severity) {
    case CodeEntry::Severity::Success:
      return marked("success");
    case CodeEntry::Severity::Information:
      return marked("information");
    case CodeEntry::Severity::Warning:
      return marked("warning");
    case CodeEntry::Severity::Error:
      break;
  }
  return marked("error");
}

}  // namespace TarvexDiags::FrontEnd
