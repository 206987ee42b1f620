#include "console/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

using zaroruntime::RuntimeError;

namespace {

constexpr std::size_t kBufferSize = 65536;

}  // namespace

void withoutByteOrderMark(std::string& line, std::size_t number) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (number == 1 && line.compare(0, kMark.size(), kMark) == 0) {
    line.erase(0, kMark.size());
  }
}

LineReader::LineReader(const std::string& path)
    : m_name(path), m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), m_owned(true), m_buffer(kBufferSize) {
  if (m_descriptor < 0) {
    throw RuntimeError(path + ": cannot open: " + std::strerror(errno), zaroruntime::kindOfFileError(errno));
  }
  struct stat status = {};
  if (fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    m_size = static_cast<std::uint64_t>(status.st_size);
  }
}

LineReader::LineReader(int descriptor, std::string name, std::function<void()> beforeWaiting)
    : m_name(std::move(name)),
      m_descriptor(descriptor),
      m_owned(false),
      m_beforeWaiting(std::move(beforeWaiting)),
      m_buffer(kBufferSize) {}

LineReader::~LineReader() {
  if (m_owned && m_descriptor >= 0) {
    close(m_descriptor);
  }
}

bool LineReader::next(std::string& line) {
  line.clear();
  bool tooLong = false;
  for (;;) {
    if (m_begin == m_end && !_fill()) {
      if (line.empty() && !tooLong) {
        return false;
      }
      break;
    }
    const char* begin = m_buffer.data() + m_begin;
    const char* end = m_buffer.data() + m_end;
    const char* lineEnd = std::find(begin, end, '\n');
    if (line.size() + static_cast<std::size_t>(lineEnd - begin) > kLongestLine + 1) {
      tooLong = true;  // even if its last byte belongs to the line's end
    } else {
      line.append(begin, lineEnd);
    }
    m_begin += static_cast<std::size_t>(lineEnd - begin);
    if (lineEnd != end) {
      ++m_begin;
      break;
    }
  }
  ++m_lineNumber;
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  if (tooLong || line.size() > kLongestLine) {
    throw BadLine(m_name, m_lineNumber, "longer than " + std::to_string(kLongestLine) + " bytes");
  }
  if (line.find('\0') != std::string::npos) {
    throw BadLine(m_name, m_lineNumber, "a NUL in a text");
  }
  return true;
}

bool LineReader::_fill() {
  if (m_beforeWaiting) {
    m_beforeWaiting();
  }
  ssize_t got = 0;
  do {
    got = read(m_descriptor, m_buffer.data(), m_buffer.size());
  } while (got < 0 && errno == EINTR);
  if (got < 0) {
    throw RuntimeError(m_name + ": cannot read: " + std::strerror(errno), zaroruntime::kindOfFileError(errno));
  }
  m_begin = 0;
  m_end = static_cast<std::size_t>(got);
  m_bytesRead += m_end;
  return got > 0;
}
