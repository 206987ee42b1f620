// What a process did to the files below a directory, in order, so that a test can put together what a disk would hold had
// the power failed at any point. ZARO_DISK_LOG names the log, ZARO_DISK_ROOT the directory; without them nothing is kept.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace faults {

// tests/faults/disk.py reads the same.
enum class DiskCall : std::uint32_t {
  kWrite = 1,
  kTruncate = 2,
  kSync = 3,
  kRename = 4,
  kUnlink = 5,
  kLink = 6,
  kCreate = 7,
};

bool keepsDiskLog() noexcept;

// Each is called after the call has been made.
void logWrite(int file, const void* data, std::size_t length, off_t offset) noexcept;
void logTruncate(int file, off_t length) noexcept;
void logSync(int file) noexcept;
void logCreate(int file) noexcept;
void logNames(DiskCall call, const char* from, const char* to) noexcept;

}  // namespace faults
