#include "watch/PressureSource.h"

#include <charconv>
#include <filesystem>

#include "watch/Reason.h"
#include "watch/TextPattern.h"

namespace TarvexDiags::Watching {

namespace {

const std::filesystem::path kPressures = "proc/pressure";
constexpr const char* kResources[] = {"cpu", "io", "memory"};

}  // namespace

std::optional<std::string> PressureSource::open() {
  for (const char* const resource : kResources) {
    if (m_files.text(kPressures / resource)) {
      return std::nullopt;
    }
  }
  return because("this kernel does not measure pressure");
}

// Documentation/accounting/psi.rst of the kernel: "some avg10=0.12 avg60=...".
void PressureSource::look(Moment now, Collector& collector) {
  for (const char* const resource : kResources) {
    const std::string text = m_files.text(kPressures / resource).value_or("");
    if (const auto fields = match(text, "some avg10=%d.%d ")) {
      double share = 0;
      const std::string value = std::string((*fields)[0]) + "." + std::string((*fields)[1]);
      std::from_chars(value.data(), value.data() + value.size(), share);
      collector.sampled({now, std::string("pressure/") + resource, share, "%", {}});
    }
  }
}

}  // namespace TarvexDiags::Watching
