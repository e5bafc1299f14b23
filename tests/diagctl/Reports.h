#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <vector>

namespace TarvexDiags::DiagctlTest {

std::vector<std::string> linesOf(const std::string& text);

/// A log, line by line. @throws if a line is no JSON.
std::vector<nlohmann::json> parseLines(const std::string& text);

/// The contents of all artifacts of a kind, such as "testStepEnd", but for the step of the
/// coverage.
std::vector<nlohmann::json> artifacts(const std::vector<nlohmann::json>& lines,
                                      const std::string& kind);

/// Whether it belongs to the step that tells what the run has covered.
bool isOfCoverage(const nlohmann::json& artifact);

/// What the run has covered by its log; null if it does not tell.
nlohmann::json coverageOf(const std::vector<nlohmann::json>& lines);

///  What is wrong with a log: lines with fields that are missing, unknown or of another type,
///  counts
///     that do not rise by one, steps that do not begin and end once, references to nothing.
std::vector<std::string> faultsOf(const std::vector<nlohmann::json>& lines);

///  A document of XML as {"tag", "attributes", "text", "children"}, read by Python's parser.
///     @throws if it is none.
nlohmann::json parseXml(const std::string& text);

/// A point of the Test Anything Protocol.
struct Point {
  bool isOk = false;
  int number = 0;
  std::string name;
  std::string directive;                          ///< "TODO ..." or "SKIP ...", empty for none
  std::vector<std::string> remarks = {};          ///< the comments behind it
  std::map<std::string, std::string> words = {};  ///< of its YAML block: key and value
  std::map<std::string, std::vector<std::string>> lists = {};  ///< the same for lists
};

struct TapReport {
  int version = 0;
  int plan = -1;  ///< of the plan's line, which stands at the end; -1: there is none
  std::vector<Point> points;
  std::vector<std::string> comments;
};

/// @throws if a line is none of the protocol.
TapReport parseTap(const std::string& text);

/// Whether an independent harness takes a report of the protocol for a success.
bool isSuccessToHarness(const std::string& tap);

}  // namespace TarvexDiags::DiagctlTest
