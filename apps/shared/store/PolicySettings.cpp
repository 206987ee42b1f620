#include "store/PolicySettings.h"

#include <strings.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/LastFailure.h"
#include "console/Text.h"
#include "store/ClientSettings.h"
#include "store/ServerSettings.h"

using zaroruntime::Setting;
using zaroruntime::SettingLayer;
using zaroruntime::Settings;
using zaroruntime::SettingText;
using zaroruntime::sqlLiteral;
using Interface = ZaroPolicyServerInterface;
using Rule = Interface::NumberRule;

namespace {

struct Answer {
  unsigned int code;
  std::vector<std::pair<std::string, Json>> values;  // by key, in the order in which they are read
};

const char* protocolName(Interface::Protocol protocol) {
  return protocol == Interface::HTTPS ? "HTTPS" : "HTTP";
}

Answer askForServer() {
  // The caller's values count where a stored one is no number; those are not shown.
  unsigned int backlog = 0, port = 0, recvTimeout = 0, sendTimeout = 0, threads = 0, maxThreads = 0, cacheTtl = 0;
  bool keepAlive = false;
  Interface::Protocol protocol = Interface::HTTP;
  const unsigned int code = Interface::getSettingsFromDatabase(backlog, keepAlive, port, protocol, recvTimeout,
                                                               sendTimeout, threads, maxThreads, cacheTtl, true);
  return {code,
          {{"backlog", backlog},
           {"keep-alive", keepAlive},
           {"PolicyServerPort", port},
           {"protocol", protocolName(protocol)},
           {"recv_timeout_secs", recvTimeout},
           {"send_timeout_secs", sendTimeout},
           {"threads", threads},
           {"max_threads", maxThreads},
           {kCacheTtl, cacheTtl}}};
}

Answer askForClient() {
  std::string host;
  unsigned int port = 0, recvTimeout = 0, sendTimeout = 0;
  bool keepAlive = false;
  Interface::Protocol protocol = Interface::HTTP;
  const unsigned int code =
      Interface::getClientSettingsFromDatabase(host, port, keepAlive, protocol, recvTimeout, sendTimeout, true);
  return {code,
          {{"PolicyServerPort", port},
           {"keep-alive", keepAlive},
           {"protocol", protocolName(protocol)},
           {"host", host},
           {"recv_timeout_secs", recvTimeout},
           {"send_timeout_secs", sendTimeout}}};
}

// --- Why a stored text does not count as it stands ---

std::string whyNumberChanges(const Rule& rule, Interface::Reading reading) {
  switch (reading) {
    case Interface::AsStored:
      return "";
    case Interface::TooLong:
      return "longer than " + std::to_string(rule.longest) + " digits";
    case Interface::TooLow:
      return "below " + std::to_string(rule.least);
    case Interface::TooHigh:
      return "above " + std::to_string(rule.greatest);
    case Interface::NotANumber:
      break;
  }
  return rule.isPort ? "not a port" : "not a number";
}

struct Words {
  SettingKind kind;
  const char* one;
  const char* other;
  const char* note;  // about any other word
};

constexpr Words kWords[] = {
    {SettingKind::YesOrNo, "yes", "no", "neither yes nor no"},
    {SettingKind::Protocol, "HTTP", "HTTPS", "neither HTTP nor HTTPS"},
};

// The reader's setting of a key; each has only one.
const KnownSetting& findKey(SettingReader reader, const std::string& key) {
  return *std::find_if(std::begin(kSettingTable), std::end(kSettingTable),
                       [&](const KnownSetting& setting) { return isReadBy(setting, reader) && key == setting.key; });
}

// Sets value and note of a setting that was read.
void explain(SettingKind kind, const Rule* rule, const Json& value, ReadSetting& setting) {
  const std::string& text = setting.stored->value;
  setting.value = value;
  if (rule == nullptr) {
    setting.note = whyNoWord(kind, text);
    return;
  }
  unsigned int number = 0;
  const Interface::Reading reading = Interface::readNumber(*rule, text, number);
  setting.note = whyNumberChanges(*rule, reading);
  if (reading == Interface::NotANumber && !rule->fallBack) {
    setting.value = nullptr;
    setting.note += "; the server's own default counts";
  }
}

using FindRule = const Rule* (*)(const std::string& key);

// Puts the library's values beside what is stored. `sectionOf` says where a setting stands.
template <typename SectionOf>
ReadSettings compare(SettingReader reader, const Answer& answer, const Settings& stored, FindRule findRule,
                     SectionOf sectionOf) {
  ReadSettings read{{}, answer.code, ""};
  bool reached = true;
  for (const auto& [key, value] : answer.values) {
    const KnownSetting& known = findKey(reader, key);
    const std::string section = sectionOf(known);
    ReadSetting setting{section, key, stored.find(section, key), nullptr, ""};
    if (setting.stored == nullptr) {
      setting.note = "missing";
      reached = false;
    } else if (reached) {
      explain(known.kind, findRule(key), value, setting);
    } else {
      setting.note = "not read: one before it is missing";
    }
    read.settings.push_back(std::move(setting));
  }
  return read;
}

std::vector<SettingText> initialSettings() {
  std::vector<SettingText> settings;
  for (const KnownSetting& setting : kSettingTable) {
    if (setting.initial == nullptr) {
      continue;
    }
    if (setting.section != SettingSection::Cache) {
      settings.push_back({nameOf(setting.section), setting.key, setting.initial});
      continue;
    }
    const std::string ownSection = "1";  // an access type
    for (const std::string* accessType : {&ownSection, static_cast<const std::string*>(nullptr)}) {
      settings.push_back({Interface::getCacheSection(accessType, nullptr), setting.key, setting.initial});
    }
  }
  return settings;
}

const std::string* textOf(const Setting* setting) {
  return setting != nullptr ? &setting->value : nullptr;
}

}  // namespace

