#pragma once

#include <cxxabi.h>

#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace TarvexDiags::PackageKit {

/// Calls a function of a package's author, which may throw anything.
/// @return what it threw, as text; nothing when it returned. A thread's forced unwinding passes.
template <class Function>
std::optional<std::string> failureOf(Function&& function) {
  try {
    std::forward<Function>(function)();
    return std::nullopt;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an exception of an unknown type";
  }
}

}  // namespace TarvexDiags::PackageKit
