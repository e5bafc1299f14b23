#include "diagctl/terminal/Suggestion.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostSuggestions = 3;
constexpr std::size_t kLongestCompared = 64;  // the effort grows with the square

std::string toLower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char character) { return std::tolower(character); });
  return text;
}

/// How many letters must be put in, left out, replaced or exchanged with a neighbour.
std::size_t distanceBetween(const std::string& one, const std::string& other) {
  std::vector<std::size_t> beforeLast(other.size() + 1);
  std::vector<std::size_t> last(other.size() + 1);
  std::vector<std::size_t> present(other.size() + 1);
  for (std::size_t column = 0; column <= other.size(); ++column) {
    last[column] = column;
  }
  for (std::size_t row = 1; row <= one.size(); ++row) {
    present[0] = row;
    for (std::size_t column = 1; column <= other.size(); ++column) {
      const bool isEqual = one[row - 1] == other[column - 1];
      present[column] = std::min(
          {last[column] + 1, present[column - 1] + 1, last[column - 1] + (isEqual ? 0 : 1)});
      if (row > 1 && column > 1 && one[row - 1] == other[column - 2] &&
          one[row - 2] == other[column - 1]) {
        present[column] = std::min(present[column], beforeLast[column - 2] + 1);
      }
    }
    beforeLast.swap(last);
    last.swap(present);
  }
  return last[other.size()];
}

void addOnce(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    names.push_back(name);
  }
}

}  // namespace

std::vector<std::string> beginningWith(const std::string& word,
                                       const std::vector<std::string>& names) {
  std::vector<std::string> found;
  for (const std::string& name : names) {
    if (strncasecmp(name.c_str(), word.c_str(), word.size()) == 0) {
      addOnce(found, name);
    }
  }
  return found;
}

std::vector<std::string> nearestTo(const std::string& word, const std::vector<std::string>& names) {
  if (word.empty() || word.size() > kLongestCompared) {
    return {};
  }
  const std::string wanted = toLower(word);
  const std::size_t limit = 1 + word.size() / 4;
  std::vector<std::pair<std::size_t, std::string>> rated;
  for (const std::string& name : names) {
    if (name.size() > kLongestCompared) {
      continue;
    }
    const std::string lower = toLower(name);
    const std::size_t distance = lower.starts_with(wanted) ? 0 : distanceBetween(wanted, lower);
    // A word that shares no more than a letter or two with the name is another one.
    if (distance <= limit && distance < std::max<std::size_t>(wanted.size(), 2) - 1) {
      rated.emplace_back(distance, name);
    }
  }
  std::stable_sort(rated.begin(), rated.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });
  std::vector<std::string> nearest;
  for (const auto& [distance, name] : rated) {
    if (nearest.size() < kMostSuggestions) {
      addOnce(nearest, name);
    }
  }
  return nearest;
}

std::string didYouMean(const std::string& word, const std::vector<std::string>& names) {
  const std::vector<std::string> nearest = nearestTo(word, names);
  return nearest.empty() ? "" : tr("; did you mean {}?", asAlternatives(nearest));
}

std::string asAlternatives(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (index > 0) {
      text += index + 1 == names.size() ? told(marked(" or ")) : ", ";
    }
    text += "'" + names[index] + "'";
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
