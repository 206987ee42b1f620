#include "installation/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"

namespace fs = std::filesystem;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

int openToRead(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    throwErrno(path, "cannot open");
  }
  return fd;
}

// Closes itself, also when what follows throws.
class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : m_fd(openToRead(path)) {}
  ~OpenFile() { ::close(m_fd); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int get() const { return m_fd; }

 private:
  int m_fd;
};

// Some file systems cannot refuse by themselves; then there is a gap between looking and moving.
int lookAndRename(const std::string& from, const std::string& to) {
  if (fs::exists(fs::symlink_status(to))) {
    errno = EEXIST;
    return -1;
  }
  return std::rename(from.c_str(), to.c_str());
}

}  // namespace

void throwErrno(const std::string& path, const char* what, FailureKind otherwise) {
  throw RuntimeError(path + ": " + what + ": " + std::strerror(errno), zaroruntime::kindOfFileError(errno, otherwise));
}

void bringToDisk(const std::string& path) {
  const OpenFile file(path);
  if (::fsync(file.get()) != 0) {
    throwErrno(path, "cannot write to disk");
  }
}

void tryToBringToDisk(const std::string& directory) {
  try {
    bringToDisk(directory);
  } catch (const RuntimeError& failure) {
    diagnose(std::string("warning: ") + failure.what() + "; it is done, but a power failure now could undo it");
  }
}

DirectoryLock::DirectoryLock(const std::string& directory) : m_fd(openToRead(directory)) {
  if (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(m_fd);
    throw RuntimeError(directory + ": another program is changing files there; try again", FailureKind::Contention);
  }
}

DirectoryLock::~DirectoryLock() {
  ::close(m_fd);
}

void copyOwner(const std::string& from, const std::string& to) {
  struct stat wanted = {};
  struct stat found = {};
  if (::stat(from.c_str(), &wanted) != 0 || ::stat(to.c_str(), &found) != 0) {
    throwErrno(from, "cannot look up its owner");
  }
  if (wanted.st_uid == found.st_uid && wanted.st_gid == found.st_gid) {
    return;  // setting them is a privilege
  }
  if (::chown(to.c_str(), wanted.st_uid, wanted.st_gid) != 0) {
    throwErrno(from, "cannot keep its owner and group (run this as its owner or as root)");
  }
}

void moveWithoutReplacing(const std::string& from, const std::string& to) {
  int moved = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (moved != 0 && (errno == EINVAL || errno == ENOSYS)) {
    moved = lookAndRename(from, to);
  }
  if (moved != 0) {
    throwErrno(to, "cannot be made", FailureKind::Creation);
  }
}
