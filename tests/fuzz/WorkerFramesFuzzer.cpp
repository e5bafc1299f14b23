// Hears workers that say anything, and end in any way, through a whole pass: from the bytes on the
// socket to the verdict. What comes of it is what a second judge makes of the same bytes. A worker
// tells nothing in the name of another test, and nothing that is for the host to tell.
//
// Input: one byte of wishes, see Wishes; then for each worker one byte that says how it ends, and
// what it says up to a zero byte: see speak.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/internal/PassRunner.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/ReferenceJudge.h"
#include "tests/fuzz/SpokenWorker.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(WorkerFileTag, PackageKit::Module::m_workerFile);
TARVEX_PRIVATE_MEMBER(TestNamesTag, PackageKit::Module::m_testNames);

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::PackageKit;
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::TestSupport::privateMember;
using Texts = std::vector<std::string>;

constexpr const char* kTag = "host/disk";
const std::map<int, std::string> kTests = {{3, "Read"}, {5, "Write"}, {8, "Verify"}, {9, "Seek"}};

/// What the first byte of an input asks for.
struct Wishes {
  explicit Wishes(std::uint8_t bits)
      : isAborted((bits & 1U) != 0),
        abortsInTest((bits & 2U) != 0),
        haltsOnError((bits & 4U) != 0),
        reportsStatus((bits & 8U) != 0),
        tellsThroughput(reportsStatus),
        tellsLog((bits & 16U) != 0),
        tests((bits >> 5U) % kTests.size() + 1) {}

  bool isAborted;
  bool abortsInTest;  ///< as soon as its first test has begun
  bool haltsOnError;
  bool reportsStatus;
  bool tellsThroughput;
  bool tellsLog;
  std::size_t tests;
};

std::uint64_t takeCode(std::string& rest) {
  const std::uint64_t high = takeByte(rest);
  return high * 256U + takeByte(rest);
}

Texts takeTexts(std::string& rest) {
  Texts texts(takeByte(rest) % 6);
  for (std::string& text : texts) {
    const std::size_t length = takeByte(rest);
    text = rest.substr(0, length);
    rest.erase(0, length);
  }
  return texts;
}

// A frame of the kit's own writer, with any fields.
std::string takeFrame(std::uint8_t type, std::string& rest) {
  FrameWriter frame(static_cast<FrameType>(type));
  switch (static_cast<FrameType>(type)) {
    case FrameType::TestBegin:
    case FrameType::Progress:
      frame.number(takeByte(rest));
      break;
    case FrameType::Event:
      frame.number(takeByte(rest)).number(takeCode(rest)).texts(takeTexts(rest));
      break;
    case FrameType::TestEnd:
      frame.number(takeByte(rest)).number(takeByte(rest)).number(takeCode(rest));
      frame.texts(takeTexts(rest));
      break;
    case FrameType::Setup:  // here any type, with any fields
      frame = FrameWriter(static_cast<FrameType>(takeCode(rest)));
      frame.text(takeUntil(rest, '\0'));
      break;
    default:
      break;
  }
  return frame.bytes();
}

// 1 to 11 are frames by their type; 12 bytes that need be none, 13 a frame of which as many bytes
// are missing, 14 standard output. Others stand for 12.
void speak(WorkerLife& life, std::string& rest) {
  constexpr std::uint8_t lastType = 11;
  constexpr std::uint8_t cut = 13;
  constexpr std::uint8_t output = 14;
  for (std::uint8_t kind = takeByte(rest); kind != 0; kind = takeByte(rest)) {
    if (kind <= lastType) {
      life.messages += takeFrame(kind, rest);
    } else if (kind == cut) {
      const std::size_t missing = takeByte(rest);
      const std::string frame = takeFrame(takeByte(rest) % (lastType + 1), rest);
      life.messages += frame.substr(0, frame.size() - std::min(missing, frame.size()));
    } else {
      const std::size_t length = takeByte(rest);
      (kind == output ? life.output : life.messages) += rest.substr(0, length);
      rest.erase(0, std::min(length, rest.size()));
    }
  }
  life.messages.resize(std::min(life.messages.size(), kMostSaid));
  life.output.resize(std::min(life.output.size(), kMostSaid));
}

