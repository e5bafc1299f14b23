#include "diagctl/command/LogRedaction.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// A log may come from anywhere: what is learnt of it is bounded, as each text is held against it.
// Beyond that something would be left, which nobody would see.
constexpr std::size_t kMostLearnt = 1'000;  ///< of a run

struct Shape {
  const char* key;         ///< of the inventory, which has the like
  std::string_view signs;  ///< "x" for a digit of base sixteen
};

constexpr Shape kShapes[] = {
    {"uuid", "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx"},
    {"nodeGuid", "xxxx:xxxx:xxxx:xxxx"},
    {"macAddress", "xx:xx:xx:xx:xx:xx"},
};

bool isDigit(char sign) {
  return std::isxdigit(static_cast<unsigned char>(sign)) != 0;
}

bool hasShapeAt(std::string_view text, std::size_t place, std::string_view signs) {
  const std::string_view part = text.substr(place, signs.size());
  const std::size_t end = place + signs.size();
  const bool isWhole = part.size() == signs.size() && (place == 0 || !isDigit(text[place - 1])) &&
                       (end == text.size() || !isDigit(text[end]));
  return isWhole && std::equal(part.begin(), part.end(), signs.begin(), [](char sign, char wanted) {
           return wanted == 'x' ? isDigit(sign) : sign == wanted;
         });
}

}  // namespace

/// Changes every text of an event. Numbers, and ids that count steps and devices, stay.
struct LogRedaction::Hide {
  LogRedaction& redaction;

  void text(std::string& text) const { text = redaction.hidden(text); }

  /// A text that is nothing but such a value, however short.
  void value(const char* key, std::string& text) const {
    if (text.empty()) {
      return;  // or all that have no name would have the same
    }
    text = redaction.m_redactor.redacted({{key, text}})[key].get<std::string>();
  }

  void operator()(RunStarted& start) const {
    redaction.learn(start);
    value("hostName", start.machineName);
    value("uuid", start.machineId);
    text(start.commandLine);
    for (SoftwareItem& item : start.software) {
      text(item.name);
      text(item.version);
    }
    std::map<std::string, std::string> names;
    for (const auto& [key, name] : start.localNames) {
      names[redaction.hidden(key)] = redaction.hidden(name);
    }
    start.localNames = std::move(names);
    for (auto& [key, parameter] : start.parameters) {
      text(parameter);
    }
    std::for_each(start.platforms.begin(), start.platforms.end(),
                  [this](std::string& platform) { text(platform); });
    for (HardwareItem& item : start.hardware) {
      value("serialNumber", item.serialNumber);
      for (std::string* const field : {&item.id, &item.name, &item.location, &item.manufacturer,
                                       &item.partNumber, &item.version}) {
        text(*field);
      }
    }
  }
  void operator()(StepStarted& started) const {
    text(started.device);
    text(started.package);
    text(started.test);
    text(started.localPackage);
    text(started.localTest);
    text(started.hardwareId);
  }
  void operator()(StepMessage& message) const {
    text(message.text);
    text(message.action);
  }
  void operator()(StepMeasurement& figure) const {
    if (auto* const value = std::get_if<std::string>(&figure.value)) {
      text(*value);
    }
    text(figure.name);
    text(figure.hardwareId);
  }
  void operator()(SeriesStarted& series) const { text(series.name); }
  void operator()(StepDiagnosis& diagnosis) const {
    text(diagnosis.symptom);
    text(diagnosis.message);
    text(diagnosis.action);
    text(diagnosis.hardwareId);
  }
  void operator()(StepTrouble& trouble) const {
    text(trouble.symptom);
    text(trouble.message);
    text(trouble.action);
  }
  void operator()(RunCoverage& coverage) const {
    for (DeviceCoverage& device : coverage.devices) {
      text(device.device);
    }
  }
  void operator()(StepThroughput& throughput) const { text(throughput.unit); }
  void operator()(RunMessage& message) const { text(message.text); }
  void operator()(RunTrouble& trouble) const {
    text(trouble.symptom);
    text(trouble.message);
  }
  // Nothing but numbers.
  void operator()(StepProgress& /*progress*/) const {}
  void operator()(SeriesElement& /*element*/) const {}
  void operator()(SeriesEnded& /*series*/) const {}
  void operator()(StepEnded& /*ended*/) const {}
  void operator()(RunEnded& /*ended*/) const {}
};

RunEvent LogRedaction::redacted(RunEvent event) {
  std::visit(Hide{*this}, event.body);
  return event;
}

void LogRedaction::learn(const RunStarted& start) {
  m_redactor = Inventory::Redactor(m_key);
  m_learnt.clear();
  learn("hostName", start.machineName);
  learn("hostName", start.machineName.substr(0, start.machineName.find('.')));
  learn("uuid", start.machineId);
  for (const HardwareItem& item : start.hardware) {
    learn("serialNumber", item.serialNumber);
  }
}

void LogRedaction::learn(const char* key, const std::string& value) {
  if (m_learnt.contains(value)) {
    return;
  }
  if (m_learnt.size() == kMostLearnt) {
    throw std::length_error(
        tr("more than {} names and numbers identify machines, and not all could be hidden",
           kMostLearnt));
  }
  m_learnt.insert(value);
  m_redactor.learn({{key, value}});
}

void LogRedaction::learnShapes(const std::string& text) {
  for (std::size_t place = 0; place < text.size(); ++place) {
    for (const Shape& shape : kShapes) {
      if (hasShapeAt(text, place, shape.signs)) {
        learn(shape.key, text.substr(place, shape.signs.size()));
      }
    }
  }
}

std::string LogRedaction::hidden(const std::string& text) {
  learnShapes(text);
  return m_redactor.redactedText(text);
}

}  // namespace TarvexDiags::FrontEnd
