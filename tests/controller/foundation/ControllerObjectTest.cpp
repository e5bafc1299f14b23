// The controller object as it is made, its record of phase and health, and the singletons.

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagControllerStatus.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;

constexpr DiagControllerStatus::diagCtrlPhase kPhases[] = {
    DiagControllerStatus::ACTIVE, DiagControllerStatus::IDLE, DiagControllerStatus::ENUMERATE,
    DiagControllerStatus::INITIALIZE, DiagControllerStatus::UNINITIALISED};

TEST(DiagControllerStatus, starts_uninitialised_and_without_health) {
  DiagControllerStatus status;
  EXPECT_EQ(status.getDiagCtrlPhase(0), DiagControllerStatus::UNINITIALISED);
  EXPECT_FALSE(status.getExecMgrThrHealth());
  EXPECT_FALSE(status.getMonThrHealth());
}

TEST(DiagControllerStatus, keeps_the_health_of_each_thread) {
  DiagControllerStatus status;
  status.setExecMgrThrHealth(true);
  EXPECT_TRUE(status.getExecMgrThrHealth());
  EXPECT_FALSE(status.getMonThrHealth());
  status.setMonThrHealth(true);
  status.setExecMgrThrHealth(false);
  EXPECT_FALSE(status.getExecMgrThrHealth());
  EXPECT_TRUE(status.getMonThrHealth());
}

TEST(DiagControllerStatus, keeps_the_phase_whatever_time_is_allowed) {
  DiagControllerStatus status;
  for (const auto phase : kPhases) {
    for (const long timeOut : {-1L, 0L, 200L}) {
      status.setDiagCtrlPhase(phase, timeOut);
      EXPECT_EQ(status.getDiagCtrlPhase(-1), phase);
      EXPECT_EQ(status.getDiagCtrlPhase(0), phase);
      EXPECT_EQ(status.getDiagCtrlPhase(200), phase);
    }
  }
}

TEST(DiagControllerStatus, numbers_its_phases) {
  EXPECT_EQ(DiagControllerStatus::UNINITIALISED, 0U);
  EXPECT_EQ(DiagControllerStatus::ACTIVE, 1U);
  EXPECT_EQ(DiagControllerStatus::IDLE, 2U);
  EXPECT_EQ(DiagControllerStatus::ENUMERATE, 3U);
  EXPECT_EQ(DiagControllerStatus::INITIALIZE, 4U);
  EXPECT_EQ(DiagControllerStatus::ESTIMATION, 5U);
}

TEST(DiagnosticControllerObject, is_made_without_machinery) {
  DiagnosticController* const controller = DiagnosticController::getInstance();
  EXPECT_EQ(controller->getDiagCtrlPhase(0), DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(controller->getDiagCtrlPhase(-1), DiagControllerStatus::UNINITIALISED);
  EXPECT_FALSE(controller->getShutDownFlag());
  EXPECT_EQ(controller->getGlobalSettingsPtr(), nullptr);
  EXPECT_EQ(controller->getEventMgrPtr(), nullptr);
  EXPECT_EQ(controller->getDiagPackInterfacePtr(), nullptr);
  EXPECT_EQ(controller->getTestRequestMgrPtr(), nullptr);
}

TEST(DiagnosticControllerObject, touches_no_file_and_starts_no_thread_when_it_is_made) {
  const TemporaryDirectory directory;
  std::filesystem::current_path(directory.path());
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                         std::filesystem::directory_iterator());
  };
  const auto before = threads();
  DiagnosticController::getInstance();
  EXPECT_EQ(threads(), before);
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(DiagnosticControllerObject, is_one) {
  EXPECT_EQ(DiagnosticController::getInstance(), DiagnosticController::getInstance());
}

TEST(DiagnosticControllerObject, hands_the_phase_on_to_its_record) {
  DiagnosticController* const controller = DiagnosticController::getInstance();
  for (const auto phase : kPhases) {
    for (const long timeOut : {-1L, 0L, 200L}) {
      controller->setDiagCtrlPhase(phase, timeOut);
      EXPECT_EQ(controller->getDiagCtrlPhase(timeOut), phase);
    }
  }
}

