#pragma once

#include <cxxabi.h>

#include <algorithm>
#include <exception>
#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"

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

/// What the exception that is being handled says of itself, on one line.
inline std::string describeCurrentException() {
  std::string text = "unknown exception";
  try {
    throw;
  } catch (DiagCtrlBaseException& failure) {
    text = failure.dump();
  } catch (const std::exception& failure) {
    text = failure.what();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // It says nothing.
  }
  std::replace_if(
      text.begin(), text.end(), [](unsigned char aCharacter) { return aCharacter < ' '; }, ' ');
  return text;
}

/// The same, and `aTell` is called with what the failure says of itself. Its own failures are
/// swallowed too.
template <class Result, class Action, class Tell>
Result swallowAll(Result aFallback, Action aAction, Tell aTell) {
  try {
    return aAction();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return swallowAll(aFallback, [&] {
      aTell(describeCurrentException());
      return aFallback;
    });
  }
}

}  // namespace TarvexDiags::DiagCtrl
