// The way of a reason from a package to a client.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "packagekit/contract/SupportLines.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> textsOf(const SupportInbox& inbox) {
  std::vector<std::string> texts;
  for (const SupportLine& line : inbox.lines()) {
    texts.push_back(toText(line));
  }
  return texts;
}

TEST(SupportLines, read_back_as_they_were_written) {
  SupportInbox inbox;
  sendSupportLine({"memory", 3, "host/node0", "needs: \"more\" (memory) on node0", "0 B"});
  sendSupportLine({"storage", 12, "pci0/disk 0", "", ""});
  const auto lines = inbox.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].package, "memory");
  EXPECT_EQ(lines[0].testId, 3);
  EXPECT_EQ(lines[0].resourceTag, "host/node0");
  EXPECT_EQ(lines[0].reason, "needs: \"more\" (memory) on node0");
  EXPECT_EQ(lines[0].detail, "0 B");
  EXPECT_EQ(lines[1].resourceTag, "pci0/disk 0");
  EXPECT_EQ(lines[1].reason, "");
}

TEST(SupportLines, stay_apart_whatever_a_reason_holds) {
  SupportInbox inbox;
  sendSupportLine({"a", 1, "tag", "one\ntwo\tthree\x1b", "5\t6"});
  sendSupportLine({"a", 2, "tag", "four", ""});
  EXPECT_THAT(textsOf(inbox),
              ElementsAre("a\t1\ttag\tone two three \t5 6\n", "a\t2\ttag\tfour\t\n"));
}

TEST(SupportLines, are_no_other_text) {
  for (const char* const text :
       {"", "a", "a\t1\ttag\treason", "a\tx\ttag\treason\t", "a\t1\ttag\treason\tdetail\tx",
        "a\t1x\ttag\treason\t", "a\t\ttag\treason\t"}) {
    EXPECT_FALSE(toSupportLine(text)) << text;
  }
}

TEST(SupportLines, go_nowhere_without_an_inbox) {
  { const SupportInbox gone; }
  // Another file in the place of the one that is gone.
  const std::string name = "support-" + std::to_string(getpid());
  const int other = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(other, 0);
  unlink(name.c_str());
  sendSupportLine({"a", 1, "tag", "reason", ""});
  EXPECT_EQ(lseek(other, 0, SEEK_END), 0);
  close(other);
}

TEST(SupportLines, of_several_threads_do_not_mix) {
  constexpr int kLines = 200;
  SupportInbox inbox;
  std::vector<std::thread> threads;
  for (int thread = 1; thread <= 4; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) {
        sendSupportLine({"package", thread, "tag", std::string(300, static_cast<char>('a')), ""});
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(inbox.lines().size(), 4U * kLines);
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
