// check
#include <filesystem>
#include <optional>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "check/Checks.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"

namespace fs = std::filesystem;
using zaroruntime::Installation;

namespace {

void checkHome(const Installation& installation) {
  std::error_code failure;
  if (!fs::is_directory(installation.home(), failure)) {
    throw zaroruntime::RuntimeError(
        installation.home() + ": ZARO_HOME names no directory" + (failure ? ": " + failure.message() : std::string()),
        zaroruntime::FailureKind::Configuration);
  }
}

// From the directory to the statements; what lacks something that an earlier area did not find is left out.
void checkAll(const Installation& installation, Findings& findings) {
  checkFiles(installation, findings);
  if (isFilterHost(installation)) {
    checkPolicySettings(installation, findings);
    checkFilterHost(installation, findings);
    return;
  }
  const auto settings = checkDatabaseSettings(installation, findings);
  checkPolicySettings(installation, findings);
  checkDisplay(installation, findings);
  const auto database = settings ? checkConnection(installation, *settings, findings) : std::nullopt;
  const bool hasSchema = database && checkSchema(installation, *database, findings);
  if (hasSchema) {
    checkSettingLayers(installation, *database, findings);
    checkStoredPolicy(*database, findings);
  }
  checkStatements(installation, hasSchema ? &*database : nullptr, findings);
}

ExitCode checkInstallation(Output& out) {
  Findings findings;
  std::optional<Installation> installation;
  if (findings.check("installation", [&] {
        installation = Installation::fromEnvironment();
        checkHome(*installation);
        return installation->home();
      })) {
    checkAll(*installation, findings);
  }
  out.rows({{"state", "STATE"}, {"subject", "SUBJECT"}, {"finding", "FINDING", Output::Width::Whole}}, findings.list());
  return findings.exitCode();
}

}  // namespace

void addCheck(CommandTree& tree) {
  tree.add("check", "Find out what is wrong with an installation",
           {"zaroctl check", "zaroctl --home /opt/gateway check --json"}, checkInstallation);
}
