#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "tests/support/FakeMachine.h"
#include "watch/Watch.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tests::FakeMachine;

/// Keeps all, and lets a test wait for it.
class RecordingSink : public WatchSink {
 public:
  void found(const Finding& finding) override {
    const std::lock_guard lock(m_mutex);
    findings.push_back(finding);
    threads.push_back(std::this_thread::get_id());
    m_change.notify_all();
  }
  void sampled(const Sample& sample) override {
    const std::lock_guard lock(m_mutex);
    samples.push_back(sample);
    m_change.notify_all();
  }
  void absent(SourceKind source, const std::string& reason) override {
    const std::lock_guard lock(m_mutex);
    absences.push_back(std::string(nameOf(source)) + ": " + reason);
  }

  template <class Predicate>
  bool waitFor(Predicate predicate) {
    std::unique_lock lock(m_mutex);
    return m_change.wait_for(lock, seconds(60), predicate);
  }

  std::vector<Finding> findings;
  std::vector<Sample> samples;
  std::vector<std::string> absences;
  std::vector<std::thread::id> threads;

 private:
  std::mutex m_mutex;
  std::condition_variable m_change;
};

/// A source whose looks a test counts and fills.
class ScriptedSource : public Source {
 public:
  struct Script {
    std::atomic<int> looks{0};
    std::atomic<int> toFind{0};
    std::optional<std::string> absence;
    std::string sensor;
    int descriptor = -1;
    std::shared_future<void> obstacle;  ///< in the way of each look
    milliseconds interval{10};
    SourceKind kind = SourceKind::Disks;
  };

  explicit ScriptedSource(Script& script) : m_script(script) {}

  SourceKind kind() const override { return m_script.kind; }
  std::optional<std::string> open() override { return m_script.absence; }
  milliseconds interval() const override { return m_script.interval; }
  int descriptor() const override { return m_script.descriptor; }
  void look(Moment now, Collector& collector) override {
    ++m_script.looks;
    if (m_script.obstacle.valid()) {
      m_script.obstacle.wait();
    }
    for (int count = m_script.toFind.exchange(0); count > 0; --count) {
      Finding finding{.time = now, .source = kind(), .kind = Kind::DiskMedium};
      finding.device = "block:sda";
      collector.found(std::move(finding));
    }
    if (!m_script.sensor.empty()) {
      collector.sampled({now, m_script.sensor, 1, "°C", {}});
    }
  }

 private:
  Script& m_script;
};

std::vector<std::unique_ptr<Source>> one(ScriptedSource::Script& script) {
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::make_unique<ScriptedSource>(script));
  return sources;
}

WatchSettings quick() {
  WatchSettings settings;
  settings.interval = milliseconds(10);
  return settings;
}

TEST(WatchTest, tells_what_comes_judged_and_summed_up_from_a_thread_of_its_own) {
  ScriptedSource::Script script;
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  script.toFind = 3;
  ASSERT_TRUE(sink.waitFor([&] { return !sink.findings.empty(); }));
  watch.stop();
  ASSERT_THAT(sink.findings, SizeIs(1));
  EXPECT_EQ(sink.findings.front().count, 3U);
  EXPECT_EQ(sink.findings.front().severity, Severity::Failure);
  EXPECT_NE(sink.threads.front(), std::this_thread::get_id());
}

TEST(WatchTest, asks_sources_that_are_looked_at_seldom_before_it_tells_what_they_may_know_as_well) {
  ScriptedSource::Script often;
  ScriptedSource::Script seldom;
  seldom.kind = SourceKind::PcieErrors;
  seldom.interval = seconds(3600);
  seldom.toFind = 1;
  std::vector<std::unique_ptr<Source>> sources = one(often);
  sources.push_back(std::make_unique<ScriptedSource>(seldom));
  RecordingSink sink;
  Watch watch(std::move(sources), quick(), sink);
  watch.start();
  often.toFind = 1;
  ASSERT_TRUE(sink.waitFor([&] { return !sink.findings.empty(); }));
  EXPECT_EQ(seldom.looks, 1);
  watch.stop();
  ASSERT_THAT(sink.findings, SizeIs(1));
  EXPECT_EQ(sink.findings.front().count, 1U);
}

TEST(WatchTest, looks_once_more_at_its_end_and_tells_what_is_left) {
  ScriptedSource::Script script;
  script.interval = seconds(3600);
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  script.toFind = 1;
  watch.stop();
  EXPECT_EQ(script.looks, 1);
  EXPECT_THAT(sink.findings, SizeIs(1));
  watch.stop();
  EXPECT_EQ(script.looks, 1);
}