TEST(DiagnosticControllerObject, takes_tracer_and_helpers_with_it) {
  const TemporaryDirectory first;
  const TemporaryDirectory second;
  DiagnosticController* const controller = DiagnosticController::getInstance();
  DiagTracer::getInstance()->openTraceFile(first.path().c_str(), 3);
  EXPECT_EQ(controller->getDiagCtrlPhase(0), DiagControllerStatus::UNINITIALISED);
  const auto written = TraceFile(first.path()).lines().size();
  EXPECT_EQ(written, 4U) << "in and out of the controller and of its record";
  controller->setDiagCtrlPhase(DiagControllerStatus::IDLE, 0);
  const auto before = TraceFile(first.path()).lines().size();
  delete controller;

  DiagnosticController* const next = DiagnosticController::getInstance();
  EXPECT_EQ(next->getDiagCtrlPhase(0), DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(TraceFile(first.path()).lines().size(), before) << "the old file is closed";
  DiagTracer::getInstance()->openTraceFile(second.path().c_str(), 3);
  next->getDiagCtrlPhase(0);
  EXPECT_TRUE(TraceFile(second.path()).contains("@enter DiagnosticController::getDiagCtrlPhase"));
}

TEST(DiagnosticControllerObject, traces_the_pointers_it_hands_out_but_not_the_end_of_one) {
  const TemporaryDirectory directory;
  const DiagnosticController* const controller = DiagnosticController::getInstance();
  DiagTracer::getInstance()->openTraceFile(directory.path().c_str(), 3);
  controller->getEventMgrPtr();
  controller->getDiagPackInterfacePtr();
  controller->getTestRequestMgrPtr();
  controller->getGlobalSettingsPtr();
  const std::vector<std::string> expected = {"@enter DiagnosticController::getEventMgrPtr",
                                             "@exit DiagnosticController::getEventMgrPtr",
                                             "@enter DiagnosticController::getDiagPackInterfacePtr",
                                             "@exit DiagnosticController::getDiagPackInterfacePtr",
                                             "@enter DiagnosticController::getTestRequestMgrPtr",
                                             "@exit DiagnosticController::getTestRequestMgrPtr",
                                             "@enter DiagnosticController::getGlobalSettingsPtr"};
  EXPECT_EQ(TraceFile(directory.path()).texts(), expected);
}

TEST(ControllerEvents, reach_their_registrations_before_there_is_a_controller) {
  EventManager* const manager = EventManager::getInstance();
  const unsigned long first = manager->createCtrlEventQueue();
  const unsigned long second = manager->createCtrlEventQueue();
  DiagUtil::getInstance()->pushDiagCtrlEvent(DiagCtrlEvent::PACKAGE_NOT_FOUND,
                                             Diag::DiagnosticEvent::WARNING_EVENT, 7);
  for (const unsigned long registration : {first, second}) {
    const std::unique_ptr<CtrlEventVector> events(manager->getCtrlEvents(registration));
    ASSERT_EQ(events->size(), 1U);
    const std::unique_ptr<DiagCtrlEvent> event(events->front());
    EXPECT_EQ(event->getEventCode(), 57U);
    EXPECT_EQ(event->getEventType(), Diag::DiagnosticEvent::WARNING_EVENT);
    EXPECT_EQ(event->getTestRequestId(), 7U);
    EXPECT_EQ(event->getParamVector(), std::vector<std::string>{""});
  }
}

TEST(ControllerEvents, of_the_default_constructor_can_be_dumped) {
  DiagCtrlEvent event;
  event.setTestRequestId(12);
  EXPECT_NE(event.dump().find("12"), std::string::npos) << event.dump();
}

TEST(GlobalSettings, keep_what_they_are_given) {
  GlobalSettings settings(DiagCtrlConstants::DIAG_WARNING, GlobalSettings::PARALLEL, true, false,
                          GlobalSettings::FACTORY);
  EXPECT_EQ(settings.getDebugLog(), DiagCtrlConstants::DIAG_WARNING);
  EXPECT_EQ(settings.getRunMode(), GlobalSettings::PARALLEL);
  EXPECT_TRUE(settings.getDiagLogMode());
  EXPECT_FALSE(settings.getHaltOnError());
  EXPECT_EQ(settings.getDiagnosticMode(), GlobalSettings::FACTORY);

  settings.setDebugLog(DiagCtrlConstants::DIAG_ERROR);
  settings.setRunMode(GlobalSettings::SERIAL);
  settings.setDiagLogMode(false);
  settings.setHaltOnError(true);
  settings.setDiagnosticMode(GlobalSettings::BRINGUP);
  EXPECT_EQ(settings.getDebugLog(), DiagCtrlConstants::DIAG_ERROR);
  EXPECT_EQ(settings.getRunMode(), GlobalSettings::SERIAL);
  EXPECT_FALSE(settings.getDiagLogMode());
  EXPECT_TRUE(settings.getHaltOnError());
  EXPECT_EQ(settings.getDiagnosticMode(), GlobalSettings::BRINGUP);
}

TEST(Singletons, are_one_for_all_threads_that_ask_first) {
  const std::function<const void*()> makers[] = {
      [] { return static_cast<const void*>(DiagnosticController::getInstance()); },
      [] { return static_cast<const void*>(DiagTracer::getInstance()); },
      [] { return static_cast<const void*>(DiagUtil::getInstance()); },
      [] { return static_cast<const void*>(DiagValidator::getInstance()); },
      [] { return static_cast<const void*>(EventManager::getInstance()); },
      [] { return static_cast<const void*>(ResourceLockManager::getInstance()); },
  };
  constexpr std::size_t kMakers = std::size(makers);
  constexpr std::size_t kRounds = 4;
  std::vector<std::set<const void*>> found(kMakers);
  std::vector<std::vector<const void*>> perThread(kMakers * kRounds);
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < perThread.size(); ++thread) {
    // Each thread starts with another one, so that they meet while the objects are made.
    threads.emplace_back([&, thread] {
      perThread[thread].resize(kMakers);
      for (std::size_t step = 0; step < kMakers; ++step) {
        const std::size_t which = (thread + step) % kMakers;
        perThread[thread][which] = makers[which]();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& objects : perThread) {
    for (std::size_t which = 0; which < kMakers; ++which) {
      found[which].insert(objects[which]);
    }
  }
  for (const auto& objects : found) {
    EXPECT_EQ(objects.size(), 1U);
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
