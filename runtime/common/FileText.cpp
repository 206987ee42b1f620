#include "common/FileText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "common/UniqueFd.h"

namespace zaroruntime {

namespace {

void writeAll(int fd, const std::string& text, const std::string& path) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(fd, text.data() + written, text.size() - written);
    if (count < 0 && errno != EINTR) {
      throwFileError(path, "cannot write");
    }
    written += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
}

// One fixed name: what a killed writer leaves behind is taken over by the next one, and names do not pile up.
std::string temporaryNameOf(const std::string& path) {
  return path + ".new";
}

int createAnew(const std::string& path, mode_t mode) {
  ::unlink(path.c_str());  // another user's remains could not be opened, or would stay theirs
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    throwFileError(path, "cannot open");
  }
  return status;
}

bool isOurGroup(gid_t group) {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(0, count)));
  return group == ::getegid() || std::find(groups.begin(), groups.end(), group) != groups.end();
}

}  // namespace

FailureKind kindOfFileError(int error, FailureKind otherwise) {
  return error == EACCES || error == EPERM || error == EROFS ? FailureKind::Refused : otherwise;
}

void throwFileError(const std::string& path, const char* what, FailureKind otherwise) {
  throw RuntimeError(path + ": " + what + ": " + std::strerror(errno), kindOfFileError(errno, otherwise));
}

std::string readFileText(const std::string& path, std::size_t limit, FailureKind otherwise) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.isOpen()) {
    throwFileError(path, "cannot open", otherwise);
  }
  struct stat status = {};
  if (::fstat(fd.get(), &status) != 0) {
    throwFileError(path, "cannot read", otherwise);
  }
  if (!S_ISREG(status.st_mode)) {
    throw RuntimeError(path + ": not a regular file", otherwise);
  }
  std::string text;
  char piece[16384];
  for (;;) {
    const ssize_t count = ::read(fd.get(), piece, sizeof piece);
    if (count == 0) {
      return text;
    }
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      throwFileError(path, "cannot read", otherwise);
    }
    text.append(piece, static_cast<std::size_t>(count));
    if (text.size() > limit) {
      throw RuntimeError(path + ": larger than the " + std::to_string(limit) + " bytes that such a file may have",
                         otherwise);
    }
  }
}

FileReplacement::FileReplacement(const std::string& path, const std::string& text, mode_t mode,
                                 const std::optional<FileOwner>& owner)
    : m_path(path), m_temporary(temporaryNameOf(path)) {
  const UniqueFd fd(createAnew(m_temporary, mode));
  if (!fd.isOpen()) {
    throwFileError(m_temporary, "cannot create", FailureKind::Creation);
  }
  try {
    if (owner && ::fchown(fd.get(), owner->user, owner->group) != 0) {
      throwFileError(path, "cannot keep its owner and group");
    }
    if (::fchmod(fd.get(), mode) != 0) {
      throwFileError(m_temporary, "cannot set permissions");
    }
    writeAll(fd.get(), text, m_temporary);
    if (::fsync(fd.get()) != 0) {
      throwFileError(m_temporary, "cannot write to disk");
    }
  } catch (...) {
    ::unlink(m_temporary.c_str());
    throw;
  }
}

FileReplacement::~FileReplacement() {
  if (!m_temporary.empty()) {
    ::unlink(m_temporary.c_str());
  }
}

void FileReplacement::commit() {
  if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
    throwFileError(m_path, "cannot replace");
  }
  m_temporary.clear();
}

FileReplacement sameFileWith(const std::string& path, const std::string& text) {
  const struct stat status = statusOf(path);
  constexpr mode_t kPermissions = 07777;
  return {path, text, status.st_mode & kPermissions, FileOwner{status.st_uid, status.st_gid}};
}

void replaceFile(const std::string& path, const std::string& text, mode_t mode) {
  FileReplacement(path, text, mode, std::nullopt).commit();
  syncDirectoryOf(path);
}

void syncDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.isOpen() || ::fsync(fd.get()) != 0) {
    throwFileError(directory, "cannot write to disk");
  }
}

std::string realPathOf(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  if (real == nullptr) {
    throwFileError(path, "cannot open", FailureKind::Configuration);
  }
  return real.get();
}

bool canKeepOwnerOf(const std::string& path) {
  const struct stat status = statusOf(path);
  return ::geteuid() == 0 || (status.st_uid == ::geteuid() && isOurGroup(status.st_gid));
}

void requireWritable(const std::string& path) {
  const struct stat status = statusOf(path);
  // No user may write it: that stops its owner and root too, who could put a new file in its place.
  constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;
  if ((status.st_mode & kWritable) == 0) {
    throw RuntimeError(path + ": cannot write: the file is read-only", FailureKind::Refused);
  }
  if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    throwFileError(path, "cannot write");
  }
}

}  // namespace zaroruntime
