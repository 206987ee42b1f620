#include "loading/LastGoodPolicy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/Files.h"
#include "policy/PolicySnapshot.h"

namespace {

// A file under another name until it is whole.
class NewFile {
 public:
  explicit NewFile(const std::string& path)
      : m_path(path), m_descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (m_descriptor < 0) {
      throwErrno(m_path, "cannot write");
    }
  }
  ~NewFile() {
    close(m_descriptor);
    unlink(m_path.c_str());  // gone already when it got its name
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void append(std::string_view text) {
    m_unwritten += text;
    constexpr std::size_t kPiece = 1U << 16U;
    if (m_unwritten.size() >= kPiece) {
      _flush();
    }
  }

  void becomes(const std::string& path) {
    _flush();
    if (fsync(m_descriptor) != 0) {
      throwErrno(m_path, "cannot bring to the disk");
    }
    if (std::rename(m_path.c_str(), path.c_str()) != 0) {
      throwErrno(path, "cannot replace");
    }
  }

 private:
  void _flush() {
    for (std::size_t at = 0; at < m_unwritten.size();) {
      const ssize_t count = ::write(m_descriptor, m_unwritten.data() + at, m_unwritten.size() - at);
      if (count < 0 && errno != EINTR) {
        throwErrno(m_path, "cannot write");
      }
      at += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    m_unwritten.clear();
  }

  std::string m_path;
  int m_descriptor;
  std::string m_unwritten;
};

}  // namespace

void LastGoodPolicy::save(const MailPolicy& policy) const {
  std::error_code failure;
  std::filesystem::create_directory(m_directory, failure);
  const std::string path = m_directory + "/policy.snapshot";
  NewFile file(path + ".new");
  writeSnapshot(policy, [&](std::string_view text) { file.append(text); });
  file.becomes(path);
}

std::optional<MailPolicy> LastGoodPolicy::load() const {
  const std::string path = m_directory + "/policy.snapshot";
  std::ifstream file(path);
  if (!file) {
    if (errno == ENOENT) {
      return std::nullopt;
    }
    throwErrno(path, "cannot open");
  }
  try {
    return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(file, line)); });
  } catch (const zaroruntime::RuntimeError& refusal) {
    throw zaroruntime::RuntimeError(path + ": " + refusal.what(), refusal.kind());
  }
}
