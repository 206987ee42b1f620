// An ini file, read when the object is made.
#pragma once

#include <string>

namespace ZARO {

class ConfigFileOnDisk {
 public:
  explicit ConfigFileOnDisk(const char* path);
  ~ConfigFileOnDisk();

  ConfigFileOnDisk(const ConfigFileOnDisk&) = delete;
  ConfigFileOnDisk& operator=(const ConfigFileOnDisk&) = delete;

  bool isOpen() const;
  const char* getPath() const;
  // True and `value` set when the key is there; otherwise false and `value` untouched.
  bool getValue(const char* section, const char* key, std::string& value) const;

 private:
  struct Impl;
  Impl* m_impl;
};

}  // namespace ZARO
