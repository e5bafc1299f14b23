#include "diagctl/command/Arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <set>
#include <string_view>

#include "diagctl/command/UsageFault.h"
#include "diagctl/terminal/Suggestion.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string nameOf(const CLI::Option& option) {
  return option.get_lnames().empty() ? "-" + option.get_snames().front()
                                     : "--" + option.get_lnames().front();
}

/// All long names of the options, with their hyphens.
std::vector<std::string> longNamesOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

/// @param name with its hyphens.
bool hasOption(const CLI::App& command, const std::string& name) {
  const std::vector<const CLI::Option*> options = command.get_options();
  return std::any_of(options.begin(), options.end(), [&](const CLI::Option* option) {
    return name.starts_with("--") ? option->check_lname(name.substr(2))
                                  : option->check_sname(name.substr(1));
  });
}

bool isRepeatable(const CLI::Option& option) {
  return option.get_expected_max() != 1;
}

/// Goes through the words once.
class Scan {
 public:
  Scan(const std::vector<std::string>& words, const CLI::App& program,
       const std::deque<Verb>& verbs, Arguments& result)
      : m_words(words), m_program(program), m_verbs(verbs), m_result(result) {}

  void run() {
    bool isOptionPossible = true;
    while (m_next < m_words.size()) {
      const std::string word = m_words[m_next++];
      if (isOptionPossible && word == "--") {
        isOptionPossible = false;
      } else if (isOptionPossible && word.starts_with("--")) {
        takeLong(word);
      } else if (isOptionPossible && word.size() > 1 && word.front() == '-') {
        takeShort(word.substr(1));
      } else if (m_result.verb == nullptr) {
        takeVerb(word);
      } else {
        m_plain.push_back(word);
      }
    }
    if (m_result.verb != nullptr && !m_result.wantsHelp && !m_result.wantsVersion) {
      requireFitting();
      m_result.ofVerb.emplace_back("--");
      m_result.ofVerb.insert(m_result.ofVerb.end(), m_plain.begin(), m_plain.end());
    }
  }

 private:
  // A verb may have a second word, which stands right behind the first.
  void takeVerb(const std::string& word) {
    m_result.verb = &verbNamed(word, m_verbs);
    const std::string both =
        m_next < m_words.size() ? m_result.verb->name + " " + m_words[m_next] : "";
    for (const Verb& verb : m_verbs) {
      if (verb.name == both) {
        m_result.verb = &verb;
        ++m_next;
      }
    }
  }

  /// An option, and whose it is.
  struct Found {
    const CLI::Option* option = nullptr;
    bool isOfVerb = false;
  };

