#include "DiagCtrl/DiagCtrlBaseException.h"

#include <string>

namespace TarvexDiags::DiagCtrl {

DiagCtrlBaseException::DiagCtrlBaseException(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                                             const char* apcFile)
    : meMinorCode(aeMinorCode), mulSourceLineNumber(aulLine), mpcSourceFileName(apcFile) {}

DiagCtrlBaseException::~DiagCtrlBaseException() = default;

std::string DiagCtrlBaseException::dump() {
  mStringObject +=
      " The MinorCode of Exception is :" + std::to_string(static_cast<unsigned int>(meMinorCode)) +
      "\n";
  mStringObject += " The Line of Exception is :" + std::to_string(mulSourceLineNumber) + "\n";
  mStringObject += " The File of Exception is :";
  mStringObject += mpcSourceFileName;
  mStringObject += "\n";
  return mStringObject;
}

std::string DiagCtrlBaseException::dumpWithKey(const char* apcText) {
  mStringObject = DiagCtrlBaseException::dump();
  mStringObject += " The Key Not Found is :";
  mStringObject += apcText;
  mStringObject += "\n";
  return mStringObject;
}

}  // namespace TarvexDiags::DiagCtrl
