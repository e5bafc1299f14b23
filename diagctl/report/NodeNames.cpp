#include "diagctl/report/NodeNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <map>
#include <set>
#include <tuple>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kDigits = "0123456789";
constexpr std::size_t kMostDigits = 18;  ///< that a number has room for

/// What names have in common that fold into one.
struct NodeGroup {
  std::string before;
  std::string after;
  std::size_t width = 0;  ///< of numbers with leading zeros; 0: they have none

  bool operator<(const NodeGroup& other) const {
    return std::tie(before, after, width) < std::tie(other.before, other.after, other.width);
  }
};

/// The last number of the first part of a domain's name.
struct NumberInName {
  std::size_t begin = std::string::npos;
  std::size_t end = 0;

  explicit NumberInName(const std::string& name) {
    const std::size_t last = name.find_last_of(kDigits, name.find('.'));
    if (last != std::string::npos && name.find_first_of("[],") == std::string::npos) {
      const std::size_t before = name.find_last_not_of(kDigits, last);
      begin = before == std::string::npos ? 0 : before + 1;
      end = last + 1;
    }
  }
  bool folds() const { return begin != std::string::npos && end - begin <= kMostDigits; }
};

using Numbers = std::set<unsigned long>;

std::string rangesOf(const Numbers& numbers, std::size_t width) {
  std::string ranges;
  for (auto number = numbers.begin(); number != numbers.end();) {
    const unsigned long first = *number;
    unsigned long last = first;
    while (++number != numbers.end() && *number == last + 1) {
      last = *number;
    }
    ranges += fmt::format("{}{:0{}}", ranges.empty() ? "" : ",", first, width);
    if (last != first) {
      ranges += fmt::format("-{:0{}}", last, width);
    }
  }
  return ranges;
}

std::string namesOf(const NodeGroup& group, const Numbers& numbers) {
  const std::string ranges = rangesOf(numbers, group.width);
  return numbers.size() == 1 ? group.before + ranges + group.after
                             : fmt::format("{}[{}]{}", group.before, ranges, group.after);
}

}  // namespace

std::string foldedNames(const std::vector<std::string>& names) {
  std::map<NodeGroup, Numbers> groups;
  std::set<std::string> texts;
  for (const std::string& name : names) {
    const NumberInName number(name);
    if (!number.folds()) {
      texts.insert(name);
      continue;
    }
    const std::size_t length = number.end - number.begin;
    const bool isPadded = name[number.begin] == '0' && length > 1;
    unsigned long value = 0;
    std::from_chars(name.data() + number.begin, name.data() + number.end, value);
    groups[{name.substr(0, number.begin), name.substr(number.end), isPadded ? length : 0}].insert(
        value);
  }
  for (const auto& [group, numbers] : groups) {
    texts.insert(namesOf(group, numbers));
  }
  return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace TarvexDiags::FrontEnd
