// Tokens and localised text.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/PackageFiles.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using C = DiagCtrlConstants;

constexpr int kSize = C::miSBuffSize;

/// The section of an event type's tokens; null for anything else.
const char* sectionOf(Diag::DiagnosticEvent::EventType aeType) {
  switch (aeType) {
    case Diag::DiagnosticEvent::INFORMATION_EVENT:
      return C::mSconpcInformation;
    case Diag::DiagnosticEvent::WARNING_EVENT:
      return C::mSconpcWarning;
    case Diag::DiagnosticEvent::ERROR_EVENT:
      return C::mSconpcError;
  }
  return nullptr;
}

// As a signed number: the largest code looks up the key "-1".
std::string keyOf(unsigned int auiCode) {
  return std::to_string(static_cast<int>(auiCode));
}

/// The parameter that a variable stands for; empty if there are none at all.
std::string parameterFor(const std::string& arVariable, std::size_t aVariableCount,
                         const ParamStringVector& arParameters) {
  if (arParameters.empty()) {
    return {};
  }
  const long written = std::strtol(arVariable.c_str(), nullptr, 10);
  const std::size_t order = written > 0 ? static_cast<std::size_t>(written) : aVariableCount;
  return arParameters[std::min(order, arParameters.size()) - 1];
}

}  // namespace

/// A call that asks for a text.
class DiagnosticController::Text {
 public:
  /// A value of a configuration file.
  struct Name {
    const char* section;  ///< null: there is none
    const char* key;
  };

