#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "packagekit/contract/ClientDescriptor.h"
#include "packagekit/contract/SupportLines.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief What a package of the kit tells of its discovery while the client waits for the
/// controller, which knows a yes or no alone.
struct DiscoveryLine {
  enum class Kind {
    Slow,    ///< it takes long; the text is how many seconds it may take, "0" for no limit
    Failed,  ///< the package is left out; the text says why
  };
  Kind kind = Kind::Slow;
  std::string package;  ///< base name
  std::string text;
  std::string lastLines = {};  ///< what its process wrote last, joined with " | "
};

/// @brief Kind, package, text and last lines, between tabs.
inline std::string toText(const DiscoveryLine& line) {
  return std::string(line.kind == DiscoveryLine::Kind::Slow ? "slow" : "failed") + '\t' +
         toSupportField(line.package) + '\t' + toSupportField(line.text) + '\t' +
         toSupportField(line.lastLines);
}

/// @brief Reads what toText wrote; nothing for any other text.
inline std::optional<DiscoveryLine> toDiscoveryLine(std::string_view text) {
  std::array<std::string_view, 4> fields;
  for (std::size_t field = 0; field < fields.size(); ++field) {
    const std::size_t tab = text.find('\t');
    const bool isLast = field + 1 == fields.size();
    if (isLast != (tab == std::string_view::npos)) {
      return std::nullopt;
    }
    fields[field] = text.substr(0, tab);
    text.remove_prefix(isLast ? text.size() : tab + 1);
  }
  if (fields[0] != "slow" && fields[0] != "failed") {
    return std::nullopt;
  }
  return DiscoveryLine{
      fields[0] == "slow" ? DiscoveryLine::Kind::Slow : DiscoveryLine::Kind::Failed,
      std::string(fields[1]), std::string(fields[2]), std::string(fields[3])};
}

/// @brief The export by which a package's shared object begins to look for its devices ahead:
/// `void beginPackageDiscovery(const char* configFile, const char* logDirectory, DiagnosticMode)`.
/// The next enumeration in the same mode takes what was found, and waits for it if need be; so a
/// client that calls it for all packages before it has them enumerated has them looked through
/// beside each other. The shared object must stay open until then; closing it ends what was begun.
/// From the thread that has them enumerated, or any thread while that waits. May be absent.
inline constexpr const char* kBeginDiscovery = "beginPackageDiscovery";

/// @brief The environment variable by which packages find the client's line.
inline constexpr const char* kDiscoveryVariable = "TARVEXDIAGS_DISCOVERY_INBOX";

/// @brief The client's end: hears of discoveries, and can have them ended. One at a time in a
/// process; made before other threads run, since it changes the environment. Some hundred lines
/// wait to be read; those beyond are lost. Thread-safe.
class DiscoveryInbox {
 public:
  /// Throws std::system_error.
  DiscoveryInbox() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
      throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    m_ours = ends[0];
    m_theirs = ends[1];
    if (!announceDescriptor(kDiscoveryVariable, m_theirs)) {
      const int error = errno;
      close(m_ours);
      close(m_theirs);
      throw std::system_error(error, std::generic_category(), "announcing the discovery inbox");
    }
  }
  /// The variable stays, and leads nowhere: other threads may be reading the environment.
  ~DiscoveryInbox() {
    close(m_ours);
    close(m_theirs);
  }
  DiscoveryInbox(const DiscoveryInbox&) = delete;
  DiscoveryInbox& operator=(const DiscoveryInbox&) = delete;

  /// @brief Readable when there is a line.
  int descriptor() const { return m_ours; }

  /// @brief The next line; nothing when none waits.
  std::optional<DiscoveryLine> next() const {
    std::array<char, kLongestLine> buffer{};
    ssize_t size = 0;
    while ((size = recv(m_ours, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
      const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
      if (auto line = toDiscoveryLine(text)) {
        return line;
      }
    }
    return std::nullopt;
  }

  /// @brief Has every discovery that is under way, or begins later, ended within a second: its
  /// package is left out.
  void endDiscoveries() const { shutdown(m_ours, SHUT_WR); }

  /// The longest line, in bytes; what is longer is cut.
  static constexpr std::size_t kLongestLine = 16 * 1024;

 private:
  int m_ours = -1;
  int m_theirs = -1;
};

/// @brief The package's end: a descriptor that is readable once discoveries are to end; -1 for a
/// client that has none.
inline int discoveryDescriptor() {
  return announcedDescriptor(kDiscoveryVariable);
}

/// @brief The package's end: tells a line, if anybody wants it. Never waits. From any thread.
inline void sendDiscoveryLine(const DiscoveryLine& line) {
  const int descriptor = discoveryDescriptor();
  if (descriptor >= 0) {
    const std::string text = toText(line);
    [[maybe_unused]] const ssize_t size =
        send(descriptor, text.data(), std::min(text.size(), DiscoveryInbox::kLongestLine),
             MSG_DONTWAIT | MSG_NOSIGNAL);
  }
}

}  // namespace TarvexDiags::PackageKit::Contract
