#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {

/// @brief Does something for which the kernel may take for ever, as to open a file whose server
/// answers no more, on a thread of its own. Throws what it throws.
///
/// A stop that the journal requests ends the wait within a third of a second: PackageKit::Stopped
/// is thrown. After the given time the disk counts as silent: the journal gets its error, and
/// SilentDisk is thrown. What is given up like that may still end some day, so it must own what it
/// uses.
void awaitCall(const Waiter& waiter, std::chrono::milliseconds patience,
               std::function<void()> call);

/// @brief Does something that nobody needs the end of, as to close a file, on a thread of its own,
/// and waits for it no longer than a stop may take. It must not throw.
void leaveToItself(std::function<void()> call);

/// @brief Shared by all who may still use it; the last one does not wait for its end either.
template <class Thing>
std::shared_ptr<Thing> endedAside(Thing thing) {
  return {new Thing(std::move(thing)),
          [](Thing* shared) { leaveToItself([shared] { delete shared; }); }};
}

/// @brief The same as awaitCall for what has a result.
template <class Call>
auto answered(const Waiter& waiter, std::chrono::milliseconds patience, Call call) {
  auto result = std::make_shared<std::optional<std::invoke_result_t<Call>>>();
  awaitCall(waiter, patience,
            [result, call = std::move(call)]() mutable { result->emplace(call()); });
  return std::move(**result);
}

}  // namespace TarvexDiags::Storage
