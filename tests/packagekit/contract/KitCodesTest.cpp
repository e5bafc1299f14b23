// The table of codes against all that repeats it: header, configuration, guide.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "packagekit/contract/KitCodes.h"
#include "tests/packagekit/contract/SourceLines.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

using Diag::DiagnosticEvent;

// The word for it in the last column of the guide's table.
std::string wordOf(RunEffect effect) {
  const std::map<RunEffect, std::string> words = {
      {RunEffect::Trouble, "trouble"},
      {RunEffect::Finding, "finding"},
      {RunEffect::NotPossible, "skipped"},
      {RunEffect::Aborted, "aborted"},
      {RunEffect::News, "news"},
      {RunEffect::Nothing, "nothing"},
      {RunEffect::Measurement, "measurement"},
      {RunEffect::LogLine, "logged"},
      {RunEffect::Throughput, "shown"},
  };
  return words.at(effect);
}

TEST(KitCodes, stand_in_the_kits_configuration_and_nothing_else_does) {
  std::set<std::string> expected;
  for (const KitCode& row : kKitCodes) {
    expected.insert("[" + std::string(sectionOf(row.type)) + "] " + std::to_string(row.code) + "=" +
                    std::string(row.token));
  }
  for (const KitStatus& row : kKitStatuses) {
    expected.insert("[DeviceStatus] " + std::to_string(row.status) + "=" + std::string(row.token));
  }
  EXPECT_EQ(entriesOf("packagekit/data/kit.cfg"), expected);
}

TEST(KitCodes, have_a_row_for_each_number_of_the_header) {
  std::multiset<unsigned int> numbers;
  const std::regex enumerator("^  [A-Za-z_]+ = (9[0-9]{3}),");
  for (const std::string& line : linesOf("packagekit/KitEvents.h")) {
    std::smatch match;
    if (std::regex_search(line, match, enumerator)) {
      numbers.insert(static_cast<unsigned int>(std::stoul(match[1])));
    }
  }
  std::multiset<unsigned int> rows;
  for (const KitCode& row : kKitCodes) {
    rows.insert(row.code);
  }
  for (const KitStatus& row : kKitStatuses) {
    rows.insert(row.status);
  }
  EXPECT_EQ(rows, numbers);
  EXPECT_TRUE(std::all_of(rows.begin(), rows.end(), [](auto code) { return isKitCode(code); }));
}

TEST(KitCodes, have_symptoms_that_tell_them_apart) {
  std::set<std::string> symptoms;
  for (const KitCode& row : kKitCodes) {
    EXPECT_THAT(std::string(row.symptom), ::testing::MatchesRegex("[a-z]+(-[a-z]+)+"));
    EXPECT_TRUE(symptoms.emplace(row.symptom).second) << row.symptom;
  }
}

TEST(KitCodes, are_trouble_when_they_are_errors_and_only_then) {
  for (const KitCode& row : kKitCodes) {
    EXPECT_EQ(row.isTrouble(), row.type == DiagnosticEvent::ERROR_EVENT) << row.token;
  }
}

TEST(KitCodes, are_found_by_their_number) {
  for (const KitCode& row : kKitCodes) {
    EXPECT_EQ(findKitCode(row.code), &row);
  }
  EXPECT_EQ(findKitCode(kFirstKitCode - 1), nullptr);
  EXPECT_EQ(findKitCode(DEVICE_STATUS_HUNG), nullptr);
  EXPECT_FALSE(isKitCode(kFirstKitCode - 1));
  EXPECT_FALSE(isKitCode(kLastKitCode + 1));
}

TEST(KitCodes, tell_what_a_run_makes_of_their_events) {
  for (const KitCode& row : kKitCodes) {
    EXPECT_EQ(effectOf(row.type, row.code), row.effect) << row.token;
    EXPECT_EQ(symptomOfTrouble(row.code), row.isTrouble() ? row.symptom : "tool-trouble");
  }
}

TEST(KitCodes, are_trouble_when_nobody_knows_them) {
  for (unsigned int code = kFirstKitCode; code <= kLastKitCode; ++code) {
    for (const auto type : {DiagnosticEvent::INFORMATION_EVENT, DiagnosticEvent::WARNING_EVENT,
                            DiagnosticEvent::ERROR_EVENT}) {
      const KitCode* const row = findKitCode(code);
      if (row == nullptr || row->type != type) {
        EXPECT_EQ(effectOf(type, code), RunEffect::Trouble) << code;
      }
      if (row == nullptr) {
        EXPECT_EQ(symptomOfTrouble(code), "tool-trouble");
      }
    }
  }
}

TEST(KitCodes, leave_the_events_of_packages_to_their_type) {
  for (const unsigned int code : {0U, 1U, kFirstKitCode - 1, kLastKitCode + 1}) {
    EXPECT_EQ(effectOf(DiagnosticEvent::INFORMATION_EVENT, code), RunEffect::News);
    EXPECT_EQ(effectOf(DiagnosticEvent::WARNING_EVENT, code), RunEffect::Finding);
    EXPECT_EQ(effectOf(DiagnosticEvent::ERROR_EVENT, code), RunEffect::Finding);
  }
}

TEST(KitCodes, stand_in_the_guide_with_what_a_run_makes_of_them) {
  std::map<unsigned long, std::string> inGuide;
  const std::regex row(R"(^\| (9[0-9]{3}(, 9[0-9]{3})*) \| .* \| ([a-z]+) \|$)");
  for (const std::string& line : linesOf("docs/package-guide.md")) {
    std::smatch match;
    if (std::regex_search(line, match, row)) {
      std::istringstream codes(match[1]);
      for (std::string code; std::getline(codes, code, ',');) {
        EXPECT_TRUE(inGuide.emplace(std::stoul(code), match[3]).second) << code;
      }
    }
  }
  std::map<unsigned long, std::string> expected;
  for (const KitCode& each : kKitCodes) {
    expected[each.code] = wordOf(each.effect);
  }
  EXPECT_EQ(inGuide, expected);
}

TEST(KitStatuses, stand_in_the_guide) {
  const std::vector<std::string> guide = linesOf("docs/package-guide.md");
  for (const KitStatus& row : kKitStatuses) {
    EXPECT_TRUE(std::any_of(guide.begin(), guide.end(), [&](const std::string& line) {
      return line.find(std::to_string(row.status)) != std::string::npos;
    })) << row.status;
  }
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
