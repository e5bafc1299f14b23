#include "Diag/IDiagnostics.h"

namespace TarvexDiags::Diag {

IDiagnostics::IDiagnostics() = default;
IDiagnostics::~IDiagnostics() = default;

}  // namespace TarvexDiags::Diag
