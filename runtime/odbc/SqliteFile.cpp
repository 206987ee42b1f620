#include "odbc/SqliteFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "common/UniqueFd.h"

namespace zaroruntime {

namespace {

constexpr const char* kLog = "-wal";
constexpr const char* kIndexOfLog = "-shm";
constexpr const char* kImmutable = "?immutable=1";

bool mayAccess(const std::string& path, int access) {
  return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0;
}

bool exists(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0;
}

bool isEmpty(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) != 0 || status.st_size == 0;
}

// By the header: the version that readers must know is 2.
bool isInWalMode(const std::string& path) {
  constexpr off_t kReadVersion = 19;
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char version = 0;
  return fd.isOpen() && ::pread(fd.get(), &version, 1, kReadVersion) == 1 && version == 2;
}

// A path in the form in which SQLite takes parameters behind it.
std::string asUri(const std::string& path) {
  constexpr const char* kHex = "0123456789ABCDEF";
  constexpr const char* kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  std::string uri = "file:";
  for (const char sign : path) {
    if (std::strchr(kPlain, sign) != nullptr) {
      uri += sign;
    } else {
      const auto byte = static_cast<unsigned char>(sign);
      uri.append(1, '%').append(1, kHex[byte / 16U]).append(1, kHex[byte % 16U]);
    }
  }
  return uri;
}

}  // namespace

std::string openedSqliteFile(const std::string& path) {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  for (const std::string& needed : {path, directory}) {
    if (!mayAccess(needed, needed == path ? R_OK : X_OK)) {
      throw RuntimeError("database file " + path + ": this user may not read " + needed, FailureKind::Refused);
    }
  }
  if ((mayAccess(path, W_OK) && mayAccess(directory, W_OK)) || !isInWalMode(path)) {
    return path;
  }
  if (exists(path + kLog) && exists(path + kIndexOfLog)) {
    return path;
  }
  if (!isEmpty(path + kLog)) {
    throw RuntimeError("database file " + path + ": the changes in " + path + kLog +
                           " cannot be read without writing to " + directory +
                           " (zaroctl check, run by a user who may, brings them in)",
                       FailureKind::Refused);
  }
  return asUri(path) + kImmutable;
}

bool opensImmutable(const std::string& connectionString) {
  return connectionString.find(kImmutable) != std::string::npos;
}

ImmutableFile::ImmutableFile(std::string path) : m_path(std::move(path)) {
  static_cast<void>(::stat(m_path.c_str(), &m_opened));
}

bool ImmutableFile::isUnchanged() const {
  struct stat now = {};
  return ::stat(m_path.c_str(), &now) == 0 && now.st_dev == m_opened.st_dev && now.st_ino == m_opened.st_ino &&
         now.st_size == m_opened.st_size && now.st_mtim.tv_sec == m_opened.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == m_opened.st_mtim.tv_nsec && isEmpty(m_path + kLog);
}

}  // namespace zaroruntime
