#pragma once

#include <cstdint>

namespace TarvexDiags::FrontEnd {

/// How the kernel schedules a thread: what sched_setattr(2) takes. Not every C library declares it.
struct Scheduling {
  std::uint32_t size = sizeof(Scheduling);
  std::uint32_t policy = 0;
  std::uint64_t flags = 0;
  std::int32_t niceness = 0;
  std::uint32_t priority = 0;
  std::uint64_t slice = 0;  ///< in ns; below Linux 6.12 nothing to an ordinary thread
  std::uint64_t deadline = 0;
  std::uint64_t period = 0;
};

/// Has the calling thread come before others that want its processor, for the life of the object:
/// at a lower niceness where the user may have that, and in short turns where the kernel knows
/// such. A thread that yields often, as the controller has its callers do, waits at each time for
/// the turns of others, and that is seconds on a busy machine.
///
/// A niceness or a policy that somebody set stays as it is. What the thread starts meanwhile,
/// threads and programs, is scheduled as if it had not come first. To be destroyed by the same
/// thread.
class Precedence {
 public:
  /// @param niceness below 0. Refusals of the kernel leave the thread as it is.
  explicit Precedence(int niceness);
  ~Precedence();
  Precedence(const Precedence&) = delete;
  Precedence& operator=(const Precedence&) = delete;

 private:
  Scheduling m_before;
  bool m_isChanged = false;
};

}  // namespace TarvexDiags::FrontEnd
