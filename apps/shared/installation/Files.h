// Files and directories on disk. What fails is thrown as RuntimeError naming the path and the reason.
#pragma once

#include <string>

#include "ZaroRuntime/RuntimeError.h"

// "PATH: what: reason", the reason being that of `errno`; of the kind `otherwise` unless a permission is missing.
[[noreturn]] void throwErrno(const std::string& path, const char* what,
                             zaroruntime::FailureKind otherwise = zaroruntime::FailureKind::File);

// Waits until a file, or the entries of a directory, would outlast a power failure.
void bringToDisk(const std::string& path);

// The same for the entries of a directory after what was done there can no longer be taken back: a failure is a warning
// on standard error.
void tryToBringToDisk(const std::string& directory);

// A lock on a directory, for the process that changes the files in it. Throws when another process has it.
class DirectoryLock {
 public:
  explicit DirectoryLock(const std::string& directory);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  int m_fd;
};

// Gives a file the owner and group of another.
void copyOwner(const std::string& from, const std::string& to);

// Renames within a file system. What has the new name already is never replaced.
void moveWithoutReplacing(const std::string& from, const std::string& to);
