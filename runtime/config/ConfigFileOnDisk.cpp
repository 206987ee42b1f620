#include "ConfigFileOnDisk.h"

#include <memory>

#include "PolicyLog.h"
#include "ZaroRuntime/IniFile.h"
#include "common/ThrownText.h"

namespace ZARO {

struct ConfigFileOnDisk::Impl {
  std::string path;
  std::unique_ptr<zaroruntime::IniFile> ini;  // null when the file could not be read
};

ConfigFileOnDisk::ConfigFileOnDisk(const char* path)
    : m_impl(zaroruntime::throwingText([&] {
        return new Impl{path != nullptr ? path : "", nullptr};
      })) {
  try {
    m_impl->ini = std::make_unique<zaroruntime::IniFile>(m_impl->path);
  } catch (const std::exception& failure) {
    // The caller only learns that the object is not open, so the reason is told here.
    PolicyLog::log(LogLevel::Error, "ConfigFileOnDisk: %s", failure.what());
  }
}

ConfigFileOnDisk::~ConfigFileOnDisk() {
  delete m_impl;
}

bool ConfigFileOnDisk::isOpen() const {
  return m_impl->ini != nullptr;
}

const char* ConfigFileOnDisk::getPath() const {
  return m_impl->path.c_str();
}

bool ConfigFileOnDisk::getValue(const char* section, const char* key, std::string& value) const {
  if (!isOpen() || section == nullptr || key == nullptr) {
    return false;
  }
  const auto found = m_impl->ini->get(section, key);
  if (!found) {
    return false;
  }
  value = *found;
  return true;
}

}  // namespace ZARO
