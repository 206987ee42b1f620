#include "loading/FilterSource.h"

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "loading/ServerSource.h"
#include "store/ClientSettings.h"

using zaroruntime::Installation;

namespace {

ClientSettings settingsOfClient(const zaroruntime::Settings& stored) {
  const Installation installation = Installation::fromEnvironment();
  try {
    return clientSettings(installation, stored);
  } catch (const zaroruntime::RuntimeError&) {
    // They may have been mended since the start, and the database may answer by now.
    return clientSettings(installation, zaroruntime::readSettings(installation));
  }
}

}  // namespace

std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings, const zaroruntime::Settings& stored,
                                               const SourceSurroundings& surroundings) {
  if (!settings.fromPolicyServer) {
    return makeDatabaseSource();
  }
  return std::make_unique<ServerSource>(settingsOfClient(stored), surroundings);
}