std::string cacheSection(const Settings& stored) {
  return Interface::getCacheSection(textOf(stored.find(kLdapSection, "access_type")),
                                    textOf(stored.find(kLdapSection, "enabled_server")));
}

std::string sectionOf(const KnownSetting& setting, const Settings& stored) {
  return setting.section != SettingSection::Cache ? nameOf(setting.section) : cacheSection(stored);
}

const char* nameOf(SettingLayer layer) {
  return layer == SettingLayer::File ? "zaro.ini" : "database";
}

bool addMissingSettings(zaroruntime::SqlSession& session) {
  bool added = false;
  for (const auto& [section, key, value] : initialSettings()) {
    const std::string place = "section = " + sqlLiteral(section) + " AND name = " + sqlLiteral(key);
    if (!session.value("SELECT value FROM global_setting WHERE " + place)) {
      session.run("INSERT INTO global_setting (section, name, value) VALUES (" + sqlLiteral(section) + ", " +
                  sqlLiteral(key) + ", " + sqlLiteral(value) + ")");
      added = true;
    }
  }
  return added;
}

ReadSettings readAsServer(const Settings& stored) {
  ReadSettings read = compare(SettingReader::Server, askForServer(), stored, Interface::findServerRule,
                              [&](const KnownSetting& setting) { return sectionOf(setting, stored); });
  readServerOnly(stored, read);
  return read;
}

ReadSettings readAsClient(const Settings& stored) {
  ReadSettings read = compare(SettingReader::Client, askForClient(), stored, Interface::findClientRule,
                              [&](const KnownSetting& setting) {
                                // What the client's own section lacks is the server's.
                                const bool taken = stored.find(nameOf(setting.section), setting.key) == nullptr &&
                                                   stored.find(kServerSection, setting.key) != nullptr;
                                return std::string(taken ? kServerSection : nameOf(setting.section));
                              });
  readClientOnly(stored, read);
  return read;
}

std::string whyNoWord(SettingKind kind, const std::string& text) {
  for (const Words& words : kWords) {
    const bool known = strcasecmp(text.c_str(), words.one) == 0 || strcasecmp(text.c_str(), words.other) == 0;
    if (kind == words.kind && !known) {
      return words.note;
    }
  }
  return "";
}

std::string whyUnreadable(const char* reader, const ReadSettings& read) {
  if (!read.unusable.empty()) {
    return std::string(reader) + " cannot use its settings: " + read.unusable;
  }
  std::string why = zaroruntime::lastFailure();
  for (const ReadSetting& setting : read.settings) {
    if (setting.stored == nullptr && setting.value.is_null()) {
      why = "[" + setting.section + "] " + setting.key + " is missing";
      break;
    }
  }
  return std::string(reader) + " cannot read its settings (code " + std::to_string(read.code) + "): " + why;
}

void tellOfDatabase(const Settings& stored) {
  if (!stored.databaseFailure.empty()) {
    diagnose("zaro.ini answers alone: " + stored.databaseFailure);
  }
}
