// The settings of an installation, in two layers: config/zaro.ini, and below it a table of the database, which hosts
// that work on one database share. A key is read from the file if it is there, else from the table.
//
// 1. Any number of threads and processes may read and write at the same time. A reader finds every setting as it was
//    before a write or after it, whenever the writer dies.
// 2. The file is kept as it is, comments and order included, but for the line that is set.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

enum class SettingLayer { File, Database };

struct Setting {
  std::string value;
  SettingLayer layer;
  // What the table holds below a value of the file, if that is another one: set on another host, or by a writer that
  // died between table and file.
  std::optional<std::string> below;
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
// database, also when it is not there at all or has the schema of another version, the file is as before.
void writeSetting(const Installation& installation, const std::string& section, const std::string& key,
                  const std::string& value);

struct SettingText {
  std::string section;
  std::string key;
  std::string value;
};

// Sets values in the file alone, for this host: all of them or none, and without the database. Waits for other writers.
// Throws RuntimeError.
void writeHostSettings(const Installation& installation, const std::vector<SettingText>& settings);

// Settings that are read and written together: all of them or none. While one is open, what this thread writes waits
// for `commit`, also what it writes through GlobalSettingIF; without a commit nothing is written. Reading gives the
// settings as they were. Another thread or process that opens one waits, up to a minute; readers and single writes do
// not. Not for two at a time in one thread.
//
// `commit` writes the new file beside the old one and has the disk keep it, then commits the table's rows, then gives
// the file its name. A process that dies between the last two leaves the old file above a new table, as
// `Setting::below` tells.
class SettingsTransaction {
 public:
  // Throws RuntimeError.
  explicit SettingsTransaction(const Installation& installation);
  ~SettingsTransaction();
  SettingsTransaction(const SettingsTransaction&) = delete;
  SettingsTransaction& operator=(const SettingsTransaction&) = delete;

  // Throws RuntimeError as `writeSetting` does.
  void commit();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace zaroruntime
