#include "diagctl/command/OptionGroup.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

#include "diagctl/terminal/Suggestion.h"

namespace TarvexDiags::FrontEnd {

namespace {

unsigned long secondsOfUnit(char unit) {
  switch (std::tolower(static_cast<unsigned char>(unit))) {
    case 's':
      return 1;
    case 'm':
      return 60;
    case 'h':
      return 3600;
    case 'd':
      return 86400;
    default:
      return 0;
  }
}

}  // namespace

std::string chosenName(const std::string& word, const std::vector<std::string>& names,
                       const std::string& option) {
  const auto same = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
    return strcasecmp(name.c_str(), word.c_str()) == 0;
  });
  if (same != names.end()) {
    return *same;
  }
  const std::vector<std::string> candidates = beginningWith(word, names);
  if (candidates.size() == 1) {
    return candidates.front();
  }
  if (candidates.size() > 1) {
    throw UsageFault(tr("{}: '{}' may be {}", option, word, asAlternatives(candidates)));
  }
  const std::string nearest = didYouMean(word, names);
  throw UsageFault(
      nearest.empty()
          ? tr("{}: '{}' is none of {}", option, word, fmt::join(names, ", "))
          : tr("{}: '{}' is none of {}{}", option, word, fmt::join(names, ", "), nearest));
}

unsigned long secondsFrom(const std::string& text, const std::string& option) {
  unsigned long number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  const char* const unit = std::find_if(stop, end, [](char character) { return character != ' '; });
  const unsigned long factor = unit == end ? 1 : (unit + 1 == end ? secondsOfUnit(*unit) : 0);
  constexpr unsigned long most = std::numeric_limits<long>::max();
  if (error != std::errc() || number == 0 || factor == 0 || number > most / factor) {
    throw UsageFault(
        tr("{}: '{}' is no time; it is a whole number above 0, of seconds or with s, "
           "m, h or d behind it: 90s, 10m, 2h, 1d",
           option, text));
  }
  return number * factor;
}

void refuseNumber(const std::string& text, const std::string& option, const std::string& least,
                  const std::string& most) {
  throw UsageFault(
      most.empty() ? tr("{}: '{}' is no whole number from {} on", option, text, least)
                   : tr("{}: '{}' is no whole number from {} to {}", option, text, least, most));
}

std::string withValues(const std::string& text, const std::vector<std::string>& values,
                       const std::string& otherwise) {
  std::string remark = fmt::format("{}", fmt::join(values, ", "));
  if (!otherwise.empty()) {
    remark += (remark.empty() ? "" : "; ") + english("default: {}", otherwise);
  }
  return remark.empty() ? text : text + " (" + remark + ")";
}

std::string longNameOf(const std::string& names) {
  const std::size_t begin = names.find("--");
  return begin == std::string::npos ? names : names.substr(begin);
}

CLI::Option& OptionGroup::finish(CLI::Option& option, const std::string& value) const {
  option.type_name(value);
  if (!m_head.empty()) {
    option.group(m_head);
  }
  return option;
}

CLI::Option& OptionGroup::flag(const std::string& names, bool& target, const std::string& text) {
  return finish(*m_command.add_flag(names, target, text), "");
}

CLI::Option& OptionGroup::counted(const std::string& names, int& count, const std::string& text) {
  return finish(*m_command.add_flag(names, count, text), "");
}

CLI::Option& OptionGroup::text(const std::string& names, const std::string& value,
                               std::string& target, const std::string& text,
                               const std::string& otherwise) {
  return finish(*m_command.add_option(names, target, withValues(text, {}, otherwise)), value);
}

CLI::Option& OptionGroup::text(const std::string& names, const std::string& value,
                               std::optional<std::string>& target, const std::string& text,
                               const std::string& otherwise) {
  return finish(*m_command.add_option(names, target, withValues(text, {}, otherwise)), value);
}

// One value each time, so that the next word is what it would be without the option.
CLI::Option& OptionGroup::list(const std::string& names, const std::string& value,
                               std::vector<std::string>& target, const std::string& text) {
  return finish(*m_command.add_option(names, target, text)->allow_extra_args(false), value);
}

CLI::Option& OptionGroup::seconds(const std::string& names, std::optional<unsigned long>& target,
                                  const std::string& text, const std::string& otherwise) {
  const auto take = [&target, name = longNameOf(names)](const std::string& word) {
    target = secondsFrom(word, name);
  };
  return finish(
      *m_command.add_option_function<std::string>(names, take, withValues(text, {}, otherwise)),
      "TIME");
}

}  // namespace TarvexDiags::FrontEnd
