#include "diagctl/session/DiscoveryWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using PackageKit::Contract::DiscoveryLine;

// How often is looked whether a signal has come.
constexpr int kLookMilliseconds = 50;

void tellSlow(const DiscoveryLine& line) {
  if (line.text == "0") {
    standardError().say("diagctl: package {} is still looking for its devices\n", line.package);
  } else {
    standardError().say("diagctl: package {} is still looking for its devices, for {} s at most\n",
                        line.package, line.text);
  }
}

std::string describe(const DiscoveryLine& line) {
  return line.lastLines.empty()
             ? tr("looking for its devices failed: {}", line.text)
             : tr("looking for its devices failed: {}; last output: {}", line.text, line.lastLines);
}

/// A thread that ends with the scope.
class Listener {
 public:
  explicit Listener(const std::function<void(int)>& listen) : m_end(eventfd(0, EFD_CLOEXEC)) {
    if (m_end < 0) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_thread = std::thread(listen, m_end);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() {
    eventfd_write(m_end, 1);
    m_thread.join();
    close(m_end);
  }

 private:
  const int m_end;
  std::thread m_thread;
};

}  // namespace

void DiscoveryWatch::follow(const std::function<void()>& enumeration) {
  {
    const Listener listener([this](int end) { listen(end); });
    enumeration();
  }
  takeLines();
}

void DiscoveryWatch::listen(int end) {
  pollfd sources[] = {{end, POLLIN, 0}, {m_inbox.descriptor(), POLLIN, 0}};
  while (sources[0].revents == 0) {
    poll(sources, std::size(sources), kLookMilliseconds);
    if (Interruption::requests().abortAll && !m_hasEnded) {
      m_inbox.endDiscoveries();
      m_hasEnded = true;
    }
    takeLines();
  }
}

void DiscoveryWatch::takeLines() {
  while (const auto line = m_inbox.next()) {
    if (line->kind == DiscoveryLine::Kind::Slow) {
      tellSlow(*line);
    } else {
      const System::LockHold hold(m_lock);
      m_failures.insert_or_assign(line->package, describe(*line));
    }
  }
}

std::map<std::string, std::string> DiscoveryWatch::takeFailures() {
  const System::LockHold hold(m_lock);
  return std::exchange(m_failures, {});
}

}  // namespace TarvexDiags::FrontEnd
