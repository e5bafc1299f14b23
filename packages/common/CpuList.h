#pragma once

#include <vector>

namespace TarvexDiags::Common {

/// @brief The CPUs on which the calling thread may run, rising.
std::vector<int> allowedCpus();

/// @brief Whether the calling thread may run on this CPU and on no other.
bool runsOnlyOn(int cpu);

/// @brief Keeps the calling thread on one CPU. @return false when the kernel refuses.
bool pinThisThread(int cpu);

/// @brief Lets the calling thread run on these CPUs. @return false when the kernel refuses.
bool allowThisThread(const std::vector<int>& cpus);

}  // namespace TarvexDiags::Common
