#include "NewInstallation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "ZaroRuntime/RuntimeError.h"

namespace fs = std::filesystem;
using zaroruntime::RuntimeError;

namespace {

struct ModeRow {
  const char* path;
  mode_t mode;
};

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
// Everything else has the modes above.
constexpr ModeRow kModes[] = {
    {"config/database.ini", 0640},
    {"config/secret.key", 0600},
    {"data", 0700},
    {"data/zaro.db", 0600},
};

mode_t modeOf(const fs::path& relative, bool directory) {
  for (const ModeRow& row : kModes) {
    if (relative == row.path) {
      return row.mode;
    }
  }
  return directory ? kDirectoryMode : kFileMode;
}

[[noreturn]] void throwErrno(const std::string& path, const char* what) {
  throw RuntimeError(path + ": " + what + ": " + std::strerror(errno));
}

// Closes itself, also when what follows throws.
class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : m_fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)) {
    if (m_fd < 0) {
      throwErrno(path, "cannot open");
    }
  }
  ~OpenFile() { ::close(m_fd); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int get() const { return m_fd; }

 private:
  int m_fd;
};

void bringToDisk(const std::string& path) {
  const OpenFile file(path);
  if (::fsync(file.get()) != 0) {
    throwErrno(path, "cannot write to disk");
  }
}

void finishFile(const std::string& path, mode_t mode) {
  if (::chmod(path.c_str(), mode) != 0) {
    throwErrno(path, "cannot set permissions");
  }
  bringToDisk(path);
}

// The absolute path of the directory to come, links resolved as far as it exists.
fs::path placeOf(const std::string& target) {
  fs::path place = fs::absolute(target).lexically_normal();
  if (!place.has_filename()) {
    place = place.parent_path();  // it was written with a slash at the end
  }
  std::error_code failure;
  const fs::path above = fs::canonical(place.parent_path(), failure);
  if (failure) {
    throw RuntimeError(place.parent_path().string() + ": cannot make an installation there: " + failure.message());
  }
  return fs::is_symlink(place, failure) ? fs::weakly_canonical(place) : above / place.filename();
}

void refuseUsedPlace(const fs::path& place) {
  std::error_code failure;
  if (!fs::exists(fs::symlink_status(place))) {
    return;
  }
  if (!fs::is_directory(place)) {
    throw RuntimeError(place.string() + ": exists and is not a directory");
  }
  if (!fs::is_empty(place, failure) || failure) {
    throw RuntimeError(place.string() + ": " + (failure ? failure.message() : "exists and is not empty"));
  }
}

}  // namespace

NewInstallation::NewInstallation(const std::string& target) {
  const fs::path place = placeOf(target);
  refuseUsedPlace(place);
  m_target = place.string();
  std::string work = (place.parent_path() / ("." + place.filename().string() + ".new-XXXXXX")).string();
  if (::mkdtemp(work.data()) == nullptr) {
    throwErrno(place.parent_path().string(), "cannot make a directory there");
  }
  m_work = work;
}

NewInstallation::~NewInstallation() {
  if (!m_published) {
    std::error_code ignored;  // the failure that brought us here matters more
    fs::remove_all(m_work, ignored);
  }
}

void NewInstallation::copy(const std::string& from, const std::string& relative) {
  fs::copy(from, fs::path(m_work) / relative, fs::copy_options::recursive);
}

void NewInstallation::publish() {
  const fs::path work(m_work);
  for (const auto& entry : fs::recursive_directory_iterator(work)) {
    finishFile(entry.path().string(), modeOf(entry.path().lexically_relative(work), entry.is_directory()));
  }
  finishFile(m_work, kDirectoryMode);
  // Takes the place of an empty directory too; one that was filled meanwhile is refused.
  if (std::rename(m_work.c_str(), m_target.c_str()) != 0) {
    throwErrno(m_target, "cannot move the installation there");
  }
  m_published = true;
  bringToDisk(fs::path(m_target).parent_path().string());
}
