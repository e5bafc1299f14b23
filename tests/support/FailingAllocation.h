#pragma once

#include <gtest/gtest.h>

#include <new>

namespace TarvexDiags::TestSupport {

/// Whether an allocation fails alone, or all that come behind it as well.
enum class Shortage { Once, ForGood };

/// Lets one allocation with `new` of the calling thread fail while the object lives: the one of
/// that ordinal, counted from 1; or all from there on. A program that uses it names
/// FailingAllocation.cpp among its sources, whose operators stand in front of the others.
class FailingAllocation {
 public:
  explicit FailingAllocation(unsigned long ordinal, Shortage kind = Shortage::Once);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  bool hasFailed() const;
};

/// The blocks that the calling thread has made and not freed.
long livingBlocks();

/// Repeats an action with its first allocation failing, then its second, and so on until it passes.
/// Before each go `prepare` runs and after it `tidy`, both with memory at hand; after that each
/// block must be gone that was made since. A first go has memory for everything.
template <class Prepare, class Action, class Tidy>
void failEachAllocation(Prepare prepare, Action action, Tidy tidy) {
  prepare();
  action();  // what is made once, for good, is made now
  tidy();
  bool failed = true;
  for (unsigned long ordinal = 1; failed && !::testing::Test::HasFailure(); ++ordinal) {
    SCOPED_TRACE(ordinal);
    const long before = livingBlocks();
    prepare();
    {
      const FailingAllocation failing(ordinal);
      try {
        action();
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(failing.hasFailed());
      }
      failed = failing.hasFailed();
    }
    tidy();
    EXPECT_EQ(livingBlocks(), before);
  }
}

}  // namespace TarvexDiags::TestSupport
