#include "policy/LastGoodPolicy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/Files.h"
#include "policy/PolicySnapshot.h"

namespace {

// A file under another name until it is whole.
class NewFile {
 public:
  // Makes the directory that `path` names, if it is not there.
  explicit NewFile(const std::filesystem::path& path) : m_target(path), m_path(m_target + ".new") {
    std::error_code failure;
    std::filesystem::create_directory(path.parent_path(), failure);
    m_descriptor = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
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

  void putInPlace() {
    _flush();
    if (fsync(m_descriptor) != 0) {
      throwErrno(m_path, "cannot bring to the disk");
    }
    if (std::rename(m_path.c_str(), m_target.c_str()) != 0) {
      throwErrno(m_target, "cannot replace");
    }
    bringToDisk(std::filesystem::path(m_target).parent_path());
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

  std::string m_target;
  std::string m_path;
  int m_descriptor = -1;
  std::string m_unwritten;
};

// Nothing when there is no such file.
std::optional<std::ifstream> openToRead(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (file) {
    return file;
  }
  if (errno != ENOENT) {
    throwErrno(path, "cannot open");
  }
  return std::nullopt;
}

}  // namespace

void LastGoodPolicy::save(const MailPolicy& policy) const {
  NewFile file(_path());
  writeSnapshot(policy, [&](std::string_view text) { file.append(text); });
  file.putInPlace();
}

void LastGoodPolicy::saveText(std::string_view snapshot) const {
  NewFile file(_path());
  file.append(snapshot);
  file.putInPlace();
}

std::optional<std::string> LastGoodPolicy::text() const {
  const std::optional<std::ifstream> file = openToRead(_path());
  if (!file) {
    return std::nullopt;
  }
  std::ostringstream text;
  text << file->rdbuf();
  return text.str();
}

std::optional<MailPolicy> LastGoodPolicy::load() const {
  std::optional<std::ifstream> file = openToRead(_path());
  if (!file) {
    return std::nullopt;
  }
  try {
    return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(*file, line)); });
  } catch (const zaroruntime::RuntimeError& refusal) {
    throw zaroruntime::RuntimeError(_path() + ": " + refusal.what(), refusal.kind());
  }
}

std::string LastGoodPolicy::_path() const {
  return m_directory + "/policy.snapshot";
}
