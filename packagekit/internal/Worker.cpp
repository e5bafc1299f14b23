// The life of a worker process: takes the setup, looks for devices or runs the tests one after the
// other, tells the host.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <set>
#include <system_error>

#include "packagekit/Exports.h"
#include "packagekit/PhysicalAddress.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/internal/Caretakers.h"
#include "packagekit/internal/DiscoveryWorker.h"
#include "packagekit/internal/Frame.h"
#include "packagekit/internal/PassSetup.h"
#include "packagekit/internal/WorkerContext.h"
#include "packagekit/internal/WorkerLink.h"

namespace TarvexDiags::PackageKit {

namespace {

struct Ending {
  TestEnding kind;
  unsigned int code = 0;
  std::vector<std::string> parameters = {};
};

Ending trouble(KitEvent code, const std::string& what) {
  return {TestEnding::Trouble, code, {what}};
}

// Codes of the kit stand for what only the kit can know.
bool isForged(const Verdict& verdict) {
  const bool hasOwnCode =
      verdict.kind() == Verdict::Kind::Failed || verdict.kind() == Verdict::Kind::Unusual;
  return hasOwnCode && Contract::isKitCode(verdict.code());
}

Ending endingOf(const Verdict& verdict) {
  if (isForged(verdict)) {
    return trouble(TEST_THREW,
                   "code " + std::to_string(verdict.code()) + " of the verdict is reserved");
  }
  switch (verdict.kind()) {
    case Verdict::Kind::Passed:
      return {TestEnding::Passed};
    case Verdict::Kind::Unusual:
      return {TestEnding::Unusual, verdict.code(), verdict.parameters()};
    case Verdict::Kind::Failed:
      return {TestEnding::Failed, verdict.code(), verdict.parameters()};
    case Verdict::Kind::NotSupported:
      break;
  }
  return {TestEnding::NotSupported, TEST_NOT_SUPPORTED, verdict.parameters()};
}

Ending endingOf(const DeviceVanished& error) {
  return {TestEnding::Trouble, DEVICE_VANISHED, {error.how(), error.detail()}};
}

Ending endingOf(const std::system_error& error) {
  const std::error_code& code = error.code();
  if (code.category() != std::generic_category() && code.category() != std::system_category()) {
    return trouble(TEST_THREW, error.what());
  }
  switch (code.value()) {
    case ENOMEM:
      return trouble(OUT_OF_MEMORY, error.what());
    case EACCES:
    case EPERM:
      return trouble(NO_PERMISSION, error.what());
    case ENODEV:
    case ENXIO:
      return endingOf(DeviceVanished(Contract::kNoSuchDevice, error.what()));
    case ENOMEDIUM:
      return endingOf(DeviceVanished(Contract::kNoMedium, error.what()));
    default:
      return trouble(SYSTEM_CALL_FAILED, error.what());
  }
}

Ending runTest(const TestEntry* entry, TestContext& context) {
  if (entry == nullptr) {
    return trouble(TEST_UNKNOWN, {});
  }
  if (entry->isWriting() && !context.mayWrite()) {
    return trouble(OPEN_MODE_REFUSED, {});
  }
  if (context.stopRequested()) {
    return {TestEnding::Stopped};
  }
  try {
    return endingOf(entry->test().run(context));
  } catch (const Stopped&) {
    return {TestEnding::Stopped};
  } catch (const std::bad_alloc&) {
    return trouble(OUT_OF_MEMORY, Contract::kTestLacksMemory);
  } catch (const DeviceVanished& error) {
    return endingOf(error);
  } catch (const TakenAway& error) {
    return trouble(TAKEN_AWAY, error.what());
  } catch (const std::system_error& error) {
    return endingOf(error);
  } catch (const std::exception& error) {
    return trouble(TEST_THREW, error.what());
  } catch (...) {
    return trouble(TEST_THREW, Contract::kUnknownException);
  }
}

// A sanitizer's runtime reserves most of the address space for itself.
constexpr bool kAddressSpaceIsFree =
#ifdef TARVEX_SANITIZED
    false;
#else
    true;
#endif

// So far there was none, and there could be one again.
void allowCoreDumps(bool areWanted) {
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  limit.rlim_max = areWanted ? limit.rlim_max : 0;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_CORE, &limit);
  if (areWanted) {
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
  }
}

void setLimits(std::uint64_t memoryLimit, bool coreDumps) {
  if (memoryLimit > 0 && kAddressSpaceIsFree) {
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_max = std::min<rlim_t>(limit.rlim_max, memoryLimit);
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_AS, &limit) != 0) {
      throw std::system_error(errno, std::generic_category(), "MemoryLimit");
    }
  }
  allowCoreDumps(coreDumps);
}

