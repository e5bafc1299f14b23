#include "packages/network/InterfaceRecords.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/InterfaceSetter.h"

namespace TarvexDiags::Network {
namespace {

namespace fs = std::filesystem;
using Fields = std::map<std::string, std::string>;

constexpr const char* kUnfinished = ".new";

std::string firstLineOf(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

/// @brief Names this start of the machine; what another one has recorded means nothing any more.
std::string bootName() {
  return firstLineOf("/proc/sys/kernel/random/boot_id");
}

/// @brief Names the calling thread's network namespace.
std::string namespaceName() {
  struct stat status {};
  if (stat("/proc/thread-self/ns/net", &status) != 0) {
    throw std::system_error(errno, std::generic_category(), "/proc/thread-self/ns/net");
  }
  return std::to_string(status.st_dev) + "-" + std::to_string(status.st_ino);
}

/// @brief When a process was started, which tells it from a later one of the same number. Empty
/// when there is none.
std::string startOf(const std::string& process) {
  std::string line = firstLineOf("/proc/" + process + "/stat");
  // The name may hold anything; the third word comes after its bracket, the time is the 22nd.
  std::istringstream words(line.substr(std::min(line.size(), line.rfind(')') + 1)));
  std::string word;
  for (int number = 3; number <= 22; ++number) {
    words >> word;
  }
  return words ? word : std::string();
}

std::string textOf(const Fields& fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    text.append(name).append("=").append(value).append("\n");
  }
  return text;
}

/// @brief Whether nobody but this user, or root, can have written a file.
bool isOwn(const fs::path& file) {
  struct stat status {};
  return lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_uid == geteuid() || status.st_uid == 0) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// @brief Makes a directory, and those above it, that others may not write to, whatever the umask.
void makeDirectory(const fs::path& directory) {
  constexpr mode_t kOthersRead = 0755;
  fs::path made;
  for (const fs::path& name : directory) {
    made /= name;
    mkdir(made.c_str(), kOthersRead);  // of a fault the record's own file tells
  }
}

Fields readFields(const fs::path& file) {
  Fields fields;
  if (!isOwn(file)) {
    return fields;
  }
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    const std::size_t sign = line.find('=');
    if (sign != std::string::npos) {
      fields[line.substr(0, sign)] = line.substr(sign + 1);
    }
  }
  return fields;
}

[[noreturn]] void fail(const fs::path& file) {
  throw NotSupported(Reasons::kNoRecord,
                     file.string() + ": " + std::generic_category().message(errno));
}

void writeFile(const fs::path& file, const std::string& text) {
  constexpr mode_t kMode = 0600;
  const PackageKit::UniqueDescriptor descriptor(
      open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kMode));
  const auto size = static_cast<ssize_t>(text.size());
  if (!descriptor || write(descriptor.get(), text.data(), text.size()) != size ||
      fsync(descriptor.get()) != 0) {
    fail(file);
  }
}

/// @brief The interface as recorded; one that was given the name of another meanwhile is not it.
std::optional<Link> findLink(const Fields& fields) {
  for (Link& link : readLinks()) {
    if (link.name == fields.at("interface") && link.hardwareAddress == fields.at("address")) {
      return std::move(link);
    }
  }
  return std::nullopt;
}

bool isComplete(const Fields& fields) {
  constexpr std::array kNames{"interface", "address", "kind",  "up",
                              "namespace", "owner",   "start", "boot"};
  return std::all_of(kNames.begin(), kNames.end(),
                     [&](const char* name) { return fields.contains(name); });
}

}  // namespace

fs::path InterfaceRecords::add(const Link& link) const {
  std::error_code failure;
  makeDirectory(m_directory);
  const std::string owner = std::to_string(getpid());
  const std::string home = namespaceName();
  fs::path file = m_directory / (home + "-" + link.name);
  fs::path unfinished = file;
  unfinished += kUnfinished;
  writeFile(unfinished, textOf({{"interface", link.name},
                                {"address", link.hardwareAddress},
                                {"kind", link.kind},
                                {"up", link.up ? "1" : "0"},
                                {"namespace", home},
                                {"owner", owner},
                                {"start", startOf(owner)},
                                {"boot", bootName()}}));
  fs::rename(unfinished, file, failure);
  if (failure) {
    errno = failure.value();
    fail(file);
  }
  return file;
}

std::vector<std::string> InterfaceRecords::restore() const {
  std::vector<std::string> done;
  std::error_code failure;
  for (fs::directory_iterator entry(m_directory, failure), end; entry != end;
       entry.increment(failure)) {
    const fs::path file = entry->path();
    if (file.extension() == kUnfinished) {
      continue;
    }
    try {
      if (auto line = restoreFrom(file)) {
        done.push_back(*std::move(line));
      }
    } catch (const std::system_error& error) {
      // Without the privilege the record waits for somebody who has it.
      done.push_back(file.string() + ": " + error.what());
    }
  }
  if (failure && failure != std::errc::no_such_file_or_directory) {
    done.push_back(m_directory.string() + ": " + failure.message());
  }
  return done;
}

std::optional<std::string> InterfaceRecords::restoreFrom(const fs::path& file) {
  std::error_code ignored;
  const Fields fields = readFields(file);
  if (!isComplete(fields)) {
    return std::nullopt;  // another user's, or gone meanwhile
  }
  if (fields.at("boot") != bootName()) {
    fs::remove(file, ignored);
    return std::nullopt;
  }
  if (fields.at("namespace") != namespaceName() ||
      startOf(fields.at("owner")) == fields.at("start")) {
    return std::nullopt;
  }
  const std::string& interface = fields.at("interface");
  const bool isSoftware = !fields.at("kind").empty();
  const auto link = findLink(fields);
  // One of software has ended with its namespace. One of hardware may come back later, as the
  // kernel takes its time to end a namespace; its record is kept, so nobody needs to wait for it.
  if (!link && !isSoftware) {
    return interface + " was taken by a test that died, and is missing";
  }
  const bool isToBeSwitchedOn = link && !link->up && fields.at("up") == "1";
  if (isToBeSwitchedOn) {
    InterfaceSetter(interface).switchOn();
  }
  fs::remove(file, ignored);
  return isToBeSwitchedOn
             ? std::optional(interface +
                             " was switched on again: a test had died that had taken it")
             : std::nullopt;
}

}  // namespace TarvexDiags::Network
