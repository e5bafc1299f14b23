#include "diagctl/command/InventoryFindings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <set>
#include <string_view>
#include <vector>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Inventory::Difference;
using Inventory::FactPath;
using Inventory::Finding;
using Facts = Inventory::Json;
using Kind = Finding::Kind;

struct KindOfPart {
  std::string_view section;
  const char* name;
};

constexpr KindOfPart kKindsOfParts[] = {
    {"pci", marked("PCI device")},
    {"disks", marked("disk")},
    {"interfaces", marked("interface")},
    {"infiniband", marked("InfiniBand adapter")},
    {"gpus", marked("GPU")},
    {"tpm", marked("TPM")},
    {"modules", marked("memory module")},
    {"nodes", marked("memory node")},
};

/// What facts are called that people look up in lists and on labels.
constexpr std::array kFacts = {marked("serial number"),
                               marked("part number"),
                               marked("manufacturer"),
                               marked("vendor"),
                               marked("model"),
                               marked("name"),
                               marked("product"),
                               marked("version"),
                               marked("revision"),
                               marked("firmware"),
                               marked("date"),
                               marked("release"),
                               marked("driver"),
                               marked("microcode"),
                               marked("bytes"),
                               marked("memory"),
                               marked("memory bytes"),
                               marked("configured megatransfers"),
                               marked("rated megatransfers"),
                               marked("bank"),
                               marked("slot"),
                               marked("link"),
                               marked("speed"),
                               marked("width"),
                               marked("maximum speed"),
                               marked("maximum width"),
                               marked("megabits per second"),
                               marked("duplex"),
                               marked("mtu"),
                               marked("mac address"),
                               marked("state"),
                               marked("rate"),
                               marked("ports"),
                               marked("port"),
                               marked("processors"),
                               marked("sockets"),
                               marked("cores"),
                               marked("threads"),
                               marked("online"),
                               marked("present"),
                               marked("flags"),
                               marked("governor"),
                               marked("least kilohertz"),
                               marked("most kilohertz"),
                               marked("kernel"),
                               marked("taints"),
                               marked("vulnerabilities"),
                               marked("host name"),
                               marked("board"),
                               marked("chassis"),
                               marked("system"),
                               marked("disks"),
                               marked("interfaces"),
                               marked("modules"),
                               marked("nodes"),
                               marked("type"),
                               marked("transport"),
                               marked("logical block bytes"),
                               marked("physical block bytes")};

std::string shortened(const std::string& text) {
  constexpr std::size_t kLongest = 200;
  if (text.size() <= kLongest) {
    return text;
  }
  std::string cut;
  for (std::string_view rest = text; cut.size() < kLongest;) {
    const Character character = firstCharacterOf(rest);
    cut += character.bytes;
    rest.remove_prefix(character.bytes.size());
  }
  return cut + " ...";
}

/// "configured megatransfers" for "configuredMegatransfers", or what that is in the language.
std::string labelOf(const std::string& fact) {
  std::string words;
  for (const char sign : fact) {
    const bool isCapital = sign >= 'A' && sign <= 'Z';
    words +=
        isCapital ? std::string(" ") + static_cast<char>(sign - 'A' + 'a') : std::string(1, sign);
  }
  return std::find(kFacts.begin(), kFacts.end(), words) != kFacts.end() ? told(words) : words;
}

/// The steps one behind the other; those before the last are names of parts too, and stay.
std::string wordsOf(const FactPath& path, std::size_t first) {
  std::string words;
  for (std::size_t step = first; step < path.size(); ++step) {
    const bool isSection = std::find(kFacts.begin(), kFacts.end(), path[step]) != kFacts.end();
    words += words.empty() ? "" : " ";
    words += step == path.size() - 1 || isSection ? labelOf(path[step]) : path[step];
  }
  return words;
}

std::string nameOfPart(const FactPath& part) {
  if (part.size() < 2) {
    return part.empty() ? tr("the machine") : tr("the {}", part.front());
  }
  const std::string& section = part[part.size() - 2];
  const auto* const kind =
      std::find_if(std::begin(kKindsOfParts), std::end(kKindsOfParts),
                   [&](const KindOfPart& candidate) { return candidate.section == section; });
  return kind == std::end(kKindsOfParts) ? wordsOf(part, 0)
                                         : fmt::format("{} {}", told(kind->name), part.back());
}

/// A text of a part that says which one it is; empty for none.
std::string factOf(const Facts& facts, const char* key) {
  const auto found = facts.is_object() ? facts.find(key) : facts.end();
  const bool isTold = facts.is_object() && found != facts.end() && found->is_string() &&
                      *found != Inventory::kUnknown;
  return isTold ? shortened(found->get<std::string>()) : "";
}

/// What somebody needs who looks for the part.
std::string detailsOf(const Facts& facts) {
  std::vector<std::string> details;
  const auto add = [&](const std::string& text, const std::string& head) {
    if (!text.empty()) {
      details.push_back(head + text);
    }
  };
  if (const std::string vendor = factOf(facts, "vendor"); vendor.starts_with("0x")) {
    add(factOf(facts, "device"), vendor + ":");
  }
  for (const char* const key : {"name", "model", "manufacturer", "partNumber", "driver"}) {
    add(factOf(facts, key), "");
  }
  add(factOf(facts, "slot"), tr("slot") + " ");
  add(factOf(facts, "serialNumber"), tr("serial number") + " ");
  return fmt::format("{}", fmt::join(details, ", "));
}

