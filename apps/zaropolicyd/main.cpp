// zaropolicyd: hands the stored policy to the filters of other hosts.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "PolicyServer.h"
#include "access/ServerFiles.h"
#include "console/Environment.h"
#include "console/ExitCode.h"
#include "console/Output.h"
#include "console/RunProgram.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "policy/PolicySource.h"
#include "service/Background.h"
#include "service/LastGoodSettings.h"
#include "snapshot/SnapshotMaker.h"
#include "store/DefaultedSettings.h"
#include "store/PolicyServers.h"
#include "store/ServerSettings.h"

using zaroruntime::Installation;

namespace {

struct Options {
  std::string home;
  std::string registered;
  bool check = false;
  bool foreground = false;
};

void setEnvironment(const CLI::App& app, const Options& options) {
  setInstallation(app.count("--home") != 0 ? &options.home : nullptr);
  if (options.check) {
    setDefault("ZARO_LOG_LEVEL", "0");  // what is read is printed anyway
  }
  setDefault("ZARO_LOG", options.foreground || options.check ? "stderr" : "syslog");
}

Output::Form outputForm() {
  return isatty(STDOUT_FILENO) != 0 ? Output::Form::Table : Output::Form::Lines;
}

std::string stateDirectory(const Installation& installation) {
  return installation.path("state/policy-server");
}

std::string keptSettings(const Installation& installation) {
  return stateDirectory(installation) + "/settings.json";
}

// The settings that count, and the size of what would be served.
ExitCode check(const Installation& installation) {
  const zaroruntime::Settings stored = settingsOfAStart(installation, keptSettings(installation), diagnose);
  const ReadSettings read = readAsServer(stored);
  Output out(outputForm());
  Json record = Json::object();
  for (const ReadSetting& setting : read.settings) {
    record[setting.key] = setting.value;
  }
  if (!read.isComplete()) {
    out.record(record);
    out.finish();
    diagnose(whyUnreadable("the policy server", read));
    return ExitCode::Configuration;
  }
  requireServerFiles(serverSettings(installation, stored));
  const auto snapshot = makeSnapshot(makeDatabaseSource()->loadUnless(std::nullopt).value());
  record["version"] = snapshot->version;
  record["rules"] = snapshot->rules;
  record["bytes"] = snapshot->text->size();
  record["bytes_compressed"] = snapshot->gzip->size();
  out.record(record);
  out.finish();
  return ExitCode::Found;
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
  const ServiceLog log(options.foreground ? ServiceLog::Target::StandardError : ServiceLog::Target::SystemLog);
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
  app.add_option("--home", options.home, "The installation directory; else ZARO_HOME names it")->type_name("DIR");
  app.add_option("--register", options.registered,
                 "Register this server in the database, under the IP address that clients reach it by")
      ->type_name("ADDRESS");
  app.add_flag("--check", options.check, "Show the settings that count and the size of the policy, and end");
  app.add_flag("--foreground", options.foreground, "Stay in the foreground, with the log on standard error");
  app.set_version_flag("--version", "zaropolicyd " ZAROPOLICYD_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      app.exit(error);  // help or version, on standard output
      return ExitCode::Found;
    }
    diagnose(std::string(error.what()) + " (see zaropolicyd --help)");
    return ExitCode::Usage;
  }
  setServiceUmask();
  setEnvironment(app, options);
  const Installation installation = Installation::fromEnvironment();
  return options.check ? check(installation) : serveClients(installation, options);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); });
}
