#include "diagctl/command/RunFollowers.h"

#include <chrono>
#include <cstddef>
#include <utility>

#include "diagctl/terminal/JobControl.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Window.h"

namespace TarvexDiags::FrontEnd {

RunFollowers::RunFollowers(Outputs& outputs, const Schedule& schedule, bool isQuiet,
                           RunRequests& requests)
    : m_outputs(outputs),
      m_requests(requests),
      m_isQuiet(isQuiet),
      m_progress(standardError(), canvasOfErrors, schedule.loads.size()),
      m_people([this](const RunEvent& event) { tellPeople(event); },
               isQuiet ? EventRelay::Idle() : [this] { lookAround(); }),
      m_files([this](const RunEvent& event) { tellFiles(event); }) {
  m_progress.expect(schedule.loads, schedule.isSerial);
  for (std::size_t index = 0; index + 1 < outputs.count(); ++index) {
    if (!outputs.isPlainFile(index)) {
      m_others.emplace_back(
          [&outputs, index](const RunEvent& event) { outputs.handle(index, event); });
    }
  }
  if (!isQuiet) {
    JobControl::begin();
    m_keyboard.emplace([this](const Key& key) { takeKey(key); });
  }
}

void RunFollowers::announceEnding() {
  m_progress.announceEnding();
  m_people.wake();
}

void RunFollowers::tell(const RunEvent& event) {
  m_files.post(event);
  for (EventRelay& other : m_others) {
    other.post(event);
  }
}

void RunFollowers::finish() {
  m_files.finish();
  m_people.finish();
  for (EventRelay& other : m_others) {
    other.finish();
  }
  m_keyboard.reset();
  if (!m_isQuiet) {
    m_progress.finish();
  }
}

void RunFollowers::tellFiles(const RunEvent& event) {
  for (std::size_t index = 0; index + 1 < m_outputs.count(); ++index) {
    if (m_outputs.isPlainFile(index)) {
      m_outputs.handle(index, event);
    }
  }
  m_people.post(event);
}

// With what shows the progress out of the way.
void RunFollowers::tellPeople(const RunEvent& event) {
  if (m_isQuiet) {
    m_outputs.handle(m_outputs.count() - 1, event);
    return;
  }
  m_progress.erase();
  m_outputs.handle(m_outputs.count() - 1, event);
  pressKeys();
  if (m_people.isBehind()) {
    m_progress.handleInPassing(event);
  } else {
    m_progress.handle(event);
  }
}

// What concerns the whole run is carried out even where nothing can be drawn just then.
void RunFollowers::takeKey(const Key& key) {
  if (key == Key{Key::Kind::Character, 's'}) {
    m_requests.suspendAll = true;
  } else if (key == Key{Key::Kind::Character, 'r'}) {
    m_requests.resumeAll = true;
  } else if (key == Key{Key::Kind::Character, 'q'}) {
    m_requests.abortAll = true;
    m_progress.announceEnding();
  }
  {
    const std::lock_guard hold(m_lock);
    m_keys.push_back(key);
  }
  m_people.wake();
}

void RunFollowers::pressKeys() {
  std::vector<Key> keys;
  {
    const std::lock_guard hold(m_lock);
    keys.swap(m_keys);
  }
  for (const Key& key : keys) {
    if (const unsigned long step = m_progress.press(key, std::chrono::system_clock::now())) {
      m_requests.abortStep = step;
    }
  }
}

void RunFollowers::lookAround() {
  pressKeys();
  m_progress.lookAround(std::chrono::system_clock::now(), std::chrono::steady_clock::now());
}

}  // namespace TarvexDiags::FrontEnd
