// What policy servers and clients make of the stored settings; FilterSettings.h has the mail filter's.
#pragma once

#include <string>
#include <vector>

#include "ZaroRuntime/SettingsStore.h"
#include "ZaroRuntime/SqlSession.h"
#include "console/Output.h"
#include "store/SettingTable.h"

// The section that the lifetime of the LDAP cache is read from.
std::string cacheSection(const zaroruntime::Settings& stored);
// The section that a setting is read from.
std::string sectionOf(const KnownSetting& setting, const zaroruntime::Settings& stored);

// What the layer is called in results.
const char* nameOf(zaroruntime::SettingLayer layer);

// Puts what a new installation has for all hosts into the table of the database, without what is there. True if
// anything was missing.
bool addMissingSettings(zaroruntime::SqlSession& session);

// One setting as its reader finds it.
struct ReadSetting {
  std::string section;
  std::string key;
  const zaroruntime::Setting* stored;  // null when it is missing; belongs to the settings that were asked about
  Json value;        // as it counts; null when it is missing, not reached, or left to the reader's own default
  std::string note;  // why it is not the stored one; empty when it is
};

struct ReadSettings {
  std::vector<ReadSetting> settings;  // in the order in which they are read
  unsigned int code;                  // the library's answer; 0 where the library does not read them
  std::string unusable;               // why the reader cannot use one of them; empty when it can, or the library says

  bool isComplete() const { return code == 0 && unusable.empty(); }
};

// Both have the library read, which looks at the installation's settings anew; `stored` tells where values come from.
ReadSettings readAsServer(const zaroruntime::Settings& stored);
ReadSettings readAsClient(const zaroruntime::Settings& stored);

// Why a text is none of the two words of a setting, in any letter case; empty when it is one, and for other kinds.
std::string whyNoWord(SettingKind kind, const std::string& text);

// Why `reader` cannot go on with what it read, in one line, with the library's code if it has one.
std::string whyUnreadable(const char* reader, const ReadSettings& read);

// Says on standard error that the file answers alone, if it does.
void tellOfDatabase(const zaroruntime::Settings& stored);
