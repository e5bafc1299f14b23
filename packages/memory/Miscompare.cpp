#include "packages/memory/Miscompare.h"

namespace TarvexDiags::Memory {

const char* nameOf(FaultKind kind) {
  switch (kind) {
    case FaultKind::ReadDisturbance:
      return "read disturbance";
    case FaultKind::FlippedContent:
      return "flipped content";
    case FaultKind::StuckBit:
      return "stuck bit";
  }
  return "";
}

}  // namespace TarvexDiags::Memory
