#include "diagctl/command/PlanArguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "diagctl/command/OptionGroup.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kProfile = "--profile";
constexpr const char* kAllowDisruptive = "allow-disruptive";  // no file says that for a person

bool isSame(const std::string& word, const std::string& option) {
  return word == option || word.starts_with(option + "=");
}

bool isGiven(const std::vector<std::string>& words, const std::string& option) {
  return std::any_of(words.begin(), words.end(),
                     [&](const std::string& word) { return isSame(word, option); });
}

CLI::Option* optionOf(const Verb& verb, const std::string& name) {
  const std::vector<CLI::Option*> options = verb.command->get_options();
  const auto found = std::find_if(options.begin(), options.end(), [&](const CLI::Option* option) {
    return option->check_lname(name);
  });
  return found == options.end() ? nullptr : *found;
}

[[noreturn]] void refuse(const NamedPlan& plan, const std::string& key, const std::string& reason) {
  throw std::runtime_error(fmt::format("{} [Plan] {}: {}", plan.file, key, reason));
}

// Taken by the option as if it stood on the command line, and taken back: there nobody could tell
// any more where it came from.
void requireValue(const NamedPlan& plan, CLI::Option& option, const std::string& key,
                  const std::string& value) {
  const std::string own = "--" + key + ": ";
  try {
    option.add_result(value);
    option.run_callback();
    option.clear();
  } catch (const UsageFault& fault) {
    const std::string reason = fault.what();
    refuse(plan, key, reason.starts_with(own) ? reason.substr(own.size()) : reason);
  } catch (const CLI::ParseError&) {
    refuse(plan, key, tr("'{}' is no value of it", value));
  }
}

/// The words for an option of a plan; none for a flag that is not set.
std::vector<std::string> wordsFor(const NamedPlan& plan, CLI::Option& option,
                                  const std::string& key, const std::string& value) {
  if (option.get_items_expected_max() == 0) {
    if (value != "TRUE" && value != "FALSE") {
      refuse(plan, key, tr("'{}' is none of TRUE, FALSE", value));
    }
    return value == "TRUE" ? std::vector<std::string>{"--" + key} : std::vector<std::string>();
  }
  if (value.empty() || value.front() == '-') {
    refuse(plan, key, tr("'{}' is no value of it", value));
  }
  requireValue(plan, option, key, value);
  return {fmt::format("--{}={}", key, value)};
}

std::vector<std::string> wordsOf(const NamedPlan& plan, const Verb& verb,
                                 const std::deque<Verb>& verbs,
                                 const std::vector<std::string>& given) {
  std::vector<std::string> words;
  for (const auto& [key, value] : plan.options) {
    if (key == kAllowDisruptive) {
      refuse(plan, key, tr("it counts on the command line alone"));
    }
    CLI::Option* const option = optionOf(verb, key);
    const bool isKnown =
        std::any_of(verbs.begin(), verbs.end(), [&, &name = key](const Verb& each) {
          return optionOf(each, "profile") != nullptr && optionOf(each, name) != nullptr;
        });
    if (!isKnown) {
      refuse(plan, key, tr("there is no such option"));
    }
    if (option != nullptr && !isGiven(given, "--" + key)) {
      const std::vector<std::string> more = wordsFor(plan, *option, key, value);
      words.insert(words.end(), more.begin(), more.end());
    }
  }
  return words;
}

}  // namespace

std::optional<NamedPlan> takePlan(Arguments& arguments, const std::deque<Verb>& verbs,
                                  const std::vector<std::string>& profiles, bool isSecure) {
  std::vector<std::string>& words = arguments.ofVerb;
  // What stands behind "--" is no option, whatever it looks like.
  const auto end = std::find(words.begin(), words.end(), "--");
  const auto found = std::find(words.begin(), end, kProfile);
  if (found == end) {
    return std::nullopt;
  }
  std::vector<std::string> names = profiles;
  const std::vector<std::string> plans = namesOfPlans();
  names.insert(names.end(), plans.begin(), plans.end());
  const std::string name = chosenName(*(found + 1), names, kProfile);
  if (std::find(profiles.begin(), profiles.end(), name) != profiles.end()) {
    return std::nullopt;
  }
  words.erase(found, found + 2);
  NamedPlan plan = planNamed(name, isSecure);
  const std::vector<std::string> more = wordsOf(plan, *arguments.verb, verbs, words);
  words.insert(words.begin(), more.begin(), more.end());
  return plan;
}

}  // namespace TarvexDiags::FrontEnd
