// Settings of a service that have a default each, so that none has to be stored.
#pragma once

#include <cstddef>
#include <string>

#include "ZaroRuntime/SettingsStore.h"
#include "store/PolicySettings.h"

struct DefaultedSetting {
  const char* key;
  const char* fallback;
  std::string (*whyNoValue)(const std::string& text);  // answers an empty text for a value
};

// The settings of one section. The rows belong to the caller.
class DefaultedSettings {
 public:
  template <std::size_t Count>
  constexpr DefaultedSettings(const char* section, const DefaultedSetting (&rows)[Count])
      : m_section(section), m_rows(rows), m_count(Count) {}

  // Why a text is no value of a key; empty when it is one. The key is one of the rows.
  std::string whyNoValue(const std::string& key, const std::string& text) const;
  // Appends what the service makes of what is stored; the value of one that it cannot use is null.
  void read(const zaroruntime::Settings& stored, ReadSettings& read) const;
  // The value that counts. Throws RuntimeError for a stored text that is none.
  std::string text(const zaroruntime::Settings& stored, const char* key) const;
  // What is wrong with a value, with the names of section and key.
  std::string unusable(const char* key, const std::string& value, const std::string& wrong) const;

 private:
  const DefaultedSetting& _row(const std::string& key) const;

  const char* m_section;
  const DefaultedSetting* m_rows;
  std::size_t m_count;
};

// --- Why a text is no value, for the rows ---

std::string judgePath(const std::string& path);
std::string judgeOptionalPath(const std::string& path);
std::string judgeAddress(const std::string& text);

// An IP address of the family, as a number.
bool isNumericAddress(const std::string& text, int family);
// An IP address that only this host reaches.
bool isLoopback(const std::string& address);
