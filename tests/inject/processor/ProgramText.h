#pragma once

// The instructions of a program or library as the disassembler of binutils lists them, and wrong
// ones put in their place.

#include <fcntl.h>
#include <link.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace TarvexDiags::Tests {

struct Instruction {
  std::uintptr_t address = 0;  ///< as linked
  std::vector<unsigned char> bytes;
  std::string text;  ///< "addsd  %xmm1,%xmm0"

  std::string mnemonic() const { return text.substr(0, text.find(' ')); }
};

struct Function {
  std::string symbol;
  std::vector<Instruction> instructions;
};

/// @brief The functions of a file, by their addresses as linked.
using ProgramText = std::map<std::uintptr_t, Function>;

/// @brief One line of the disassembler's: "  401136:<tab>48 89 e5 <tab>mov    %rsp,%rbp".
inline Instruction instructionOf(const std::string& line) {
  Instruction instruction;
  char* end = nullptr;
  instruction.address = std::strtoul(line.c_str(), &end, 16);
  const std::size_t bytes = line.find('\t');
  const std::size_t text = line.find('\t', bytes + 1);
  const std::string hexadecimal = line.substr(bytes + 1, text - bytes - 1);
  for (std::size_t place = 0; place + 1 < hexadecimal.size(); place += 3) {
    if (hexadecimal[place] == ' ') {
      break;
    }
    instruction.bytes.push_back(static_cast<unsigned char>(
        std::strtoul(hexadecimal.substr(place, 2).c_str(), nullptr, 16)));
  }
  instruction.text = text == std::string::npos ? "" : line.substr(text + 1);
  return instruction;
}

/// @param begin  from this address as linked, up to the end; all of it when both are 0
inline ProgramText disassembled(const std::string& file, std::uintptr_t begin = 0,
                                std::uintptr_t end = 0) {
  const std::string range = end == 0 ? ""
                                     : " --start-address=" + std::to_string(begin) +
                                           " --stop-address=" + std::to_string(end);
  const std::string command = "objdump -d -w" + range + " '" + file + "'";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> lines(popen(command.c_str(), "r"), pclose);
  if (lines == nullptr) {
    throw std::runtime_error("no disassembler");
  }
  ProgramText functions;
  Function* current = nullptr;
  char* buffer = nullptr;
  std::size_t room = 0;
  while (getline(&buffer, &room, lines.get()) > 0) {
    std::string line = buffer;
    line.pop_back();
    if (line.ends_with(">:")) {
      const std::size_t name = line.find('<') + 1;
      current = &functions[std::strtoul(line.c_str(), nullptr, 16)];
      current->symbol = line.substr(name, line.size() - name - 2);
    } else if (current != nullptr && line.find(":\t") != std::string::npos) {
      current->instructions.push_back(instructionOf(line));
    }
  }
  std::free(buffer);
  return functions;
}

/// @brief Writes into the text of a process, which may be this one.
/// @param address  where it is mapped
/// @return false when the process has gone or nobody may write there
inline bool writeText(pid_t process, std::uintptr_t address,
                      const std::vector<unsigned char>& bytes) {
  const std::string name = "/proc/" + std::to_string(process) + "/mem";
  const int file = open(name.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  const ssize_t written = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(address));
  close(file);
  return written == static_cast<ssize_t>(bytes.size());
}

/// @brief What this program's addresses were moved by when it was loaded.
inline std::uintptr_t loadOffset() {
  std::uintptr_t offset = 0;
  dl_iterate_phdr(
      [](dl_phdr_info* object, std::size_t, void* found) {
        *static_cast<std::uintptr_t*>(found) = object->dlpi_addr;
        return 1;  // the program itself comes first
      },
      &offset);
  return offset;
}

/// @brief An instruction that does nothing, as long as another one.
inline std::vector<unsigned char> nothing(std::size_t length) {
  return std::vector<unsigned char>(length, 0x90);
}

}  // namespace TarvexDiags::Tests
