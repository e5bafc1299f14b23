// A package that does harm while it looks for its devices: it costs the host no more than itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "packagekit/contract/DiscoveryLines.h"
#include "packagekit/internal/DiscoveryFrames.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/Eventually.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using namespace PackageKit;
using Contract::DiscoveryInbox;
using Contract::DiscoveryLine;
using PackageKit::Testing::PackageDriver;
using ::testing::HasSubstr;
using TestSupport::eventually;
using TestSupport::kIsSanitized;

// For what a busy machine does late.
constexpr std::chrono::seconds kPatience{120};
constexpr std::uint64_t kWild = std::numeric_limits<std::uint64_t>::max();

class HostileDiscovery : public ::testing::Test {
 protected:
  HostileDiscovery() {
    m_driver.set("Package", "DiscoveryTimeout", "600").set("Package", "KillGrace", "600");
  }

  // Why there are no devices; nothing when there are some.
  std::optional<std::string> failure() {
    try {
      m_driver.devices();
      return std::nullopt;
    } catch (const std::runtime_error&) {
    }
    for (auto line = m_inbox.next(); line; line = m_inbox.next()) {
      if (line->kind == DiscoveryLine::Kind::Failed) {
        return line->text;
      }
    }
    return "nobody was told why";
  }

  // Has the package send these bytes to the host, in the place of its devices.
  std::optional<std::string> failureAfter(const std::string& bytes) {
    const std::string file = m_place.file("bytes");
    std::ofstream(file, std::ios::binary) << bytes;
    m_driver.set("Package", "DiscoveryFile", file);
    return failure();
  }

  void expectNoProcessIsLeft() {
    EXPECT_TRUE(
        eventually([] { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }, kPatience));
  }

  const TestSupport::TemporaryDirectory m_place;
  const DiscoveryInbox m_inbox;
  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

// A frame of a device up to its properties.
FrameWriter beginOfDevice(const std::string& name = "Disk", const std::string& tag = "bus/disk") {
  FrameWriter frame(FrameType::DeviceFound);
  frame.text(name).text(tag).text("");
  return frame;
}

std::string endAfter(std::uint64_t devices) {
  FrameWriter frame(FrameType::DiscoveryEnd);
  return frame.number(devices).text("").bytes();
}

std::string headerOf(std::uint32_t length) {
  FrameWriter frame(FrameType::DeviceFound);
  std::string bytes = frame.bytes();
  std::memcpy(bytes.data() + 8, &length, sizeof length);
  return bytes;
}

// The process's largest memory so far, in bytes.
std::size_t largestMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) {
      return std::stoul(line.substr(6)) * 1024;
    }
  }
  return 0;
}

struct Lie {
  const char* name;
  std::function<std::string()> bytes;
};

// Not its bytes, which would differ from run to run.
void PrintTo(const Lie& lie, std::ostream* out) {
  *out << lie.name;
}

class LyingDiscovery : public HostileDiscovery, public ::testing::WithParamInterface<Lie> {};

TEST_P(LyingDiscovery, is_not_believed) {
  // One that is believed waits for no longer.
  m_driver.set("Package", "DiscoveryTimeout", "60").set("Package", "ExitTimeout", "60");
  const auto reason = failureAfter(GetParam().bytes());
  ASSERT_TRUE(reason.has_value());
  EXPECT_THAT(*reason, HasSubstr("its process told "));
  expectNoProcessIsLeft();
  m_driver.set("Package", "DiscoveryFile", "");
  EXPECT_EQ(m_driver.devices().size(), 4U) << "the next one is";
}

