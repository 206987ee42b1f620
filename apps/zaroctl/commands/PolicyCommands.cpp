// policy fetch [--host HOST] [--output FILE], policy show [FILE], policy diff OLD [NEW], policy raise VERSION
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Input.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "installation/AtomicFile.h"
#include "policy/LastGoodPolicy.h"
#include "policy/PolicyLoading.h"
#include "policy/PolicySnapshot.h"
#include "policyclient/PolicyClient.h"
#include "snapshot/PolicyEntries.h"
#include "store/ClientSettings.h"
#include "store/FilterSettings.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;

namespace {

// --- Snapshots ---

struct Snapshot {
  std::string name;  // in diagnostics
  std::string text;
  MailPolicy policy;
};

Snapshot snapshotOf(std::string name, std::string text) {
  try {
    MailPolicy policy = readSnapshotText(text);
    return {std::move(name), std::move(text), std::move(policy)};
  } catch (const RuntimeError& failure) {
    throw RuntimeError(name + ": " + failure.what(), failure.kind());
  }
}

Snapshot snapshotIn(const std::string& file) {
  return snapshotOf(inputName(file), readInput(file));
}

// What the mail filter of this host keeps.
Snapshot keptSnapshot() {
  const Installation installation = Installation::fromEnvironment();
  const std::string directory = filterSettings(installation, zaroruntime::readSettings(installation)).stateDirectory;
  std::optional<std::string> text = LastGoodPolicy(directory).text();
  if (!text) {
    throw RuntimeError(directory + ": the mail filter of this host keeps no policy there; name a file",
                       FailureKind::File);
  }
  return snapshotOf(directory, *std::move(text));
}

Json totalsOf(const MailPolicy& policy) {
  std::size_t members = 0;
  for (const MailPolicy::Group& group : policy.groups) {
    members += group.members.size();
  }
  return {{"version", policy.version},      {"rules", policy.rules.size()}, {"scopes", policy.entities.size()},
          {"groups", policy.groups.size()}, {"members", members},           {"objects", policy.objects.size()}};
}

// --- fetch ---

struct FetchArguments {
  std::string host;
  std::string output;
};

ExitCode fetch(Output& out, const FetchArguments& arguments) {
  signal(SIGPIPE, SIG_IGN);  // a server that hangs up is a failure with a message
  const Installation installation = Installation::fromEnvironment();
  ClientSettings settings = clientSettings(installation, zaroruntime::readSettings(installation));
  if (!arguments.host.empty()) {
    settings.useHosts(arguments.host);
  }
  PolicyClientSurroundings surroundings;
  surroundings.registered = registeredServers;
  PolicyClient client(std::move(settings), std::move(surroundings));
  const PolicyAnswer answer = client.ask({});
  if (arguments.output.empty() && !out.isByKey()) {
    out.raw(answer.text);
    return ExitCode::Found;
  }
  Json record = {{"server", answer.server}, {"file", nullptr}, {"bytes", answer.text.size()}};
  if (!arguments.output.empty()) {
    AtomicFile file(arguments.output);
    file.append(answer.text);
    file.putInPlace();
    record["file"] = arguments.output;
  }
  record.update(totalsOf(answer.policy));
  out.record(record);
  return ExitCode::Found;
}

// --- show ---

Json documentOf(const Snapshot& snapshot, const std::vector<PolicyEntry>& entries) {
  Json list = Json::array();
  for (const PolicyEntry& entry : entries) {
    Json shown = {{"kind", entry.kind}, {"id", entry.id}, {"name", entry.name}};
    shown.update(entry.fields);
    if (entry.kind == "group") {
      shown["members"] = entry.members;
    }
    list.push_back(std::move(shown));
  }
  Json document = totalsOf(snapshot.policy);
  document["made_at"] = Json::parse(snapshot.text.substr(0, snapshot.text.find('\n'))).value("made_at", "");
  document["entries"] = std::move(list);
  return document;
}

ExitCode show(Output& out, const std::string& file) {
  const Snapshot snapshot = file.empty() ? keptSnapshot() : snapshotIn(file);
  const std::vector<PolicyEntry> entries = entriesOf(snapshot.policy);
  const Json document = documentOf(snapshot, entries);
  const Json numbers = totalsOf(snapshot.policy);
  std::string totals;
  for (const auto& number : numbers.items()) {
    totals += (totals.empty() ? "" : "; ") + number.key() + " " + number.value().dump();
  }
  Json noFields = Json::object();
  for (const PolicyEntry& entry : entries) {
    for (const auto& field : entry.fields.items()) {
      noFields[field.key()] = nullptr;
    }
  }
  Json rows = Json::array();
  const auto addRow = [&](const Json& row, const Json& fields) {
    Json all = noFields;
    all.update(fields);
    all.update(row);
    rows.push_back(std::move(all));
  };
  addRow({{"kind", "policy"}, {"id", nullptr}, {"name", document.at("made_at")}, {"content", totals}}, Json::object());
  for (const PolicyEntry& entry : entries) {
    addRow({{"kind", entry.kind}, {"id", entry.id}, {"name", entry.name}, {"content", textOf(entry)}}, entry.fields);
  }
  out.rows({{"kind", "KIND"}, {"id", "ID"}, {"name", "NAME"}, {"content", "CONTENT"}}, rows, document);
  return ExitCode::Found;
}

// --- raise ---

ExitCode raise(Output& out, const std::string& least) {
  constexpr long long kMost = 1'000'000'000'000'000;  // leaves room for changes
  const auto version = decimalNumber(least);
  if (!version || *version < 0 || *version > kMost) {
    throw UsageError("VERSION: " + quoted(least) + " is not a number from 0 to " + std::to_string(kMost));
  }
  const std::string next = std::to_string(*version + 1);
  out.record(inTransaction([&](StoreConnection& db) {
    const std::uint64_t before = storedPolicyVersion(db);
    db.run("UPDATE policy_version SET version = " + next + " WHERE version < " + next);
    return Json{{"before", before}, {"version", storedPolicyVersion(db)}};
  }));
  return ExitCode::Found;
}

// --- diff ---

struct DiffArguments {
  std::string before;
  std::string after;
};

MailPolicy storedPolicy() {
  StoreConnection db;
  return loadMailPolicy(db);
}

ExitCode diff(Output& out, const DiffArguments& arguments) {
  if (arguments.before == "-" && arguments.after == "-") {
    throw UsageError("standard input is one snapshot, not two");
  }
  const MailPolicy before = snapshotIn(arguments.before).policy;
  const MailPolicy after = arguments.after.empty() ? storedPolicy() : snapshotIn(arguments.after).policy;
  const Json differences = differencesOf(entriesOf(before), entriesOf(after));
  out.rows({{"change", "CHANGE"},
            {"kind", "KIND"},
            {"id", "ID"},
            {"name", "NAME"},
            {"field", "FIELD"},
            {"before", "BEFORE"},
            {"after", "AFTER"}},
           differences, {{"before", before.version}, {"after", after.version}, {"differences", differences}});
  if (out.isTable()) {
    out.remark("version " + std::to_string(before.version) + " against " + std::to_string(after.version) + ": " +
               (differences.empty() ? "nothing differs" : std::to_string(differences.size()) + " differences"));
  }
  return differences.empty() ? ExitCode::Found : ExitCode::NotFound;
}

}  // namespace

