// Where results are kept: what is believed, and one check at a time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "System/SysUtil.h"
#include "diagctl/health/HealthStore.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

class HealthStores : public ::testing::Test {
 protected:
  HealthResult resultOf(const std::string& scope) const {
    HealthResult result;
    result.machineId = System::SysUtil::getMachineId();
    result.scope = scope;
    result.ended = std::chrono::system_clock::now();
    return result;
  }
  /// The one file that was kept.
  fs::path file() const {
    for (const auto& entry : fs::directory_iterator(m_folder)) {
      if (entry.path().extension() == ".json") {
        return entry.path();
      }
    }
    return {};
  }
  std::string reason() const {
    try {
      return m_store.last("all") ? "taken" : "none";
    } catch (const std::exception& fault) {
      return fault.what();
    }
  }

  const TestSupport::TemporaryDirectory m_place;
  const fs::path m_folder = fs::path(m_place.path()) / "deep/state";
  const HealthStore m_store{m_folder, false};
};

TEST_F(HealthStores, keep_the_last_result_of_each_scope) {
  EXPECT_FALSE(m_store.last("all"));
  HealthResult result = resultOf("all");
  result.seconds = 1;
  m_store.keep(result);
  result.seconds = 2;
  m_store.keep(result);
  EXPECT_EQ(m_store.last("all")->seconds, 2);
  EXPECT_FALSE(m_store.last("memory")) << "a result of all tells nothing of it";
}

TEST_F(HealthStores, let_one_check_go_on_at_a_time) {
  auto first = m_store.tryLock();
  ASSERT_TRUE(first);
  EXPECT_FALSE(m_store.tryLock());
  first.reset();
  EXPECT_TRUE(m_store.tryLock());
}

TEST_F(HealthStores, believe_no_file_that_others_could_have_written) {
  m_store.keep(resultOf("all"));
  EXPECT_EQ(reason(), "taken");
  fs::permissions(file(), fs::perms::others_write, fs::perm_options::add);
  EXPECT_THAT(reason(), HasSubstr("others could have written it"));
}

TEST_F(HealthStores, follow_no_link_and_wait_for_nobody) {
  m_store.keep(resultOf("all"));
  const fs::path kept = file();
  const fs::path elsewhere = m_folder / "elsewhere";
  fs::rename(kept, elsewhere);
  fs::create_symlink(elsewhere, kept);
  EXPECT_THAT(reason(), HasSubstr("symbolic links"));
  fs::remove(kept);
  ASSERT_EQ(mkfifo(kept.c_str(), 0600), 0);
  EXPECT_THAT(reason(), HasSubstr("others could have written it"));
  fs::remove(kept);
  fs::create_directory(kept);
  EXPECT_THAT(reason(), HasSubstr(kept.string()));
}

TEST_F(HealthStores, tell_file_and_reason_of_what_is_no_result) {
  m_store.keep(resultOf("all"));
  const fs::path kept = file();
  std::ofstream(kept, std::ios::trunc) << "{\"version\"";
  EXPECT_THAT(reason(), HasSubstr("it is no whole document (" + kept.string() + ")"));
  fs::resize_file(kept, 2UL << 20U);
  EXPECT_THAT(reason(), HasSubstr("it is too long"));
}

TEST_F(HealthStores, believe_no_result_of_another_machine_or_of_the_future) {
  HealthResult other = resultOf("all");
  other.machineId += "0";
  m_store.keep(other);
  EXPECT_THAT(reason(), HasSubstr("it is of another machine"));
  HealthResult late = resultOf("all");
  late.ended += std::chrono::hours(1);
  m_store.keep(late);
  EXPECT_THAT(reason(), HasSubstr("it lies in the future"));
}

TEST_F(HealthStores, of_root_refuse_a_place_that_others_may_write_to) {
  const HealthStore ofRoot(m_folder, true);
  fs::create_directories(m_folder);
  fs::permissions(m_folder, fs::perms::all);
  EXPECT_THROW(ofRoot.tryLock(), std::exception);
  EXPECT_THROW(ofRoot.keep(resultOf("all")), std::exception);
  EXPECT_THROW(ofRoot.last("all"), std::exception);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
