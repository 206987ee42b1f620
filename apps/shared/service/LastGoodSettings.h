// The settings that all hosts share, kept on disk for a start of a service without the database: a filter in shadow
// mode must not begin to act because its database is down.
#pragma once

#include <functional>
#include <string>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"
#include "service/ServiceLog.h"

// Reads the settings. Those of the database are kept whenever it answers, and are what was kept when it does not; the
// log tells. Throws RuntimeError when the host's own cannot be read.
// The file is `path`, of one service alone.
zaroruntime::Settings settingsOrLastGood(const zaroruntime::Installation& installation, const std::string& path,
                                         const ServiceLog& log);
// What a start would find: the same, but nothing is kept, and `tell` gets what the log would.
zaroruntime::Settings settingsOfAStart(const zaroruntime::Installation& installation, const std::string& path,
                                       const std::function<void(const std::string&)>& tell);
