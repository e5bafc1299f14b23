#include "DiagCtrl/DiagThreadArgument.h"

namespace TarvexDiags::DiagCtrl {

DiagThreadArgument::~DiagThreadArgument() = default;

}  // namespace TarvexDiags::DiagCtrl
