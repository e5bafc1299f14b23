// The way of a discovery's trouble from a package to a client, and of the client's wish to the
// package.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "packagekit/contract/DiscoveryLines.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

using Kind = DiscoveryLine::Kind;

bool isReadable(int descriptor) {
  pollfd source{descriptor, POLLIN, 0};
  return poll(&source, 1, 0) > 0;
}

TEST(DiscoveryLines, read_back_as_they_were_written) {
  const DiscoveryInbox inbox;
  sendDiscoveryLine({Kind::Slow, "storage", "20"});
  sendDiscoveryLine({Kind::Failed, "memory", "it crashed", "one | two"});
  EXPECT_TRUE(isReadable(inbox.descriptor()));
  const auto slow = inbox.next();
  ASSERT_TRUE(slow.has_value());
  EXPECT_EQ(slow->kind, Kind::Slow);
  EXPECT_EQ(slow->package, "storage");
  EXPECT_EQ(slow->text, "20");
  EXPECT_EQ(slow->lastLines, "");
  const auto failed = inbox.next();
  ASSERT_TRUE(failed.has_value());
  EXPECT_EQ(failed->kind, Kind::Failed);
  EXPECT_EQ(failed->package, "memory");
  EXPECT_EQ(failed->text, "it crashed");
  EXPECT_EQ(failed->lastLines, "one | two");
  EXPECT_FALSE(inbox.next().has_value());
}

TEST(DiscoveryLines, stay_apart_whatever_they_hold) {
  const DiscoveryInbox inbox;
  sendDiscoveryLine({Kind::Failed, "a\tb", "one\ntwo\tthree", "\x1b[2J"});
  const auto line = inbox.next();
  ASSERT_TRUE(line.has_value());
  EXPECT_EQ(line->package, "a b");
  EXPECT_EQ(line->text, "one two three");
  EXPECT_EQ(line->lastLines, " [2J");
}

TEST(DiscoveryLines, are_no_other_text) {
  for (const char* const text : {"", "slow", "slow\ta\tb", "fast\ta\tb\tc", "slow\ta\tb\tc\td"}) {
    EXPECT_FALSE(toDiscoveryLine(text)) << text;
  }
}

TEST(DiscoveryLines, keep_nobody_waiting_when_nobody_reads) {
  const DiscoveryInbox inbox;
  const DiscoveryLine line{Kind::Slow, "storage", std::string(10'000, 'x')};
  for (int count = 0; count < 1000; ++count) {
    sendDiscoveryLine(line);
  }
  EXPECT_TRUE(isReadable(inbox.descriptor()));
}

TEST(DiscoveryLines, go_nowhere_without_an_inbox) {
  { const DiscoveryInbox gone; }
  // Another file in the place of the one that is gone.
  const int other = open("/dev/null", O_RDWR | O_CLOEXEC);
  ASSERT_GE(other, 0);
  EXPECT_EQ(discoveryDescriptor(), -1);
  sendDiscoveryLine({Kind::Slow, "storage", "20"});
  close(other);
}

TEST(DiscoveryLines, tell_packages_when_they_are_to_end) {
  const DiscoveryInbox inbox;
  EXPECT_FALSE(isReadable(discoveryDescriptor()));
  inbox.endDiscoveries();
  EXPECT_TRUE(isReadable(discoveryDescriptor()));
  sendDiscoveryLine({Kind::Failed, "storage", "it was asked to end"});
  EXPECT_TRUE(inbox.next().has_value()) << "what is told then still arrives";
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
