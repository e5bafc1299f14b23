#pragma once

#include <vector>

#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "System/Export.h"

namespace TarvexDiags::Diag {

/**
 * @brief The interface that every package implements: the tests of the package, as the controller
 * runs them.
 *
 * The package's export `getIDiagnostics` makes the objects: one to ask which tests suit which
 * devices, and one for each test request, which serves all passes of that request. The controller
 * deletes each of them.
 *
 * **Threads.** runDiagnostic is called on an execution thread and stays inside for the whole pass.
 * Meanwhile the controller's monitor thread polls the object, and client threads ask, abort,
 * suspend and resume. A tag tells for each operation who calls it:
 * - [enumerating thread]: a client thread that enumerates; nothing else is called on that object.
 * - [execution-thread]: the thread of a pass; one pass at a time, each on a thread of its own.
 * - [monitor-thread]: the thread that polls; at any time, before, during and after a pass.
 * - [any thread, while a pass runs]: client threads and the monitor, at any time from the making of
 *   the object on, also at the same time as each other.
 *
 * Only runDiagnostic may take long. Every other operation is quick and never waits for the test.
 *
 * **State.** What getDiagnosticStatus reports follows these steps, so that each pass is counted
 * once and no event is lost with its end:
 * - READY when the object is made;
 * - EXECUTING, or SUSPENDED, while runDiagnostic is inside;
 * - COMPLETED as the very last act of runDiagnostic, after the result was queued. While events wait
 *   for getDiagnosticEvents it is withheld and EXECUTING is reported;
 * - READY again once getDiagnosticResults was called after that;
 * - in stress mode it stays COMPLETED;
 * - after an abort it is COMPLETED for ever as soon as no pass is inside, whether the pass ran, its
 *   result was drained, or it never started.
 *
 * **Failures.** Nothing is thrown out of any operation: a failure is a result and an event. No
 * operation calls the controller.
 *
 * **End.** The destructor does not block, and may run on the monitor thread or a client's thread.
 * It runs before the package's shared object is closed, so nothing of the package, no thread and no
 * thread-local object, may be left behind.
 */
class TARVEXDIAGS_EXPORT IDiagnostics {
 public:
  IDiagnostics();
  IDiagnostics(const IDiagnostics&) = delete;
  IDiagnostics& operator=(const IDiagnostics&) = delete;
  virtual ~IDiagnostics();

  /**
   * @brief [execution-thread] Runs one pass: all tests that the settings list, on one device.
   * Blocks until they have ended or were aborted, and throws nothing.
   *
   * @param device the device to test.
   * @param settings the request's settings, with test numbers, request id and open mode filled in.
   *        They stay the controller's and outlive the object.
   * @return the result of the pass, never null, also after an abort. It is a member of this object,
   *         valid until the next pass: the controller reads its verdict and neither keeps nor
   * deletes it. What getDiagnosticResults hands over is another object, a copy.
   */
  virtual DiagnosticResult* runDiagnostic(DeviceEnum::VirtualDevice& device,
                                          DiagnosticSettings* settings) = 0;

  /**
   * @brief [enumerating thread] Tells whether a test can run on a device.
   *
   * @param device one of the devices that the package's enumerator found.
   * @param testId number of the test, as in its section of the package's configuration.
   * @return false keeps that test off that device.
   */
  virtual bool IsDeviceSupported(DeviceEnum::VirtualDevice& device, int testId) = 0;

  /** @brief [any thread, while a pass runs] How the run stands; see the states above. */
  virtual DiagnosticStatus getDiagnosticStatus() = 0;

  /**
   * @brief [any thread, while a pass runs] Asks the run to end soon. Never blocks.
   *
   * It is latched: called before runDiagnostic, it makes that return at once without touching the
   * device. It wakes a suspended run. Further calls have no effect.
   */
  virtual void abortDiagnostic() = 0;

  /**
   * @brief [any thread, while a pass runs] Asks the run to hold at its next safe point. Never
   * blocks.
   *
   * Called only in READY or EXECUTING, as reported just before. One that comes after the end is
   * ignored; one in READY holds the next pass at its start.
   */
  virtual void suspendDiagnostic() = 0;

  /**
   * @brief [any thread, while a pass runs] Lets a held run go on. Never blocks; ignored when
   * nothing is held.
   */
  virtual void resumeDiagnostic() = 0;

  /**
   * @brief [monitor-thread] Hands over the events gathered since the last call, in their order.
   *
   * @return null or an empty vector when there are none. The vector and its elements, all made with
   *         `new` and none of them null, pass to the controller, which deletes them.
   */
  virtual std::vector<DiagnosticEvent*>* getDiagnosticEvents() = 0;

  /**
   * @brief [monitor-thread] Hands over the results gathered since the last call: one or more for
   * each pass that ended. Called when the status was COMPLETED, and in stress mode on every poll.
   *
   * @return as getDiagnosticEvents.
   */
  virtual std::vector<DiagnosticResult*>* getDiagnosticResults() = 0;
};

}  // namespace TarvexDiags::Diag
