// Localised display strings.
#pragma once

#include <string>

namespace ZARO {

class KxResbundle {
 public:
  KxResbundle();
  ~KxResbundle();

  KxResbundle(const KxResbundle&) = delete;
  KxResbundle& operator=(const KxResbundle&) = delete;

  static const char* GetResourceFileName();
  // Opens a section of a resource file in a language; throws `const char*`.
  void _init(const char* fileName, const char* section, const char* locale);
  // True and `value` set when the key is there.
  bool getString(const char* key, std::string& value);

 private:
  struct Impl;
  Impl* m_impl;
};

}  // namespace ZARO