TEST(WatchTest, looks_at_once_when_it_is_asked_to_and_tells_what_it_sees) {
  ScriptedSource::Script script;
  script.interval = seconds(3600);
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  EXPECT_FALSE(watch.look(seconds(60)));
  watch.start();
  script.toFind = 2;
  EXPECT_TRUE(watch.look(seconds(60)));
  ASSERT_THAT(sink.findings, SizeIs(1));
  EXPECT_EQ(sink.findings.front().count, 2U);
  EXPECT_TRUE(watch.look(seconds(60)));
  EXPECT_EQ(script.looks, 2);
  watch.stop();
  EXPECT_THAT(sink.findings, SizeIs(1));
}

TEST(WatchTest, asks_disks_at_once_only_when_it_is_told_to) {
  ScriptedSource::Script script;
  script.kind = SourceKind::NvmeHealth;
  script.interval = seconds(3600);
  script.toFind = 1;
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  EXPECT_TRUE(watch.look(seconds(60)));
  EXPECT_EQ(script.looks, 0);
  EXPECT_TRUE(watch.look(seconds(60), Watch::Disks::Asked));
  EXPECT_EQ(script.looks, 1);
  EXPECT_THAT(sink.findings, SizeIs(1));
  EXPECT_TRUE(watch.look(seconds(60)));
  EXPECT_EQ(script.looks, 1);
}

TEST(WatchTest, gives_a_look_up_at_its_limit) {
  ScriptedSource::Script script;
  script.interval = seconds(3600);
  std::promise<void> release;
  script.obstacle = release.get_future().share();
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  EXPECT_FALSE(watch.look(milliseconds(5)));
  release.set_value();
  EXPECT_TRUE(watch.look(seconds(60)));
  watch.stop();
}

TEST(WatchTest, looks_when_a_descriptor_says_so) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const PackageKit::UniqueDescriptor reader(ends[0]);
  const PackageKit::UniqueDescriptor writer(ends[1]);
  ScriptedSource::Script script;
  script.interval = seconds(3600);
  script.descriptor = reader.get();
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  EXPECT_EQ(script.looks, 0);
  script.toFind = 1;
  ASSERT_EQ(write(writer.get(), "x", 1), 1);
  EXPECT_TRUE(sink.waitFor([&] { return !sink.findings.empty(); }));
  watch.stop();
}

TEST(WatchTest, tells_a_source_that_is_absent_once_and_never_looks_at_it) {
  ScriptedSource::Script script;
  script.absence = "nothing here";
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  EXPECT_THAT(sink.absences, ElementsAre("disk: nothing here"));
  watch.stop();
  EXPECT_EQ(script.looks, 0);
}

TEST(WatchTest, tells_at_most_one_sample_of_a_sensor_in_a_second) {
  ScriptedSource::Script script;
  script.sensor = "temperature";
  RecordingSink sink;
  Watch watch(one(script), quick(), sink);
  watch.start();
  ASSERT_TRUE(sink.waitFor([&] { return sink.samples.size() >= 3; }));
  watch.stop();
  EXPECT_GT(script.looks, 3);
  for (std::size_t index = 1; index < sink.samples.size(); ++index) {
    EXPECT_GE(sink.samples[index].time - sink.samples[index - 1].time, milliseconds(990));
  }
}

TEST(WatchTest, watches_the_sources_that_are_asked_for_alone) {
  FakeMachine machine;
  WatchSettings settings = quick();
  settings.sources = {SourceKind::Disks, SourceKind::Pressure};
  RecordingSink sink;
  Watch watch(machine.files(), settings, sink);
  watch.start();
  watch.stop();
  EXPECT_THAT(sink.absences, SizeIs(2));
  settings.sources = {};
  EXPECT_THAT(makeSources(machine.files(), settings), IsEmpty());
}

TEST(WatchTest, has_a_name_for_each_source) {
  FakeMachine machine;
  std::vector<SourceKind> made;
  for (const auto& source : makeSources(machine.files(), WatchSettings())) {
    made.push_back(source->kind());
    EXPECT_EQ(sourceNamed(nameOf(source->kind())), source->kind());
  }
  EXPECT_EQ(made, allSources());
}

TEST(WatchTest, finds_on_a_machine_of_files_what_two_watches_see_alike) {
  FakeMachine machine;
  const std::string count = "sys/devices/system/edac/mc/mc0/dimm0/dimm_ce_count";
  machine.has(count, "1");
  RecordingSink first;
  RecordingSink second;
  Watch one(machine.files(), quick(), first);
  Watch other(machine.files(), quick(), second);
  one.start();
  other.start();
  machine.has(count, "4");
  one.stop();
  other.stop();
  for (const RecordingSink* const sink : {&first, &second}) {
    ASSERT_THAT(sink->findings, SizeIs(1));
    EXPECT_EQ(sink->findings.front().part, "dimm0");
    EXPECT_EQ(sink->findings.front().count, 3U);
    EXPECT_THAT(sink->absences, Contains(::testing::StartsWith("hwmon: ")));
  }
}

}  // namespace
}  // namespace TarvexDiags::Watching
