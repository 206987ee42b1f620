#include "installation/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "installation/Files.h"

AtomicFile::AtomicFile(const std::string& path)
    : m_target(std::filesystem::absolute(path)), m_path(m_target + ".new-XXXXXX") {
  std::error_code failure;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failure);
  m_descriptor = ::mkostemp(m_path.data(), O_CLOEXEC);  // of mode 0600
  if (m_descriptor < 0) {
    throwErrno(m_path, "cannot write", zaroruntime::FailureKind::Creation);
  }
}

AtomicFile::~AtomicFile() {
  close(m_descriptor);
  if (!m_isInPlace) {
    unlink(m_path.c_str());
  }
}

void AtomicFile::append(std::string_view text) {
  m_unwritten += text;
  constexpr std::size_t kPiece = 1U << 16U;
  if (m_unwritten.size() >= kPiece) {
    _flush();
  }
}

void AtomicFile::putInPlace() {
  _flush();
  if (fsync(m_descriptor) != 0) {
    throwErrno(m_path, "cannot bring to the disk");
  }
  if (std::rename(m_path.c_str(), m_target.c_str()) != 0) {
    throwErrno(m_target, "cannot replace");
  }
  m_isInPlace = true;
  tryToBringToDisk(std::filesystem::path(m_target).parent_path());
}

void AtomicFile::_flush() {
  for (std::size_t at = 0; at < m_unwritten.size();) {
    const ssize_t count = ::write(m_descriptor, m_unwritten.data() + at, m_unwritten.size() - at);
    if (count < 0 && errno != EINTR) {
      throwErrno(m_path, "cannot write");
    }
    at += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  m_unwritten.clear();
}
