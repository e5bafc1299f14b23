#include "inventory/Document.h"

#include <algorithm>
#include <set>

#include "inventory/InputFile.h"

namespace TarvexDiags::Inventory {

namespace {

constexpr std::size_t kMostBytes = std::size_t{16} << 20U;
constexpr int kMostLevels = 32;

std::string lineOf(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, std::min(byte, text.size()));
  return "line " + std::to_string(1 + std::count(before.begin(), before.end(), '\n'));
}

/// Looks at a document while it is read.
class Inspection {
 public:
  explicit Inspection(const std::string& file) : m_file(file) {}

  bool operator()(int depth, Json::parse_event_t event, Json& parsed) {
    using Event = Json::parse_event_t;
    if (depth > kMostLevels) {
      throw DocumentFault(m_file, "", "it is more than 32 levels deep");
    }
    if (event == Event::object_start) {
      m_keys.emplace_back();
    } else if (event == Event::object_end) {
      m_keys.pop_back();
    } else if (event == Event::key && !m_keys.back().insert(parsed.get<std::string>()).second) {
      throw DocumentFault(m_file, "", "key \"" + parsed.get<std::string>() + "\" stands twice");
    }
    return true;
  }

 private:
  const std::string& m_file;
  std::vector<std::set<std::string>> m_keys;
};

}  // namespace

Json parseDocument(std::string_view text, const std::string& file) {
  if (text.size() > kMostBytes) {
    throw DocumentFault(file, "", "it is larger than 16 MiB");
  }
  Inspection inspection(file);
  try {
    return Json::parse(text, [&](int depth, Json::parse_event_t event, Json& parsed) {
      return inspection(depth, event, parsed);
    });
  } catch (const Json::parse_error& fault) {
    throw DocumentFault(file, lineOf(text, fault.byte), "is no JSON");
  } catch (const Json::out_of_range&) {
    throw DocumentFault(file, "", "has a number that is too large");
  }
}

Json readDocument(const std::string& file) {
  return parseDocument(readInput(file, kMostBytes), file);
}

void requireInventory(const Json& document, const std::string& file) {
  constexpr const char* kSections[] = {"system",     "processors", "memory", "pci", "disks",
                                       "interfaces", "infiniband", "gpus",   "tpm", "kernel"};
  if (!document.is_object() || document.value("document", Json()) != "diagctl.inventory") {
    throw DocumentFault(file, "/document", "it is no inventory");
  }
  if (document.value("version", Json()) != 1) {
    throw DocumentFault(file, "/version", "it is of another version; take it again");
  }
  for (const char* const section : kSections) {
    const auto found = document.find(section);
    if (found == document.end() || !found->is_object()) {
      throw DocumentFault(file, std::string("/") + section, "the section is missing");
    }
  }
}

}  // namespace TarvexDiags::Inventory
