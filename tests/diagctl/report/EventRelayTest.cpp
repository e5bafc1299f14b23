// A slow teller holds up nobody who posts.

#include <gtest/gtest.h>

#include <cstddef>
#include <future>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "diagctl/report/EventRelay.h"

namespace TarvexDiags::FrontEnd {
namespace {

RunEvent message(const std::string& text) {
  return {{}, RunMessage{Severity::Information, text}};
}

std::string textOf(const RunEvent& event) {
  const auto* const told = std::get_if<RunMessage>(&event.body);
  return told != nullptr ? told->text : "progress";
}

/// A teller that stands still at its first event until it is let go.
class SlowTeller {
 public:
  EventRelay::Tell function() {
    return [this](const RunEvent& event) {
      if (m_told.empty()) {
        m_isInside.set_value();
        m_goOn.get_future().wait();
      }
      m_told.push_back(textOf(event));
    };
  }
  void waitUntilInside() { m_isInside.get_future().wait(); }
  void letGo() { m_goOn.set_value(); }
  /// Once the relay has finished.
  const std::vector<std::string>& told() const { return m_told; }

 private:
  std::promise<void> m_isInside;
  std::promise<void> m_goOn;
  std::vector<std::string> m_told;
};

TEST(EventRelay, takes_events_while_one_is_being_told) {
  SlowTeller teller;
  EventRelay relay(teller.function());
  relay.post(message("one"));
  teller.waitUntilInside();
  relay.post(message("two"));
  relay.post(message("three"));
  teller.letGo();
  relay.finish();
  EXPECT_EQ(teller.told(), (std::vector<std::string>{"one", "two", "three"}));
}

TEST(EventRelay, leaves_progress_out_that_nobody_can_follow) {
  SlowTeller teller;
  EventRelay relay(teller.function());
  relay.post(message("one"));
  teller.waitUntilInside();
  for (std::size_t i = 0; i < 2 * EventRelay::kMostProgress; ++i) {
    relay.post({{}, StepProgress{"1", 50, 1, 1, false}});
  }
  relay.post(message("last"));
  teller.letGo();
  relay.finish();
  ASSERT_EQ(teller.told().size(), EventRelay::kMostProgress + 2);
  EXPECT_EQ(teller.told().back(), "last");
}

TEST(EventRelay, lets_the_teller_know_what_waits_behind_an_event) {
  std::promise<void> isPosted;
  const EventRelay* teller = nullptr;
  std::vector<bool> behind;
  EventRelay relay([&](const RunEvent&) {
    if (behind.empty()) {
      isPosted.get_future().wait();
    }
    behind.push_back(teller->isBehind());
  });
  teller = &relay;
  for (int i = 0; i < 3; ++i) {
    relay.post(message("one"));
  }
  isPosted.set_value();
  relay.finish();
  EXPECT_EQ(behind, (std::vector<bool>{true, true, false}));
}

TEST(EventRelay, tells_everything_before_it_goes) {
  int told = 0;
  {
    EventRelay relay([&](const RunEvent&) { ++told; });
    for (int i = 0; i < 100; ++i) {
      relay.post(message("one"));
    }
  }
  EXPECT_EQ(told, 100);
}

TEST(EventRelay, has_time_for_something_else_while_nothing_is_told) {
  std::promise<void> isIdle;
  int told = 0;
  int idle = 0;
  EventRelay relay([&](const RunEvent&) { ++told; },
                   [&] {
                     if (++idle == 2) {
                       isIdle.set_value();
                     }
                   });
  relay.wake();
  isIdle.get_future().wait();
  relay.post(message("one"));
  relay.finish();
  EXPECT_EQ(told, 1);
  EXPECT_GE(idle, 2) << "once when it was woken, once by itself";
}

TEST(EventRelay, hands_on_what_the_teller_throws) {
  int told = 0;
  EventRelay relay([&](const RunEvent&) {
    ++told;
    throw std::runtime_error("broken");
  });
  relay.post(message("one"));
  relay.post(message("two"));
  EXPECT_THROW(relay.finish(), std::runtime_error);
  EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
