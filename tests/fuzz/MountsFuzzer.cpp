// Finds the mounts on a disk in any list of mounts. What stands in a name changes nothing beside
// it.
//
// Input: one byte, whose lowest bit says which kind. 0: the rest is the list. 1: mounts, each of
// one byte (number, type, whether read-only) and of names up to a zero byte: directory, source, the
// upper layer of an overlay, and the type where bit 5 says so.

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "packages/storage/Disks.h"
#include "tests/fuzz/Input.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::Storage;

const std::map<std::string, std::string> kDevices = {
    {"8:1", "sda1"}, {"8:2", "sda2"}, {"252:0", "dm-0"}};
constexpr const char* kNoDisk = "9:9";

// A path's device follows from the path, so that one that was read wrongly leads elsewhere.
std::string numberOf(const std::string& path) {
  return path.size() % 2 == 0 ? "8:2" : kNoDisk;
}

std::vector<Mount> read(const std::string& list) {
  std::istringstream lines(list);
  return mountsAmong(lines, kDevices, {numberOf, numberOf});
}

void checkAnyList(const std::string& list) {
  std::size_t lines = 0;
  std::istringstream stream(list);
  for (std::string line; std::getline(stream, line);) {
    ++lines;
  }
  const std::vector<Mount> mounts = read(list);
  expect(mounts.size() <= lines);
  for (const Mount& mount : mounts) {
    expect(mount.device == "sda1" || mount.device == "sda2" || mount.device == "dm-0");
  }
}

/// As the kernel writes names.
std::string escape(const std::string& name, const std::string& special) {
  std::string escaped;
  for (const char character : name) {
    if (special.find(character) == std::string::npos) {
      escaped += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      escaped += '\\';
      escaped += static_cast<char>('0' + byte / 64);
      escaped += static_cast<char>('0' + byte / 8 % 8);
      escaped += static_cast<char>('0' + byte % 8);
    }
  }
  return escaped;
}

constexpr const char* kSpecial = " \t\n\\";

/// A mount as somebody made it, and as it is to be found.
struct Made {
  std::string number;
  std::string directory;
  bool isReadOnly;
  std::string type;
  std::string source;
  std::string upper;

  std::string line() const {
    const std::string layers = ",upperdir=" + escape(upper, std::string(kSpecial) + ",=");
    return "22 1 " + number + " / " + escape(directory, kSpecial) + (isReadOnly ? " ro" : " rw") +
           " shared:1 - " + escape(type, kSpecial) + " " + escape(source, kSpecial) + " rw" +
           (type == "overlay" ? layers : "") + "\n";
  }

  std::string device() const {
    const bool isAnonymous = number.starts_with("0:");
    std::string carrier = isAnonymous ? "" : number;
    if (isAnonymous && (type == "btrfs" || type == "bcachefs")) {
      carrier = numberOf(source);
    } else if (isAnonymous && type == "overlay" && !upper.empty()) {
      carrier = numberOf(upper);
    }
    const auto found = kDevices.find(carrier);
    return found == kDevices.end() ? "" : found->second;
  }
};

Made takeMount(std::string& rest) {
  static const std::vector<std::string> kNumbers = {"8:1", "252:0", "0:40", kNoDisk};
  static const std::vector<std::string> kTypes = {"btrfs", "overlay", "tmpfs", "bcachefs"};
  const std::uint8_t kind = takeByte(rest);
  Made made{kNumbers[kind % 4],   takeUntil(rest, '\0'), (kind & 4U) != 0,
            kTypes[kind / 8 % 4], takeUntil(rest, '\0'), takeUntil(rest, '\0')};
  if ((kind & 32U) != 0) {
    made.type = takeUntil(rest, '\0');
  }
  // The kernel has no mount without a type.
  made.type = made.type.empty() ? "none" : made.type;
  return made;
}

void checkNames(std::string rest) {
  constexpr std::size_t most = 16;
  std::vector<Made> expected;
  std::string list;
  for (std::size_t count = 0; count < most && !rest.empty(); ++count) {
    const Made made = takeMount(rest);
    list += made.line();
    if (!made.device().empty()) {
      expected.push_back(made);
    }
  }
  const std::vector<Mount> mounts = read(list);
  expect(mounts.size() == expected.size());
  for (std::size_t index = 0; index < mounts.size(); ++index) {
    expect(mounts[index].directory == expected[index].directory);
    expect(mounts[index].device == expected[index].device());
    expect(mounts[index].readOnly == expected[index].isReadOnly);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string rest = textOf(data, size);
  if (takeByte(rest) % 2 == 0) {
    checkAnyList(rest);
  } else {
    checkNames(rest);
  }
  return 0;
}