  /// @param apcMethod "Class::method", a literal.
  Text(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mCall(arController, apcMethod) {}

  Call& call() noexcept { return mCall; }
  errorCode readToken(int aiPackageIndex, const Name& arName, char*& arpcToken);
  /// The text of a token, whose section is its language.
  errorCode readLocalised(int aiPackageIndex, const Name& arName, char*& arpcText);
  errorCode readMessage(int aiPackageIndex, const Name& arName, ParamStringVector& arParameters,
                        char*& arpcText);

 private:
  errorCode read(const Name& arName, const std::string& arFile,
                 DiagCtrlEvent::eventCode aeMissingEvent, char*& arpcText);
  const char* packageName(int aiPackageIndex) const;
  std::string packageFile(const char* apcPackageName, const char* apcLanguage = nullptr) const {
    kClientsAtRest.mayRead();
    return packageConfiguration(mrController.mpcPackDirPath, apcPackageName, apcLanguage);
  }
  void translateParameters(const char* apcLanguage, const std::string& arFile,
                           ParamStringVector& arParameters);

  DiagnosticController& mrController;
  Call mCall;
};

const char* DiagnosticController::Text::packageName(int aiPackageIndex) const {
  kClientsAtRest.mayRead();
  const auto entry = mrController.mPackageMap.find(aiPackageIndex);
  return entry != mrController.mPackageMap.end() ? entry->second : nullptr;
}

DiagnosticController::errorCode DiagnosticController::Text::read(
    const Name& arName, const std::string& arFile, DiagCtrlEvent::eventCode aeMissingEvent,
    char*& arpcText) {
  try {
    arpcText = mrController.mpDiagUtil->getAndValidateString(arName.section, arName.key, kSize,
                                                             arFile.c_str());
  } catch (const DiagCtrlInvalidKey&) {
    mCall.trace().warning(std::string(mCall.trace().method()) +
                          " caught DiagCtrlInvalidKey Exception");
    return mCall.fail({aeMissingEvent, INVALID_PARAMETER});
  }
  return SUCCESS;
}

DiagnosticController::errorCode DiagnosticController::Text::readToken(int aiPackageIndex,
                                                                      const Name& arName,
                                                                      char*& arpcToken) {
  return mCall.answerInside(ClientCall::readToken, [&] {
    const char* package = packageName(aiPackageIndex);
    if (package == nullptr) {
      mCall.trace().errorValue(
          std::string(mCall.trace().method()) + "PACKAGE FILE NOT FOUND, INCORRECT PACKAGE INDEX:",
          static_cast<unsigned long>(aiPackageIndex));
      return mCall.fail(kPackageNotFound);
    }
    if (arName.section == nullptr) {
      return mCall.fail({DiagCtrlEvent::INVALID_PARAMETER, INVALID_PARAMETER});
    }
    return read(arName, packageFile(package), DiagCtrlEvent::INVALID_PARAMETER_IN_INI_FILE,
                arpcToken);
  });
}

// NOLINTBEGIN(readability-non-const-parameter): the signatures are the interface's.
DiagnosticController::errorCode DiagnosticController::getTestToken(int packageIndex, int testIndex,
                                                                   char* key, char*& rTesttoken) {
  Text text(*this, "DiagnosticController::getTestToken");
  return text.call().contain([&] {
    const std::string section = C::mSconpcTestId + std::to_string(testIndex);
    return text.readToken(packageIndex, {.section = section.c_str(), .key = key}, rTesttoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getPackageToken(int packageIndex, char* key,
                                                                      char*& rPkgtoken) {
  return Text(*this, "DiagnosticController::getPackageToken")
      .readToken(packageIndex, {.section = C::mSconpcPackage, .key = key}, rPkgtoken);
}

DiagnosticController::errorCode DiagnosticController::getMessageToken(
    int packageIndex, Diag::DiagnosticEvent::EventType eventType, unsigned int eventCode,
    char*& rMsgtoken) {
  Text text(*this, "DiagnosticController::getMessageToken");
  return text.call().contain([&] {
    const std::string key = keyOf(eventCode);
    return text.readToken(packageIndex, {.section = sectionOf(eventType), .key = key.c_str()},
                          rMsgtoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getDeviceStatusToken(int packageIndex,
                                                                           unsigned int statusCode,
                                                                           char*& rMsgtoken) {
  Text text(*this, "DiagnosticController::getDeviceStatusToken");
  return text.call().contain([&] {
    const std::string key = keyOf(statusCode);
    return text.readToken(packageIndex, {.section = C::mSconpcDeviceStatus, .key = key.c_str()},
                          rMsgtoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getLocalizedString(int packageIndex,
                                                                         char* pcLangId,
                                                                         char* pcMsgToken,
                                                                         char*& rpcLocalString) {
  return Text(*this, "DiagnosticController::getLocalizedString")
      .readLocalised(packageIndex, {.section = pcLangId, .key = pcMsgToken}, rpcLocalString);
}

DiagnosticController::errorCode DiagnosticController::Text::readLocalised(int aiPackageIndex,
                                                                          const Name& arName,
                                                                          char*& arpcText) {
  if (arName.section == nullptr) {
    return LANG_ID_IS_NULL;
  }
  if (arName.key == nullptr) {
    return MESSAGE_TOKEN_IS_NULL;
  }
  return mCall.answerInside(ClientCall::localiseString, [&] {
    const char* package = packageName(aiPackageIndex);
    if (package == nullptr) {
      mCall.trace().errorValue(
          std::string(mCall.trace().method()) + " PACKAGE NOT FOUND, INCORRECT PACKAGE INDEX",
          static_cast<unsigned long>(aiPackageIndex));
      return mCall.fail(kPackageNotFound);
    }
    return read(arName, packageFile(package, arName.section),
                DiagCtrlEvent::INVALID_PARAMETER_INI_FILE, arpcText);
  });
}

DiagnosticController::errorCode DiagnosticController::getLocalizedMessage(
    int packageIndex, char* pcLangId, char* pcMsgToken, ParamStringVector& aStringVector,
    char*& rpcLocalString) {
  return Text(*this, "DiagnosticController::getLocalizedMessage")
      .readMessage(packageIndex, {.section = pcLangId, .key = pcMsgToken}, aStringVector,
                   rpcLocalString);
}

DiagnosticController::errorCode DiagnosticController::Text::readMessage(
    int aiPackageIndex, const Name& arName, ParamStringVector& arParameters, char*& arpcText) {
  if (arName.section == nullptr) {
    return LANG_ID_IS_NULL;
  }
  if (arName.key == nullptr) {
    return MESSAGE_TOKEN_IS_NULL;
  }
  return mCall.answerInside(ClientCall::localiseMessage, [&] {
    kClientsAtRest.mayRead();
    std::string file;
    if (mrController.mbMsgFilePathFound && aiPackageIndex <= 0) {
      file = mrController.mpcMsgFilePath;
    } else if (const char* package = packageName(aiPackageIndex); package != nullptr) {
      file = packageFile(package, arName.section);
    } else {
      return mCall.fail(kPackageNotFound);
    }
    char* pcLocalString = nullptr;
    const errorCode result =
        read(arName, file, DiagCtrlEvent::INVALID_PARAMETER_INI_FILE, pcLocalString);
    std::unique_ptr<char[]> text(pcLocalString);
    if (result == SUCCESS) {
      translateParameters(arName.section, file, arParameters);
      mrController.generateString(text.get(), arParameters);
      arpcText = text.release();
    }
    return result;
  });
}

// NOLINTEND(readability-non-const-parameter)

// A parameter may itself be a token; one that is none stays as it is.
void DiagnosticController::Text::translateParameters(const char* apcLanguage,
                                                     const std::string& arFile,
                                                     ParamStringVector& arParameters) {
  for (std::string& parameter : arParameters) {
    const std::unique_ptr<char[]> text(
        mrController.mpDiagUtil->getString(apcLanguage, parameter.c_str(), kSize, arFile.c_str()));
    if (mrController.mpValidator->validString(text.get())) {
      parameter = text.get();
    }
  }
}

// One pass; the text of a parameter is not looked at again.
bool DiagnosticController::generateString(char* apcLocalString, ParamStringVector aStringVector) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::generateString");
  const std::string separator = C::mSconpcSep$;
  std::string mixedString = apcLocalString;
  std::vector<std::string> valStrings;
  std::size_t varCount = 0;
  for (std::size_t first = mixedString.find(separator); first != std::string::npos;
       first = mixedString.find(separator)) {
    valStrings.push_back(mixedString.substr(0, first));
    mixedString.erase(0, first + separator.size());
    const std::size_t second = mixedString.find(separator);
    if (second == std::string::npos) {
      continue;  // the lone separator is dropped, and the text after it is kept
    }
    const std::string varString = mixedString.substr(0, second);
    valStrings.push_back(varString.empty() ? separator
                                           : parameterFor(varString, ++varCount, aStringVector));
    mixedString.erase(0, second + separator.size());
  }
  if (!mixedString.empty()) {
    valStrings.push_back(mixedString);
  }
  if (valStrings.empty()) {
    return true;
  }
  const std::string result = std::accumulate(valStrings.begin(), valStrings.end(), std::string());
  std::strncpy(apcLocalString, result.c_str(), kSize - 1);
  apcLocalString[kSize - 1] = '\0';
  return true;
}

}  // namespace TarvexDiags::DiagCtrl
