// The system's list of shared objects.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "diagctl/session/ExecutedFiles.h"
#include "diagctl/session/LoaderCache.h"
#include "tests/security/Mounts.h"
#include "tests/security/People.h"
#include "tests/support/Places.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using FrontEnd::LoaderCache;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
namespace fs = std::filesystem;

std::string numberText(std::uint32_t number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

/// A list with a path for a name, and many of the same for another one.
std::string listOf(const std::string& name, const std::string& path) {
  constexpr std::uint32_t kEntries = 10;
  constexpr std::uint32_t kHead = 48;
  constexpr std::uint32_t kTexts = kHead + kEntries * 24;
  const std::string texts = name + '\0' + path + '\0' + "libother.so" + '\0';
  const std::uint32_t placeOfPath = kTexts + static_cast<std::uint32_t>(name.size()) + 1;
  const std::uint32_t placeOfOther = placeOfPath + static_cast<std::uint32_t>(path.size()) + 1;
  std::string list = "glibc-ld.so.cache1.1" + numberText(kEntries) +
                     numberText(static_cast<std::uint32_t>(texts.size()));
  list.resize(kHead);
  for (std::uint32_t entry = 0; entry < kEntries; ++entry) {
    list += numberText(3) + numberText(entry == 7 ? kTexts : placeOfOther) +
            numberText(placeOfPath) + std::string(12, '\0');
  }
  return list + texts;
}

class LoaderCacheTest : public ::testing::Test {
 protected:
  LoaderCacheTest() {
    fs::permissions(place.path(), fs::perms(0755));
    fs::create_directory(place.file("listed"));
    fs::copy_file(TestSupport::modulePath("security_needed"), listed);
  }

  const TestSupport::TemporaryDirectory place;
  const std::string listed = place.file("listed/libsecurity_needed.so");
  const std::string whole = listOf("libsecurity_needed.so", listed);
  const std::string list = place.write("list", whole);
};

TEST_F(LoaderCacheTest, has_the_paths_of_a_name) {
  EXPECT_THAT(LoaderCache(list).pathsOf("libsecurity_needed.so"), ElementsAre(listed));
  EXPECT_THAT(LoaderCache(list).pathsOf("libother.so"), SizeIs(9));
  EXPECT_THAT(LoaderCache(list).pathsOf("libsecurity_neede"), IsEmpty());
}

TEST_F(LoaderCacheTest, is_read_as_this_system_has_it) {
  EXPECT_THAT(LoaderCache().pathsOf("libc.so.6"), Contains(EndsWith("/libc.so.6")));
}

TEST_F(LoaderCacheTest, is_found_behind_one_of_the_older_format) {
  const std::string both = place.write("both", "ld.so-1.7.0" + std::string(21, '\0') + whole);
  EXPECT_THAT(LoaderCache(both).pathsOf("libsecurity_needed.so"), ElementsAre(listed));
}

TEST_F(LoaderCacheTest, does_no_harm_where_it_is_damaged) {
  for (std::size_t size = 0; size < whole.size(); ++size) {
    LoaderCache(place.write("damaged", whole.substr(0, size))).pathsOf("libother.so");
  }
  for (std::size_t begin = 0; begin < whole.size(); ++begin) {
    std::string wild = whole;
    std::fill(wild.begin() + static_cast<std::ptrdiff_t>(begin), wild.end(), '\xff');
    EXPECT_THAT(LoaderCache(place.write("damaged", wild)).pathsOf("libc.so.6"), IsEmpty());
  }
  EXPECT_THAT(LoaderCache(place.file("none")).pathsOf("libc.so.6"), IsEmpty());
}

TEST_F(LoaderCacheTest, makes_known_what_a_package_gets_from_the_system) {
  SKIP_UNLESS_ROOT();
  SKIP_UNLESS_MOUNTS_ARE_OWN();
  fs::create_directory(place.file("packages"));
  fs::copy_file(TestSupport::modulePath("security_needing"), place.file("packages/libNEEDING.so"));
  give(listed, kStranger);
  const auto findings = [this] {
    FrontEnd::PathInspection inspection;
    FrontEnd::inspectExecutedFiles("/etc/passwd", place.file("packages"), inspection);
    return inspection.findings();
  };
  const std::string finding = listed + ": is owned by user 61234 and not by root";
  EXPECT_THAT(findings(), Not(Contains(finding)));
  ASSERT_EQ(mount(list.c_str(), LoaderCache::kFile, nullptr, MS_BIND, nullptr), 0);
  const MountScope mounted(LoaderCache::kFile);
  EXPECT_THAT(findings(), Contains(finding));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
