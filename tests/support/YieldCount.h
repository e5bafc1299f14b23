#pragma once

#include <atomic>

namespace TarvexDiags::TestSupport {

/// The yields of the calling thread so far. Other threads may read the count for as long as the
/// process lives. A test that uses it has YieldCount.cpp among its sources, whose definition of
/// sched_yield stands in front of the platform's.
std::atomic<unsigned long>& yieldsOfThisThread();

}  // namespace TarvexDiags::TestSupport
