// The filter as a whole: loader, listeners, metrics, and what signals do to them.
#pragma once

#include "ZaroRuntime/SettingsStore.h"
#include "console/ExitCode.h"
#include "service/ServiceLog.h"
#include "store/FilterSettings.h"

#include <functional>

// Serves until a signal ends it. `stored` is what the settings were read from. `onReady` is called once mail servers can
// connect. On the main thread, before any other thread is started. Throws RuntimeError when it cannot begin to serve.
//
// After mail was served the process ends in here: libmilter's threads cannot be waited for, and what the process would
// destroy on its way out they may still use.
void serve(const FilterSettings& settings, const zaroruntime::Settings& stored, const ServiceLog& log,
           const std::function<void()>& onReady);
