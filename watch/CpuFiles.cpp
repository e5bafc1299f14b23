#include "watch/CpuFiles.h"

#include <charconv>
#include <string>

namespace TarvexDiags::Watching {

namespace {

int numberIn(const SystemFiles& files, const std::filesystem::path& file) {
  const std::string word = files.word(file);
  int number = -1;
  std::from_chars(word.data(), word.data() + word.size(), number);
  return number;
}

}  // namespace

std::filesystem::path folderOfCpu(int number) {
  return std::filesystem::path("sys/devices/system/cpu") / ("cpu" + std::to_string(number));
}

std::optional<CpuPlace> placeOfCpu(const SystemFiles& files, int number) {
  const std::filesystem::path topology = folderOfCpu(number) / "topology";
  if (files.word(topology / "physical_package_id").empty()) {
    return std::nullopt;
  }
  return CpuPlace{numberIn(files, topology / "physical_package_id"),
                  numberIn(files, topology / "die_id"), numberIn(files, topology / "core_id")};
}

}  // namespace TarvexDiags::Watching
