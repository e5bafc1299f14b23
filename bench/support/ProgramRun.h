#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace TarvexDiags::Bench {

/// Runs a program with its output thrown away, to its end.
/// @param words its path and its arguments.
/// @return the most memory that it took, in MiB.
/// @throws std::runtime_error when it ends with more than 1, which is a verdict.
inline double memoryOfRun(const std::vector<std::string>& words) {
  const pid_t process = fork();
  if (process == 0) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : words) {
      arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(process, &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
    throw std::runtime_error(words.at(1) + " has ended with status " + std::to_string(status));
  }
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

}  // namespace TarvexDiags::Bench
