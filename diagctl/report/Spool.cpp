#include "diagctl/report/Spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "diagctl/report/OpenedFile.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string directoryForTemporaryFiles() {
  std::error_code failure;
  const std::filesystem::path directory = std::filesystem::temp_directory_path(failure);
  return failure ? "" : directory.string();
}

/// Null, with the reason in errno, where none can be made.
std::unique_ptr<std::iostream> makeFile(const std::string& directory) {
  std::string path = directory + "/diagctl-XXXXXX";
  const OpenedFile file(directory.empty() ? -1 : mkostemp(path.data(), O_CLOEXEC));
  if (!file) {
    return nullptr;
  }
  unlink(path.c_str());
  auto stream = std::make_unique<std::fstream>(fmt::format("/proc/self/fd/{}", file.get()),
                                               std::ios::in | std::ios::out);
  return *stream ? std::move(stream) : nullptr;
}

}  // namespace

Spool::Spool() : Spool(makeFile(directoryForTemporaryFiles())) {}

Spool::Spool(std::unique_ptr<std::iostream> file)
    : m_isInMemory(file == nullptr),
      m_name(tr("the file for what a report holds meanwhile")),
      m_stream(m_isInMemory ? std::make_unique<std::stringstream>() : std::move(file)),
      m_out(*m_stream) {}

Spool::Spool(const std::string& directory, const std::string& name) : Spool(makeFile(directory)) {
  m_name = name;
  if (m_isInMemory) {
    failWith(errno, name);
  }
}

void Spool::writeTo(Printer& out) {
  m_out.flush();
  m_stream->seekg(0);
  for (std::string line; std::getline(*m_stream, line);) {
    out.write(line + "\n");
  }
}

Spool::Piece Spool::add(std::string_view text) {
  m_stream->seekp(0, std::ios::end);
  Piece piece{m_stream->tellp(), text.size(), {}};
  m_stream->write(text.data(), static_cast<std::streamsize>(text.size()));
  m_stream->flush();
  if (!*m_stream) {
    m_stream->clear();
    m_isInMemory = true;
    piece.held = text;
  }
  return piece;
}

std::string Spool::read(const Piece& piece) {
  if (!piece.held.empty()) {
    return piece.held;
  }
  errno = 0;
  std::string text(piece.size, '\0');
  m_stream->seekg(piece.from);
  m_stream->read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!*m_stream) {
    failWith(errno, m_name);
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
