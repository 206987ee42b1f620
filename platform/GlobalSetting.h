// The gateway's global settings store, backed by ini files and the database.
#pragma once

#include <map>
#include <string>

namespace ZARO {

class GlobalSetting;
class LogMsg;

// The process's settings in memory.
class GlobalSettingOnMem {
 public:
  // The process-wide instance, or null.
  static GlobalSettingOnMem* Instance(const char*, bool, const char*, const char*, const char*, const char*, bool);

  bool isLoaded() const;
  // Adds the section's keys and values to `items`; 0 on success.
  int getItemsInSection(std::map<std::string, std::string>& items, const char* section);
  // Reads one value; 0 on success.
  int getItem(const char* key, std::string& value, const char* section, const char* fileName);
};

// The settings as stored.
class GlobalSettingIF {
 public:
  GlobalSettingIF();
  ~GlobalSettingIF();

  GlobalSettingIF(const GlobalSettingIF&) = delete;
  GlobalSettingIF& operator=(const GlobalSettingIF&) = delete;

  // Adds the section's keys and values to `items`; 0 on success.
  int getItemsInSection(std::map<std::string, std::string>& items, const char* section, const char* fileName);
  // Stores one value; 0 on success.
  int setItem(const char* key, const char* value, const char* section, const char* fileName);

 private:
  struct Impl;
  Impl* m_impl;
};

}  // namespace ZARO
