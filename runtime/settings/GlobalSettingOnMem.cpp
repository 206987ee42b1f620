// The copy is looked at on every call, and made anew when the file changed since. What changes in the table alone is
// seen with the next change of the file, or when the database, having failed, answers again.
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <vector>

#include "GlobalSetting.h"
#include "common/FileText.h"
#include "settings/SettingsCodes.h"
#include "settings/SettingsLayers.h"

using zaroruntime::Installation;
using zaroruntime::Settings;

namespace {

constexpr const char* kName = "GlobalSettingOnMem";

using Clock = std::chrono::steady_clock;
// A database that failed is asked again after this time, not by every reader: each would wait for it.
constexpr auto kDatabasePause = std::chrono::seconds(30);

// What tells one state of a file from another.
using FileState = std::tuple<std::string, dev_t, ino_t, off_t, time_t, long, time_t, long>;

FileState stateOf(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    zaroruntime::throwFileError(path, "cannot open");
  }
  return {path,
          status.st_dev,
          status.st_ino,
          status.st_size,
          status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec,
          status.st_ctim.tv_sec,
          status.st_ctim.tv_nsec};
}

class Copy {
 public:
  // Brings the copy up to date and returns it. Null, and logged, when the file cannot be used.
  std::shared_ptr<const Settings> get() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    zaroruntime::answeringCode(kName, [&] {
      m_usable = false;
      const Installation installation = Installation::fromEnvironment();
      // Before the file is read: a change meanwhile then shows as one.
      const FileState state = stateOf(installation.settingsIni());
      if (m_settings == nullptr || state != m_state || _isDatabaseDue()) {
        m_settings.reset();
        if (std::get<0>(state) != std::get<0>(m_state)) {
          m_table.reset();  // another installation's
        }
        m_settings = std::make_shared<const Settings>(_read(installation));
        m_state = state;
        m_read = Clock::now();
      }
      m_usable = true;
      return zaroruntime::kDone;
    });
    return m_usable ? m_settings : nullptr;
  }

  bool isLoaded() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_usable;
  }

 private:
  // While the database fails, what it said before still holds: shared settings do not vanish because a file changed.
  Settings _read(const Installation& installation) {
    Settings settings = zaroruntime::readFileLayer(installation);
    try {
      m_table = zaroruntime::readSettingsTable(installation);
    } catch (const zaroruntime::RuntimeError& failure) {
      settings.databaseFailure = failure.what();
    }
    if (!m_table) {
      zaroruntime::warnOfDatabase(kName, settings);
      return settings;
    }
    if (!settings.databaseFailure.empty()) {
      PolicyLog::log(LogLevel::Warning, "%s: shared settings stay as they were read before: %s", kName,
                     settings.databaseFailure.c_str());
    }
    zaroruntime::addTableLayer(*m_table, settings);
    return settings;
  }

  bool _isDatabaseDue() const {
    return !m_settings->databaseFailure.empty() && Clock::now() - m_read >= kDatabasePause;
  }

  mutable std::mutex m_mutex;
  bool m_usable = false;
  std::shared_ptr<const Settings> m_settings;
  std::optional<std::vector<zaroruntime::TableSetting>> m_table;  // as last read
  FileState m_state;
  Clock::time_point m_read;
};

// Never destroyed: threads may read settings while the process ends.
Copy& copy() {
  static Copy* const instance = new Copy;
  return *instance;
}

}  // namespace

namespace ZARO {

// There is one installation, named by the environment, so that the arguments have nothing to choose.
GlobalSettingOnMem* GlobalSettingOnMem::Instance(const char*, bool, const char*, const char*, const char*, const char*,
                                                 bool) {
  static GlobalSettingOnMem instance;
  copy().get();
  return &instance;
}

bool GlobalSettingOnMem::isLoaded() const {
  return copy().isLoaded();
}

int GlobalSettingOnMem::getItemsInSection(std::map<std::string, std::string>& items, const char* section) {
  return zaroruntime::answeringCode(kName, [&] {
    const std::string name = zaroruntime::requiredText(section, "section");
    const auto settings = copy().get();
    if (settings == nullptr) {
      return zaroruntime::kFailed;
    }
    zaroruntime::addItems(*settings, name, items);
    return zaroruntime::kDone;
  });
}

int GlobalSettingOnMem::getItem(const char* key, std::string& value, const char* section, const char* fileName) {
  return zaroruntime::answeringCode(kName, [&] {
    zaroruntime::requireSettingsFile(fileName);
    const std::string keyName = zaroruntime::requiredText(key, "key");
    const std::string sectionName = zaroruntime::requiredText(section, "section");
    const auto settings = copy().get();
    const zaroruntime::Setting* found = settings != nullptr ? settings->find(sectionName, keyName) : nullptr;
    if (found == nullptr) {
      return zaroruntime::kFailed;
    }
    value = found->value;
    return zaroruntime::kDone;
  });
}

}  // namespace ZARO
