// A lock among the processes and threads that change one file.
#pragma once

#include <string>

#include "common/UniqueFd.h"

namespace zaroruntime {

class FileLock {
 public:
  // Waits for the lock on `path` + `suffix`, which is made as needed and stays, so that all lock the same file. Throws
  // RuntimeError when another holds it for longer than `seconds`.
  FileLock(const std::string& path, const char* suffix, int seconds);

 private:
  UniqueFd m_fd;  // closing it, a killed process included, gives the lock up
};

}  // namespace zaroruntime
