#include "DiskLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace faults {

namespace {

// A call as the log has it, before the file's path, the other path and the data.
struct Record {
  std::uint32_t call;
  std::uint32_t pathLength;
  std::uint32_t otherLength;
  std::uint32_t dataLength;
  std::uint64_t inode;
  std::uint64_t offset;  // or length
};

int logFile = -1;
char root[1024];

__attribute__((constructor)) void setUp() {
  const char* const path = std::getenv("ZARO_DISK_LOG");
  const char* const directory = std::getenv("ZARO_DISK_ROOT");
  if (path == nullptr || directory == nullptr || std::strlen(directory) >= sizeof root) {
    return;
  }
  std::strcpy(root, directory);
  logFile = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CLOEXEC, 0));
}

bool isBelowRoot(const char* path) {
  return std::strncmp(path, root, std::strlen(root)) == 0;
}

// One call of the kernel, so that those of several processes lie in the log one after the other.
void append(const Record& record, const char* path, const char* other, const void* data) {
  const iovec parts[] = {
      {const_cast<Record*>(&record), sizeof record},
      {const_cast<char*>(path), record.pathLength},
      {const_cast<char*>(other), record.otherLength},
      {const_cast<void*>(data), record.dataLength},
  };
  static_cast<void>(!syscall(SYS_writev, logFile, parts, 4));
}

void logFileCall(DiskCall call, int file, std::uint64_t offset, const void* data, std::size_t length) {
  if (logFile < 0) {
    return;
  }
  char link[64];
  char path[1024];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  const ssize_t pathLength = readlink(link, path, sizeof path - 1);
  struct stat status = {};
  if (pathLength <= 0 || fstat(file, &status) != 0) {
    return;
  }
  path[pathLength] = '\0';
  if (isBelowRoot(path)) {
    append({static_cast<std::uint32_t>(call), static_cast<std::uint32_t>(pathLength), 0,
            static_cast<std::uint32_t>(length), status.st_ino, offset},
           path, "", data);
  }
}

// Names may be relative to where the process is; the programs do not use such names for what is logged.
std::uint32_t lengthOf(const char* text) {
  return static_cast<std::uint32_t>(std::strlen(text));
}

}  // namespace

bool keepsDiskLog() noexcept {
  return logFile >= 0;
}

void logWrite(int file, const void* data, std::size_t length, off_t offset) noexcept {
  logFileCall(DiskCall::kWrite, file, static_cast<std::uint64_t>(offset), data, length);
}

void logTruncate(int file, off_t length) noexcept {
  logFileCall(DiskCall::kTruncate, file, static_cast<std::uint64_t>(length), "", 0);
}

void logSync(int file) noexcept {
  logFileCall(DiskCall::kSync, file, 0, "", 0);
}

void logCreate(int file) noexcept {
  logFileCall(DiskCall::kCreate, file, 0, "", 0);
}

void logNames(DiskCall call, const char* from, const char* to) noexcept {
  if (logFile >= 0 && isBelowRoot(from)) {
    append({static_cast<std::uint32_t>(call), lengthOf(from), lengthOf(to), 0, 0, 0}, from, to, "");
  }
}

}  // namespace faults
