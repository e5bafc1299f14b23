#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Errors of PCI Express links, from the counters of advanced error reporting. A link has
/// two ends and either may be the one that counts, so a finding names both.
class AerSource : public Source {
 public:
  explicit AerSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::PcieErrors; }
  std::optional<std::string> open() override;
  std::optional<std::string> openSinceStart() override;
  void look(Moment now, Collector& collector) override;

 private:
  std::string otherEnd(const std::string& address) const;

  SystemFiles m_files;
  std::map<std::string, std::string> m_texts;  ///< of the counters' files, at the last look
};

/// @brief The rows "NAME COUNT" of such a counter's file; what is malformed is left out. Totals
/// ("TOTAL_ERR_COR") are left out as well when there is a row beside them, as they need not match.
std::map<std::string, std::uint64_t> parseAerCounters(std::string_view text);

}  // namespace TarvexDiags::Watching
