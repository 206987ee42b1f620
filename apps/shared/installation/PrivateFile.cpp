#include "installation/PrivateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/Files.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr std::size_t kLongest = 1U << 20U;

class Descriptor {
 public:
  explicit Descriptor(const std::string& path) : m_number(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (m_number < 0) {
      throwErrno(path, "cannot open");
    }
  }
  ~Descriptor() { ::close(m_number); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return m_number; }

 private:
  int m_number;
};

std::string whyNotPrivate(const struct stat& status) {
  constexpr mode_t kOthers = 0077;
  constexpr mode_t kOthersWithoutRootsGroup = 0037;
  if (!S_ISREG(status.st_mode)) {
    return "not a file";
  }
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
    return "it belongs to another user";
  }
  if ((status.st_mode & (status.st_uid == 0 ? kOthersWithoutRootsGroup : kOthers)) != 0) {
    return "other users may read or write it; chmod 600 keeps them out";
  }
  return "";
}

}  // namespace

std::string readPrivateFile(const std::string& path) {
  const Descriptor file(path);
  struct stat status = {};
  if (::fstat(file.number(), &status) != 0) {
    throwErrno(path, "cannot look at");
  }
  const std::string wrong = whyNotPrivate(status);
  if (!wrong.empty()) {
    throw RuntimeError(path + ": " + wrong, FailureKind::Configuration);
  }
  std::string content;
  for (char piece[4096];;) {
    const ssize_t count = ::read(file.number(), piece, sizeof piece);
    if (count < 0 && errno != EINTR) {
      throwErrno(path, "cannot read");
    }
    if (count == 0) {
      return content;
    }
    content.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
    if (content.size() > kLongest) {
      throw RuntimeError(path + ": too large", FailureKind::Configuration);
    }
  }
}
