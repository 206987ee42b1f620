// System calls that fail, as the programs and all their libraries make them through the C library. What the C library
// calls by itself goes unseen: reading and writing its streams above all.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "Control.h"
#include "DiskLog.h"

// The headers put other names on these where file sizes have 64 bits by default; here each stands for itself.
#undef open
#undef openat
#undef fopen

namespace {

bool fails(const char* name, int error) {
  if (!faults::isChosen(faults::kSystem, name)) {
    return false;
  }
  if (faults::action() == faults::kKill) {
    faults::killProcess();
  }
  errno = error;
  return true;
}

// What a connection that was reset does not send it does not receive either.
bool loses(const char* name, int connection) {
  if (!fails(name, ECONNRESET)) {
    return false;
  }
  shutdown(connection, SHUT_RDWR);
  errno = ECONNRESET;
  return true;
}

// The one that is killed in the midst of a write has written half of it.
template <typename Write>
bool failsToWrite(const char* name, std::size_t length, Write writeSome) {
  if (!faults::isChosen(faults::kSystem, name)) {
    return false;
  }
  if (faults::action() == faults::kKill) {
    static_cast<void>(writeSome(length / 2));
    faults::killProcess();
  }
  errno = ENOSPC;
  return true;
}

mode_t modeOf(int flags, va_list more) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(more, mode_t) : 0;
}

int opened(int file, int flags) {
  if (file >= 0 && (flags & O_CREAT) != 0) {
    faults::logCreate(file);
  }
  if (file >= 0 && (flags & O_TRUNC) != 0) {
    faults::logTruncate(file, 0);
  }
  return file;
}

ssize_t written(int file, const void* data, ssize_t count, off_t offset) {
  if (count > 0) {
    faults::logWrite(file, data, static_cast<std::size_t>(count), offset);
  }
  return count;
}

// Where a write that names no place ended.
off_t placeBefore(int file, ssize_t count) {
  return faults::keepsDiskLog() && count > 0 ? lseek(file, 0, SEEK_CUR) - count : 0;
}

}  // namespace

