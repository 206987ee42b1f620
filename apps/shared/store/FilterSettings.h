// The settings of the mail filter: section `mail_filter`. Every key has a default, so that none has to be stored.
#pragma once

#include <sys/types.h>

#include <string>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"
#include "policy/Decider.h"
#include "store/PolicySettings.h"

// Values as the filter uses them; paths are absolute.
struct FilterSettings {
  std::string socket;  // as libmilter takes it: unix:PATH, inet:PORT@ADDRESS, inet6:PORT@ADDRESS
  mode_t socketMode;
  std::string socketGroup;   // empty: that of the process
  std::string policySocket;  // as `socket`; empty: no policy delegation
  bool acceptWithoutPolicy;
  unsigned int pollSeconds;
  MailFilterOptions decisions;
  std::string metrics;  // ADDRESS:PORT, [ADDRESS]:PORT; empty: none
  bool fromPolicyServer;
  std::string stateDirectory;
};

// Why a text is no value of a key of the section; empty when it is one. The key is one of the section.
std::string whyNoFilterValue(const std::string& key, const std::string& text);

// What the filter makes of the stored settings. The value of one that it cannot use is null.
ReadSettings readAsFilter(const zaroruntime::Settings& stored);

// Throws RuntimeError naming the first key whose value is none, or `policy_socket` where it is that of the milter.
FilterSettings filterSettings(const zaroruntime::Installation& installation, const zaroruntime::Settings& stored);
