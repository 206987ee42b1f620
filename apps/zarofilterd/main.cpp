// zarofilterd: applies the stored policy to passing mail.
#include <optional>
#include <string>

#include "Filter.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/RunProgram.h"
#include "console/Text.h"
#include "loading/FilterSource.h"
#include "policy/PolicyGeneration.h"
#include "service/Background.h"
#include "service/LastGoodSettings.h"
#include "service/ServiceCommandLine.h"
#include "store/FilterSettings.h"

using zaroruntime::Installation;

namespace {

// Where `state_dir` is by default: what is kept may say that it is elsewhere.
std::string keptSettings(const Installation& installation) {
  return installation.path("state/settings.json");
}

// The settings that count, and the totals of the policy that would.
ExitCode check(const Installation& installation) {
  const zaroruntime::Settings stored = settingsOfAStart(installation, keptSettings(installation), diagnose);
  return printCheck(readAsFilter(stored), "the mail filter", [&] {
    const FilterSettings settings = filterSettings(installation, stored);
    ArrivingPolicy policy = makePolicySource(settings, stored)->loadUnless(std::nullopt).value();
    const PolicyGeneration generation(policy);
    for (const std::string& warning : generation.warnings()) {
      diagnose(warning);
    }
    return Json{{"generation", generation.version()},
                {"rules", generation.rules().size()},
                {"trees", generation.trees()},
                {"sender_patterns", generation.senderPatterns()},
                {"recipient_patterns", generation.recipientPatterns()}};
  });
}

ExitCode serveMail(const Installation& installation, const ServiceOptions& options) {
  const std::optional<Background> background = options.foreground ? std::nullopt : std::make_optional<Background>();
  const ServiceLog log(options.logTarget());
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
  ServiceOptions options;
  addServiceOptions(app, options, "the totals of the policy", "zarofilterd " ZAROFILTERD_VERSION);
  if (const auto status = beginService(app, options, argc, argv)) {
    return *status;
  }
  const Installation installation = Installation::fromEnvironment();
  return options.check ? check(installation) : serveMail(installation, options);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); });
}
