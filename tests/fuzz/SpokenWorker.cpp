#include "tests/fuzz/SpokenWorker.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "tests/fuzz/Input.h"

namespace TarvexDiags {

namespace {

using Fuzz::expect;

std::vector<Fuzz::WorkerLife> present;
std::size_t begun = 0;
bool isAtEnd = false;  // of the present one: it is seen alive once

const Fuzz::WorkerLife& life() {
  expect(begun > 0 && begun <= present.size());
  return present[begun - 1];
}

// The end that is read; the other has said the text and is closed.
PackageKit::UniqueDescriptor spoken(const std::string& text) {
  std::array<int, 2> ends{};
  expect(text.size() <= Fuzz::kMostSaid);
  expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0);
  const PackageKit::UniqueDescriptor theirs(ends[1]);
  expect(write(theirs.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  return PackageKit::UniqueDescriptor(ends[0]);
}

int sendNothing(pid_t /*target*/, int /*signal*/, PackageKit::ReaperRecord& /*reaper*/) {
  return 0;
}

}  // namespace

namespace Fuzz {

void setLives(std::vector<WorkerLife> lives) {
  present = std::move(lives);
  begun = 0;
}

std::size_t livesBegun() {
  return begun;
}

}  // namespace Fuzz

namespace PackageKit {

int (*WorkerProcess::sendSignal)(pid_t, int, ReaperRecord&) = &sendNothing;

WorkerProcess::WorkerProcess(const std::string& /*executable*/, const std::string& /*packageFile*/,
                             int /*nice*/, const WorkerRights& /*rights*/,
                             const std::string& /*purpose*/) {
  ++begun;
  isAtEnd = false;
  m_socket = spoken(life().messages);
  if (!life().output.empty()) {
    m_output = spoken(life().output);
  }
  constexpr pid_t anyNumber = 4242;
  m_pid = anyNumber;
}

WorkerProcess::~WorkerProcess() = default;

void WorkerProcess::Unmap::operator()(ReaperRecord* /*record*/) const {}

bool WorkerProcess::hasEnded() const {
  return std::exchange(isAtEnd, true);
}

bool WorkerProcess::isHeldInKernel() const {
  return false;
}

void WorkerProcess::signalGroup(int /*signal*/) const {}

void WorkerProcess::killRest() const {}

ProcessEnd WorkerProcess::reap() {
  return life().end;
}

std::optional<PoisonRecord> WorkerProcess::poison() const {
  constexpr std::uint64_t anyAddress = 0x1000;
  return life().hasMetPoison
             ? std::optional(PoisonRecord{PoisonRecord::kWhole, anyAddress, anyAddress})
             : std::nullopt;
}

bool reapIfEnded(pid_t /*pid*/) {
  return true;
}

}  // namespace PackageKit

}  // namespace TarvexDiags
