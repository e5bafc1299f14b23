#pragma once

#include <cstdint>

#include "packages/common/RunJournal.h"

namespace TarvexDiags::Storage {

/// @brief Tells the journal each whole per cent once.
class Progress {
 public:
  Progress(Common::RunJournal& journal, std::uint64_t total) : m_journal(journal), m_total(total) {}

  void at(std::uint64_t done) {
    const auto percent = static_cast<unsigned int>(m_total == 0 ? 100 : done * 100 / m_total);
    if (percent != m_last) {
      m_last = percent;
      m_journal.progress(percent);
    }
  }

 private:
  Common::RunJournal& m_journal;
  std::uint64_t m_total;
  unsigned int m_last = 0;
};

}  // namespace TarvexDiags::Storage
