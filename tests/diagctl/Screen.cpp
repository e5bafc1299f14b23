#include "tests/diagctl/Screen.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/diagctl/Program.h"

namespace TarvexDiags::DiagctlTest {

namespace {

std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char character : word) {
    text += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return text + "'";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += " " + quoted(word);
  }
  return text;
}

std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  std::array<char, 4096> part{};
  while (pipe != nullptr && fgets(part.data(), part.size(), pipe.get()) != nullptr) {
    output += part.data();
  }
  return output;
}

}  // namespace

std::size_t countOf(const Screen::Lines& lines, const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(),
                    [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

Screen::Screen(std::size_t columns, std::size_t rows, const std::vector<std::string>& arguments,
               const std::map<std::string, std::string>& environment) {
  std::vector<std::string> words{TARVEX_DIAGCTL};
  if (geteuid() == 0 && !isBuildTrusted()) {
    words.push_back("--allow-insecure");
  }
  words.insert(words.end(), arguments.begin(), arguments.end());
  m_directory.write("r", "#!/bin/sh\nexec" + joined(words) + "\n");
  std::filesystem::permissions(m_directory.file("r"), std::filesystem::perms::owner_all);
  m_directory.write("conf", "set -g status off\nset -g escape-time 0\n");
  std::vector<std::string> shell{"env", "LC_ALL=C.UTF-8", "PS1=$ ",
                                 "PATH=" + m_directory.path() + ":/usr/bin:/bin"};
  for (const auto& [name, value] : environment) {
    shell.push_back(name + "=" + value);
  }
  for (const char* word : {"bash", "--norc", "--noprofile", "-i"}) {
    shell.push_back(word);
  }
  tmux({"-u", "-f", m_directory.file("conf"), "new-session", "-d", "-x", std::to_string(columns),
        "-y", std::to_string(rows), joined(shell)});
  if (!waitFor("$")) {
    throw std::runtime_error("no window (tmux)");
  }
}

Screen::~Screen() {
  tmux({"kill-server"});
}

std::string Screen::tmux(const std::vector<std::string>& arguments) const {
  return outputOf("LC_ALL=C.UTF-8 tmux -S " + m_directory.file("socket") + joined(arguments) +
                  " 2>&1");
}

void Screen::type(const std::string& line) {
  tmux({"send-keys", "-l", line});
  press("Enter");
}

void Screen::press(const std::string& key) {
  tmux({"send-keys", key});
}

void Screen::resize(std::size_t columns, std::size_t rows) {
  tmux({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
}

void Screen::writeAsOther(const std::string& text) {
  std::string terminal = tmux({"display-message", "-p", "#{pane_tty}"});
  terminal.erase(terminal.find_last_not_of('\n') + 1);
  std::ofstream(terminal) << text << std::flush;
}

Screen::Lines Screen::lines() const {
  std::istringstream text(tmux({"capture-pane", "-p"}));
  Lines lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
  }
  while (!lines.empty() && lines.back().empty()) {
    lines.pop_back();
  }
  return lines;
}

std::string Screen::lineOf(const std::string& beginning) const {
  const Lines all = lines();
  const auto line = std::find_if(all.begin(), all.end(), [&](const std::string& candidate) {
    return candidate.starts_with(beginning);
  });
  return line != all.end() ? *line : "";
}

std::size_t Screen::countOf(const std::string& text) const {
  return DiagctlTest::countOf(lines(), text);
}

bool Screen::waitFor(const std::function<bool(const Lines&)>& isAsItShould,
                     std::chrono::milliseconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!isAsItShould(lines())) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // each look is a process
  }
  return true;
}

bool Screen::waitFor(const std::string& text) const {
  return waitFor([&](const Lines& lines) { return DiagctlTest::countOf(lines, text) > 0; });
}

std::string Screen::describe() const {
  std::string text = "shown:\n";
  for (const std::string& line : lines()) {
    text += "|" + line + "\n";
  }
  return text;
}

}  // namespace TarvexDiags::DiagctlTest
