#pragma once

#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// Carries a thread object and its argument across the creation of the thread. Owns neither.
class TARVEXDIAGS_EXPORT DiagThreadArgument {
 public:
  DiagThreadArgument(void* thread, void* argument) : mpThread(thread), mpThreadArgument(argument) {}
  DiagThreadArgument(const DiagThreadArgument&) = delete;
  DiagThreadArgument& operator=(const DiagThreadArgument&) = delete;
  virtual ~DiagThreadArgument();

  void* getThreadPtr() const noexcept { return mpThread; }
  void* getThreadArgument() const noexcept { return mpThreadArgument; }

 private:
  void* mpThread;
  void* mpThreadArgument;
};

}  // namespace TarvexDiags::DiagCtrl
