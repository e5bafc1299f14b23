#include "diagctl/CodeTable.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace TarvexDiags::DiagCtl {

namespace {

using Severity = CodeEntry::Severity;

constexpr std::nullopt_t none = std::nullopt;

// clang-format off
const std::vector<CodeEntry> table = {
    {"SUCCESS", 1, 1, Severity::success,
     "The call did what it was asked to.",
     "Nothing to do."},
    {"INITIALISATION_FAILED", 2, 2, Severity::error,
     "The control file could not be read, or a required key is missing or wrong.",
     "Run \"diagctl check\": it names file, section and key."},
    {"UNABLE_TO_REGISTER", 3, 3, Severity::error,
     "The queue of a registration could not be made.",
     "Start the front end again; if it stays, the library is damaged."},
    {"FILE_OPEN_EXCEPTION", 4, 4, Severity::error,
     "A file could not be opened. The library declares this code and does not use it.",
     "Nothing to do."},
    {"OUT_OF_RANGE", 5, 5, Severity::error,
     "A value is out of range. The library declares this code and does not use it.",
     "Nothing to do."},
    {"EV_REG_ID_NOT_FOUND", 7, 7, Severity::error,
     "Declared for unknown registrations of events; the library answers RESULT_REG_ID_NOT_FOUND instead.",
     "Nothing to do."},
    {"TEST_OBJECT_NOT_FOUND", 8, 8, Severity::error,
     "The package has no test of this number, or it was withdrawn for this machine.",
     "Run \"diagctl list tests\" for the tests on offer."},
    {"REQUEST_OBJECT_NOT_FOUND", 9, 9, Severity::error,
     "No request has this id, or the requests were cleared.",
     "Use an id that a queueing call returned."},
    {"RESULT_REG_ID_NOT_FOUND", 10, 10, Severity::error,
     "No registration for results or events has this id.",
     "Register again after each start; ids do not survive a shut-down."},
    {"CTRL_EV_REG_ID_NOT_FOUND", 11, 11, Severity::error,
     "No registration for controller events has this id.",
     "Register again after each start; ids do not survive a shut-down."},
    {"DEVICE_NOT_FOUND", 12, 12, Severity::error,
     "The package has no device of this number.",
     "Run \"diagctl list devices\" for the devices that were found."},
    {"KEY_NOT_EXIST", 13, 13, Severity::error,
     "A key does not exist. The library declares this code and does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_ADD_TEST_REQUEST", 14, 14, Severity::error,
     "The package gave no diagnostics object for the request, or the configuration was lost.",
     "Look into the package's log; run \"diagctl check\"."},
    {"INVALID_PARAMETER", 15, 15, Severity::error,
     "An argument is invalid, or a token or text is missing from a file.",
     "Run \"diagctl check\": it names the missing token or text."},
    {"FILE_NOT_FOUND", 16, 16, Severity::error,
     "A file does not exist. The library declares this code and does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_ABORT_TESTS", 17, 17, Severity::error,
     "The abort of all tests failed; what was running goes on until it ends by itself.",
     "Wait for the running tests, or end the front end a second time to leave at once."},
    {"PACKAGE_INITIALIZE_FAILED", 18, 18, Severity::warning,
     "The description of a package is faulty; the package was left out.",
     "Run \"diagctl check\": it names file, section, key and reason."},
    {"UNABLE_TO_CREATE_DEVICE_VECTOR", 19, 19, Severity::warning,
     "A package could not tell its devices; the package was left out.",
     "Look into the package's log for the reason."},
    {"OBJECT_NOT_FOUND", 20, 20, Severity::error,
     "There is no package or request of this number.",
     "Run \"diagctl list packages\" for the packages that were found."},
    {"UNABLE_TO_SET_STATUS", 21, 21, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"IDIAGNOSTIC_NOT_FOUND", 22, 22, Severity::error,
     "The request has ended, and its package was given back.",
     "Ask for the state of the request instead."},
    {"UNABLE_TO_SET_PHASE", 23, 23, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"INCORRECT_PHASE", 24, 24, Severity::error,
     "The call is not allowed in the present phase of the controller.",
     "Wait for the phase that the call needs: settings change only while idle."},
    {"UNABLE_TO_INIT_EXE_MGR_THREAD", 25, 25, Severity::error,
     "Declared; a dispatcher that cannot start reports UNABLE_TO_INIT_MONI_THREAD.",
     "Nothing to do."},
    {"UNABLE_TO_INIT_MONI_THREAD", 26, 26, Severity::error,
     "One of the controller's two threads could not be started.",
     "Check the limits on threads and memory (ulimit -u, ulimit -v)."},
    {"ENCORE_REQUEST", 27, 27, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"RESET_FAILED", 28, 28, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"PACKAGE_FILE_NOT_FOUND", 29, 29, Severity::error,
     "The package directory could not be read.",
     "Check PackDirPath of the control file and the permissions of the directory."},
    {"UNABLE_TO_GET_LOCK", 30, 30, Severity::error,
     "A lock could not be taken, or the settings were lost to a second initialisation with a bad file.",
     "Shut down and start again with a good control file."},
    {"UNABLE_TO_SET_CTRL_PHASE", 31, 31, Severity::error,
     "The phase of the controller could not be set.",
     "Shut down and start again."},
    {"FUNCTION_NOT_FOUND_IN_DLL", 32, 44, Severity::error,
     "The shared object of a package lacks a required export.",
     "Install the package again; its library does not fit its description."},
    {"UNABLE_TO_PROCESS_TEST_REQUEST", none, 32, Severity::error,
     "A request had to wait: its package wants the whole machine, and other tests are still running.",
     "Nothing to do: it starts when the others have ended."},
    {"DISABLE_TEST", none, 33, Severity::warning,
     "A listed test is disabled on its device and was skipped.",
     "Run \"diagctl show\" on the test to see why."},
    {"UNABLE_TO_GET_REQUESTID_LIST", 33, 45, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"DEVICE_OBJECT_NOT_FOUND", 34, 43, Severity::error,
     "The device to queue a test on does not exist, or the package has no devices.",
     "Run \"diagctl list devices\"."},
    {"ERROR_RECVD_AND_HALT_ON_ERROR", none, 34, Severity::error,
     "A pass ended with a bad result, and the request was halted.",
     "See the result of the pass for the cause."},
    {"INVALID_MESSAGE_STRING", 35, 48, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNUSUAL_STATUS_AND_HALT_ON_ERROR", none, 35, Severity::error,
     "Declared; both bad results raise ERROR_RECVD_AND_HALT_ON_ERROR.",
     "Nothing to do."},
    {"CTRL_EVENT_REG_ID_NOT_FOUND", 36, 47, Severity::error,
     "No registration for controller events has this id.",
     "Register again after each start; ids do not survive a shut-down."},
    {"DROP_REQUEST_ON_COMPLETION", none, 36, Severity::information,
     "A request has ended.",
     "Nothing to do."},
    {"DROP_REQUEST_ON_COMPLETION_ERROR", none, 37, Severity::error,
     "A request could not be sent back for another pass and has ended early.",
     "Queue it again."},
    {"UNABLE_TO_LOAD_PACKAGE", 37, 50, Severity::warning,
     "The shared object of a package, or one that it depends on, could not be loaded; the package was left out.",
     "Run \"diagctl check\"; look at the library with ldd."},
    {"UNABLE_TO_GET_OPERATING_SYSTEM", none, 38, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_GET_REQUEST_ID_LIST", 38, none, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"INVALID_VALUE_IN_CONFIG_FILE", 39, none, Severity::error,
     "An entry of DisablePackage in the control file has no name.",
     "Run \"diagctl check\": it names the section."},
    {"UNABLE_TO_READ_CONFIG_FILE", none, 39, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"LOAD_LIBRARY_FAILED", 40, 54, Severity::error,
     "The shared object of a package could not be loaded for a request.",
     "Check that the library is still there and readable; run \"diagctl check\"."},
    {"UNABLE_TO_SET_GLOBAL_SETTINGS", none, 40, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_CREATE_QUEUE", none, 41, Severity::error,
     "The queue of a registration could not be made.",
     "Start the front end again."},
    {"UNABLE_TO_GET_GLOBAL_SETTINGS", 41, 55, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_CREATE_RES_LOCK", 42, none, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_READ_CURRENT_DIR", none, 42, Severity::error,
     "The package directory could not be read.",
     "Check PackDirPath of the control file and the permissions of the directory."},
    {"NO_PACKAGE_ENABLED", 43, none, Severity::error,
     "The package directory holds no package.",
     "Check PackDirPath: a package is NAME.cfg beside libNAME.so."},
    {"INVALID_FILE_NAME_PASSED", 44, none, Severity::error,
     "No control file was named.",
     "Name one with --config."},
    {"INVALID_OBJECT_PASSED", 45, none, Severity::error,
     "A registration was made without an object.",
     "A fault of the front end: please report it."},
    {"INAVLID_VALUE_PASSED", 46, none, Severity::error,
     "A setting was given a value out of its range.",
     "Use one of the values that --help names."},
    {"INVALID_PARAMETER_IN_INI_FILE", none, 46, Severity::error,
     "A package's configuration file has no token for this code.",
     "Run \"diagctl check\": it names the missing token."},
    {"TEST_VECTOR_IS_EMPTY", 47, none, Severity::error,
     "A request was queued without a test.",
     "Select at least one test."},
    {"MESSAGE_TYPE_NOT_PASSED", 48, none, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"INVALID_PARAMETER_INI_FILE", none, 49, Severity::error,
     "A language file has no text for a token.",
     "Run \"diagctl check\": it names the missing text."},
    {"LANG_ID_IS_NULL", 49, none, Severity::error,
     "A text was asked for without a language.",
     "Name one with --lang."},
    {"MESSAGE_TOKEN_IS_NULL", 50, none, Severity::error,
     "A text was asked for without a token.",
     "A fault of the front end: please report it."},
    {"INVALID_KEY_PASSED", 51, none, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_FIND_DLL", none, 51, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"UNABLE_TO_GET_OS", 52, none, Severity::error,
     "The name of the operating system could not be told.",
     "The framework library is damaged: install it again."},
    {"UNABLE_TO_GET_TEST_REQUESTID_OBJ", none, 52, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"PACKAGE_NOT_FOUND", 53, 57, Severity::error,
     "There is no package of this number, or a package failed in its enumeration.",
     "Run \"diagctl list packages\"."},
    {"RELEASE_LIBRARY_FAILED", none, 53, Severity::error,
     "The shared object of a package could not be given back.",
     "Shut down and start again; look into the package's log."},
    {"UNABLE_TO_REMOVE_RES_LOCK", 54, none, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"ABORT_ALL_ALREADY_IN_PROCESS", 55, 59, Severity::warning,
     "An earlier abort of all tests has not ended.",
     "Shut down and start again."},
    {"UNABLE_TO_INIT_EXE_THREAD", none, 56, Severity::error,
     "The worker of a request could not be started; the request was aborted.",
     "Check the limits on threads and memory (ulimit -u, ulimit -v), then run the test again."},
    {"UNABLE_TO_RESET_RESOURCE_LOCK_MAP", 56, 60, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
    {"INVALID_STRESS_MODE", 57, 62, Severity::error,
     "The stress flag of the settings is neither true nor false.",
     "A fault of the front end: please report it."},
    {"INVALID_QIUCK_TEST_MODE", 58, 63, Severity::error,
     "The quick flag of the settings is neither true nor false.",
     "A fault of the front end: please report it."},
    {"NO_TEST_ENABLE_TO_EXECUTE", none, 58, Severity::warning,
     "None of the request's tests is enabled on its device; the request has ended as aborted.",
     "Run \"diagctl list tests\" to see what is enabled where."},
    {"INVALID_HALT_ON_EEROR", 59, 64, Severity::error,
     "The halt flag of the settings is neither true nor false.",
     "A fault of the front end: please report it."},
    {"INVALID_RUN_TIME", 60, 65, Severity::error,
     "The run time of the settings is 0.",
     "Give at least one second with --time."},
    {"INVALID_PASS_COUNT", 61, 66, Severity::error,
     "The number of passes of the settings is 0.",
     "Ask for at least one pass with --passes."},
    {"TEST_REQUEST_ABORTED", none, 61, Severity::warning,
     "A request was aborted.",
     "Nothing to do, if you asked for it; else see the event before it."},
    {"UNABLE_TO_PROCESS_TEST_REQUEST_ABORTED", none, 67, Severity::error,
     "A request could not be processed and was aborted.",
     "Run the test again; if it stays, shut down and start again."},
    {"ESTIMATED_TIME_INVALID", none, 68, Severity::error,
     "Declared; the library does not use it.",
     "Nothing to do."},
};
// clang-format on

template <class Matches>
const CodeEntry* findIf(Matches matches) {
  const auto entry = std::find_if(table.begin(), table.end(), matches);
  return entry != table.end() ? &*entry : nullptr;
}

std::optional<unsigned int> toNumber(const std::string& text) {
  unsigned int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

}  // namespace

const std::vector<CodeEntry>& codeTable() {
  return table;
}

const CodeEntry* findEvent(unsigned int number) {
  return findIf([&](const CodeEntry& entry) { return entry.eventNumber == number; });
}

const CodeEntry* findResult(unsigned int number) {
  return findIf([&](const CodeEntry& entry) { return entry.resultNumber == number; });
}

std::vector<const CodeEntry*> lookUp(const std::string& nameOrNumber) {
  const std::optional<unsigned int> number = toNumber(nameOrNumber);
  std::vector<const CodeEntry*> found;
  for (const CodeEntry& entry : table) {
    const bool isMeant =
        number ? entry.resultNumber == number || entry.eventNumber == number
               : strcasecmp(std::string(entry.name).c_str(), nameOrNumber.c_str()) == 0;
    if (isMeant) {
      found.push_back(&entry);
    }
  }
  return found;
}

std::string_view toText(CodeEntry::Severity severity) {
  switch (severity) {
    case Severity::success:
      return "success";
    case Severity::information:
      return "information";
    case Severity::warning:
      return "warning";
    case Severity::error:
      break;
  }
  return "error";
}

}  // namespace TarvexDiags::DiagCtl
