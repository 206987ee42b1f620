#include "installation/AtomicFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "installation/Files.h"

namespace {

constexpr const char kSuffix[] = ".new-";
constexpr std::size_t kRandomLength = 6;

// Whether no writer has it any more: each holds the lock on its own as long as it lives. Only files as we make them.
bool isAbandoned(int descriptor) {
  constexpr mode_t kMode = S_IFREG | S_IRUSR | S_IWUSR;
  struct stat status = {};
  return ::fstat(descriptor, &status) == 0 && status.st_mode == kMode && status.st_uid == ::geteuid() &&
         ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

// What writers of a file left that were killed. Nothing here is worth a failure.
void removeAbandoned(const std::filesystem::path& target) {
  const std::string directory = target.parent_path();
  const std::string prefix = target.filename().string() + kSuffix;
  const auto close = [](DIR* names) { ::closedir(names); };
  const std::unique_ptr<DIR, decltype(close)> names(::opendir(directory.c_str()), close);
  const dirent* entry = nullptr;
  while (names != nullptr && (entry = ::readdir(names.get())) != nullptr) {
    const std::string name = entry->d_name;
    if (name.size() != prefix.size() + kRandomLength || name.compare(0, prefix.size(), prefix) != 0) {
      continue;
    }
    const std::string path = directory + "/" + name;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0) {
      if (isAbandoned(descriptor)) {
        ::unlink(path.c_str());
      }
      ::close(descriptor);
    }
  }
}

// Whether it still has its name: another writer may have taken it for abandoned before it was locked.
bool isThere(int descriptor) {
  struct stat status = {};
  return ::fstat(descriptor, &status) == 0 && status.st_nlink != 0;
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path) : m_target(std::filesystem::absolute(path)) {
  std::error_code failure;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failure);
  removeAbandoned(m_target);
  do {
    if (m_descriptor >= 0) {
      ::close(m_descriptor);
    }
    m_path = m_target + kSuffix + std::string(kRandomLength, 'X');
    m_descriptor = ::mkostemp(m_path.data(), O_CLOEXEC);  // of mode 0600
    if (m_descriptor < 0) {
      throwErrno(m_path, "cannot write", zaroruntime::FailureKind::Creation);
    }
    static_cast<void>(::flock(m_descriptor, LOCK_EX));
  } while (!isThere(m_descriptor));
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
