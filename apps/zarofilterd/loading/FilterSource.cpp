#include "loading/FilterSource.h"

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"
#include "loading/ServerSource.h"
#include "store/ClientSettings.h"

std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings, const SourceSurroundings& surroundings) {
  if (!settings.fromPolicyServer) {
    return makeDatabaseSource();
  }
  const auto installation = zaroruntime::Installation::fromEnvironment();
  return std::make_unique<ServerSource>(clientSettings(installation, zaroruntime::readSettings(installation)),
                                        surroundings);
}
