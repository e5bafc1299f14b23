#include "diagctl/report/Spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::unique_ptr<std::iostream> makeSpool() {
  std::error_code failure;
  const std::filesystem::path directory = std::filesystem::temp_directory_path(failure);
  std::string path = (directory / "diagctl-XXXXXX").string();
  const OpenedFile file(failure ? -1 : mkostemp(path.data(), O_CLOEXEC));
  if (file) {
    unlink(path.c_str());
    auto spool = std::make_unique<std::fstream>(fmt::format("/proc/self/fd/{}", file.get()),
                                                std::ios::in | std::ios::out);
    if (*spool) {
      return spool;
    }
  }
  return std::make_unique<std::stringstream>();
}

}  // namespace

Spool::Spool() : m_stream(makeSpool()), m_out(*m_stream) {}

void Spool::writeTo(Printer& out) {
  m_out.flush();
  m_stream->seekg(0);
  for (std::string line; std::getline(*m_stream, line);) {
    out.write(line + "\n");
  }
}

}  // namespace TarvexDiags::FrontEnd
