#include "installation/NewInstallation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "installation/Files.h"

namespace fs = std::filesystem;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

struct ModeRow {
  const char* path;
  mode_t mode;
};

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr const char* kConfig = "config";
// Everything else has the modes above.
constexpr ModeRow kModes[] = {
    {"config/database.ini", 0640},
    {"config/secret.key", 0600},
    {"data", 0700},
};
constexpr const char* kData = "data";
constexpr mode_t kDataFileMode = 0600;  // of the database, and of what its driver may leave beside it

mode_t modeOf(const fs::path& relative, bool directory) {
  for (const ModeRow& row : kModes) {
    if (relative == row.path) {
      return row.mode;
    }
  }
  if (directory) {
    return kDirectoryMode;
  }
  return relative.parent_path() == kData ? kDataFileMode : kFileMode;
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
    throw RuntimeError(place.parent_path().string() + ": cannot make an installation there: " + failure.message(),
                       FailureKind::Creation);
  }
  return fs::is_symlink(place, failure) ? fs::weakly_canonical(place) : above / place.filename();
}

bool isEmptyDirectory(const fs::path& place) {
  std::error_code failure;
  for (fs::directory_iterator entry(place, failure); !failure && entry != fs::directory_iterator();
       entry.increment(failure)) {
    if (entry->path().filename() != "lost+found") {
      return false;
    }
  }
  if (failure) {
    throw RuntimeError(place.string() + ": " + failure.message(), zaroruntime::kindOfFileError(failure.value()));
  }
  return true;
}

// Whether a directory is there, which is then empty.
bool isUsablePlace(const fs::path& place) {
  if (!fs::exists(fs::symlink_status(place))) {
    return false;
  }
  if (!fs::is_directory(place)) {
    throw RuntimeError(place.string() + ": exists and is not a directory", FailureKind::Creation);
  }
  if (!isEmptyDirectory(place)) {
    throw RuntimeError(place.string() + ": exists and is not empty", FailureKind::Creation);
  }
  return true;
}

std::string makeDirectoryLike(const fs::path& pattern) {
  std::string path = pattern.string();
  if (::mkdtemp(path.data()) == nullptr) {
    throwErrno(pattern.parent_path().string(), "cannot make a directory there", FailureKind::Creation);
  }
  return path;
}

// The names in a directory, in an order that is the same for every installation. The configuration is last: with it the
// directory becomes an installation.
std::vector<std::string> namesInOrder(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end(), [](const std::string& one, const std::string& other) {
    return std::make_pair(one == kConfig, one) < std::make_pair(other == kConfig, other);
  });
  return names;
}

}  // namespace

NewInstallation::NewInstallation(const std::string& target) {
  const fs::path place = placeOf(target);
  m_target = place.string();
  m_targetExists = isUsablePlace(place);
  m_work = makeDirectoryLike(m_targetExists ? place / ".new-XXXXXX"
                                            : place.parent_path() / ("." + place.filename().string() + ".new-XXXXXX"));
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
  _finishFiles();
  if (m_targetExists) {
    _moveUp();
  } else {
    finishFile(m_work, kDirectoryMode);
    moveWithoutReplacing(m_work, m_target);
  }
  m_published = true;
  tryToBringToDisk(m_targetExists ? m_target : fs::path(m_target).parent_path().string());
}

void NewInstallation::_finishFiles() const {
  const fs::path work(m_work);
  for (const auto& entry : fs::recursive_directory_iterator(work)) {
    finishFile(entry.path().string(), modeOf(entry.path().lexically_relative(work), entry.is_directory()));
  }
}

// Of two programs that fill the same directory the one that is first with the first name goes on.
void NewInstallation::_moveUp() const {
  std::vector<std::string> moved;
  try {
    for (const std::string& name : namesInOrder(m_work)) {
      if (name == kConfig) {
        bringToDisk(m_target);
      }
      moveWithoutReplacing(m_work + "/" + name, m_target + "/" + name);
      moved.push_back(name);
    }
  } catch (...) {
    for (const std::string& name : moved) {
      _moveBack(name);
    }
    throw;
  }
  if (::rmdir(m_work.c_str()) != 0) {
    diagnose("warning: " + m_work + ": cannot be removed");
  }
}

void NewInstallation::_moveBack(const std::string& name) const {
  try {
    moveWithoutReplacing(m_target + "/" + name, m_work + "/" + name);
  } catch (const RuntimeError& failure) {
    diagnose("warning: " + m_target + "/" + name + " stays behind: " + failure.what());
  }
}
