#include "diagctl/report/HtmlPages.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "diagctl/report/FleetText.h"
#include "diagctl/report/HtmlPage.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostOfPage = 16UL << 20U;      ///< bytes of parts
constexpr std::size_t kMostOfTrouble = 256UL << 20U;  ///< of runs that did not pass, until the end
constexpr std::size_t kMostRuns = 10'000;
constexpr const char* kEnding = ".html";

std::size_t runsOf(const std::vector<MachineOfMany*>& machines) {
  std::size_t count = 0;
  for (const MachineOfMany* machine : machines) {
    count += machine->runs.size();
  }
  return count;
}

std::size_t countOf(const VerdictCounts& counts) {
  std::size_t sum = 0;
  for (const auto& [verdict, count] : counts) {
    sum += count;
  }
  return sum;
}

std::string titleOf(const MachineOfMany& machine, const Fleet& fleet) {
  return shown(tr("Diagnosis of {}", nameAmong(fleet, *machine.told)));
}

// As many parts as a page may hold, those of the worst runs before others.
void settleLinks(const std::vector<MachineOfMany*>& machines) {
  std::vector<RunOfMany*> runs;
  for (MachineOfMany* machine : machines) {
    for (RunOfMany& run : machine->runs) {
      runs.push_back(&run);
    }
  }
  std::stable_sort(runs.begin(), runs.end(), [](const RunOfMany* left, const RunOfMany* right) {
    return left->verdict < right->verdict;
  });
  std::size_t size = 0;
  for (RunOfMany* run : runs) {
    const bool fits = run->part.size > 0 && size < kMostOfPage;
    run->link = fits ? "#" + run->id : "";
    size += fits ? run->part.size : 0;
  }
}

std::string summaryOf(const RunOfMany& run, const std::string& machine) {
  return shown(tr("{} {}: {}, {}", lookOf(run.verdict).symbol, toText(run.verdict), machine,
                  timeText(run.begin)));
}

void writeWayBack(Svg::Markup& out) {
  out.open("nav", {{"aria-label", tr("All machines")}});
  out.leaf("a", {{"href", kPageOfAll}}, tr("All machines"));
  out.close();
}

}  // namespace

Pages::Pages(const ReportFolder* folder)
    : m_folder(folder),
      m_spool(folder == nullptr ? std::make_unique<Spool>()
                                : std::make_unique<Spool>(folder->pathOf("."), folder->name())) {}

std::string Pages::nextId() const {
  return fmt::format("r{}", m_runs + 1);
}

// What did not pass is not crowded out by what did and was read before.
bool Pages::mayKeep(RunVerdict verdict) const {
  const bool isWell = verdict == RunVerdict::Passed || verdict == RunVerdict::NothingRan;
  if (m_spool->isInMemory() || (isWell && m_folder == nullptr)) {
    return m_spooled < kMostOfPage;
  }
  return m_folder != nullptr || m_spooled < kMostOfTrouble;
}

void Pages::add(RunOfMany run, const Fleet::Machine* machine, const std::string& part) {
  if (machine == nullptr || m_runs == kMostRuns) {
    ++m_further[run.verdict];
    return;
  }
  ++m_runs;
  const auto [place, isNew] = m_places.try_emplace(machine, m_machines.size());
  if (isNew) {
    m_machines.push_back({machine, {}, ""});
  }
  if (mayKeep(run.verdict)) {
    run.part = m_spool->add(part);
    m_spooled += run.part.size;
  }
  m_machines[place->second].runs.push_back(std::move(run));
}

Pages::Machines Pages::worstFirst() {
  Machines machines;
  for (MachineOfMany& machine : m_machines) {
    machines.push_back(&machine);
  }
  std::stable_sort(machines.begin(), machines.end(),
                   [](const MachineOfMany* left, const MachineOfMany* right) {
                     return left->verdict() < right->verdict();
                   });
  return machines;
}

void Pages::write(Printer& out, const Fleet& fleet) {
  const Machines machines = worstFirst();
  if (m_folder != nullptr) {
    writePagesOf(machines, fleet);
    writeAll(out, machines, fleet);
    return;
  }
  settleLinks(machines);
  if (machines.size() > 1) {
    writeAll(out, machines, fleet);
  } else {
    writeOnly(out, machines, fleet);
  }
}

void Pages::writePagesOf(const Machines& machines, const Fleet& fleet) {
  FileNames names("index");
  for (MachineOfMany& machine : m_machines) {
    machine.file = names.take(machine.told->name, kEnding);
  }
  for (MachineOfMany* machine : machines) {
    settleLinks({machine});
    const std::unique_ptr<WrittenFile> file = m_folder->make(machine->file);
    writeOnly(file->out(), {machine}, fleet);
    file->finish();
    for (RunOfMany& run : machine->runs) {
      run.link = machine->file + run.link;
    }
  }
}

// One run stands open; several are told together before, and folded.
void Pages::writeOnly(Printer& out, const Machines& machines, const Fleet& fleet) {
  const std::string title = machines.empty() || machines.front()->told->name.empty()
                                ? tr("Diagnosis")
                                : titleOf(*machines.front(), fleet);
  const PageFrame frame = frameOf(title);
  Svg::Markup head;
  if (m_folder != nullptr) {
    writeWayBack(head);
  }
  head.leaf("h1", title);
  if (machines.empty()) {
    writeParagraph(head, "told", tr("Nothing ran."));
  } else if (machines.front()->runs.size() > 1) {
    head.leaf("h2", runsText(runsOf(machines) + (m_folder == nullptr ? countOf(m_further) : 0)));
    writeRuns(head, *machines.front(), m_folder == nullptr ? m_further : VerdictCounts());
    if (m_folder == nullptr) {
      writeTestsOfMany(head, fleet);
    }
    head.leaf("h2", tr("Each run"));
  }
  out.write(frame.before);
  out.write(head.written());
  writeParts(out, machines, fleet);
  out.write(frame.behind);
  out.flush();
}

void Pages::writeAll(Printer& out, const Machines& machines, const Fleet& fleet) {
  const std::string title = tr("Diagnosis: {}, {}", machinesText(machines.size()),
                               runsText(runsOf(machines) + countOf(m_further)));
  const PageFrame frame = frameOf(title);
  Svg::Markup head;
  head.leaf("h1", title);
  head.leaf("h2", tr("All machines"));
  if (machines.empty()) {
    writeParagraph(head, "told", tr("Nothing ran."));
  }
  writeMachines(head, machines, fleet, m_further);
  writeTestsOfMany(head, fleet);
  out.write(frame.before);
  out.write(head.written());
  if (m_folder == nullptr) {
    Svg::Markup each;
    each.leaf("h2", tr("Each run"));
    out.write(each.written());
    writeParts(out, machines, fleet);
  }
  out.write(frame.behind);
  out.flush();
}

void Pages::writeParts(Printer& out, const Machines& machines, const Fleet& fleet) {
  const bool areFolded = runsOf(machines) > 1;
  for (const MachineOfMany* machine : machines) {
    const std::string name = nameAmong(fleet, *machine->told);
    for (const RunOfMany& run : machine->runs) {
      if (run.link.empty()) {
        continue;
      }
      Svg::Markup around;
      std::size_t inside = 0;
      if (areFolded) {
        const Folded folded(around, summaryOf(run, name));
        inside = around.size();
      }
      out.write(std::string_view(around.written()).substr(0, inside));
      out.write(m_spool->read(run.part));
      out.write(std::string_view(around.written()).substr(inside));
    }
  }
}

}  // namespace TarvexDiags::FrontEnd::Html