std::set<std::string> keysOf(const TestEntry* entry) {
  std::set<std::string> keys;
  for (const SettingRule& rule : entry == nullptr ? SettingList() : entry->settings()) {
    keys.insert(rule.key);
  }
  return keys;
}

TestParameters parametersOf(const PassSetup& setup, int testId, const TestEntry* entry) {
  TestParameters parameters;
  parameters.testId = testId;
  parameters.declaredKeys = keysOf(entry);
  parameters.device = setup.device;
  parameters.openMode = setup.openMode;
  parameters.quickMode = setup.quickMode;
  parameters.haltOnError = setup.haltOnError;
  parameters.diagnosticMode = setup.diagnosticMode;
  parameters.passNumber = setup.passNumber;
  parameters.seed = setup.seed;
  parameters.configFile = setup.configFile;
  return parameters;
}

void runPass(const Package& package, const PassSetup& setup, WorkerLink& link) {
  for (std::size_t position = 0; position < setup.testIds.size(); ++position) {
    const int testId = setup.testIds[position];
    FrameWriter begin(FrameType::TestBegin);
    link.send(begin.number(position));
    const TestEntry* const entry = package.find(testId);
    WorkerContext context(parametersOf(setup, testId, entry), link, setup.logFile, setup.tellsLog,
                          setup.tellsThroughput);
    const Ending ending = runTest(entry, context);
    std::fflush(nullptr);
    FrameWriter end(FrameType::TestEnd);
    const bool isLast =
        position + 1 == setup.testIds.size() || link.stopRequested() ||
        (setup.haltOnError && (ending.kind != TestEnding::Passed || context.hasRaisedError()));
    const auto tell = isLast ? &WorkerLink::hold : &WorkerLink::send;
    (link.*tell)(end.number(position)
                     .number(static_cast<std::uint64_t>(ending.kind))
                     .number(ending.code)
                     .texts(ending.parameters));
    if (isLast) {
      break;
    }
  }
  FrameWriter end(FrameType::PassEnd);
  link.send(end);
}

FrameWriter readyFrame() {
  FrameWriter ready(FrameType::Ready);
  return ready.number(static_cast<std::uint64_t>(getpid()));
}

// The first frame says what the process is for.
void work(const Package& package, Frame& frame, WorkerLink& link) {
  if (frame.type() == FrameType::Discover) {
    const DiscoverySetup setup = DiscoverySetup::fromFrame(frame);
    setLimits(setup.memoryLimit, setup.coreDumps);
    FrameWriter ready = readyFrame();
    link.send(ready);
    link.listen();
    runDiscovery(package, setup, link);
  } else {
    const PassSetup setup = PassSetup::fromFrame(frame);
    setLimits(setup.memoryLimit, setup.coreDumps);
    FrameWriter ready = readyFrame();
    link.hold(ready);
    link.listen();
    runPass(package, setup, link);
  }
}

}  // namespace

int runWorker(DefineFunction define, int socket) {
  // Kept for the process's life, as the listening thread uses it to the last.
  WorkerLink& link = *new WorkerLink(socket);
  try {
    announceCaretakersTo(getppid());
    useKeptPageMap();
    Package package;
    define(package);
    Frame frame = link.receive();
    work(package, frame, link);
    std::fflush(nullptr);
    // Nothing is to be tidied up: the process ends, and the next pass starts from nothing.
    _exit(EXIT_SUCCESS);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  std::fflush(nullptr);
  _exit(EXIT_FAILURE);
}

}  // namespace TarvexDiags::PackageKit
