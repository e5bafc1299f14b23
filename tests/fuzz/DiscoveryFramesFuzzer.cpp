// Takes what a worker tells of devices, which may be anything. What is believed could have come
// from a package that means well: it is within all bounds, and can be told once more without a
// change.
//
// Input: frames, each of one byte that says which, and what it holds. See takeFrame.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/internal/DiscoveryFrames.h"
#include "packagekit/internal/DiscoverySession.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/RunControl.h"
#include "tests/fuzz/Input.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(HandleTag, PackageKit::DiscoverySession::handle);
TARVEX_PRIVATE_MEMBER(DevicesTag, PackageKit::DiscoverySession::m_devices);
TARVEX_PRIVATE_MEMBER(FailureTag, PackageKit::DiscoverySession::m_failure);

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::PackageKit;
using TarvexDiags::TestSupport::privateMember;

// Lengths are a multiple of it, so that one byte gets to the longest text and the most properties.
constexpr std::size_t kScale = 16;

// As many bytes as are wanted, of those that are there once more and once more.
std::string takeText(std::string& rest) {
  const std::size_t kind = takeByte(rest);
  const std::size_t length = kind < 128 ? kind : (kind - 127) * kScale;
  const std::size_t own = std::min<std::size_t>(takeByte(rest) % 16 + 1U, rest.size());
  const std::string pattern = own == 0 ? "x" : rest.substr(0, own);
  rest.erase(0, own);
  std::string text;
  while (text.size() < length) {
    text += pattern;
  }
  return text.substr(0, length);
}

std::vector<std::string> takeProperties(std::string& rest) {
  const std::size_t told = takeByte(rest);
  const std::size_t repeated = takeByte(rest) * kScale;
  std::vector<std::string> texts(told % 8);
  std::generate(texts.begin(), texts.end(), [&rest] { return takeText(rest); });
  for (std::size_t number = 0; number < repeated; ++number) {
    texts.push_back(std::to_string(number));
  }
  return texts;
}

FrameWriter takeDevice(std::string& rest) {
  FrameWriter frame(FrameType::DeviceFound);
  frame.text(takeText(rest)).text(takeText(rest)).text(takeText(rest));
  frame.texts(takeProperties(rest));
  const std::uint8_t answers = takeByte(rest);
  frame.number(answers);
  for (std::size_t answer = 0; answer < answers % 8U; ++answer) {
    frame.number(takeByte(rest)).number(takeByte(rest)).text(takeText(rest)).text(takeText(rest));
  }
  return frame;
}

// 3, 10 and 11 are types of frames with their fields, anything else such a type with any payload.
Frame takeFrame(std::string& rest) {
  constexpr std::size_t header = 24;  // with the time
  const std::uint8_t kind = takeByte(rest);
  const auto type = static_cast<FrameType>(kind % 16);
  FrameWriter frame(type);
  switch (kind) {
    case 3:
      frame.number(1);
      break;
    case 10:
      frame = takeDevice(rest);
      break;
    case 11:
      frame.number(takeByte(rest)).text(takeText(rest));
      break;
    default:
      return {type, takeText(rest)};
  }
  return {type, frame.bytes().substr(header)};
}

void expectSame(const FoundDevice& one, const FoundDevice& other) {
  expect(one.device.name == other.device.name);
  expect(one.device.resourceTag == other.device.resourceTag);
  expect(one.device.disableName == other.device.disableName);
  expect(one.device.properties == other.device.properties);
  expect(one.support.size() == other.support.size());
  for (const auto& [testId, answer] : one.support) {
    const auto found = other.support.find(testId);
    expect(found != other.support.end());
    expect(static_cast<bool>(answer) == static_cast<bool>(found->second));
    expect(answer.reason() == found->second.reason());
    expect(answer.detail() == found->second.detail());
  }
}

void expectBelievable(const FoundDevice& found) {
  constexpr std::size_t header = 24;  // with the time
  expect(faultOf(found.device).empty());
  expect(toValidUtf8(found.device.name) == found.device.name);
  expect(found.support.size() <= DiscoveryBounds::kMostTests);
  FrameWriter told = found.toFrame();
  Frame again(FrameType::DeviceFound, told.bytes().substr(header));
  expectSame(found, FoundDevice::fromFrame(again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string rest = textOf(data, size);
  const DiscoverySetup setup;
  const WorkerLimits limits;
  RunControl control;
  DiscoverySession session(setup, limits, control, [] {});
  const auto& devices = privateMember<DevicesTag>(session);
  try {
    while (!rest.empty()) {
      const std::size_t before = devices.size();
      Frame frame = takeFrame(rest);
      const FrameType type = frame.type();
      (session.*memberOf(HandleTag()))(frame);
      expect(devices.size() == before + (type == FrameType::DeviceFound ? 1 : 0));
      if (type == FrameType::DeviceFound) {
        expectBelievable(devices.back());
      }
    }
  } catch (const FrameError&) {
    // The worker is killed for it.
  }
  const std::string& failure = privateMember<FailureTag>(session);
  expect(toValidUtf8(failure) == failure && failure.size() <= DiscoveryBounds::kLongestFailure);
  return 0;
}
