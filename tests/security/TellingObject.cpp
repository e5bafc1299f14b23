// A shared object that makes the file which the environment names when it is loaded.

#include <cstdlib>
#include <fstream>

namespace {

[[maybe_unused]] const bool kIsTold = [] {
  const char* const file = std::getenv("TARVEX_LOADED");
  return file != nullptr && static_cast<bool>(std::ofstream(file) << "loaded");
}();

}  // namespace