WorkerLife takeLife(std::string& rest) {
  using Kind = ProcessEnd::Kind;
  const std::array<ProcessEnd, 6> ends = {{{Kind::Exited, 0},
                                           {Kind::Exited, 1},
                                           {Kind::Signalled, SIGSEGV},
                                           {Kind::Signalled, SIGKILL},
                                           {Kind::Unknown, 0},
                                           {Kind::Signalled, SIGBUS}}};
  const std::size_t end = takeByte(rest) % ends.size();
  WorkerLife life{.end = ends[end], .hasMetPoison = ends[end].number == SIGBUS};
  speak(life, rest);
  return life;
}

struct Raised {
  DiagnosticEvent::EventType type;
  unsigned int code;
  Texts parameters;
};

/// Looks at each event as it comes.
class Client : public PassObserver {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  Client(const Wishes& wishes, RunControl& control) : m_wishes(wishes), m_control(control) {}

  void raise(DiagnosticEvent::EventType type, unsigned int code, Texts parameters,
             Moment time) override {
    expect(time >= m_last && time <= std::chrono::steady_clock::now());
    m_last = time;
    if (isReserved(code)) {
      expectOfKit(type, code, parameters);
      ++m_kit[code];
    } else {
      m_package.push_back({type, code, std::move(parameters)});
    }
    if (code == TEST_STARTED && m_wishes.abortsInTest) {
      m_control.abort();
    }
  }
  void progressed(unsigned int percent) override { expect(percent <= 100); }

  /// How often the kit has told it.
  std::size_t countOf(unsigned int code) const {
    const auto found = m_kit.find(code);
    return found == m_kit.end() ? 0 : found->second;
  }
  const std::vector<PackageEvent>& ofPackage() const { return m_package; }

 private:
  // The kit's events are about the test that the present worker is there for.
  static void expectOfKit(DiagnosticEvent::EventType type, unsigned int code,
                          const Texts& parameters) {
    const Contract::KitCode* const row = Contract::findKitCode(code);
    expect(row != nullptr && row->type == type && livesBegun() > 0);
    const auto test = std::next(kTests.begin(), static_cast<long>(livesBegun()) - 1);
    expect(parameters.size() >= 3 && parameters[0] == std::to_string(test->first) &&
           parameters[1] == test->second && parameters[2] == kTag);
  }

  const Wishes& m_wishes;
  RunControl& m_control;
  std::map<unsigned int, std::size_t> m_kit;
  std::vector<PackageEvent> m_package;
  Moment m_last;  ///< when something happened
};

/// What has to come of it all.
struct Expected {
  Came verdict = Came::Passed;
  std::size_t tests = 0;  ///< that have begun
  std::size_t workers = 0;
  std::size_t measurements = 0;
  std::size_t logLines = 0;
  std::size_t throughputs = 0;
  std::size_t neverReady = 0;
  std::size_t brokenProtocols = 0;
  std::vector<PackageEvent> events = {};
};

// The first event of its kind is not raised again.
bool hasToldVerdict(const Hearing& heard) {
  const auto first =
      std::find_if(heard.events.begin(), heard.events.end(),
                   [&](const PackageEvent& event) { return event.type == heard.verdict.type; });
  return first != heard.events.end() && *first == heard.verdict;
}

// Where no abort takes the place of what it said.
bool tellsVerdict(const Hearing& heard, bool isAborted) {
  return !hasToldVerdict(heard) && (heard.ending == TestEnding::Failed ||
                                    (heard.ending == TestEnding::Unusual && !isAborted));
}

