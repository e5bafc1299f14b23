#pragma once

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The key by which a test, or section `Package` for all of them, names what its worker
/// keeps of root's rights: words of kCapabilityNames and kCallGroupNames between commas or blanks,
/// in any case, or kNoPrivileges. A worker of anybody else has no such rights in any case.
inline constexpr const char* kPrivilegesKey = "Privileges";

/// @brief The value that names nothing, for a test whose package names something.
inline constexpr const char* kNoPrivileges = "none";

/// @brief By their numbers, see capabilities(7).
inline constexpr std::array<const char*, 41> kCapabilityNames = {"CAP_CHOWN",
                                                                 "CAP_DAC_OVERRIDE",
                                                                 "CAP_DAC_READ_SEARCH",
                                                                 "CAP_FOWNER",
                                                                 "CAP_FSETID",
                                                                 "CAP_KILL",
                                                                 "CAP_SETGID",
                                                                 "CAP_SETUID",
                                                                 "CAP_SETPCAP",
                                                                 "CAP_LINUX_IMMUTABLE",
                                                                 "CAP_NET_BIND_SERVICE",
                                                                 "CAP_NET_BROADCAST",
                                                                 "CAP_NET_ADMIN",
                                                                 "CAP_NET_RAW",
                                                                 "CAP_IPC_LOCK",
                                                                 "CAP_IPC_OWNER",
                                                                 "CAP_SYS_MODULE",
                                                                 "CAP_SYS_RAWIO",
                                                                 "CAP_SYS_CHROOT",
                                                                 "CAP_SYS_PTRACE",
                                                                 "CAP_SYS_PACCT",
                                                                 "CAP_SYS_ADMIN",
                                                                 "CAP_SYS_BOOT",
                                                                 "CAP_SYS_NICE",
                                                                 "CAP_SYS_RESOURCE",
                                                                 "CAP_SYS_TIME",
                                                                 "CAP_SYS_TTY_CONFIG",
                                                                 "CAP_MKNOD",
                                                                 "CAP_LEASE",
                                                                 "CAP_AUDIT_WRITE",
                                                                 "CAP_AUDIT_CONTROL",
                                                                 "CAP_SETFCAP",
                                                                 "CAP_MAC_OVERRIDE",
                                                                 "CAP_MAC_ADMIN",
                                                                 "CAP_SYSLOG",
                                                                 "CAP_WAKE_ALARM",
                                                                 "CAP_BLOCK_SUSPEND",
                                                                 "CAP_AUDIT_READ",
                                                                 "CAP_PERFMON",
                                                                 "CAP_BPF",
                                                                 "CAP_CHECKPOINT_RESTORE"};

/// @brief Calls that no worker makes unless its test names the group.
enum class CallGroup : unsigned char { Modules, Mount, Reboot, Bpf, Keyctl, Ptrace };
inline constexpr std::array<const char*, 6> kCallGroupNames = {"modules", "mount",  "reboot",
                                                               "bpf",     "keyctl", "ptrace"};

/// @brief What a worker may do. Thread-safety: a plain value.
struct Privileges {
  std::uint64_t capabilities = 0;  ///< a bit for each
  unsigned int callGroups = 0;     ///< a bit for each

  bool has(CallGroup group) const {
    return (callGroups >> static_cast<unsigned int>(group) & 1U) != 0;
  }
  bool hasCapability(std::size_t number) const {
    return number < kCapabilityNames.size() && (capabilities >> number & 1U) != 0;
  }
};

/// @brief The words of a value.
inline std::vector<std::string> privilegeWords(const std::string& text) {
  constexpr const char* between = ", \t";
  std::vector<std::string> words;
  for (std::size_t begin = text.find_first_not_of(between); begin != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(between, begin), text.size());
    words.push_back(text.substr(begin, end - begin));
    begin = text.find_first_not_of(between, end);
  }
  return words;
}

/// @brief Adds what the word names. False when it names nothing that there is.
inline bool addPrivilege(Privileges& privileges, const std::string& word) {
  const auto isWord = [&word](const char* name) { return strcasecmp(name, word.c_str()) == 0; };
  const auto capability = std::find_if(kCapabilityNames.begin(), kCapabilityNames.end(), isWord) -
                          kCapabilityNames.begin();
  const auto group = std::find_if(kCallGroupNames.begin(), kCallGroupNames.end(), isWord) -
                     kCallGroupNames.begin();
  if (static_cast<std::size_t>(capability) < kCapabilityNames.size()) {
    privileges.capabilities |= std::uint64_t{1} << capability;
    return true;
  }
  if (static_cast<std::size_t>(group) < kCallGroupNames.size()) {
    privileges.callGroups |= 1U << group;
    return true;
  }
  return isWord(kNoPrivileges);
}

/// @brief What a value names; a word that names nothing gives nothing.
inline Privileges privilegesFrom(const std::string& text) {
  Privileges privileges;
  for (const std::string& word : privilegeWords(text)) {
    addPrivilege(privileges, word);
  }
  return privileges;
}

/// @brief The first word of a value that names nothing; nothing when all do.
inline std::optional<std::string> unknownPrivilege(const std::string& text) {
  Privileges privileges;
  for (const std::string& word : privilegeWords(text)) {
    if (!addPrivilege(privileges, word)) {
      return word;
    }
  }
  return std::nullopt;
}

/// @brief The value that names these: the names as they are written here, between commas and
/// blanks. Empty when there are none.
inline std::string toText(const Privileges& privileges) {
  std::string text;
  const auto add = [&text](const char* name) {
    text += (text.empty() ? "" : ", ") + std::string(name);
  };
  for (std::size_t number = 0; number < kCapabilityNames.size(); ++number) {
    if (privileges.hasCapability(number)) {
      add(kCapabilityNames[number]);
    }
  }
  for (std::size_t group = 0; group < kCallGroupNames.size(); ++group) {
    if (privileges.has(static_cast<CallGroup>(group))) {
      add(kCallGroupNames[group]);
    }
  }
  return text;
}

}  // namespace TarvexDiags::PackageKit::Contract
