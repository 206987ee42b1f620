#include "service/ServiceCommandLine.h"

#include <unistd.h>

#include "console/Environment.h"
#include "console/Text.h"
#include "service/Background.h"

void addServiceOptions(CLI::App& app, ServiceOptions& options, const char* checked, const char* version) {
  app.add_option("--home", options.home, "The installation directory; else ZARO_HOME names it")->type_name("DIR");
  app.add_flag("--check", options.check, std::string("Show the settings that count and ") + checked + ", and end");
  app.add_flag("--foreground", options.foreground, "Stay in the foreground, with the log on standard error");
  app.set_version_flag("--version", version);
}

std::optional<ExitCode> beginService(CLI::App& app, const ServiceOptions& options, int argc, const char* const* argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      app.exit(error);  // help or version, on standard output
      return ExitCode::Found;
    }
    diagnose(std::string(error.what()) + " (see " + app.get_name() + " --help)");
    return ExitCode::Usage;
  }
  setServiceUmask();
  setInstallation(app.count("--home") != 0 ? &options.home : nullptr);
  if (options.check) {
    setDefault("ZARO_LOG_LEVEL", "0");  // a failure is told anyway
  }
  setDefault("ZARO_LOG", options.foreground || options.check ? "stderr" : "syslog");
  return std::nullopt;
}

ExitCode printCheck(const ReadSettings& read, const char* service, const std::function<Json()>& totals) {
  Output out(isatty(STDOUT_FILENO) != 0 ? Output::Form::Table : Output::Form::Lines);
  Json record = Json::object();
  for (const ReadSetting& setting : read.settings) {
    record[setting.key] = setting.value;
  }
  if (read.isComplete()) {
    record.update(totals());
  }
  out.record(record);
  out.finish();
  if (!read.isComplete()) {
    diagnose(whyUnreadable(service, read));
    return ExitCode::Configuration;
  }
  return ExitCode::Found;
}
