// What is told of the machine when a test of something else meets poisoned memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "diagctl/run/MachineWatch.h"
#include "packagekit/KitEvents.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class MachineWatchStep : public ::testing::Test {
 protected:
  void take(unsigned int code, const std::string& address, const std::string& physical) {
    Diag::DiagnosticEvent event;
    event.setEventType(Diag::DiagnosticEvent::ERROR_EVENT);
    event.setEventCode(code);
    event.setParamVector({"3", "Hash", "host/cpu0", address, physical, "last lines"});
    m_watch.take(event);
  }

  std::vector<RunEventBody> m_told;
  MachineWatch m_watch{[this](const RunEventBody& body) { m_told.push_back(body); }};
};

TEST_F(MachineWatchStep, is_a_failure_of_the_memory_that_names_the_physical_address) {
  take(PackageKit::MEMORY_POISONED, "0x7f00", "0x1234000");
  m_watch.end();
  ASSERT_THAT(m_told, SizeIs(3));
  EXPECT_EQ(std::get<StepStarted>(m_told[0]).test, "Machine watch");
  const auto& diagnosis = std::get<StepDiagnosis>(m_told[1]);
  EXPECT_EQ(diagnosis.verdict, Verdict::Fail);
  EXPECT_EQ(diagnosis.message,
            "The memory has an uncorrectable error at the physical address 0x1234000, which test "
            "Hash met.");
  EXPECT_THAT(diagnosis.action, HasSubstr("Replace the memory module"));
  EXPECT_EQ(std::get<StepEnded>(m_told[2]).status, RunStatus::Complete);
}

TEST_F(MachineWatchStep, names_the_virtual_address_where_nobody_knows_the_other) {
  take(PackageKit::MEMORY_POISONED, "0x7f00", "?");
  EXPECT_THAT(std::get<StepDiagnosis>(m_told.at(1)).message,
              HasSubstr("which test Hash met at the virtual address 0x7f00."));
}

TEST_F(MachineWatchStep, takes_what_comes_later_into_the_same_step) {
  take(PackageKit::MEMORY_POISONED, "0x7f00", "0x1000");
  take(PackageKit::MEMORY_POISONED, "0x8f00", "0x2000");
  m_watch.end();
  ASSERT_THAT(m_told, SizeIs(4));
  const auto& message = std::get<StepMessage>(m_told[2]);
  EXPECT_EQ(message.severity, Severity::Error);
  EXPECT_THAT(message.text, HasSubstr("0x2000"));
}

TEST_F(MachineWatchStep, does_not_begin_without_such_an_event) {
  take(PackageKit::WORKER_CRASHED, "SIGBUS", "last lines");
  take(PackageKit::DEVICE_VANISHED, "read: ENODEV", "last lines");
  m_watch.end();
  EXPECT_THAT(m_told, IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
