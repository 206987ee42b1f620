// The settings of an installation, in two layers: config/zaro.ini, and below it a table of the database, which hosts
// that work on one database share. A key is read from the file if it is there, else from the table.
//
// 1. Any number of threads and processes may read and write at the same time. A reader finds every setting as it was
//    before a write or after it, whenever the writer dies.
// 2. The file is kept as it is, comments and order included, but for the line that is set.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

enum class SettingLayer { File, Database };

struct Setting {
  std::string value;
  SettingLayer layer;
};

struct Settings {
  std::map<std::string, std::map<std::string, Setting>> sections;  // by section, then by key
  std::string databaseFailure;  // why there is nothing from the database; empty when it answered

  // Null if it is missing.
  const Setting* find(const std::string& section, const std::string& key) const;
};

// Reads both layers. When the database fails, the file answers alone. Throws RuntimeError when the file cannot be read
// or has a line that no ini file has.
Settings readSettings(const Installation& installation);

// Sets one value in the table, then in the file. Throws RuntimeError when either fails; after a failure of the
// database, also when it is not there at all, the file is as before.
void writeSetting(const Installation& installation, const std::string& section, const std::string& key,
                  const std::string& value);

// Held while settings are read and written that belong together: whoever else holds one waits, up to a minute. Readers
// and single writes do not. Not for two at a time in one thread. Throws RuntimeError.
class SettingsLock {
 public:
  explicit SettingsLock(const Installation& installation);
  ~SettingsLock();
  SettingsLock(const SettingsLock&) = delete;
  SettingsLock& operator=(const SettingsLock&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace zaroruntime
