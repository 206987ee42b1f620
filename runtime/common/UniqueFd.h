// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

namespace zaroruntime {

class UniqueFd {
 public:
  explicit UniqueFd(int fd) : m_fd(fd) {}
  ~UniqueFd() {
    if (m_fd >= 0) {
      ::close(m_fd);
    }
  }
  UniqueFd(UniqueFd&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return m_fd; }
  bool isOpen() const { return m_fd >= 0; }

 private:
  int m_fd;
};

}  // namespace zaroruntime
