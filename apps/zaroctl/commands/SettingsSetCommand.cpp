// settings set KEY=VALUE...
#include <strings.h>

#include <algorithm>
#include <climits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Database.h"
#include "store/FilterSettings.h"
#include "store/PolicySettings.h"

using zaroruntime::FailureKind;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::Setting;
using zaroruntime::Settings;
using zaroruntime::SettingsTransaction;
using Interface = ZaroPolicyServerInterface;
using Rule = Interface::NumberRule;

namespace {

// --- What can be set ---

// Each answers why a text cannot be a value; empty when it can.

std::string judgeNumber(const Rule& rule, const std::string& text) {
  unsigned int number = 0;
  switch (Interface::readNumber(rule, text, number)) {
    case Interface::NotANumber:
      return rule.isPort ? "not a port" : "not a number";
    case Interface::TooLow:
      return "below " + std::to_string(rule.least);
    case Interface::TooLong:
    case Interface::TooHigh:
      return "above " + std::to_string(rule.greatest);
    case Interface::AsStored:
      break;
  }
  // Written as a signed number; one that is too long for a server to read wraps.
  return decimalNumber(text).value_or(LLONG_MAX) > INT_MAX ? "above " + std::to_string(INT_MAX) : "";
}

std::string judgeHost(const std::string& text) {
  const bool blank = text.find_first_of(" \t") != std::string::npos;
  return text.empty() || blank || !isPlainText(text) ? "not the name or address of a host" : "";
}

std::string judgeLdapNumber(const std::string& text) {
  // The number of a server is doubled to find its section.
  constexpr unsigned int kHighest = (INT_MAX - 1) / 2;
  const Rule rule = {"", false, static_cast<std::size_t>(-1), 0, kHighest, std::nullopt};
  return judgeNumber(rule, text);
}

std::string whyNoValue(const KnownSetting& setting, const std::string& text) {
  switch (setting.kind) {
    case SettingKind::ServerNumber:
      return judgeNumber(*Interface::findServerRule(setting.key), text);
    case SettingKind::ClientNumber:
      return judgeNumber(*Interface::findClientRule(setting.key), text);
    case SettingKind::YesOrNo:
    case SettingKind::Protocol:
      return whyNoWord(setting.kind, text);
    case SettingKind::Host:
      return judgeHost(text);
    case SettingKind::FilterValue:
      return whyNoFilterValue(setting.key, text);
    case SettingKind::LdapNumber:
      break;
  }
  return judgeLdapNumber(text);
}

// --- What is asked for ---

struct Change {
  const KnownSetting* setting;
  std::string value;
};

std::string fullName(const KnownSetting& setting) {
  return setting.section != SettingSection::Cache ? std::string(nameOf(setting.section)) + "." + setting.key
                                                  : setting.key;
}

const KnownSetting& findSetting(const std::string& name) {
  std::vector<const KnownSetting*> found;
  std::string all;
  for (const KnownSetting& setting : kSettingTable) {
    all += (all.empty() ? "" : ", ") + fullName(setting);
    if (name == setting.key || name == fullName(setting)) {
      found.push_back(&setting);
    }
  }
  if (found.empty()) {
    throw UsageError("no setting named " + quoted(name) + "; there are " + all);
  }
  if (found.size() > 1) {
    throw UsageError("say " + fullName(*found[0]) + " or " + fullName(*found[1]) + ": there are two settings named " +
                     quoted(name));
  }
  return *found[0];
}

std::vector<Change> parseChanges(const std::vector<std::string>& arguments) {
  std::vector<Change> changes;
  for (const std::string& argument : arguments) {
    const std::size_t sign = argument.find('=');
    if (sign == std::string::npos) {
      throw UsageError(quoted(argument) + " is not KEY=VALUE");
    }
    const KnownSetting& setting = findSetting(argument.substr(0, sign));
    const std::string value = argument.substr(sign + 1);
    const std::string wrong = whyNoValue(setting, value);
    if (!wrong.empty()) {
      throw UsageError(fullName(setting) + ": " + quoted(value) + " is " + wrong);
    }
    if (std::any_of(changes.begin(), changes.end(), [&](const Change& other) { return other.setting == &setting; })) {
      throw UsageError(fullName(setting) + " stands there twice");
    }
    changes.push_back({&setting, value});
  }
  return changes;
}

// --- What the settings will be ---

Settings withChanges(Settings settings, const std::vector<Change>& changes) {
  // The sections of LDAP first, by which the one of the lifetime is then found.
  for (const bool lifetime : {false, true}) {
    for (const Change& change : changes) {
      if ((change.setting->section == SettingSection::Cache) == lifetime) {
        settings.sections[sectionOf(*change.setting, settings)][change.setting->key].value = change.value;
      }
    }
  }
  return settings;
}

std::string requiredValue(const Settings& settings, const std::string& section, const std::string& key) {
  const Setting* setting = settings.find(section, key);
  if (setting == nullptr) {
    throw RuntimeError("nothing is written: [" + section + "] " + key + " is missing; set it as well",
                       FailureKind::Configuration);
  }
  return setting->value;
}

// A number as a server would read it.
unsigned int requiredNumber(const Settings& settings, const std::string& section, const char* key) {
  const Rule& rule = *Interface::findServerRule(key);
  const std::string text = requiredValue(settings, section, key);
  unsigned int number = 0;
  if (Interface::readNumber(rule, text, number) == Interface::NotANumber && !rule.fallBack) {
    throw RuntimeError("nothing is written: [" + section + "] " + key + " holds " + quoted(text) + ", which is " +
                           (rule.isPort ? "not a port" : "not a number") + "; set it as well",
                       FailureKind::Configuration);
  }
  return std::min(number, static_cast<unsigned int>(INT_MAX));
}

// The seven that the library writes together.
struct LibrarySettings {
  unsigned int backlog;
  bool keepAlive;
  unsigned int port;
  Interface::Protocol protocol;
  unsigned int threads;
  unsigned int maxThreads;
  unsigned int cacheTtl;
};

LibrarySettings librarySettings(const Settings& settings) {
  const auto number = [&](const char* key) { return requiredNumber(settings, kServerSection, key); };
  const auto isWord = [&](const char* key, const char* word) {
    return strcasecmp(requiredValue(settings, kServerSection, key).c_str(), word) == 0;
  };
  return {number("backlog"),
          isWord("keep-alive", "yes"),
          number("PolicyServerPort"),
          isWord("protocol", "HTTPS") ? Interface::HTTPS : Interface::HTTP,
          number("threads"),
          number("max_threads"),
          requiredNumber(settings, cacheSection(settings), kCacheTtl)};
}

// A server would start more threads than it may have.
void refuseMoreThreadsThanThereMayBe(const std::vector<Change>& changes, const LibrarySettings& settings) {
  const bool concerned = std::any_of(changes.begin(), changes.end(), [](const Change& change) {
    const std::string key = change.setting->key;
    return key == "threads" || key == "max_threads";
  });
  if (concerned && settings.maxThreads < settings.threads) {
    throw UsageError("max_threads would be " + std::to_string(settings.maxThreads) +
                     ", below threads, which would be " + std::to_string(settings.threads) + "; nothing is written");
  }
}

// --- Writing ---

void writeByLibrary(const LibrarySettings& settings) {
  const unsigned int code =
      Interface::setSettingsInDatabase(settings.backlog, settings.keepAlive, settings.port, settings.protocol,
                                       settings.threads, settings.maxThreads, settings.cacheTtl);
  if (code != ZaroErrC::Success) {
    throw RuntimeError(zaroruntime::lastFailure() + " (code " + std::to_string(code) + ")",
                       zaroruntime::lastFailureKind());
  }
}

const Change* findChange(const std::vector<Change>& changes, const KnownSetting& setting) {
  const auto found =
      std::find_if(changes.begin(), changes.end(), [&](const Change& change) { return change.setting == &setting; });
  return found != changes.end() ? &*found : nullptr;
}

void write(const Installation& installation, const std::vector<Change>& changes, const Settings& wanted,
           const LibrarySettings& byLibrary) {
  bool libraryWrote = false;
  for (const KnownSetting& setting : kSettingTable) {
    const Change* change = findChange(changes, setting);
    if (change == nullptr) {
      continue;
    }
    if (setting.libraryWrites && !std::exchange(libraryWrote, true)) {
      writeByLibrary(byLibrary);
    }
    // The library writes the lifetime where it is not read, so it goes to the right place as well.
    if (!setting.libraryWrites || setting.section == SettingSection::Cache) {
      zaroruntime::writeSetting(installation, sectionOf(setting, wanted), setting.key, change->value);
    }
  }
}

// --- What took effect ---

using Values = std::map<std::pair<std::string, std::string>, Json>;

bool changesSection(const std::vector<Change>& changes, bool (*isIt)(const KnownSetting&)) {
  return std::any_of(changes.begin(), changes.end(), [&](const Change& change) { return isIt(*change.setting); });
}

bool isClients(const KnownSetting& setting) {
  return setting.section == SettingSection::Client;
}

bool isFilters(const KnownSetting& setting) {
  return setting.section == SettingSection::Filter;
}

bool isServers(const KnownSetting& setting) {
  return !isClients(setting) && !isFilters(setting);
}

bool isLdap(const KnownSetting& setting) {
  return setting.section == SettingSection::Ldap;
}

// What their readers make of each setting, by section and key. A reader that can no longer read is a failure if it
// is one of those whose settings are changed.
Values valuesRead(const Settings& stored, const std::vector<Change>& changes, std::vector<std::string>& failures) {
  Values values;
  const auto add = [&](const char* reader, const ReadSettings& read, bool concerned) {
    for (const ReadSetting& setting : read.settings) {
      values.emplace(std::make_pair(setting.section, setting.key), setting.value);
    }
    if (!read.isComplete() && concerned) {
      failures.push_back(whyUnreadable(reader, read));
    }
  };
  add("a policy server", readAsServer(stored), changesSection(changes, isServers));
  add("a client", readAsClient(stored), changesSection(changes, isClients));
  add("the mail filter", readAsFilter(stored), changesSection(changes, isFilters));
  return values;
}

Json storedText(const Settings& settings, const std::string& section, const std::string& key) {
  const Setting* setting = settings.find(section, key);
  return setting != nullptr ? Json(setting->value) : Json(nullptr);
}

// Whether a stored text is what was asked for; the library writes numbers and words in one form of its own.
bool isAsAsked(const Json& stored, const std::string& asked) {
  if (!stored.is_string()) {
    return false;
  }
  const std::string text = stored.get<std::string>();
  const auto withoutZeros = [](const std::string& digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
  };
  return strcasecmp(text.c_str(), asked.c_str()) == 0 ||
         (!text.empty() && !asked.empty() && withoutZeros(text) == withoutZeros(asked));
}

// One line for each setting that was asked for, and for each other one that the library changed in passing.
Json effects(const std::vector<Change>& changes, const Settings& before, const Settings& wanted, const Settings& after,
             const Values& values, std::vector<std::string>& failures) {
  Json rows = Json::array();
  for (const KnownSetting& setting : kSettingTable) {
    const Change* change = findChange(changes, setting);
    const std::string section = sectionOf(setting, change != nullptr ? wanted : after);
    const Json old = storedText(before, section, setting.key);
    const Json now = storedText(after, section, setting.key);
    if (change == nullptr && old == now) {
      continue;
    }
    if (change != nullptr && !isAsAsked(now, change->value)) {
      failures.push_back("[" + section + "] " + setting.key + " has not become " + quoted(change->value));
    }
    const auto read = values.find({section, setting.key});
    rows.push_back({{"section", section},
                    {"key", setting.key},
                    {"before", old},
                    {"stored", now},
                    {"value", read != values.end() ? read->second : now},
                    {"asked", change != nullptr}});
  }
  return rows;
}

// The settings keep the text of why the database did not answer; so it is asked again.
FailureKind kindOfDatabaseFailure() {
  try {
    requireLibrary();
  } catch (const RuntimeError& failure) {
    return failure.kind();
  }
  return FailureKind::Other;
}

ExitCode setSettings(Output& out, const std::vector<std::string>& arguments) {
  const std::vector<Change> changes = parseChanges(arguments);
  const Installation installation = Installation::fromEnvironment();
  // What is not asked for is written back as it was read.
  SettingsTransaction transaction(installation);
  const Settings before = zaroruntime::readSettings(installation);
  if (!before.databaseFailure.empty()) {
    throw RuntimeError("nothing is written: " + before.databaseFailure, kindOfDatabaseFailure());
  }
  const Settings wanted = withChanges(before, changes);
  const bool library =
      std::any_of(changes.begin(), changes.end(), [](const Change& change) { return change.setting->libraryWrites; });
  const LibrarySettings byLibrary = library ? librarySettings(wanted) : LibrarySettings();
  refuseMoreThreadsThanThereMayBe(changes, byLibrary);
  if (changesSection(changes, isLdap)) {
    requiredNumber(wanted, cacheSection(wanted), kCacheTtl);  // or a server could not read its settings afterwards
  }

  std::vector<std::string> failures;
  bool written = false;
  ExitCode code = ExitCode::Found;
  try {
    write(installation, changes, wanted, byLibrary);
    transaction.commit();
    written = true;
  } catch (const RuntimeError& failure) {
    failures.emplace_back(failure.what());  // what the settings are now is shown all the same
    code = exitCodeOf(failure.kind());
  }
  const Settings after = zaroruntime::readSettings(installation);
  const Values values = valuesRead(after, changes, failures);
  out.rows({{"section", "SECTION"}, {"key", "KEY"}, {"before", "BEFORE"}, {"stored", "STORED"}, {"value", "VALUE"}},
           effects(changes, before, wanted, after, values, failures));
  for (const std::string& failure : failures) {
    diagnose((written ? "the settings were written, but " : "") + failure);
  }
  return code == ExitCode::Found && !failures.empty() ? ExitCode::Configuration : code;
}

}  // namespace

void addSettingsSet(CommandTree& tree) {
  const auto arguments = std::make_shared<std::vector<std::string>>();
  CLI::App* command =
      tree.add("settings set", "Set settings of policy servers, clients, the mail filter and LDAP look-ups",
               {"zaroctl settings set threads=32 max_threads=128",
                "zaroctl settings set policy_client.recv_timeout_secs=30 host=policy.example.test",
                "zaroctl settings set mail_filter.shadow=yes"},
               [arguments](Output& out) { return setSettings(out, *arguments); });
  command->add_option("KEY=VALUE", *arguments, "What to set; the key may have its section before it: SECTION.KEY=VALUE")
      ->required()
      ->type_name("");
}
