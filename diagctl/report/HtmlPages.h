#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "diagctl/report/Fleet.h"
#include "diagctl/report/HtmlFleet.h"
#include "diagctl/report/ReportFolder.h"
#include "diagctl/report/Spool.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd::Html {

/// The page of all, where each machine has one of its own.
inline constexpr const char* kPageOfAll = "index.html";

/// The runs of a page and their parts, which are kept until all are known: what is worst stands
/// first. They come to one page, or to one of them all and one for each machine. For one thread.
class Pages {
 public:
  /// @param folder for the pages of machines, kept alive by the caller; null: there is one page.
  /// @throws std::system_error if nothing can be kept there.
  explicit Pages(const ReportFolder* folder);

  /// The id of the part of the next run.
  std::string nextId() const;
  /// @param machine that it is of, kept alive by the caller; null for one of too many.
  void add(RunOfMany run, const Fleet::Machine* machine, const std::string& part);

  /// Writes the pages of the machines, then this one.
  /// @throws std::system_error if a page of a machine cannot be written.
  void write(Printer& out, const Fleet& fleet);

 private:
  using Machines = std::vector<MachineOfMany*>;

  bool mayKeep(RunVerdict verdict) const;
  Machines worstFirst();
  void writePagesOf(const Machines& machines, const Fleet& fleet);
  void writeOnly(Printer& out, const Machines& machines, const Fleet& fleet);
  void writeAll(Printer& out, const Machines& machines, const Fleet& fleet);
  void writeParts(Printer& out, const Machines& machines, const Fleet& fleet);

  const ReportFolder* m_folder;
  std::unique_ptr<Spool> m_spool;
  std::size_t m_spooled = 0;             ///< bytes
  std::deque<MachineOfMany> m_machines;  ///< in the order in which they were read
  std::map<const Fleet::Machine*, std::size_t> m_places;
  std::size_t m_runs = 0;
  VerdictCounts m_further;
};

}  // namespace TarvexDiags::FrontEnd::Html