std::set<std::string> textsOf(const Facts& list) {
  std::set<std::string> texts;
  for (const Facts& value : list) {
    texts.insert(valueText(value));
  }
  return texts;
}

/// What one list has and the other not.
std::string surplusOf(const Facts& list, const Facts& other) {
  const std::set<std::string> mine = textsOf(list);
  const std::set<std::string> theirs = textsOf(other);
  std::vector<std::string> surplus;
  std::set_difference(mine.begin(), mine.end(), theirs.begin(), theirs.end(),
                      std::back_inserter(surplus));
  return shortened(fmt::format("{}", fmt::join(surplus, ", ")));
}

std::string describeLists(const Facts& expected, const Facts& actual) {
  const std::string lacks = surplusOf(expected, actual);
  const std::string has = surplusOf(actual, expected);
  if (lacks.empty() || has.empty()) {
    return lacks.empty() ? tr("{} in addition", has) : tr("without {}", lacks);
  }
  return tr("without {}, but with {}", lacks, has);
}

std::string describeValues(const Difference& difference) {
  if (!difference.actual) {
    return tr("no longer told, was {}", valueText(*difference.expected));
  }
  if (!difference.expected) {
    return tr("{}, which nobody expects", valueText(*difference.actual));
  }
  if (difference.expected->is_array() && difference.actual->is_array() &&
      textsOf(*difference.expected) != textsOf(*difference.actual)) {
    return describeLists(*difference.expected, *difference.actual);
  }
  return tr("{} instead of {}", valueText(*difference.actual), valueText(*difference.expected));
}

std::string describeUnknown(const Difference& difference) {
  const bool isUnknownHere = difference.actual && *difference.actual == Inventory::kUnknown;
  return isUnknownHere ? tr("unknown here") : tr("unknown in what is expected");
}

/// "firmware: "F1" instead of "F2"".
std::string describeFact(const Finding& finding, const Difference& difference) {
  const std::string fact = wordsOf(difference.path, finding.part.size());
  const std::string text = finding.kind == Kind::NotComparable ? describeUnknown(difference)
                                                               : describeValues(difference);
  return fact.empty() ? text : fmt::format("{}: {}", fact, text);
}

std::string describeHanging(const Finding& finding) {
  std::vector<std::string> names;
  for (const FactPath& part : finding.with) {
    names.push_back(nameOfPart(part));
  }
  return names.empty() ? "" : tr(", and with it {}", fmt::join(names, ", "));
}

}  // namespace

std::string valueText(const Facts& value) {
  if (value.is_string()) {
    return fmt::format("\"{}\"", shortened(value.get<std::string>()));
  }
  if (!value.is_structured()) {
    return value.dump();
  }
  std::vector<std::string> texts;
  for (const auto& [key, member] : value.items()) {
    const std::string text = member.is_string() ? member.get<std::string>() : valueText(member);
    texts.push_back(value.is_object() ? fmt::format("{} ({})", key, text) : text);
  }
  return texts.empty() ? tr("none") : shortened(fmt::format("{}", fmt::join(texts, ", ")));
}

std::string nameOf(const Finding& finding) {
  const std::string details = finding.part.size() > 1 ? detailsOf(finding.facts) : "";
  const std::string name = nameOfPart(finding.part);
  return details.empty() ? name : fmt::format("{} ({})", name, details);
}

std::string describe(const Finding& finding) {
  const std::string name = nameOf(finding);
  if (finding.kind == Kind::PartMissing) {
    return tr("{} is missing{}", name, describeHanging(finding));
  }
  if (finding.kind == Kind::PartAdded) {
    return tr("{} is not expected{}", name, describeHanging(finding));
  }
  std::vector<std::string> texts;
  for (const Difference& difference : finding.differences) {
    texts.push_back(describeFact(finding, difference));
  }
  return fmt::format("{}: {}", name, fmt::join(texts, "; "));
}

std::string adviceFor(const Finding& finding) {
  switch (finding.kind) {
    case Kind::PartMissing:
      return tr("See whether it is seated, has power and is enabled in the setup of the firmware.");
    case Kind::PartDegraded:
      if (finding.part.size() < 2) {
        return tr("See what the setup of the firmware and the kernel's parameters switch off.");
      }
      return tr("Seat the part anew, and exchange it when that does not help.");
    case Kind::PartDiffers:
      return finding.gravity == Inventory::Gravity::Information
                 ? ""
                 : tr("Bring it to what is expected, or expect what it is now.");
    case Kind::PartAdded:
      return tr("Take it out, or expect it.");
    case Kind::NotComparable:
      break;
  }
  return tr("Take both inventories as root.");
}

const char* symptomOf(const Finding& finding) {
  switch (finding.kind) {
    case Kind::PartMissing:
      return "part-missing";
    case Kind::PartDegraded:
      return "part-degraded";
    case Kind::PartDiffers:
      return "part-differs";
    case Kind::PartAdded:
      return "part-added";
    case Kind::NotComparable:
      break;
  }
  return "not-comparable";
}

}  // namespace TarvexDiags::FrontEnd
