// settings set [--host] KEY=VALUE...
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "ZaroRuntime/SqlSession.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Suggestion.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/ClientSettings.h"
#include "store/Database.h"
#include "store/FilterSettings.h"
#include "store/PolicySettings.h"
#include "store/ServerSettings.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::Setting;
using zaroruntime::SettingLayer;
using zaroruntime::Settings;
using zaroruntime::SettingsTransaction;
using zaroruntime::SettingText;
using zaroruntime::sqlLiteral;
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
    case SettingKind::Hosts:
      return whyNoHosts(text);
    case SettingKind::ClientValue:
      return whyNoClientValue(setting.key, text);
    case SettingKind::FilterValue:
      return whyNoFilterValue(setting.key, text);
    case SettingKind::ServerValue:
      return whyNoServerValue(setting.key, text);
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
  std::vector<std::string> known;
  for (const KnownSetting& setting : kSettingTable) {
    all += (all.empty() ? "" : ", ") + fullName(setting);
    known.insert(known.end(), {fullName(setting), setting.key});
    if (name == setting.key || name == fullName(setting)) {
      found.push_back(&setting);
    }
  }
  if (found.empty()) {
    const std::string like = mostLike(name, known);
    throw UsageError("no setting named " + quoted(name) + "; " +
                     (like.empty() ? "there are " + all : "did you mean " + like + "?"));
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

// As its readers write it: without leading zeros, and in their letter case.
std::string normalForm(const KnownSetting& setting, std::string value) {
  const auto withCase = [&](int (*letter)(int)) {
    std::transform(value.begin(), value.end(), value.begin(),
                   [letter](unsigned char byte) { return static_cast<char>(letter(byte)); });
    return value;
  };
  switch (setting.kind) {
    case SettingKind::ServerNumber:
    case SettingKind::ClientNumber:
    case SettingKind::LdapNumber:
      return std::to_string(decimalNumber(value).value_or(0));
    case SettingKind::YesOrNo:
      return withCase(std::tolower);
    case SettingKind::Protocol:
      return withCase(std::toupper);
    case SettingKind::Hosts:
    case SettingKind::ClientValue:
    case SettingKind::FilterValue:
    case SettingKind::ServerValue:
      break;
  }
  return value;
}

// The texts of one layer, by section and key.
using Layer = std::map<std::pair<std::string, std::string>, std::string>;

Layer layerOf(const Installation& installation) {
  const IniFile file(installation.settingsIni(), IniFile::Malformed::Refused);
  Layer layer;
  for (const std::string& section : file.sections()) {
    for (const auto& [key, value] : file.items(section)) {
      layer[{section, key}] = value;
    }
  }
  return layer;
}

Layer layerOf(StoreConnection& db) {
  Layer layer;
  for (const auto& row : db.rows(R"(SELECT section AS "Section", name AS "Name", value AS "Value" FROM global_setting)",
                                 {"Section", "Name", "Value"})) {
    layer[{row[0].value_or(""), row[1].value_or("")}] = row[2].value_or("");
  }
  return layer;
}

// What the readers of a layer find: `upper` goes before `lower`.
Settings merged(const Layer& upper, const Layer& lower) {
  Settings settings;
  for (const Layer* layer : {&upper, &lower}) {
    for (const auto& [name, value] : *layer) {
      settings.sections[name.first].emplace(name.second, Setting{value, SettingLayer::File, std::nullopt});
    }
  }
  return settings;
}

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

// A number as a server would read it; nothing for one that it would not.
std::optional<unsigned int> serverNumber(const Settings& settings, const std::string& section, const char* key) {
  const Rule& rule = *Interface::findServerRule(key);
  const Setting* setting = settings.find(section, key);
  unsigned int number = 0;
  if (setting == nullptr || Interface::readNumber(rule, setting->value, number) == Interface::NotANumber) {
    return std::nullopt;
  }
  return number;
}

bool concernsKey(const std::vector<Change>& changes, const char* key) {
  return std::any_of(changes.begin(), changes.end(),
                     [&](const Change& change) { return std::string(key) == change.setting->key; });
}

bool concernsSection(const std::vector<Change>& changes, SettingSection section) {
  return std::any_of(changes.begin(), changes.end(),
                     [&](const Change& change) { return change.setting->section == section; });
}

// A server would start more threads than it may have.
void refuseMoreThreadsThanThereMayBe(const std::vector<Change>& changes, const Settings& wanted) {
  const auto threads = serverNumber(wanted, kServerSection, "threads");
  const auto most = serverNumber(wanted, kServerSection, "max_threads");
  const bool concerned = concernsKey(changes, "threads") || concernsKey(changes, "max_threads");
  if (concerned && threads && most && *most < *threads) {
    throw UsageError("max_threads would be " + std::to_string(*most) + ", below threads, which would be " +
                     std::to_string(*threads) + "; nothing is written");
  }
}

// A server could not read its settings afterwards.
void refuseALostLifetime(const std::vector<Change>& changes, const Settings& wanted) {
  const std::string section = cacheSection(wanted);
  if (concernsSection(changes, SettingSection::Ldap) && !serverNumber(wanted, section, kCacheTtl)) {
    throw RuntimeError("nothing is written: [" + section + "] " + kCacheTtl + " is missing; set it as well",
                       FailureKind::Configuration);
  }
}

// What is to be written, in the order of the table.
std::vector<SettingText> textsOf(const std::vector<Change>& changes, const Layer& upper, const Layer& lower) {
  const Settings wanted = withChanges(merged(upper, lower), changes);
  refuseMoreThreadsThanThereMayBe(changes, wanted);
  refuseALostLifetime(changes, wanted);
  std::vector<SettingText> texts;
  for (const KnownSetting& setting : kSettingTable) {
    for (const Change& change : changes) {
      if (change.setting == &setting) {
        texts.push_back({sectionOf(setting, wanted), setting.key, normalForm(setting, change.value)});
      }
    }
  }
  return texts;
}

// --- Writing ---

struct Written {
  std::vector<SettingText> settings;
  Layer before;
};

void store(StoreConnection& db, const std::vector<SettingText>& settings) {
  for (const SettingText& setting : settings) {
    db.run("INSERT INTO global_setting (section, name, value) VALUES (" + sqlLiteral(setting.section) + ", " +
           sqlLiteral(setting.key) + ", " + sqlLiteral(setting.value) +
           ") ON CONFLICT (section, name) DO UPDATE SET value = excluded.value");
  }
  const Layer after = layerOf(db);
  for (const SettingText& setting : settings) {
    const auto found = after.find({setting.section, setting.key});
    if (found == after.end() || found->second != setting.value) {
      throw RuntimeError(
          "[" + setting.section + "] " + setting.key + " was written, but does not come back so; nothing is changed",
          FailureKind::Data);
    }
  }
}

// For all hosts whose files do not have them.
Written writeToTable(const Installation& installation, const std::vector<Change>& changes) {
  const Layer file = layerOf(installation);
  return inTransaction([&](StoreConnection& db) {
    db.lockTable("global_setting");
    Layer before = layerOf(db);
    std::vector<SettingText> settings = textsOf(changes, before, file);
    store(db, settings);
    return Written{std::move(settings), std::move(before)};
  });
}

// For this host alone, also while the database is down.
Written writeToFile(const Installation& installation, const std::vector<Change>& changes) {
  const SettingsTransaction others(installation);  // wait until this one is done
  const Settings both = zaroruntime::readSettings(installation);
  Layer table;
  for (const auto& [section, settings] : both.sections) {
    for (const auto& [key, setting] : settings) {
      table[{section, key}] = setting.value;
    }
  }
  Layer before = layerOf(installation);
  std::vector<SettingText> settings = textsOf(changes, before, table);
  zaroruntime::writeHostSettings(installation, settings);
  return {std::move(settings), std::move(before)};
}

// --- What took effect ---

using Values = std::map<std::pair<std::string, std::string>, Json>;

// What their readers make of each setting, by section and key. A reader that can no longer read is a failure if it
// is one of those whose settings are changed.
Values valuesRead(const Settings& stored, const std::vector<Change>& changes, std::vector<std::string>& failures) {
  Values values;
  const bool clients = concernsSection(changes, SettingSection::Client);
  const bool filters = concernsSection(changes, SettingSection::Filter);
  // Without a database there is no server on this host, but clients read some of its settings.
  const bool canBeServer = std::filesystem::exists(Installation::fromEnvironment().databaseIni());
  const bool servers =
      canBeServer && std::any_of(changes.begin(), changes.end(), [](const Change& change) {
        return change.setting->section != SettingSection::Client && change.setting->section != SettingSection::Filter;
      });
  const auto add = [&](const char* reader, const ReadSettings& read, bool concerned) {
    for (const ReadSetting& setting : read.settings) {
      values.emplace(std::make_pair(setting.section, setting.key), setting.value);
    }
    if (!read.isComplete() && concerned) {
      failures.push_back(whyUnreadable(reader, read));
    }
  };
  add("a policy server", readAsServer(stored), servers);
  add("a client", readAsClient(stored), clients);
  add("the mail filter", readAsFilter(stored), filters);
  return values;
}

Json effects(const Written& written, SettingLayer layer, const Settings& after, std::vector<std::string>& failures,
             const std::vector<Change>& changes) {
  const auto values = valuesRead(after, changes, failures);
  Json rows = Json::array();
  for (const SettingText& setting : written.settings) {
    const auto before = written.before.find({setting.section, setting.key});
    const auto value = values.find({setting.section, setting.key});
    const Setting* counts = after.find(setting.section, setting.key);
    rows.push_back({{"section", setting.section},
                    {"key", setting.key},
                    {"layer", nameOf(layer)},
                    {"before", before != written.before.end() ? Json(before->second) : Json(nullptr)},
                    {"stored", setting.value},
                    {"value", value != values.end() ? value->second : Json(setting.value)},
                    {"from", counts != nullptr ? Json(nameOf(counts->layer)) : Json(nullptr)}});
    if (counts != nullptr && counts->layer != layer) {
      diagnose("[" + setting.section + "] " + setting.key + ": zaro.ini of this host holds " + quoted(counts->value) +
               ", which goes before; --host changes that");
    }
  }
  return rows;
}

// Of settings each of which can be used, and which do not go together. What all hosts share, the server's host may
// complete by values of its own; the sockets of a mail filter are in each other's way on every host.
void tellOfCombinations(const Installation& installation, const Settings& after, const std::vector<Change>& changes,
                        std::vector<std::string>& failures) {
  if (concernsSection(changes, SettingSection::Filter) && readAsFilter(after).isComplete()) {
    try {
      static_cast<void>(filterSettings(installation, after));
    } catch (const RuntimeError& failure) {
      failures.emplace_back(failure.what());
    }
  }
  const bool canBeServer = std::filesystem::exists(installation.databaseIni());
  if (canBeServer && concernsSection(changes, SettingSection::Server) && readAsServer(after).isComplete()) {
    const std::string why = whyNoServer(after);
    if (!why.empty()) {
      diagnose("the settings were written, but a policy server does not start with them: " + why);
    }
  }
}

struct Arguments {
  std::vector<std::string> settings;
  bool host = false;
};

ExitCode setSettings(Output& out, const Arguments& arguments) {
  const std::vector<Change> changes = parseChanges(arguments.settings);
  const Installation installation = Installation::fromEnvironment();
  const SettingLayer layer = arguments.host ? SettingLayer::File : SettingLayer::Database;
  const Written written = arguments.host ? writeToFile(installation, changes) : writeToTable(installation, changes);
  std::vector<std::string> failures;
  const Settings after = zaroruntime::readSettings(installation);
  tellOfDatabase(after);
  out.rows({{"section", "SECTION"},
            {"key", "KEY"},
            {"layer", "LAYER"},
            {"before", "BEFORE"},
            {"stored", "STORED"},
            {"value", "VALUE"},
            {"from", "FROM"}},
           effects(written, layer, after, failures, changes));
  tellOfCombinations(installation, after, changes, failures);
  for (const std::string& failure : failures) {
    diagnose("the settings were written, but " + failure);
  }
  return failures.empty() ? ExitCode::Found : ExitCode::Configuration;
}

}  // namespace

void addSettingsSet(CommandTree& tree) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = tree.add(
      "settings set", "Set settings of policy servers, clients, the mail filter and LDAP look-ups for all hosts",
      {"zaroctl settings set threads=32 max_threads=128", "zaroctl settings set mail_filter.shadow=yes",
       "zaroctl settings set --host policy_client.recv_timeout_secs=30 host=policy.example.test"},
      [arguments](Output& out) { return setSettings(out, *arguments); });
  command->add_flag("--host", arguments->host, "For this host alone: in config/zaro.ini instead of the database");
  command
      ->add_option("KEY=VALUE", arguments->settings,
                   "What to set; the key may have its section before it: SECTION.KEY=VALUE")
      ->required()
      ->type_name("");
}
