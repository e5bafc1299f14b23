// What a message costs by the number of clients that are registered for it: each gets a copy of its
// own, made under the lock of the kind. The peer is what nothing that hands out copies can do
// without: copying the message and putting the copy into a queue, once for each client.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <memory>
#include <queue>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "DiagCtrl/EventManager.h"

namespace {

using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::DiagCtrl::EventManager;
using TarvexDiags::DiagCtrl::EventVector;

constexpr int kBatch = 64;

/// An event as a test sends it: a code and two short parameters.
DiagnosticEvent* makeEvent() {
  auto* const event = new DiagnosticEvent;
  event->setEventCode(17);
  event->setTestRequestId(5);
  event->setParamVector({"slot 3", "0x1f"});
  return event;
}

EventVector makeBatch(int size) {
  EventVector batch;
  for (int index = 0; index < size; ++index) {
    batch.push_back(makeEvent());
  }
  return batch;
}

/// So many registrations for events, gone with the object.
class Registrations {
 public:
  explicit Registrations(std::int64_t number) {
    for (std::int64_t index = 0; index < number; ++index) {
      m_ids.push_back(m_manager.createEventQueue());
    }
  }
  ~Registrations() {
    drain();
    m_manager.clearEventQueues();
  }
  Registrations(const Registrations&) = delete;
  Registrations& operator=(const Registrations&) = delete;

  void push(EventVector batch) { m_manager.pushEventInAllEventQueue(std::move(batch)); }

  void drain() {
    for (const unsigned long id : m_ids) {
      const std::unique_ptr<EventVector> events(m_manager.getEvents(id));
      for (DiagnosticEvent* const event : *events) {
        delete event;
      }
    }
  }

 private:
  EventManager& m_manager = *EventManager::getInstance();
  std::vector<unsigned long> m_ids;
};

double heapInUse() {
  return static_cast<double>(mallinfo2().uordblks);
}

/// From the package's vector to the clients' hands: pushed, fetched and freed.
void fanOut(benchmark::State& state) {
  Registrations registrations(state.range(0));
  for (auto _ : state) {
    registrations.push(makeBatch(kBatch));
    registrations.drain();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  if (state.range(0) > 0) {
    state.counters["per copy"] =
        benchmark::Counter(static_cast<double>(state.iterations() * kBatch * state.range(0)),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  }
}
BENCHMARK(fanOut)->Arg(0)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);

void peerCopyIntoQueues(benchmark::State& state) {
  std::vector<std::queue<DiagnosticEvent*>> queues(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    for (DiagnosticEvent* const event : makeBatch(kBatch)) {
      for (auto& queue : queues) {
        queue.push(new DiagnosticEvent(*event));
      }
      delete event;
    }
    for (auto& queue : queues) {
      for (; !queue.empty(); queue.pop()) {
        delete queue.front();
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(peerCopyIntoQueues)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);

/// What the clients' queues hold while nobody fetches.
void memoryOfQueuedEvents(benchmark::State& state) {
  constexpr int events = 2000;
  double perEvent = 0;
  for (auto _ : state) {
    Registrations registrations(state.range(0));
    const double before = heapInUse();
    registrations.push(makeBatch(events));
    perEvent = (heapInUse() - before) / static_cast<double>(events * state.range(0));
  }
  state.counters["bytes per queued event"] = perEvent;
}
BENCHMARK(memoryOfQueuedEvents)
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace
