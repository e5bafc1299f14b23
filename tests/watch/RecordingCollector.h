#pragma once

#include <string>
#include <utility>
#include <vector>

#include "watch/Source.h"

namespace TarvexDiags::Tests {

/// @brief Keeps what a source tells.
class RecordingCollector : public Watching::Collector {
 public:
  void found(Watching::Finding finding) override { findings.push_back(std::move(finding)); }
  void sampled(Watching::Sample sample) override { samples.push_back(std::move(sample)); }

  /// @brief What a look at the source tells, and nothing of the looks before: a line for each
  /// finding, "KIND DEVICE PART COUNT".
  std::vector<std::string> lookAt(Watching::Source& source, Watching::Moment now = {}) {
    findings.clear();
    samples.clear();
    source.look(now, *this);
    std::vector<std::string> lines;
    for (const Watching::Finding& finding : findings) {
      lines.push_back(std::string(nameOf(finding.kind)) + " " + finding.device + " " +
                      (finding.part.empty() ? "-" : finding.part) + " " +
                      std::to_string(finding.count));
    }
    return lines;
  }

  std::vector<Watching::Finding> findings;
  std::vector<Watching::Sample> samples;
};

}  // namespace TarvexDiags::Tests
