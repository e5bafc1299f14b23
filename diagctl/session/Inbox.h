#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Wakeups.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

/// What the controller hands over at a collecting call: a vector of messages, all of them the
/// caller's. Destroys what is not taken.
template <class Message>
class Drained {
 public:
  /// @param messages taken over; null for none.
  explicit Drained(std::vector<Message*>* messages) : m_messages(messages) {}
  ~Drained() {
    if (m_messages != nullptr) {
      std::for_each(m_messages->begin(), m_messages->end(), std::default_delete<Message>());
    }
  }
  Drained(const Drained&) = delete;
  Drained& operator=(const Drained&) = delete;

  /// Moves all of them behind what is there already.
  void moveTo(std::deque<std::unique_ptr<Message>>& inbox) {
    if (m_messages == nullptr) {
      return;
    }
    for (Message*& message : *m_messages) {
      inbox.emplace_back();
      inbox.back().reset(std::exchange(message, nullptr));
    }
  }

 private:
  std::unique_ptr<std::vector<Message*>> m_messages;
};

/// The controller's calls for one kind of message.
template <class Message>
struct InboxCalls;

template <>
struct InboxCalls<Diag::DiagnosticEvent> {
  static constexpr auto kRegister = &DiagCtrl::DiagnosticController::registerForDiagEvents;
  static constexpr auto kCollect = &DiagCtrl::DiagnosticController::getDiagnosticEvents;
  static constexpr const char* kRegistering = marked("registering for events");
};

template <>
struct InboxCalls<Diag::DiagnosticResult> {
  static constexpr auto kRegister = &DiagCtrl::DiagnosticController::registerForDiagResults;
  static constexpr auto kCollect = &DiagCtrl::DiagnosticController::getDiagnosticResults;
  static constexpr const char* kRegistering = marked("registering for results");
};

template <>
struct InboxCalls<DiagCtrl::DiagCtrlEvent> {
  static constexpr auto kRegister = &DiagCtrl::DiagnosticController::registerForDiagCtrlEvents;
  static constexpr auto kCollect = &DiagCtrl::DiagnosticController::getDiagnosticCtrlEvents;
  static constexpr const char* kRegistering = marked("registering for the controller's events");
};

/// The messages of one kind that came for one registration, oldest first. For one thread.
template <class Message>
class Inbox {
 public:
  /// Registers, for as long as the controller runs. Each message wakes.
  /// @throws ControllerFailure
  void open(DiagCtrl::DiagnosticController& controller, Wakeups& wakeups) {
    unsigned long registration = 0;
    require((controller.*InboxCalls<Message>::kRegister)(&wakeups.object(), registration),
            told(InboxCalls<Message>::kRegistering));
    m_controller = &controller;
    m_registration = static_cast<long>(registration);
  }

  /// Collects what came since the last call. Must be open. @return the controller's answer.
  DiagCtrl::DiagnosticController::errorCode drain() {
    std::vector<Message*>* messages = nullptr;
    const auto code = (m_controller->*InboxCalls<Message>::kCollect)(m_registration, messages);
    Drained<Message>(messages).moveTo(m_messages);
    return code;
  }

  /// Takes the first message; null if there is none.
  std::unique_ptr<Message> takeFirst() {
    if (m_messages.empty()) {
      return nullptr;
    }
    std::unique_ptr<Message> message = std::move(m_messages.front());
    m_messages.pop_front();
    return message;
  }

  /// Takes all of them, oldest first.
  std::deque<std::unique_ptr<Message>> takeAll() { return std::exchange(m_messages, {}); }

 private:
  DiagCtrl::DiagnosticController* m_controller = nullptr;
  long m_registration = 0;
  std::deque<std::unique_ptr<Message>> m_messages;
};

}  // namespace TarvexDiags::FrontEnd
