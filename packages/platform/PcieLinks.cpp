#include "packages/platform/PcieLinks.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

#include "inventory/Inventory.h"
#include "inventory/PciPath.h"

namespace TarvexDiags::Platform {

namespace {

/// A number of one end of a link; 0 when it is not told.
double figureOf(const Json& link, const char* end, const char* key) {
  const Json& facts = link[end];
  const auto found = facts.find(key);
  return found != facts.end() && found->is_number() ? found->get<double>() : 0;
}

/// The smaller of both ends' maxima; 0 when one of them is not told.
double possible(const Json& link, const char* key) {
  return std::min(figureOf(link, "device", key), figureOf(link, "port", key));
}

std::string withoutPrefix(const std::string& id) {
  return id.starts_with("0x") ? id.substr(2) : id;
}

std::map<std::string, std::string> addressesByPath(const SystemFiles& files) {
  const std::filesystem::path folder = "sys/bus/pci/devices";
  std::map<std::string, std::string> addresses;
  for (const std::string& address : files.entries(folder)) {
    addresses.emplace(Inventory::pciPathOf(files.resolved(folder / address)), address);
  }
  return addresses;
}

PcieLink linkOf(const Json& facts) {
  const Json& ends = facts["link"];
  PcieLink link;
  const std::string ids =
      withoutPrefix(textOf(facts, "vendor")) + ":" + withoutPrefix(textOf(facts, "device"));
  link.model =
      ids + ":" + textOf(facts, "subsystemVendor") + ":" + textOf(facts, "subsystemDevice");
  const std::string driver = textOf(facts, "driver");
  link.name = driver.empty() ? ids : ids + " " + driver;
  link.mostLanes = static_cast<unsigned int>(figureOf(ends, "device", "width"));
  link.fewestLanes = link.mostLanes;
  link.possibleLanes = static_cast<unsigned int>(possible(ends, "maximumWidth"));
  link.speed = figureOf(ends, "device", "speed");
  link.possibleSpeed = possible(ends, "maximumSpeed");
  return link;
}

bool isWidthKnown(const PcieLink& link) {
  return link.mostLanes > 0 && link.possibleLanes > 0;
}

bool isSpeedKnown(const PcieLink& link) {
  return link.speed > 0 && link.possibleSpeed > 0;
}

bool isSlow(const PcieLink& link) {
  return isSpeedKnown(link) && link.speed < link.possibleSpeed;
}

bool couldDoBetter(const PcieLink& link) {
  return isSlow(link) || (isWidthKnown(link) && link.mostLanes < link.possibleLanes);
}

/// Keeps the best of two looks. Links that are idle may be slow to save power.
void addLook(std::vector<PcieLink>& links, const std::vector<PcieLink>& later) {
  for (PcieLink& link : links) {
    const auto again = std::find_if(later.begin(), later.end(), [&](const PcieLink& other) {
      return other.function == link.function;
    });
    if (again != later.end()) {
      link.speed = std::max(link.speed, again->speed);
      link.mostLanes = std::max(link.mostLanes, again->mostLanes);
      link.fewestLanes = std::min(link.fewestLanes, again->fewestLanes);
    }
  }
}

std::string speedText(double speed) {
  std::ostringstream text;
  text << speed << " GT/s";
  return text.str();
}

class LinkJudge {
 public:
  LinkJudge(std::string device, const std::vector<PcieLink>& links, RunJournal& journal)
      : m_device(std::move(device)), m_links(links), m_journal(journal) {}

  void judge() {
    for (const PcieLink& link : m_links) {
      judgeWidth(link);
      judgeSpeed(link);
      if (!isWidthKnown(link) || !isSpeedKnown(link)) {
        tell(PlatformEvent::LinkUnknown, link, {});
      }
    }
    report(m_journal, PlatformEvent::LinksJudged,
           {m_device, std::to_string(m_full), std::to_string(m_links.size())});
  }

 private:
  void tell(PlatformEvent event, const PcieLink& link, const std::vector<std::string>& rest) {
    std::vector<std::string> parameters = {m_device, link.function, link.name, link.slot,
                                           link.port};
    parameters.insert(parameters.end(), rest.begin(), rest.end());
    report(m_journal, event, std::move(parameters));
  }

  void judgeWidth(const PcieLink& link) {
    const std::string lanes = std::to_string(link.possibleLanes);
    if (!isWidthKnown(link)) {
      return;
    }
    if (link.mostLanes < link.possibleLanes) {
      tell(PlatformEvent::LinkNarrow, link, {std::to_string(link.mostLanes), lanes});
    } else if (link.fewestLanes < link.possibleLanes) {
      tell(PlatformEvent::LinkUnsteady, link, {std::to_string(link.fewestLanes), lanes});
    } else {
      ++m_full;
    }
  }

  void judgeSpeed(const PcieLink& link) {
    if (!isSlow(link)) {
      return;
    }
    const auto sibling = std::find_if(m_links.begin(), m_links.end(), [&](const PcieLink& other) {
      return other.model == link.model && other.speed > link.speed;
    });
    if (sibling != m_links.end()) {
      tell(PlatformEvent::LinkSlowerThanSibling, link,
           {speedText(link.speed), sibling->function, speedText(sibling->speed)});
    } else {
      tell(PlatformEvent::LinkSlow, link, {speedText(link.speed), speedText(link.possibleSpeed)});
    }
  }

  std::string m_device;
  const std::vector<PcieLink>& m_links;
  RunJournal& m_journal;
  std::size_t m_full = 0;
};

}  // namespace

std::vector<PcieLink> readLinks(const SystemFiles& files) {
  const Json pci = Inventory::pciFacts(files);
  std::map<std::string, std::string> addresses = addressesByPath(files);
  std::map<std::string, PcieLink> byPort;  // functions of one device share its link
  for (const auto& [path, facts] : pci.items()) {
    if (!facts.contains("link") || !facts["link"].contains("port") ||
        !facts["link"].contains("device")) {
      continue;
    }
    PcieLink link = linkOf(facts);
    link.function = addresses[path];
    const std::string portPath = path.substr(0, path.rfind('/'));
    link.port = addresses[portPath];
    link.slot = slotOf(pci, path);
    const auto [place, isNew] = byPort.emplace(portPath, link);
    if (!isNew && !isWidthKnown(place->second) && isWidthKnown(link)) {
      place->second = link;
    }
  }
  std::vector<PcieLink> links;
  links.reserve(byPort.size());
  for (auto& [port, link] : byPort) {
    links.push_back(std::move(link));
  }
  return links;
}

void judgeLinks(const std::string& device, const std::function<std::vector<PcieLink>()>& look,
                unsigned int looks, const std::function<bool()>& wait, RunJournal& journal) {
  std::vector<PcieLink> links = look();
  for (unsigned int count = 1;
       count < looks && std::any_of(links.begin(), links.end(), couldDoBetter); ++count) {
    if (!wait()) {
      return;
    }
    addLook(links, look());
  }
  if (links.empty()) {
    throw NotSupported(Reasons::kNoLinks);
  }
  if (std::none_of(links.begin(), links.end(), isWidthKnown)) {
    throw NotSupported(Reasons::kLinksUnknown);
  }
  LinkJudge(device, links, journal).judge();
}

}  // namespace TarvexDiags::Platform
