// The policy server as a whole: the maker of snapshots, the connections, and what signals do to them.
#pragma once

#include <functional>
#include <string>

#include "service/ServiceLog.h"
#include "store/ServerSettings.h"

struct ServerPlaces {
  std::string stateDirectory;  // where the last policy is kept
  std::string registered;      // the address under which the server registers itself; empty: it does not
};

// Serves until a signal ends it. `onReady` is called once clients can connect. On the main thread, before any other
// thread is started. Throws RuntimeError when it cannot begin to serve.
void serve(const ServerSettings& settings, const ServerPlaces& places, const ServiceLog& log,
           const std::function<void()>& onReady);
