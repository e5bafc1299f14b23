#include "diagctl/report/MergedLog.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <utility>

namespace TarvexDiags::FrontEnd {

namespace {

using Json = nlohmann::json;

constexpr const char* kNumber = "sequenceNumber";
constexpr const char* kSchema = "schemaVersion";

/// Whether it can stand as it is: with a number that no line before has and that others can follow,
/// and nothing around it.
bool isSoundLine(const std::string& text, const Json& line, std::uint64_t least) {
  const auto number = line.find(kNumber);
  return number != line.end() && number->is_number_unsigned() &&
         number->get<std::uint64_t>() >= least &&
         number->get<std::uint64_t>() < std::numeric_limits<std::uint64_t>::max() &&
         text.front() == '{' && text.back() == '}';
}

}  // namespace

void MergedLog::take(const std::string& text, const Json& line) {
  if (!std::exchange(m_hasBegun, true)) {
    m_next = 0;
    if (!line.contains(kSchema)) {
      writeSchema(line);
    }
  }
  if (isSoundLine(text, line, m_next)) {
    m_next = line[kNumber].get<std::uint64_t>() + 1;
    m_out.write(toHarmlessJson(text));
    m_out.write("\n");
    return;
  }
  Json numbered = line;
  numbered[kNumber] = m_next++;
  write(numbered);
}

// Without it the run would be taken for a part of the one before.
void MergedLog::writeSchema(const Json& line) {
  Json schema{{kSchema, {{"major", 2}, {"minor", 0}}}, {kNumber, m_next++}};
  if (line.contains("timestamp")) {
    schema["timestamp"] = line["timestamp"];
  }
  write(schema);
}

void MergedLog::write(const Json& line) {
  m_out.write(toHarmlessJson(line.dump(-1, ' ', false, Json::error_handler_t::replace)));
  m_out.write("\n");
}

}  // namespace TarvexDiags::FrontEnd
