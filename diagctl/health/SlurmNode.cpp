#include "diagctl/health/SlurmNode.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "System/SysUtil.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kNodeVariable = "SLURMD_NODENAME";
constexpr const char* kScontrol = "scontrol";

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// As names of hosts are: what is none would be another argument, or several nodes.
bool isNodeName(const std::string& name) {
  return !name.empty() && name.front() != '-' &&
         std::all_of(name.begin(), name.end(), [](char character) {
           return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '-' ||
                  character == '_' || character == '.';
         });
}

std::string nameOfNode() {
  std::string name = variable(kNodeVariable);
  if (name.empty()) {
    throw std::runtime_error(tr("{} is not set: Slurm sets it for what it starts", kNodeVariable));
  }
  if (!isNodeName(name)) {
    throw std::runtime_error(tr("{}: '{}' is no name of a node", kNodeVariable, name));
  }
  return name;
}

// Slurm promises no search path.
std::string findScontrol(bool isSecure) {
  std::istringstream path(variable("PATH") + ":/usr/bin:/usr/local/bin:/opt/slurm/bin");
  for (std::string directory; std::getline(path, directory, ':');) {
    std::string program = directory + "/" + kScontrol;
    if (!directory.starts_with('/') || access(program.c_str(), X_OK) != 0) {
      continue;
    }
    if (isSecure) {
      requireSecureProgram(program);
    }
    return program;
  }
  throw std::runtime_error(tr("{} was not found in PATH", kScontrol));
}

// What it says of why it did nothing.
std::string whyNot(const ProgramOutcome& outcome) {
  if (outcome.code < 0) {
    return tr("it did not end in time");
  }
  const std::string text = outcome.err.empty() ? outcome.out : outcome.err;
  const std::string line = System::SysUtil::stripSpaces(text.substr(0, text.find('\n')));
  return line.empty() ? tr("it ended with {}", outcome.code) : line;
}

}  // namespace

SlurmNode::SlurmNode(std::optional<std::string> configuration, bool isSecure,
                     ChildProcess::Clock::time_point until)
    : m_name(nameOfNode()), m_program(findScontrol(isSecure)), m_until(until) {
  if (!configuration && !variable("SLURM_CONF").empty()) {
    configuration = variable("SLURM_CONF");
  }
  if (configuration && isSecure) {  // which names what scontrol loads
    requireSecurePath(*configuration);
  }
  m_environment = {"LC_ALL=C", "PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  if (configuration) {
    m_environment.push_back("SLURM_CONF=" + *configuration);
  }
}

std::string SlurmNode::ask(const std::vector<std::string>& words) const {
  std::vector<std::string> all = {m_program};
  all.insert(all.end(), words.begin(), words.end());
  const ProgramOutcome outcome = runProgram(all, m_environment, m_until);
  if (outcome.code != 0) {
    throw std::runtime_error(
        tr("node {}: {} {}: {}", m_name, kScontrol, words.front(), toPrintable(whyNot(outcome))));
  }
  return outcome.out;
}

SlurmState SlurmNode::state() const {
  const auto state = slurmStateFrom(ask({"show", "node", m_name}));
  if (!state) {
    throw std::runtime_error(tr("node {}: {} tells no state of it", m_name, kScontrol));
  }
  return *state;
}

std::string SlurmNode::drain(const std::string& reason) const {
  const SlurmState present = state();
  if (!present.isFree()) {
    return tr("node {} is left as it is: {}", m_name, toPrintable(present.reason));
  }
  ask({"update", "NodeName=" + m_name, "State=DRAIN",
       fmt::format("Reason={} {}", kOwnReason, reason)});
  return tr("node {} is drained", m_name);
}

std::string SlurmNode::undrainOwn() const {
  const SlurmState present = state();
  if (!present.isDrained || present.isDown || !present.isOwn()) {
    return "";
  }
  ask({"update", "NodeName=" + m_name, "State=RESUME"});
  return tr("node {} is given back", m_name);
}

}  // namespace TarvexDiags::FrontEnd
