// zarofilterd: applies the stored policy to passing mail.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "Filter.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/Environment.h"
#include "console/ExitCode.h"
#include "console/Output.h"
#include "console/RunProgram.h"
#include "console/Text.h"
#include "loading/FilterSource.h"
#include "policy/PolicyGeneration.h"
#include "service/Background.h"
#include "service/LastGoodSettings.h"
#include "store/FilterSettings.h"

using zaroruntime::Installation;

namespace {

struct Options {
  std::string home;
  bool check = false;
  bool foreground = false;
};

void setEnvironment(const CLI::App& app, const Options& options) {
  setInstallation(app.count("--home") != 0 ? &options.home : nullptr);
  if (options.check) {
    setDefault("ZARO_LOG_LEVEL", "0");  // a failure is told anyway
  }
  setDefault("ZARO_LOG", options.foreground || options.check ? "stderr" : "syslog");
}

Output::Form outputForm() {
  return isatty(STDOUT_FILENO) != 0 ? Output::Form::Table : Output::Form::Lines;
}

// Where `state_dir` is by default: what is kept may say that it is elsewhere.
std::string keptSettings(const Installation& installation) {
  return installation.path("state/settings.json");
}

// The settings that count, and the totals of the policy that would.
ExitCode check(const Installation& installation) {
  const zaroruntime::Settings stored = settingsOfAStart(installation, keptSettings(installation), diagnose);
  const ReadSettings read = readAsFilter(stored);
  Output out(outputForm());
  Json record = Json::object();
  for (const ReadSetting& setting : read.settings) {
    record[setting.key] = setting.value;
  }
  if (!read.isComplete()) {
    out.record(record);
    out.finish();
    diagnose(whyUnreadable("the mail filter", read));
    return ExitCode::Configuration;
  }
  const FilterSettings settings = filterSettings(installation, stored);
  const PolicyGeneration generation(makePolicySource(settings, stored)->loadUnless(std::nullopt).value());
  for (const std::string& warning : generation.warnings()) {
    diagnose(warning);
  }
  record["generation"] = generation.version();
  record["rules"] = generation.rules().size();
  record["trees"] = generation.trees();
  record["sender_patterns"] = generation.senderPatterns();
  record["recipient_patterns"] = generation.recipientPatterns();
  out.record(record);
  out.finish();
  return ExitCode::Found;
}

ExitCode serveMail(const Installation& installation, bool foreground) {
  const std::optional<Background> background = foreground ? std::nullopt : std::make_optional<Background>();
  const ServiceLog log(foreground ? ServiceLog::Target::StandardError : ServiceLog::Target::SystemLog);
  const zaroruntime::Settings stored = settingsOrLastGood(installation, keptSettings(installation), log);
  serve(filterSettings(installation, stored), stored, log, [&] {
    if (background) {
      background->tellReady();
    }
  });
  return ExitCode::Found;
}

ExitCode run(int argc, const char* const* argv) {
  CLI::App app("Apply the stored policy to mail that Postfix or Sendmail passes on.", "zarofilterd");
  Options options;
  app.add_option("--home", options.home, "The installation directory; else ZARO_HOME names it")->type_name("DIR");
  app.add_flag("--check", options.check, "Show the settings that count and the totals of the policy, and end");
  app.add_flag("--foreground", options.foreground, "Stay in the foreground, with the log on standard error");
  app.set_version_flag("--version", "zarofilterd " ZAROFILTERD_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      app.exit(error);  // help or version, on standard output
      return ExitCode::Found;
    }
    diagnose(std::string(error.what()) + " (see zarofilterd --help)");
    return ExitCode::Usage;
  }
  setServiceUmask();
  setEnvironment(app, options);
  const Installation installation = Installation::fromEnvironment();
  return options.check ? check(installation) : serveMail(installation, options.foreground);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); });
}
