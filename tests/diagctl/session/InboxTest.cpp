// Messages that the controller hands over, from the vector to whoever takes them.

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <vector>

#include "diagctl/session/Inbox.h"

namespace TarvexDiags::FrontEnd {
namespace {

/// Counts those that live.
class Letter {
 public:
  explicit Letter(int number) : m_number(number) { ++living; }
  ~Letter() { --living; }
  Letter(const Letter&) = delete;
  Letter& operator=(const Letter&) = delete;

  int number() const { return m_number; }

  static inline int living = 0;

 private:
  int m_number;
};

TEST(DrainedMessages, are_destroyed_unless_they_are_taken) {
  { const Drained<Letter> drained(new std::vector<Letter*>{new Letter(1), new Letter(2)}); }
  EXPECT_EQ(Letter::living, 0);
}

TEST(DrainedMessages, come_behind_those_that_wait_and_live_on_with_their_new_owner) {
  std::deque<std::unique_ptr<Letter>> waiting;
  waiting.push_back(std::make_unique<Letter>(1));
  Drained<Letter>(new std::vector<Letter*>{new Letter(2), new Letter(3)}).moveTo(waiting);
  ASSERT_EQ(waiting.size(), 3U);
  EXPECT_EQ(Letter::living, 3);
  for (int number = 1; number <= 3; ++number) {
    EXPECT_EQ(waiting[static_cast<std::size_t>(number - 1)]->number(), number);
  }
  waiting.clear();
  EXPECT_EQ(Letter::living, 0);
}

TEST(DrainedMessages, may_be_none_at_all) {
  std::deque<std::unique_ptr<Letter>> waiting;
  Drained<Letter>(nullptr).moveTo(waiting);
  EXPECT_TRUE(waiting.empty());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
