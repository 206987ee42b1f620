// audit, audit-trim
#include <memory>
#include <optional>
#include <string>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Administration.h"
#include "store/AuditTrail.h"
#include "store/Transaction.h"

namespace {

struct AuditArguments {
  std::optional<std::string> object;
  std::optional<std::string> since;
};

std::string timeArgument(const char* option, const std::string& text) {
  const auto time = auditTime(text);
  if (!time) {
    throw UsageError(std::string(option) + ": " + quoted(text) + " is no time; give 2026-01-31 or 2026-01-31T12:00:00Z");
  }
  return *time;
}

ExitCode printTrail(Output& out, const AuditArguments& arguments) {
  AuditQuery query;
  if (arguments.object) {
    query.object = idArgument("--object", *arguments.object);
  }
  if (arguments.since) {
    query.since = timeArgument("--since", *arguments.since);
  }
  const std::vector<Output::Column> columns = {{"at", "AT"},           {"administrator", "ADMINISTRATOR"},
                                               {"login", "LOGIN"},     {"host", "HOST"},
                                               {"program", "PROGRAM"}, {"change", "CHANGE"},
                                               {"subject", "SUBJECT"}, {"object", "OBJECT"},
                                               {"before", "BEFORE"},   {"after", "AFTER"}};
  readAuditTrail(query, [&](const Json& entry) { out.next(columns, entry); });
  return ExitCode::Found;
}

ExitCode trimTrail(Output& out, const std::string& before, const std::string& admin) {
  const std::string time = timeArgument("--before", before);
  if (!admin.empty()) {
    requireLibrary();
    adminIdOf(admin);
    actAs(admin);
  }
  out.record({{"before", time}, {"removed", trimAuditTrail(time)}});
  return ExitCode::Found;
}

}  // namespace

void addAudit(CommandTree& tree) {
  const auto arguments = std::make_shared<AuditArguments>();
  CLI::App* command = tree.add("audit", "Show who changed what of the policy, and when",
                               {"zaroctl audit --object 5 --json", "zaroctl audit --since 2026-01-31T12:00Z"},
                               [arguments](Output& out) { return printTrail(out, *arguments); });
  command->add_option("--object", arguments->object, "Only what is about the named object of this identifier")
      ->type_name("ID");
  command->add_option("--since", arguments->since, "Only what changed at that time (UTC) or later")->type_name("TIME");
}

void addAuditTrim(CommandTree& tree) {
  const auto before = std::make_shared<std::string>();
  const auto admin = std::make_shared<std::string>();
  CLI::App* command =
      tree.add("audit-trim", "Remove old entries of the audit trail", {"zaroctl audit-trim --before 2026-01-01"},
               tellingNotThere([before, admin](Output& out) { return trimTrail(out, *before, *admin); }));
  command->add_option("--before", *before, "Entries before that time (UTC) go")->required()->type_name("TIME");
  command->add_option("--as", *admin, "The administrator who acts, for the entry about it")->type_name("ADMIN");
}
