#pragma once

#include <string_view>
#include <vector>

namespace TarvexDiags::Common {

/// @brief The numbers in a list as the kernel writes it ("0-3,8"), rising; what is malformed is
/// skipped.
std::vector<int> parseCpuList(std::string_view text);

/// @brief The CPUs on which the calling thread may run, rising.
std::vector<int> allowedCpus();

/// @brief Whether the calling thread may run on this CPU and on no other.
bool runsOnlyOn(int cpu);

/// @brief Keeps the calling thread on one CPU. @return false when the kernel refuses.
bool pinThisThread(int cpu);

/// @brief Lets the calling thread run on these CPUs. @return false when the kernel refuses.
bool allowThisThread(const std::vector<int>& cpus);

}  // namespace TarvexDiags::Common
