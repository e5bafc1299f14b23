// The words by which a package names what its workers keep of root's rights.

#include <gtest/gtest.h>
#include <linux/capability.h>

#include <string>

#include "packagekit/contract/Privileges.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

TEST(PrivilegesTest, names_stand_for_the_numbers_of_the_kernel) {
  EXPECT_EQ(kCapabilityNames.size(), CAP_LAST_CAP + 1U);
  EXPECT_TRUE(privilegesFrom("CAP_CHOWN").hasCapability(CAP_CHOWN));
  EXPECT_TRUE(privilegesFrom("CAP_IPC_LOCK").hasCapability(CAP_IPC_LOCK));
  EXPECT_TRUE(privilegesFrom("CAP_SYS_RAWIO").hasCapability(CAP_SYS_RAWIO));
  EXPECT_TRUE(privilegesFrom("CAP_SYS_ADMIN").hasCapability(CAP_SYS_ADMIN));
  EXPECT_TRUE(privilegesFrom("CAP_SYSLOG").hasCapability(CAP_SYSLOG));
  EXPECT_TRUE(privilegesFrom("CAP_CHECKPOINT_RESTORE").hasCapability(CAP_CHECKPOINT_RESTORE));
}

TEST(PrivilegesTest, words_stand_between_commas_or_blanks_in_any_case) {
  const Privileges privileges = privilegesFrom(" cap_net_admin,\tPTRACE  ,Mount");
  EXPECT_EQ(privileges.capabilities, std::uint64_t{1} << CAP_NET_ADMIN);
  EXPECT_TRUE(privileges.has(CallGroup::Ptrace));
  EXPECT_TRUE(privileges.has(CallGroup::Mount));
  EXPECT_FALSE(privileges.has(CallGroup::Modules));
  EXPECT_EQ(toText(privileges), "CAP_NET_ADMIN, mount, ptrace");
}

TEST(PrivilegesTest, every_name_is_read_as_it_is_written) {
  Privileges all;
  all.capabilities = (std::uint64_t{1} << kCapabilityNames.size()) - 1;
  all.callGroups = (1U << kCallGroupNames.size()) - 1;
  const Privileges read = privilegesFrom(toText(all));
  EXPECT_EQ(read.capabilities, all.capabilities);
  EXPECT_EQ(read.callGroups, all.callGroups);
  EXPECT_FALSE(unknownPrivilege(toText(all)).has_value());
}

TEST(PrivilegesTest, none_names_nothing_and_is_known) {
  EXPECT_EQ(toText(privilegesFrom("none")), "");
  EXPECT_FALSE(unknownPrivilege("none").has_value());
  EXPECT_FALSE(unknownPrivilege("").has_value());
}

TEST(PrivilegesTest, a_word_that_names_nothing_is_told_and_gives_nothing) {
  EXPECT_EQ(unknownPrivilege("CAP_IPC_LOCK, CAP_EVERYTHING, root"), "CAP_EVERYTHING");
  EXPECT_EQ(toText(privilegesFrom("CAP_IPC_LOCK, CAP_EVERYTHING, root")), "CAP_IPC_LOCK");
  EXPECT_EQ(toText(privilegesFrom("CAP_IPC_LOCK2 IPC_LOCK")), "");
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
