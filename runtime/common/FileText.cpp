#include "common/FileText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

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

void syncDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.isOpen() || ::fsync(fd.get()) != 0) {
    throwFileError(directory, "cannot write to disk");
  }
}

struct Owner {
  uid_t user;
  gid_t group;
};

struct Access {
  mode_t mode;
  std::optional<Owner> owner;  // nothing: whoever writes
};

// One fixed name: what a killed writer leaves behind is taken over by the next one, and names do not pile up.
std::string temporaryNameOf(const std::string& path) {
  return path + ".new";
}

void setAccess(const UniqueFd& fd, const Access& access, const std::string& path) {
  if (access.owner) {
    // Only root can; anybody else keeps the file as its own.
    static_cast<void>(!::fchown(fd.get(), access.owner->user, access.owner->group));
  }
  if (::fchmod(fd.get(), access.mode) != 0) {
    throwFileError(path, "cannot set permissions");
  }
}

void replace(const std::string& path, const std::string& text, const Access& access) {
  const std::string temporary = temporaryNameOf(path);
  {
    const UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, access.mode));
    if (!fd.isOpen()) {
      throwFileError(temporary, "cannot create");
    }
    setAccess(fd, access, temporary);
    writeAll(fd.get(), text, temporary);
    if (::fsync(fd.get()) != 0) {
      throwFileError(temporary, "cannot write to disk");
    }
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    throwFileError(path, "cannot replace");
  }
  syncDirectoryOf(path);
}

}  // namespace

void throwFileError(const std::string& path, const char* what) {
  throw RuntimeError(path + ": " + what + ": " + std::strerror(errno));
}

std::string readFileText(const std::string& path, std::size_t limit) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.isOpen()) {
    throwFileError(path, "cannot open");
  }
  struct stat status = {};
  if (::fstat(fd.get(), &status) != 0) {
    throwFileError(path, "cannot read");
  }
  if (!S_ISREG(status.st_mode)) {
    throw RuntimeError(path + ": not a regular file");
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
      throwFileError(path, "cannot read");
    }
    text.append(piece, static_cast<std::size_t>(count));
    if (text.size() > limit) {
      throw RuntimeError(path + ": larger than the " + std::to_string(limit) + " bytes that such a file may have");
    }
  }
}

void replaceFile(const std::string& path, const std::string& text, mode_t mode) {
  replace(path, text, {mode, std::nullopt});
}

void requireWritable(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    throwFileError(path, "cannot open");
  }
  // Nobody may write it: that stops its owner and root too, who could put a new file in its place.
  constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;
  if ((status.st_mode & kWritable) == 0) {
    throw RuntimeError(path + ": cannot write: the file is read-only");
  }
  if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    throwFileError(path, "cannot write");
  }
}

void rewriteFile(const std::string& path, const std::string& text) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    throwFileError(path, "cannot open");
  }
  // Another user's remains could not be opened; whoever else writes now waits for the caller's lock.
  ::unlink(temporaryNameOf(path).c_str());
  constexpr mode_t kPermissions = 07777;
  replace(path, text, {status.st_mode & kPermissions, Owner{status.st_uid, status.st_gid}});
}

}  // namespace zaroruntime
