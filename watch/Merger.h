#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// @brief Makes one finding of what several sources tell of one event: what they show of a device
/// within a while of each other is the same, and the source that counts most is right. What one
/// source tells of one part in that while is summed up.
///
/// Not thread-safe.
class Merger {
 public:
  static constexpr std::chrono::milliseconds kWindow = std::chrono::seconds(2);

  explicit Merger(std::chrono::milliseconds window = kWindow) : m_window(window) {}

  void take(Finding finding);

  /// @brief Whether due() has something to tell.
  bool isAnyDue(Moment now) const;
  /// @brief The findings whose while is over, in the order in which they began.
  [[nodiscard]] std::vector<Finding> due(Moment now);
  /// @brief All that are left; nothing is expected any more.
  [[nodiscard]] std::vector<Finding> rest();

 private:
  struct Group {
    Kind kind;
    std::string device;
    Moment begin;
    std::map<SourceKind, std::vector<Finding>> bySource;
  };
  /// What a source may still tell of an event that another one was ahead with.
  struct Credit {
    Kind kind;
    std::string device;
    SourceKind source;
    std::uint64_t count;
    Moment until;
  };

  void spendCredit(Finding& finding);
  Group& groupOf(const Finding& finding);
  bool isAnnouncedAlready(const Finding& finding) const;
  bool isAnnouncement(const Group& group) const;
  bool isToldByMemory(Kind machineCheck, Moment begin) const;
  static void tellWithPlaces(Finding finding, const Group& group, std::vector<Finding>& findings);
  void settle(const Group& group, Moment until, std::vector<Finding>& findings);

  std::chrono::milliseconds m_window;
  std::vector<Group> m_groups;
  std::vector<Credit> m_credits;
  std::map<Kind, Moment> m_memoryUntil;     ///< until when machine checks tell what modules told
  Moment m_announcedUntil = Moment::min();  ///< what names no processor announces what was told
};

}  // namespace TarvexDiags::Watching
