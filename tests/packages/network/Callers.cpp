#include "tests/packages/network/Callers.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace TarvexDiags::Network {
namespace {

std::uint64_t strangersLeft = 0;
std::vector<int> errorsLeft;

}  // namespace

Callers::Callers(std::uint64_t strangers, std::vector<int> errors) {
  strangersLeft = strangers;
  errorsLeft = std::move(errors);
}

Callers::~Callers() {
  strangersLeft = 0;
  errorsLeft.clear();
}

std::uint64_t Callers::left() {
  return strangersLeft + errorsLeft.size();
}

}  // namespace TarvexDiags::Network

// In front of the C library's, for the whole test program.
extern "C" __attribute__((visibility("default"))) int accept4(int listener, sockaddr* address,
                                                              socklen_t* length, int flags) {
  using namespace TarvexDiags::Network;
  if (strangersLeft > 0) {
    --strangersLeft;
    return eventfd(0, EFD_CLOEXEC);  // with no address: nobody's whom a test waits for
  }
  if (!errorsLeft.empty()) {
    errno = errorsLeft.back();
    errorsLeft.pop_back();
    return -1;
  }
  return static_cast<int>(syscall(SYS_accept4, listener, address, length, flags));
}
