// Whole files, read and written.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

// Text of a regular file of at most `limit` bytes; throws RuntimeError naming the file and the reason, of the kind
// `otherwise` unless a permission is missing.
std::string readFileText(const std::string& path, std::size_t limit, FailureKind otherwise = FailureKind::File);

struct FileOwner {
  uid_t user;
  gid_t group;
};

// A new text for a file, on the disk under a temporary name beside it. A reader, meanwhile or after a crash, finds
// the old text or the new one. Two at a time for one file need a lock.
class FileReplacement {
 public:
  // Whatever can go wrong does so here, but for the rename. The file gets the owner, or stays the writer's without one.
  // Throws RuntimeError.
  FileReplacement(const std::string& path, const std::string& text, mode_t mode, const std::optional<FileOwner>& owner);
  // Without a commit the old file stays.
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Puts the new text in the place of the old one. Throws RuntimeError.
  void commit();

 private:
  std::string m_path;
  std::string m_temporary;  // empty when it is gone
};

// A replacement with the permissions, owner and group of the file that is there. Throws RuntimeError, also when the
// writer cannot keep them.
FileReplacement sameFileWith(const std::string& path, const std::string& text);

// Replaces a file, there or not; it is on the disk then. Throws RuntimeError.
void replaceFile(const std::string& path, const std::string& text, mode_t mode);

// Brings a rename beside `path` to the disk. Throws RuntimeError.
void syncDirectoryOf(const std::string& path);

// The file's path without symbolic links. Throws RuntimeError when there is no such file.
std::string realPathOf(const std::string& path);

// Whether a file that we put in its place could have the same owner and group. Throws RuntimeError without a file.
bool canKeepOwnerOf(const std::string& path);

// Throws RuntimeError unless the file is there and we may write it. One without any write permission is refused to root
// as well.
void requireWritable(const std::string& path);

// "PATH: what: reason", the reason being that of `errno`; of the kind `otherwise` unless a permission is missing.
[[noreturn]] void throwFileError(const std::string& path, const char* what, FailureKind otherwise = FailureKind::File);

}  // namespace zaroruntime
