#pragma once

#include <cxxabi.h>

namespace TarvexDiags::DiagCtrl {

/// Runs an action whose failures, of whatever type, only mean that the fallback stands in. The end
/// of a thread unwinds through as well, and that must pass.
template <class Result, class Action>
Result swallowAll(Result aFallback, Action aAction) {
  try {
    return aAction();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return aFallback;
  }
}

}  // namespace TarvexDiags::DiagCtrl