Expected expectedOf(const Wishes& wishes, const std::vector<WorkerLife>& lives) {
  Expected expected;
  bool isAborted = wishes.isAborted;
  for (bool goesOn = true; goesOn && expected.workers < wishes.tests; ++expected.workers) {
    const WorkerLife& life = lives[expected.workers];
    const Hearing heard(life.messages, wishes.tellsLog, wishes.tellsThroughput);
    isAborted = isAborted || (heard.hasBegun && wishes.abortsInTest);
    expected.verdict = std::max(expected.verdict, judged(heard, life.end, isAborted));
    expected.tests += heard.hasBegun ? 1 : 0;
    expected.measurements += heard.measurements;
    expected.logLines += heard.logLines;
    expected.throughputs += heard.throughputs;
    expected.neverReady += heard.isReady ? 0 : 1;
    expected.brokenProtocols += heard.isReady && heard.isBroken && !life.hasMetPoison ? 1 : 0;
    expected.events.insert(expected.events.end(), heard.events.begin(), heard.events.end());
    if (tellsVerdict(heard, isAborted)) {
      expected.events.push_back(heard.verdict);
    }
    goesOn =
        heard.hasBegun && !isAborted && !(wishes.haltsOnError && expected.verdict != Came::Passed);
  }
  return expected;
}

PassSetup setupFor(const Wishes& wishes) {
  PassSetup setup;
  for (const auto& test : kTests) {
    setup.testIds.push_back(test.first);
  }
  setup.testIds.resize(wishes.tests);
  setup.device.resourceTag = kTag;
  setup.haltOnError = wishes.haltsOnError;
  setup.tellsLog = wishes.tellsLog;
  setup.tellsThroughput = wishes.tellsThroughput;
  setup.seed = 1;
  return setup;
}

Came cameOf(const PassOutcome& outcome) {
  switch (outcome.verdict) {
    case DiagnosticResult::PASSED:
      return Came::Passed;
    case DiagnosticResult::UNUSUAL_STATUS:
      return Came::Unusual;
    case DiagnosticResult::FAILED:
      break;
  }
  // Only a package finds faults of the hardware.
  expect(!isReserved(outcome.code));
  return Came::Failed;
}

void expectEvents(const Client& client, const Expected& expected, bool isAborted) {
  constexpr std::size_t mostLogLines = 1000;
  expect(client.ofPackage() == expected.events);
  expect(client.countOf(TEST_STARTED) == expected.tests);
  expect(client.countOf(TEST_ENDED) == expected.tests);
  expect(client.countOf(TEST_MEASUREMENT) == expected.measurements);
  expect(client.countOf(TEST_LOG_LINE) == std::min(expected.logLines, mostLogLines));
  // Of those that come at once a person is told one.
  expect(client.countOf(TEST_THROUGHPUT) <= expected.throughputs);
  expect((client.countOf(TEST_THROUGHPUT) == 0) == (expected.throughputs == 0));
  expect(client.countOf(WORKER_BROKE_PROTOCOL) == expected.brokenProtocols);
  expect(client.countOf(WORKER_NOT_STARTED) == (isAborted ? 0 : expected.neverReady));
  expect(client.countOf(EVENTS_DROPPED) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string rest = textOf(data, size);
  const Wishes wishes(takeByte(rest));
  std::vector<WorkerLife> lives;
  while (lives.size() < wishes.tests) {
    lives.push_back(takeLife(rest));
  }
  Module& module = Module::instance();
  privateMember<WorkerFileTag>(module) = "worker";
  privateMember<TestNamesTag>(module) = kTests;

  const Expected expected = expectedOf(wishes, lives);
  setLives(lives);
  RunControl control;
  if (wishes.isAborted) {
    control.abort();
  }
  Client client(wishes, control);
  const PassOutcome outcome =
      PassRunner(module, control, client, wishes.reportsStatus).run(setupFor(wishes));
  expect(livesBegun() == expected.workers);
  expect(cameOf(outcome) == expected.verdict);
  expectEvents(client, expected, control.isAborted());
  return 0;
}
