#pragma once

#include <map>
#include <string>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "System/Export.h"
#include "System/Lock.h"
#include "System/SysUtil.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::Diag {

/**
 * @brief The description of one run: which tests, how often, for how long, and how.
 *
 * A client fills one and queues tests with it. The controller copies it, so that later changes by
 * the client do not reach the request, and hands the copy to the package with the test numbers, the
 * request id and the open mode filled in.
 *
 * Thread-safety: every getter and setter of a flag, a number or the parameter pointer, and the
 * three reference operations, may be called from any thread at any time, also while another thread
 * copies the object. The test numbers and the name of the log file are plain members: they are set
 * before the object is shared, or while no other thread reads them.
 */
class TARVEXDIAGS_EXPORT DiagnosticSettings {
 public:
  /**
   * @brief All flags false, no tests, run time and requested pass count 0, open mode QUERY, and
   * pass count 1. The controller refuses an object whose run time or requested pass count was not
   * set.
   */
  DiagnosticSettings();

  /**
   * @param quickTestMode quick test wanted
   * @param stressMode stress mode wanted
   * @param haltOnError stop at the first error
   * @param reportStatusMessage report status messages
   * @param logEvents log events
   * @param logfileName name of the log file; null is the empty text
   * @param testRequestId request that this run belongs to; the controller sets its own
   * @param runTime longest time for all passes together, in seconds, counted from queueing
   * @param requestedPassCount number of the last pass
   * @param passCount number of the first pass: 1, unless the first ones shall be left out
   * @param openMode an IDevice::AccessMode
   */
  DiagnosticSettings(bool quickTestMode, bool stressMode, bool haltOnError,
                     bool reportStatusMessage, bool logEvents, const char* logfileName,
                     Uint testRequestId, Ulong runTime, int requestedPassCount, int passCount,
                     Uint openMode);

  /** @brief An independent copy with a lock of its own, to which nobody holds a reference yet. */
  DiagnosticSettings(const DiagnosticSettings& other);

  /** @brief Takes over everything but the references, which stay those of this object. */
  DiagnosticSettings& operator=(const DiagnosticSettings& other);
  ~DiagnosticSettings();

  void setTestNumberVector(std::vector<int> testNumbers);

  /** @brief The numbers of the tests to run, valid until they are set anew. */
  const std::vector<int>& getTestNumberVector() const;

  void setQuickTestMode(bool quickTestMode);
  void setStressMode(bool stressMode);
  void setHaltOnError(bool haltOnError);

  /**
   * @brief These three flags are read as the byte that is stored: 0 or 1, or whatever else a faulty
   * client left there, which the controller refuses. As a condition they work like any bool.
   */
  int getQuickTestMode() const;
  int getStressMode() const;
  int getHaltOnError() const;

  /** @brief Sets the longest time for all passes together, in seconds, counted from queueing. */
  void setRunTime(Ulong runTime);
  Ulong getRunTime() const;

  void setReportStatusMessage(bool reportStatusMessage);
  bool getReportStatusMessage() const;

  void setLogEvents(bool logEvents);
  bool getLogEvents() const;

  /** @param logfileName null is the empty text */
  void setLogfileName(const char* logfileName);

  /** @brief The name of the log file, valid until it is set anew. */
  const std::string& getLogfileName() const;

  void setTestRequestId(Uint testRequestId);
  Uint getTestRequestId() const;

  void setRequestedPassCount(int requestedPassCount);
  int getRequestedPassCount() const;

  /**
   * @brief Sets the number of the pass under way. The controller compares it with the requested
   * count before it raises it, so a first number of 1 gives as many passes as requested.
   */
  void setPassCount(int passCount);
  int getPassCount() const;

  /** @brief Sets a pointer for the package. It is copied as it is; what it points to is shared. */
  void setParameterPointer(void* parameter);
  void* getParameterPointer() const;

  /** @param openMode an IDevice::AccessMode; anything else is kept as it is */
  void setOpenMode(unsigned int openMode);
  DeviceEnum::IDevice::AccessMode getOpenMode() const;

  /** @brief Sets whether the run shall only report how long its tests would take. */
  void setEstimationMode(const bool& estimationMode);
  bool getEstimationMode() const;

  /**
   * @brief References: for a package that shares the settings with worker threads of its own and
   * must know when the last of them is done with the request.
   *
   * They are counted for each request id by itself: addRef and removeRef act on the request that
   * the settings stand for at that moment, and return its new count; getRefCount tells it. A count
   * never goes below 0, and no operation deletes the object, which stays its owner's.
   */
  int addRef();
  int removeRef();
  int getRefCount() const;

 private:
  // References by request id.
  std::map<unsigned long, int> m_PassCountMap TARVEXDIAGS_GUARDED_BY(m_MapLock);
  mutable System::Lock m_MapLock;
  std::vector<int> m_testNumber_v;
  bool m_quickTestMode = false;
  bool m_stressMode = false;
  bool m_haltOnError = false;
  Ulong m_ulRunTime;
  bool m_reportStatusMessage = false;
  bool m_logEvents = false;
  std::string m_logfileName;
  Uint m_testRequestId;
  int m_requestedPassCount;
  int m_passCount;
  void* m_pParameter;
  DeviceEnum::IDevice::AccessMode m_openMode;
  bool m_estimationMode;
};

}  // namespace TarvexDiags::Diag
