#include "tests/security/ServedFiles.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <vector>

namespace TarvexDiags::SecurityTest {

namespace {

constexpr std::uint64_t kFile = 2;

void require(bool isDone, const char* what) {
  if (!isDone) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

fuse_attr attributesOf(std::uint64_t node) {
  fuse_attr attributes{};
  attributes.ino = node;
  attributes.mode = node == kFile ? S_IFREG | 0644 : S_IFDIR | 0755;
  attributes.nlink = 1;
  return attributes;
}

/// One question of the kernel's, and where the answers go.
class Question {
 public:
  Question(int device, const char* bytes) : m_device(device), m_argument(bytes + sizeof m_header) {
    std::memcpy(&m_header, bytes, sizeof m_header);
  }

  void answer() const {
    if (m_header.opcode == FUSE_INIT) {
      fuse_init_out answer{};
      answer.major = FUSE_KERNEL_VERSION;
      answer.minor = FUSE_KERNEL_MINOR_VERSION;
      answer.max_write = 4096;
      send(answer);
    } else if (m_header.opcode == FUSE_GETATTR) {
      fuse_attr_out answer{};
      answer.attr = attributesOf(m_header.nodeid);
      send(answer);
    } else if (m_header.opcode == FUSE_LOOKUP && std::strcmp(m_argument, "file") == 0) {
      fuse_entry_out answer{};
      answer.nodeid = kFile;
      answer.attr = attributesOf(kFile);
      send(answer);
    } else if (m_header.opcode != FUSE_FORGET && m_header.opcode != FUSE_BATCH_FORGET) {
      refuse();
    }
  }

 private:
  template <class Answer>
  void send(const Answer& answer) const {
    struct {
      fuse_out_header header;
      Answer answer;
    } message{{sizeof message, 0, m_header.unique}, answer};
    sendBytes(&message, sizeof message);
  }

  void refuse() const {
    const fuse_out_header header{sizeof header, -ENOENT, m_header.unique};
    sendBytes(&header, sizeof header);
  }

  // Who asked may have gone.
  void sendBytes(const void* bytes, std::size_t size) const {
    const ssize_t ignored = write(m_device, bytes, size);
    static_cast<void>(ignored);
  }

  int m_device;
  fuse_in_header m_header{};
  const char* m_argument;
};

}  // namespace

ServedFiles::ServedFiles(const std::string& directory, uid_t user)
    : m_directory(directory), m_device(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
  require(m_device >= 0, "/dev/fuse");
  const std::string number = std::to_string(user);
  const std::string options = "fd=" + std::to_string(m_device) +
                              ",rootmode=40000,user_id=" + number + ",group_id=" + number +
                              ",allow_other";
  require(mount("served", directory.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) == 0,
          "mounting");
  m_server = std::thread([this] { serve(); });
}

ServedFiles::~ServedFiles() {
  umount2(m_directory.c_str(), MNT_FORCE);  // the server hears that nobody will ask any more
  m_server.join();
  close(m_device);
}

void ServedFiles::serve() const {
  std::vector<char> bytes(FUSE_MIN_READ_BUFFER + 4096);
  while (true) {
    const ssize_t size = read(m_device, bytes.data(), bytes.size() - 1);
    if (size >= static_cast<ssize_t>(sizeof(fuse_in_header))) {
      bytes[static_cast<std::size_t>(size)] = '\0';
      Question(m_device, bytes.data()).answer();
    } else if (errno != EINTR && errno != EAGAIN && errno != ENOENT) {
      return;
    }
  }
}

}  // namespace TarvexDiags::SecurityTest
