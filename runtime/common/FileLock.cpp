#include "common/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"

namespace zaroruntime {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPause = std::chrono::milliseconds(2);

// For the users who may write the file, since they must be able to open the lock. Others could hold them up by it.
mode_t lockMode(mode_t mode) {
  const auto both = [&](mode_t write, mode_t read) { return (mode & write) != 0 ? write | read : mode_t(0); };
  return S_IRUSR | S_IWUSR | both(S_IWGRP, S_IRGRP) | both(S_IWOTH, S_IROTH);
}

int openExisting(const std::string& lockPath) {
  return ::open(lockPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
}

// Made under another name, so that other processes see the lock only once its owner and mode are set: a process killed
// meanwhile, root's above all, would leave a lock that the owner of `path` cannot open. False, with errno, when it
// cannot be made.
bool makeLockFile(const std::string& path, const std::string& lockPath) {
  std::string name = lockPath + ".XXXXXX";
  const UniqueFd fd(::mkostemp(name.data(), O_CLOEXEC));
  if (!fd.isOpen()) {
    return false;
  }
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0) {
    static_cast<void>(!::fchown(fd.get(), status.st_uid, status.st_gid));  // root makes it for the owner too
    static_cast<void>(!::fchmod(fd.get(), lockMode(status.st_mode)));
  }
  const bool linked = ::link(name.c_str(), lockPath.c_str()) == 0;
  const int reason = errno;
  ::unlink(name.c_str());
  errno = reason;
  return linked || reason == EEXIST;
}

int openLockFile(const std::string& path, const std::string& lockPath) {
  const int fd = openExisting(lockPath);
  if (fd >= 0 || errno != ENOENT || !makeLockFile(path, lockPath)) {
    return fd;
  }
  return openExisting(lockPath);
}

}  // namespace

FileLock::FileLock(const std::string& path, const char* suffix, int seconds) : m_fd(openLockFile(path, path + suffix)) {
  const std::string lockPath = path + suffix;
  if (!m_fd.isOpen()) {
    throwFileError(lockPath, "cannot open");
  }
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  while (::flock(m_fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      throwFileError(lockPath, "cannot lock");
    }
    if (Clock::now() >= end) {
      throw RuntimeError(lockPath + ": another process has held the lock for " + std::to_string(seconds) + " seconds",
                         FailureKind::Contention);
    }
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace zaroruntime
