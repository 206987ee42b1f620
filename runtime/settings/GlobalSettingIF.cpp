#include "GlobalSetting.h"
#include "settings/SettingsCodes.h"

using zaroruntime::Installation;

namespace ZARO {

namespace {

constexpr const char* kName = "GlobalSettingIF";

}  // namespace

// Every call works on the files and the table as they are then.
struct GlobalSettingIF::Impl {};

GlobalSettingIF::GlobalSettingIF() : m_impl(nullptr) {}

GlobalSettingIF::~GlobalSettingIF() {
  delete m_impl;
}

int GlobalSettingIF::getItemsInSection(std::map<std::string, std::string>& items, const char* section,
                                       const char* fileName) {
  return zaroruntime::answeringCode(kName, [&] {
    zaroruntime::requireSettingsFile(fileName);
    const std::string name = zaroruntime::requiredText(section, "section");
    const zaroruntime::Settings settings = zaroruntime::readSettings(Installation::fromEnvironment());
    zaroruntime::warnOfDatabase(kName, settings);
    zaroruntime::addItems(settings, name, items);
    return zaroruntime::kDone;
  });
}

int GlobalSettingIF::setItem(const char* key, const char* value, const char* section, const char* fileName) {
  return zaroruntime::answeringCode(kName, [&] {
    zaroruntime::requireSettingsFile(fileName);
    zaroruntime::writeSetting(Installation::fromEnvironment(), zaroruntime::requiredText(section, "section"),
                              zaroruntime::requiredText(key, "key"), zaroruntime::requiredText(value, "value"));
    return zaroruntime::kDone;
  });
}

}  // namespace ZARO