INSTANTIATE_TEST_SUITE_P(
    OfAllKinds, LyingDiscovery,
    ::testing::Values(
        Lie{"about_the_length_of_a_frame",
            [] { return headerOf(std::numeric_limits<std::uint32_t>::max()); }},
        Lie{"about_the_length_of_a_name",
            [] { return FrameWriter(FrameType::DeviceFound).number(kWild).bytes(); }},
        Lie{"about_the_number_of_properties", [] { return beginOfDevice().number(kWild).bytes(); }},
        Lie{"about_the_number_of_properties_by_a_few",
            [] { return beginOfDevice().number(4).text("key").text("value").bytes(); }},
        Lie{"about_the_number_of_answers",
            [] { return beginOfDevice().texts({}).number(kWild).bytes(); }},
        Lie{"about_the_number_of_a_test",
            [] { return beginOfDevice().texts({}).number(1).number(kWild).number(1).bytes(); }},
        Lie{"by_an_endless_name",
            [] { return beginOfDevice(std::string(60'000, 'n')).texts({}).number(0).bytes(); }},
        Lie{"by_a_nested_tag",
            [] {
              std::string tag;
              for (int level = 0; level < 400; ++level) {
                tag += "a/";
              }
              return beginOfDevice("Deep", tag + "b").texts({}).number(0).bytes();
            }},
        Lie{"by_a_device_after_the_end",
            [] { return endAfter(0) + beginOfDevice().texts({}).number(0).bytes(); }},
        Lie{"about_the_number_of_devices",
            [] { return beginOfDevice().texts({}).number(0).bytes() + endAfter(kWild); }},
        Lie{"by_orders_that_only_a_host_gives",
            [] { return FrameWriter(FrameType::Discover).bytes(); }}),
    [](const ::testing::TestParamInfo<Lie>& lie) { return std::string(lie.param.name); });

TEST_F(HostileDiscovery, takes_no_more_memory_of_the_host_than_is_due_to_a_package) {
  if (kIsSanitized) {
    GTEST_SKIP() << "a sanitizer's runtime keeps what was freed";
  }
  // As small as they can be, so that each byte that is sent takes as many as possible.
  std::vector<std::string> properties;
  for (std::size_t number = 0; number < DiscoveryBounds::kMostProperties; ++number) {
    properties.push_back(std::to_string(number));
    properties.emplace_back();
  }
  const std::string device = beginOfDevice().texts(properties).number(0).bytes();
  std::string bytes;
  while (bytes.size() <= DiscoveryBounds::kMostBytes + device.size()) {
    bytes += device;
  }
  const std::size_t before = largestMemory();
  const auto reason = failureAfter(bytes);
  ASSERT_TRUE(reason.has_value());
  EXPECT_THAT(*reason, HasSubstr("too many devices"));
  EXPECT_LT(largestMemory() - before, 12 * DiscoveryBounds::kMostBytes);
}

TEST_F(HostileDiscovery, leaves_no_process_behind) {
  m_driver.set("Package", "Discovery", "leaves a process");
  EXPECT_EQ(failure(), std::nullopt);
  EXPECT_EQ(m_driver.devices().size(), 4U);
  expectNoProcessIsLeft();
  m_driver.set("Package", "Discovery", "leaves a process and throws");
  EXPECT_EQ(failure(), "no bus");
  expectNoProcessIsLeft();
}

class HangingDiscovery : public HostileDiscovery,
                         public ::testing::WithParamInterface<const char*> {};

// It hears no signal that can be ignored, and has a process that has left its group.
TEST_P(HangingDiscovery, is_ended_as_soon_as_the_client_wants) {
  const std::string mark = m_place.file("mark");
  m_driver.set("Package", "Discovery", GetParam()).set("Package", "ExitTimeout", "600");
  m_driver.set("Package", "MarkOfHanging", mark);
  const auto start = std::chrono::steady_clock::now();
  std::thread client([&] {
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(mark); }, kPatience));
    m_inbox.endDiscoveries();
  });
  EXPECT_EQ(failure(), "it was asked to end");
  client.join();
  // Less than a second on an idle machine; who waited for the package would take ten minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(300));
  expectNoProcessIsLeft();
}

INSTANTIATE_TEST_SUITE_P(OfAllKinds, HangingDiscovery,
                         ::testing::Values("hangs", "hangs at its end"),
                         [](const ::testing::TestParamInfo<const char*>& way) {
                           std::string name = way.param;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

}  // namespace
}  // namespace TarvexDiags::SecurityTest
