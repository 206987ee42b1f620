#include "store/DefaultedSettings.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"

using zaroruntime::Setting;
using zaroruntime::Settings;

std::string DefaultedSettings::whyNoValue(const std::string& key, const std::string& text) const {
  return _row(key).whyNoValue(text);
}

void DefaultedSettings::read(const Settings& stored, ReadSettings& read) const {
  for (std::size_t i = 0; i < m_count; ++i) {
    const DefaultedSetting& row = m_rows[i];
    ReadSetting setting{m_section, row.key, stored.find(m_section, row.key), row.fallback, ""};
    if (setting.stored == nullptr) {
      read.settings.push_back(std::move(setting));
      continue;
    }
    setting.note = row.whyNoValue(setting.stored->value);
    if (setting.note.empty()) {
      setting.value = setting.stored->value;
    } else {
      setting.value = nullptr;
      if (read.unusable.empty()) {
        read.unusable = unusable(row.key, setting.stored->value, setting.note);
      }
    }
    read.settings.push_back(std::move(setting));
  }
}

std::string DefaultedSettings::text(const Settings& stored, const char* key) const {
  const Setting* setting = stored.find(m_section, key);
  if (setting == nullptr) {
    return _row(key).fallback;
  }
  const std::string wrong = whyNoValue(key, setting->value);
  if (!wrong.empty()) {
    throw zaroruntime::RuntimeError(unusable(key, setting->value, wrong), zaroruntime::FailureKind::Configuration);
  }
  return setting->value;
}

std::string DefaultedSettings::unusable(const char* key, const std::string& value, const std::string& wrong) const {
  return "[" + std::string(m_section) + "] " + key + ": " + quoted(value) + " is " + wrong;
}

const DefaultedSetting& DefaultedSettings::_row(const std::string& key) const {
  return *std::find_if(m_rows, m_rows + m_count, [&](const DefaultedSetting& row) { return key == row.key; });
}

std::string judgePath(const std::string& path) {
  return path.empty() || !isPlainText(path) ? "not a path" : "";
}

std::string judgeOptionalPath(const std::string& path) {
  return path.empty() ? "" : judgePath(path);
}

std::string judgeAddress(const std::string& text) {
  return isNumericAddress(text, AF_INET) || isNumericAddress(text, AF_INET6) ? "" : "not an IP address";
}

bool isNumericAddress(const std::string& text, int family) {
  std::array<unsigned char, sizeof(in6_addr)> address = {};
  return inet_pton(family, text.c_str(), address.data()) == 1;
}

bool isLoopback(const std::string& address) {
  constexpr const char* kMapped = "::ffff:127.";
  if (isNumericAddress(address, AF_INET)) {
    return address.compare(0, 4, "127.") == 0;
  }
  in6_addr number = {};
  return inet_pton(AF_INET6, address.c_str(), &number) == 1 &&
         (IN6_IS_ADDR_LOOPBACK(&number) || address.compare(0, std::char_traits<char>::length(kMapped), kMapped) == 0);
}
