#include "diagctl/report/LogFile.h"

#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ios>
#include <stdexcept>
#include <string_view>

#include "diagctl/report/Formats.h"
#include "diagctl/report/OpenedFile.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr int kMostMilliseconds = 3000;  ///< for somebody who begins to write

struct stat statusOfLog(int descriptor) {
  struct stat info {};
  fstat(descriptor, &info);
  return info;
}

// Opening it would wait for ever, and so would reading it: of a pipe that nobody has opened to
// write, a read that does not wait is at its end at once.
void requireWriter(const OpenedFile& pipe, const std::string& name) {
  pollfd polled{pipe.get(), POLLIN, 0};
  if (poll(&polled, 1, kMostMilliseconds) != 0) {
    return;
  }
  char ignored = 0;
  if (read(pipe.get(), &ignored, 1) >= 0) {
    throw std::runtime_error(tr("{}: is a pipe that nobody writes to", name));
  }
}

// Some editors put it in front. What is only a part of one is none, and no log either.
void skipByteOrderMark(std::istream& in) {
  constexpr std::string_view mark = "\xef\xbb\xbf";
  using Traits = std::istream::traits_type;
  for (const char byte : mark) {
    if (in.peek() != Traits::to_int_type(byte)) {
      return;
    }
    in.ignore();
  }
}

}  // namespace

std::string toldAsNoLog(const std::string& name) {
  return tr("{}: is no log; run writes one with -o {}=FILE", name, kLogFormat);
}

LogFile::LogFile(const std::string& path) {
  if (path == kStandardInputName) {
    m_name = tr("standard input");
    m_stream = &standardInput();
    const struct stat info = statusOfLog(STDIN_FILENO);
    if (S_ISREG(info.st_mode)) {
      m_identity = Identity(info.st_dev, info.st_ino);
    }
  } else {
    m_name = path;
    open(path);
  }
  requireLog();
}

void LogFile::open(const std::string& path) {
  OpenedFile file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) {
    failWith(errno, path);
  }
  const struct stat info = statusOfLog(file.get());
  if (S_ISDIR(info.st_mode)) {
    failWith(EISDIR, path);
  }
  if (S_ISFIFO(info.st_mode)) {
    requireWriter(file, m_name);
  }
  if (S_ISREG(info.st_mode)) {
    m_identity = Identity(info.st_dev, info.st_ino);
  }
  fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
  auto buffer = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(file.get(), std::ios::in);
  if (!buffer->is_open()) {
    failWith(ENOMEM, path);
  }
  file.release();
  m_buffer = std::move(buffer);
  m_opened = std::make_unique<std::istream>(m_buffer.get());
  m_stream = m_opened.get();
}

// Each line of a log is an object. What cannot be read at all is told by whoever reads on.
void LogFile::requireLog() {
  try {
    skipByteOrderMark(*m_stream);
    const int first = m_stream->peek();
    if (first != std::istream::traits_type::eof() && first != '{' && first != '\n') {
      throw std::runtime_error(toldAsNoLog(m_name));
    }
    m_stream->clear();
  } catch (const std::ios_base::failure& failure) {
    throw std::runtime_error(fmt::format("{}: {}", m_name, failure.code().message()));
  }
}

}  // namespace TarvexDiags::FrontEnd
