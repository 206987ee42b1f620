// zaropolicyd: hands the stored policy to the filters of other hosts.
#include <optional>
#include <string>

#include "PolicyServer.h"
#include "access/ServerFiles.h"
#include "console/RunProgram.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "policy/PolicySource.h"
#include "service/Background.h"
#include "service/LastGoodSettings.h"
#include "service/ServiceCommandLine.h"
#include "snapshot/SnapshotMaker.h"
#include "store/DefaultedSettings.h"
#include "store/PolicyServers.h"
#include "store/ServerSettings.h"

using zaroruntime::Installation;

namespace {

struct Options : ServiceOptions {
  std::string registered;
};

std::string stateDirectory(const Installation& installation) {
  return installation.path("state/policy-server");
}

std::string keptSettings(const Installation& installation) {
  return stateDirectory(installation) + "/settings.json";
}

// The settings that count, and the size of what would be served.
ExitCode check(const Installation& installation) {
  const zaroruntime::Settings stored = settingsOfAStart(installation, keptSettings(installation), diagnose);
  return printCheck(readAsServer(stored), "the policy server", [&] {
    requireServerFiles(serverSettings(installation, stored));
    const auto snapshot = makeSnapshot(makeDatabaseSource()->loadUnless(std::nullopt).value().whole());
    return Json{{"version", snapshot->version},
                {"rules", snapshot->rules},
                {"bytes", snapshot->text->size()},
                {"bytes_compressed", snapshot->gzip->size()}};
  });
}

// Clients of other hosts cannot reach what they would be sent to.
void requireReachable(const ServerSettings& settings, const std::string& registered) {
  if (registered.empty()) {
    return;
  }
  requireServerAddress(registered);
  if (isLoopback(settings.address) && !isLoopback(registered)) {
    throw UsageError("--register " + registered + ": the server listens at " + settings.address +
                     ", which other hosts do not reach; set policy_server.address");
  }
}

ExitCode serveClients(const Installation& installation, const Options& options) {
  const ServerPlaces places = {stateDirectory(installation), options.registered};
  const std::optional<Background> background = options.foreground ? std::nullopt : std::make_optional<Background>();
  const ServiceLog log(options.logTarget());
  const ServerSettings settings =
      serverSettings(installation, settingsOrLastGood(installation, keptSettings(installation), log));
  requireReachable(settings, options.registered);
  serve(settings, places, log, [&] {
    if (background) {
      background->tellReady();
    }
  });
  return ExitCode::Found;
}

ExitCode run(int argc, const char* const* argv) {
  CLI::App app("Hand the stored policy to mail filters, by HTTP or HTTPS.", "zaropolicyd");
  Options options;
  addServiceOptions(app, options, "the size of the policy", "zaropolicyd " ZAROPOLICYD_VERSION);
  app.add_option("--register", options.registered,
                 "Register this server in the database, under the IP address that clients reach it by")
      ->type_name("ADDRESS");
  if (const auto status = beginService(app, options, argc, argv)) {
    return *status;
  }
  const Installation installation = Installation::fromEnvironment();
  return options.check ? check(installation) : serveClients(installation, options);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); });
}