void addPolicyFetch(CommandTree& tree) {
  const auto arguments = std::make_shared<FetchArguments>();
  CLI::App* command =
      tree.add("policy fetch", "Get the policy that a policy server hands out, and check that it is whole",
               {"zaroctl policy fetch | zaroctl policy show -",
                "zaroctl policy fetch --host policy.example.test --output policy.snapshot"},
               [arguments](Output& out) { return fetch(out, *arguments); });
  command
      ->add_option("--host", arguments->host,
                   "The server, by name or address; with commas several, of which one is asked. Else the settings say")
      ->type_name("HOST");
  command
      ->add_option("--output", arguments->output,
                   "Where the snapshot goes; else standard output, but for --json and --query")
      ->type_name("FILE");
}

void addPolicyShow(CommandTree& tree) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command = tree.add(
      "policy show", "Show what is in a snapshot of the policy",
      {"zaroctl policy show", "zaroctl policy show policy.snapshot", "zaroctl policy fetch | zaroctl policy show -"},
      [file](Output& out) { return show(out, *file); });
  command
      ->add_option("FILE", *file,
                   "The snapshot; - is standard input. Else the one that the mail filter of this host keeps")
      ->type_name("");
}

void addPolicyDiff(CommandTree& tree) {
  const auto arguments = std::make_shared<DiffArguments>();
  CLI::App* command =
      tree.add("policy diff", "Compare a snapshot of the policy with the database, or with another one",
               {"zaroctl policy fetch | zaroctl policy diff -", "zaroctl policy diff monday.snapshot tuesday.snapshot"},
               [arguments](Output& out) { return diff(out, *arguments); });
  command->add_option("OLD", arguments->before, "A snapshot; - is standard input")->required()->type_name("");
  command->add_option("NEW", arguments->after, "Another one; else what the database holds")->type_name("");
}

void addPolicyRaise(CommandTree& tree) {
  const auto least = std::make_shared<std::string>();
  CLI::App* command = tree.add("policy raise", "Give the stored policy a version above one that clients have already",
                               {"zaroctl policy raise 1412"}, [least](Output& out) { return raise(out, *least); });
  command->add_option("VERSION", *least, "The highest version that a client has")->required()->type_name("");
}
