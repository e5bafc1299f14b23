#pragma once

#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlConditionVar;
class DiagTracer;

/// What a client waits on. The client makes it, registers it for any of the kinds of message, and
/// keeps it alive until the controller was shut down: there is no way to unregister.
///
/// A wake-up carries no data and is not remembered: drain before each wait, treat an empty vector
/// as normal, and drain now and then without being woken. Of several threads that wait on one
/// object a wake-up reaches one.
class TARVEXDIAGS_EXPORT CallBackObject {
 public:
  CallBackObject();
  CallBackObject(const CallBackObject&) = delete;
  CallBackObject& operator=(const CallBackObject&) = delete;
  virtual ~CallBackObject();

  /// Blocks without limit until the next wake-up.
  void wait();
  /// Wakes one waiter, if any.
  void notify() noexcept;

 private:
  DiagCtrlConditionVar* mpCondVar;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