// A call that is left out or made, with nothing else to it.
#define SIMPLE(result, name, error, parameters, ...)     \
  result name parameters {                               \
    static auto* const real = NEXT(name);                \
    return fails(#name, error) ? -1 : real(__VA_ARGS__); \
  }

#define OPEN(name)                                                             \
  int name(const char* path, int flags, ...) {                                 \
    static auto* const real = NEXT(name);                                      \
    va_list more;                                                              \
    va_start(more, flags);                                                     \
    const mode_t mode = modeOf(flags, more);                                   \
    va_end(more);                                                              \
    return fails(#name, EMFILE) ? -1 : opened(real(path, flags, mode), flags); \
  }

#define OPEN_AT(name)                                                                     \
  int name(int directory, const char* path, int flags, ...) {                             \
    static auto* const real = NEXT(name);                                                 \
    va_list more;                                                                         \
    va_start(more, flags);                                                                \
    const mode_t mode = modeOf(flags, more);                                              \
    va_end(more);                                                                         \
    return fails(#name, EMFILE) ? -1 : opened(real(directory, path, flags, mode), flags); \
  }

#define STREAM(name)                                         \
  FILE* name(const char* path, const char* how) {            \
    static auto* const real = NEXT(name);                    \
    return fails(#name, EMFILE) ? nullptr : real(path, how); \
  }

#define WRITE_AT(name, Offset)                                                                           \
  ssize_t name(int file, const void* data, std::size_t length, Offset offset) {                          \
    static auto* const real = NEXT(name);                                                                \
    if (failsToWrite(#name, length, [&](std::size_t half) { return real(file, data, half, offset); })) { \
      return -1;                                                                                         \
    }                                                                                                    \
    return written(file, data, real(file, data, length, offset), static_cast<off_t>(offset));            \
  }

#define SYNC(name)                                          \
  int name(int file) {                                      \
    static auto* const real = NEXT(name);                   \
    const int result = fails(#name, EIO) ? -1 : real(file); \
    if (result == 0) {                                      \
      faults::logSync(file);                                \
    }                                                       \
    return result;                                          \
  }

#define TRUNCATE(name, Offset)                                      \
  int name(int file, Offset length) noexcept {                      \
    static auto* const real = NEXT(name);                           \
    const int result = fails(#name, EIO) ? -1 : real(file, length); \
    if (result == 0) {                                              \
      faults::logTruncate(file, static_cast<off_t>(length));        \
    }                                                               \
    return result;                                                  \
  }

extern "C" {

OPEN(open)
OPEN(open64)
OPEN_AT(openat)
OPEN_AT(openat64)
STREAM(fopen)
STREAM(fopen64)
SIMPLE(ssize_t, read, EIO, (int file, void* data, std::size_t length), file, data, length)
SIMPLE(ssize_t, pread, EIO, (int file, void* data, std::size_t length, off_t offset), file, data, length, offset)
SIMPLE(ssize_t, pread64, EIO, (int file, void* data, std::size_t length, off64_t offset), file, data, length, offset)
WRITE_AT(pwrite, off_t)
WRITE_AT(pwrite64, off64_t)
SYNC(fsync)
SYNC(fdatasync)
TRUNCATE(ftruncate, off_t)
TRUNCATE(ftruncate64, off64_t)
SIMPLE(int, mkdir, ENOSPC, (const char* path, mode_t mode) noexcept, path, mode)
SIMPLE(int, rmdir, EIO, (const char* path) noexcept, path)
SIMPLE(int, chmod, EPERM, (const char* path, mode_t mode) noexcept, path, mode)
SIMPLE(int, fchmod, EPERM, (int file, mode_t mode) noexcept, file, mode)
SIMPLE(int, chown, EPERM, (const char* path, uid_t user, gid_t group) noexcept, path, user, group)
SIMPLE(int, fchown, EPERM, (int file, uid_t user, gid_t group) noexcept, file, user, group)
SIMPLE(int, flock, ENOLCK, (int file, int operation) noexcept, file, operation)
SIMPLE(int, socket, EMFILE, (int domain, int type, int protocol) noexcept, domain, type, protocol)
SIMPLE(int, connect, ECONNREFUSED, (int one, const sockaddr* address, socklen_t length), one, address, length)
ssize_t send(int one, const void* data, std::size_t length, int flags) {
  static auto* const real = NEXT(send);
  return loses("send", one) ? -1 : real(one, data, length, flags);
}

ssize_t recv(int one, void* data, std::size_t length, int flags) {
  static auto* const real = NEXT(recv);
  return loses("recv", one) ? -1 : real(one, data, length, flags);
}

ssize_t write(int file, const void* data, std::size_t length) {
  static auto* const real = NEXT(write);
  // Messages about failures get through.
  if (file != STDERR_FILENO && failsToWrite("write", length, [&](std::size_t half) { return real(file, data, half); })) {
    return -1;
  }
  const ssize_t count = real(file, data, length);
  return written(file, data, count, placeBefore(file, count));
}

ssize_t writev(int file, const iovec* parts, int count) {
  static auto* const real = NEXT(writev);
  if (file != STDERR_FILENO && fails("writev", ENOSPC)) {
    return -1;
  }
  const ssize_t length = real(file, parts, count);
  off_t place = placeBefore(file, length);
  for (int at = 0; at < count && length > 0; ++at) {
    place += written(file, parts[at].iov_base, static_cast<ssize_t>(parts[at].iov_len), place);
  }
  return length;
}

int fflush(FILE* stream) {
  static auto* const real = NEXT(fflush);
  return stream == stdout && fails("fflush", ENOSPC) ? EOF : real(stream);
}

int rename(const char* from, const char* to) noexcept {
  static auto* const real = NEXT(rename);
  const int result = fails("rename", EIO) ? -1 : real(from, to);
  if (result == 0) {
    faults::logNames(faults::DiskCall::kRename, from, to);
  }
  return result;
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags) noexcept {
  static auto* const real = NEXT(renameat2);
  const int result = fails("renameat2", EIO) ? -1 : real(fromDirectory, from, toDirectory, to, flags);
  if (result == 0) {
    faults::logNames(faults::DiskCall::kRename, from, to);
  }
  return result;
}

int link(const char* from, const char* to) noexcept {
  static auto* const real = NEXT(link);
  const int result = fails("link", EIO) ? -1 : real(from, to);
  if (result == 0) {
    faults::logNames(faults::DiskCall::kLink, from, to);
  }
  return result;
}

int unlink(const char* path) noexcept {
  static auto* const real = NEXT(unlink);
  const int result = fails("unlink", EIO) ? -1 : real(path);
  if (result == 0) {
    faults::logNames(faults::DiskCall::kUnlink, path, "");
  }
  return result;
}

int mkostemp(char* pattern, int flags) {
  static auto* const real = NEXT(mkostemp);
  return fails("mkostemp", ENOSPC) ? -1 : opened(real(pattern, flags), O_CREAT);
}

int mkstemp(char* pattern) {
  static auto* const real = NEXT(mkstemp);
  return fails("mkstemp", ENOSPC) ? -1 : opened(real(pattern), O_CREAT);
}

char* mkdtemp(char* pattern) {
  static auto* const real = NEXT(mkdtemp);
  return fails("mkdtemp", ENOSPC) ? nullptr : real(pattern);
}

void* mmap(void* place, std::size_t length, int protection, int flags, int file, off_t offset) noexcept {
  static auto* const real = NEXT(mmap);
  return file >= 0 && fails("mmap", ENOMEM) ? MAP_FAILED : real(place, length, protection, flags, file, offset);
}

void* mmap64(void* place, std::size_t length, int protection, int flags, int file, off64_t offset) noexcept {
  static auto* const real = NEXT(mmap64);
  return file >= 0 && fails("mmap64", ENOMEM) ? MAP_FAILED : real(place, length, protection, flags, file, offset);
}

}  // extern "C"
