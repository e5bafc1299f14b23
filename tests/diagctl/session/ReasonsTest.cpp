// What packages said of their pairs of device and test, in the catalogue.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/command/Listing.h"
#include "diagctl/session/Reasons.h"
#include "diagctl/session/Selection.h"
#include "diagctl/session/Texts.h"
#include "diagctl/terminal/Printer.h"
#include "packagekit/contract/Texts.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// The sample's second test, with what its package said of it on the one device.
Catalogue catalogueWith(const std::string& reason) {
  Catalogue catalogue = oneDeviceCatalogue();
  catalogue.packages[0].pairs[{1, 4}] = PairState::Unsupported;
  const Texts texts(*DiagCtrl::DiagnosticController::getInstance(), "en");
  addReasons(catalogue,
             {{.package = "storage", .testId = 4, .resourceTag = "pci0/disk0", .reason = reason}},
             texts);
  return catalogue;
}

std::string listed(const Catalogue& catalogue) {
  std::ostringstream stream;
  Printer out(stream);
  listTests(out, catalogue);
  showItem(out, catalogue, "Disk A", "");
  showItem(out, catalogue, "Random read", "");
  return stream.str();
}

TEST(Reasons, stand_beside_their_pairs) {
  const Catalogue catalogue = catalogueWith("no self-test offered");
  EXPECT_EQ(select(catalogue, {}).size(), 2U);
  const std::string text = listed(catalogue);
  EXPECT_THAT(text, HasSubstr("not supported: no self-test offered: Disk A"));
  EXPECT_THAT(text, HasSubstr("test 4 Random read: not supported: no self-test offered"));
  EXPECT_THAT(text, HasSubstr("on Disk A: not supported: no self-test offered"));
}

TEST(Reasons, take_a_pair_out_that_is_impossible) {
  const Catalogue catalogue = catalogueWith(PackageKit::Contract::kNotForThisKind);
  const auto pairs = select(catalogue, {});
  ASSERT_EQ(pairs.size(), 1U);
  EXPECT_EQ(pairs[0].test->id, 3);
  SelectionPatterns patterns;
  patterns.tests = {"Random read"};
  EXPECT_TRUE(select(catalogue, patterns).empty());
  const std::string text = listed(catalogue);
  EXPECT_THAT(text, Not(HasSubstr("not supported")));
  EXPECT_THAT(text, Not(HasSubstr("test 4 Random read")));
  EXPECT_THAT(text, Not(HasSubstr("on Disk A: ")));
  EXPECT_THAT(text, HasSubstr("test 3 Sequential read: enabled")) << "what is possible stays";
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
