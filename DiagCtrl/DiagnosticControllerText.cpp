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
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
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

const char* DiagnosticController::packageNameOf(int packageIndex) const {
  const auto entry = mPackageMap.find(packageIndex);
  return entry != mPackageMap.end() ? entry->second : nullptr;
}

// Without a package directory, lost to a second initialize with a bad file, the path names nothing.
std::string DiagnosticController::packageFile(const char* apcPackageName,
                                              const char* apcLanguage) const {
  if (mpcPackDirPath == nullptr) {
    return {};
  }
  std::string path = std::string(mpcPackDirPath) + C::mSconpcDoubleSlash;
  if (apcLanguage != nullptr) {
    path += std::string(apcLanguage) + C::mSconpcDoubleSlash;
  }
  return path + apcPackageName + C::mSconpcIni;
}

DiagnosticController::errorCode DiagnosticController::readText(
    TraceScope& arTrace, const char* apcSection, const char* apcKey, const std::string& arFile,
    DiagCtrlEvent::eventCode aeEvent, char*& arpcText) {
  try {
    arpcText = mpDiagUtil->getAndValidateString(apcSection, apcKey, kSize, arFile.c_str());
  } catch (const DiagCtrlInvalidKey&) {
    arTrace.warning(std::string(arTrace.method()) + " caught DiagCtrlInvalidKey Exception");
    return fail(arTrace, aeEvent, INVALID_PARAMETER);
  }
  return SUCCESS;
}

DiagnosticController::errorCode DiagnosticController::readToken(const char* apcMethod,
                                                                int packageIndex,
                                                                const char* apcSection,
                                                                const char* apcKey,
                                                                char*& arpcToken) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerInside(ClientCall::readToken, trace, [&] {
    const char* package = packageNameOf(packageIndex);
    if (package == nullptr) {
      trace.errorValue(std::string(apcMethod) + "PACKAGE FILE NOT FOUND, INCORRECT PACKAGE INDEX:",
                       static_cast<unsigned long>(packageIndex));
      return fail(trace, DiagCtrlEvent::PACKAGE_NOT_FOUND, PACKAGE_NOT_FOUND);
    }
    if (apcSection == nullptr) {
      return fail(trace, DiagCtrlEvent::INVALID_PARAMETER, INVALID_PARAMETER);
    }
    return readText(trace, apcSection, apcKey, packageFile(package, nullptr),
                    DiagCtrlEvent::INVALID_PARAMETER_IN_INI_FILE, arpcToken);
  });
}

DiagnosticController::errorCode DiagnosticController::getTestToken(int packageIndex, int testIndex,
                                                                   char* key, char*& rTesttoken) {
  return contain([&] {
    const std::string section = C::mSconpcTestId + std::to_string(testIndex);
    return readToken("DiagnosticController::getTestToken", packageIndex, section.c_str(), key,
                     rTesttoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getPackageToken(int packageIndex, char* key,
                                                                      char*& rPkgtoken) {
  return readToken("DiagnosticController::getPackageToken", packageIndex, C::mSconpcPackage, key,
                   rPkgtoken);
}

DiagnosticController::errorCode DiagnosticController::getMessageToken(
    int packageIndex, Diag::DiagnosticEvent::EventType eventType, unsigned int eventCode,
    char*& rMsgtoken) {
  return contain([&] {
    return readToken("DiagnosticController::getMessageToken", packageIndex, sectionOf(eventType),
                     keyOf(eventCode).c_str(), rMsgtoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getDeviceStatusToken(int packageIndex,
                                                                           unsigned int statusCode,
                                                                           char*& rMsgtoken) {
  return contain([&] {
    return readToken("DiagnosticController::getDeviceStatusToken", packageIndex,
                     C::mSconpcDeviceStatus, keyOf(statusCode).c_str(), rMsgtoken);
  });
}

DiagnosticController::errorCode DiagnosticController::getLocalizedString(int packageIndex,
                                                                         char* pcLangId,
                                                                         char* pcMsgToken,
                                                                         char*& rpcLocalString) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getLocalizedString");
  if (pcLangId == nullptr) {
    return LANG_ID_IS_NULL;
  }
  if (pcMsgToken == nullptr) {
    return MESSAGE_TOKEN_IS_NULL;
  }
  return answerInside(ClientCall::localiseString, trace, [&] {
    const char* package = packageNameOf(packageIndex);
    if (package == nullptr) {
      trace.errorValue(std::string(trace.method()) + " PACKAGE NOT FOUND, INCORRECT PACKAGE INDEX",
                       static_cast<unsigned long>(packageIndex));
      return fail(trace, DiagCtrlEvent::PACKAGE_NOT_FOUND, PACKAGE_NOT_FOUND);
    }
    return readText(trace, pcLangId, pcMsgToken, packageFile(package, pcLangId),
                    DiagCtrlEvent::INVALID_PARAMETER_INI_FILE, rpcLocalString);
  });
}

DiagnosticController::errorCode DiagnosticController::getLocalizedMessage(
    int packageIndex, char* pcLangId, char* pcMsgToken, ParamStringVector& aStringVector,
    char*& rpcLocalString) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getLocalizedMessage");
  if (pcLangId == nullptr) {
    return LANG_ID_IS_NULL;
  }
  if (pcMsgToken == nullptr) {
    return MESSAGE_TOKEN_IS_NULL;
  }
  return answerInside(ClientCall::localiseMessage, trace, [&] {
    std::string file;
    if (mbMsgFilePathFound && packageIndex <= 0) {
      file = mpcMsgFilePath;
    } else if (const char* package = packageNameOf(packageIndex); package != nullptr) {
      file = packageFile(package, pcLangId);
    } else {
      return fail(trace, DiagCtrlEvent::PACKAGE_NOT_FOUND, PACKAGE_NOT_FOUND);
    }
    char* pcLocalString = nullptr;
    const errorCode result = readText(trace, pcLangId, pcMsgToken, file,
                                      DiagCtrlEvent::INVALID_PARAMETER_INI_FILE, pcLocalString);
    std::unique_ptr<char[]> text(pcLocalString);
    if (result == SUCCESS) {
      translateParameters(pcLangId, file, aStringVector);
      generateString(text.get(), aStringVector);
      rpcLocalString = text.release();
    }
    return result;
  });
}

// A parameter may itself be a token; one that is none stays as it is.
void DiagnosticController::translateParameters(const char* apcLangId, const std::string& arFile,
                                               ParamStringVector& arParameters) {
  for (std::string& parameter : arParameters) {
    const std::unique_ptr<char[]> text(
        mpDiagUtil->getString(apcLangId, parameter.c_str(), kSize, arFile.c_str()));
    if (mpValidator->validString(text.get())) {
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
