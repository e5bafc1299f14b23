#pragma once

#include <cstdint>

#include "packages/common/RunJournal.h"

namespace TarvexDiags::Storage {

/// @brief What a test counts: what of it is done, and how fast it goes on.
enum class Counted { Bytes, Reads };

/// @brief Tells the journal each whole per cent once, and all that is done.
class Progress {
 public:
  Progress(Common::RunJournal& journal, std::uint64_t total, Counted counted)
      : m_journal(journal), m_total(total), m_counted(counted) {}

  void at(std::uint64_t done) {
    const auto more = static_cast<double>(done - m_done);
    m_done = done;
    if (m_counted == Counted::Bytes) {
      m_journal.processed(more / 1e6, "MB");
    } else {
      m_journal.processed(more, "reads");
    }
    const auto percent = static_cast<unsigned int>(m_total == 0 ? 100 : done * 100 / m_total);
    if (percent != m_last) {
      m_last = percent;
      m_journal.progress(percent);
    }
  }

 private:
  Common::RunJournal& m_journal;
  std::uint64_t m_total;
  Counted m_counted;
  std::uint64_t m_done = 0;
  unsigned int m_last = 0;
};

}  // namespace TarvexDiags::Storage
