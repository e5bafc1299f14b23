#include "diagctl/report/WrittenFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "diagctl/report/OutputFile.h"

namespace TarvexDiags::FrontEnd {

bool isPlainFile(const std::string& path) {
  return !std::filesystem::exists(path) || std::filesystem::is_regular_file(path);
}

WrittenFile::WrittenFile(const std::string& path, bool appends)
    : WrittenFile(path, path, appends) {}

WrittenFile::WrittenFile(const std::string& path, Access access)
    : WrittenFile(path, path, false, access) {}

WrittenFile::WrittenFile(const std::string& path, std::string name, bool appends, Access access)
    : m_path(path), m_name(std::move(name)) {
  const bool isOpen = leadsToWhatIsOpen(path);
  m_isPlain = isPlainFile(path) && !isOpen;
  m_file = streamTo(!appends && m_isPlain ? makeBeside(m_path, m_besides, m_name, access)
                                          : openOutput(path, appends || isOpen, m_name));
  if (!*m_file) {
    failWith(ENOMEM, m_name);
  }
  m_out = std::make_unique<Printer>(*m_file);
  if (appends && m_isPlain && endsWithinLine(path)) {
    m_out->write("\n");
  }
}

WrittenFile::~WrittenFile() {
  if (!m_besides.empty()) {
    std::remove(m_besides.c_str());
  }
}

void WrittenFile::finish() {
  errno = 0;
  m_out->flush();
  requireWritten();
  m_file->close();
  requireWritten();
  if (!m_besides.empty()) {
    synchronise(m_besides);  // what is renamed over an old report must be on the disk first
    if (std::rename(m_besides.c_str(), m_path.c_str()) != 0) {
      failWith(errno, m_name);
    }
    m_besides.clear();
  }
}

void WrittenFile::requireWritten() {
  if (!m_out->isSound() || !*m_file) {
    failWith(m_out->error() != 0 ? m_out->error() : errno, m_name);
  }
}

}  // namespace TarvexDiags::FrontEnd