  void takeLong(const std::string& word) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const Found found = findLong(name);
    if (equals == std::string::npos) {
      take(found);
    } else {
      takeWith(found, word.substr(equals + 1));
    }
  }

  // Several flags may stand behind one hyphen, and a value right behind its option.
  void takeShort(std::string letters) {
    while (!letters.empty()) {
      const Found found = findShort(letters.substr(0, 1));
      letters.erase(0, 1);
      if (found.option->get_items_expected_max() == 0 || letters.empty()) {
        take(found);
      } else {
        takeWith(found, letters.substr(letters.front() == '=' ? 1 : 0));
        return;
      }
    }
  }

  void take(const Found& found) {
    if (found.option->get_items_expected_min() == 0) {
      add(found, {});
    } else if (m_next == m_words.size()) {
      throw UsageFault(
          tr("{} needs a value: {}", nameOf(*found.option), found.option->get_type_name()));
    } else {
      takeWith(found, m_words[m_next++]);
    }
  }

  // A value that looks like an option is mostly one, whose own option was forgotten before it.
  void takeWith(const Found& found, const std::string& value) {
    const std::string name = nameOf(*found.option);
    if (found.option->get_items_expected_max() == 0) {
      throw UsageFault(tr("{} takes no value, and '{}' is one", name, value));
    }
    if (value.empty()) {
      throw UsageFault(tr("{} needs a value: {}", name, found.option->get_type_name()));
    }
    if (value.front() == '-') {
      throw UsageFault(
          tr("{} needs a value, and '{}' begins with \"-\" as options do", name, value));
    }
    add(found, value);
  }

  void add(const Found& found, const std::string& value) {
    const std::string name = nameOf(*found.option);
    if (name == "--help") {
      m_result.wantsHelp = true;
      return;
    }
    if (name == "--version") {
      m_result.wantsVersion = true;
      return;
    }
    if (!m_seen.insert(found.option).second && found.option->get_items_expected_max() != 0 &&
        !isRepeatable(*found.option)) {
      throw UsageFault(tr("{} is given twice", name));
    }
    std::vector<std::string>& target = found.isOfVerb ? m_result.ofVerb : m_result.ofProgram;
    if (value.empty() && found.option->get_items_expected_max() > 0) {
      target.push_back(fmt::format("{}={}", name, found.option->get_default_str()));
    } else if (value.empty()) {
      target.push_back(name);
    } else if (found.option->get_items_expected_min() == 0) {
      target.push_back(fmt::format("{}={}", name, value));
    } else {
      target.insert(target.end(), {name, value});
    }
  }

  Found findShort(const std::string& letter) const {
    for (const auto& [command, isOfVerb] : commands()) {
      for (const CLI::Option* option : command->get_options()) {
        if (option->check_sname(letter)) {
          return {option, isOfVerb};
        }
      }
    }
    refuse("-" + letter);
  }

  Found findLong(const std::string& name) const {
    if (const Found found = findExactly(name); found.option != nullptr) {
      return found;
    }
    std::vector<std::string> known;
    for (const auto& [command, isOfVerb] : commands()) {
      const std::vector<std::string> names = longNamesOf(*command);
      known.insert(known.end(), names.begin(), names.end());
    }
    const std::vector<std::string> candidates =
        name.size() > 2 ? beginningWith(name, known) : std::vector<std::string>();
    if (candidates.size() == 1) {
      return findExactly(candidates.front());
    }
    if (!candidates.empty()) {
      throw UsageFault(tr("'{}' may be {}", name, asAlternatives(candidates)));
    }
    refuse(name);
  }

  Found findExactly(const std::string& name) const {
    for (const auto& [command, isOfVerb] : commands()) {
      for (const CLI::Option* option : command->get_options()) {
        if (option->check_lname(name.substr(2))) {
          return {option, isOfVerb};
        }
      }
    }
    return {};
  }

  /// Where options are looked for, the nearest first.
  std::vector<std::pair<const CLI::App*, bool>> commands() const {
    std::vector<std::pair<const CLI::App*, bool>> commands;
    if (m_result.verb != nullptr) {
      commands.emplace_back(m_result.verb->command.get(), true);
    }
    commands.emplace_back(&m_program, false);
    return commands;
  }

  [[noreturn]] void refuse(const std::string& name) const {
    std::vector<std::string> owners;
    for (const Verb& verb : m_verbs) {
      if (hasOption(*verb.command, name)) {
        owners.push_back(verb.name);
      }
    }
    if (m_result.verb == nullptr && !owners.empty()) {
      throw UsageFault(
          tr("'{}' stands behind its verb: \"diagctl {} {}\"", name, owners.front(), name));
    }
    if (!owners.empty()) {
      throw UsageFault(
          tr("there is no option '{}' here; it is one of {}", name, fmt::join(owners, ", ")));
    }
    std::vector<std::string> known;
    for (const auto& [command, isOfVerb] : commands()) {
      const std::vector<std::string> names = longNamesOf(*command);
      known.insert(known.end(), names.begin(), names.end());
    }
    throw UsageFault(tr("there is no option '{}'{}", name, didYouMean(name, known)));
  }

  void requireFitting() const {
    for (const CLI::Option* option : m_seen) {
      for (const CLI::Option* other : option->get_excludes()) {
        if (m_seen.contains(other)) {
          throw UsageFault(tr("{} and {} exclude each other", nameOf(*option), nameOf(*other)));
        }
      }
    }
    std::size_t possible = 0;
    for (const CLI::Option* option : m_result.verb->command->get_options()) {
      if (!option->get_positional()) {
        continue;
      }
      if (option->get_required() && m_plain.size() <= possible) {
        throw UsageFault(tr("{} is missing", option->get_type_name()));
      }
      possible += static_cast<std::size_t>(option->get_items_expected_max());
    }
    if (m_plain.size() > possible) {
      throw UsageFault(
          possible == 0 ? tr("'{}' is no option, and nothing else is taken here", m_plain.front())
                        : tr("'{}' is a word too many", m_plain[possible]));
    }
  }

  const std::vector<std::string>& m_words;
  const CLI::App& m_program;
  const std::deque<Verb>& m_verbs;
  std::size_t m_next = 0;
  std::set<const CLI::Option*> m_seen;
  std::vector<std::string> m_plain;  ///< words that are neither options nor values
  Arguments& m_result;
};

// Within single quotes a shell leaves all as it is but these themselves.
std::string quoted(const std::string& word) {
  const auto isPlain = [](unsigned char sign) {
    return std::isalnum(sign) != 0 ||
           std::string_view("_./:=,@%+-").find(static_cast<char>(sign)) != std::string_view::npos;
  };
  if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) {
    return word;
  }
  std::string inQuotes = "'";
  for (const char sign : word) {
    inQuotes += sign == '\'' ? std::string("'\\''") : std::string(1, sign);
  }
  return inQuotes + "'";
}

}  // namespace

void readArguments(const std::vector<std::string>& words, const CLI::App& program,
                   const std::deque<Verb>& verbs, Arguments& arguments) {
  Scan(words, program, verbs, arguments).run();
}

std::string asCommand(const std::vector<std::string>& words) {
  std::string command;
  for (const std::string& word : words) {
    command += command.empty() ? "" : " ";
    command += quoted(word);
  }
  return command;
}

const Verb& verbNamed(const std::string& word, const std::deque<Verb>& verbs) {
  std::vector<std::string> names;
  for (const Verb& verb : verbs) {
    if (verb.name == word) {
      return verb;
    }
    if (verb.name.find(' ') == std::string::npos) {
      names.push_back(verb.name);
    }
  }
  const std::vector<std::string> candidates = beginningWith(word, names);
  if (candidates.size() == 1) {
    return *std::find_if(verbs.begin(), verbs.end(),
                         [&](const Verb& verb) { return verb.name == candidates.front(); });
  }
  if (!word.empty() && candidates.size() > 1) {
    throw UsageFault(tr("'{}' may be {}", word, asAlternatives(candidates)));
  }
  const std::string nearest = didYouMean(word, names);
  throw UsageFault(nearest.empty()
                       ? tr("'{}' is none of the verbs: {}", word, fmt::join(names, ", "))
                       : tr("'{}' is no verb{}", word, nearest));
}

}  // namespace TarvexDiags::FrontEnd
