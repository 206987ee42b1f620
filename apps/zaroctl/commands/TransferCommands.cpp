// export, import
#include <map>
#include <memory>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Input.h"
#include "store/Administration.h"
#include "store/PolicyDocument.h"
#include "store/PolicyTransfer.h"
#include "store/Transaction.h"

namespace {

ExitCode exportPolicy(Output& out) {
  out.raw(policyText(readPolicy()));
  return ExitCode::Found;
}

// How many rows of each kind are added, changed and removed.
Json summaryOf(const Json& differences) {
  Json summary = Json::object();
  for (const PolicyTable& table : policyTables()) {
    summary[table.key] = {{"added", 0}, {"changed", 0}, {"removed", 0}};
  }
  std::map<std::string, const char*> tables;
  for (const PolicyTable& table : policyTables()) {
    tables.emplace(table.kind, table.key);
  }
  const Json* before = nullptr;
  for (const Json& difference : differences) {
    // A changed row has a difference for each field, one behind the other.
    const bool isSame =
        before != nullptr && before->at("kind") == difference.at("kind") && before->at("key") == difference.at("key");
    Json& count =
        summary[tables.at(difference.at("kind").get<std::string>())][difference.at("change").get<std::string>()];
    count = count.get<std::size_t>() + (isSame ? 0 : 1);
    before = &difference;
  }
  return summary;
}

// For people a row that comes or goes is its key and name.
Json shownRows(const Json& differences) {
  Json rows = differences;
  for (Json& row : rows) {
    if (row.at("field").is_null()) {
      row["before"] = nullptr;
      row["after"] = nullptr;
    }
  }
  return rows;
}

void tellSummary(Output& out, const Json& summary, bool isTrial) {
  for (const auto& table : summary.items()) {
    std::string counts;
    for (const auto& count : table.value().items()) {
      if (count.value() != 0) {
        counts.append(counts.empty() ? "" : ", ").append(count.value().dump()).append(" ").append(count.key());
      }
    }
    if (!counts.empty()) {
      out.remark(table.key() + ": " + counts);
    }
  }
  if (isTrial) {
    out.remark("nothing is changed: this was a trial");
  }
}

struct ImportArguments {
  std::string file;
  std::string admin;
  PolicyImport import;
};

ExitCode importDocument(Output& out, ImportArguments& arguments) {
  const std::string& file = arguments.file;
  PolicyImport& wanted = arguments.import;
  wanted.text = readInput(file);
  if (!arguments.admin.empty()) {
    adminIdOf(arguments.admin);
    actAs(arguments.admin);
  }
  Json differences;
  try {
    differences = importPolicy(wanted);
  } catch (const PolicyTextError& failure) {
    throw zaroruntime::RuntimeError(inputName(file) + ": " + failure.what() + "; nothing is changed", failure.kind());
  }
  const Json summary = summaryOf(differences);
  out.rows({{"change", "CHANGE"},
            {"kind", "KIND"},
            {"key", "KEY"},
            {"name", "NAME"},
            {"field", "FIELD"},
            {"before", "BEFORE"},
            {"after", "AFTER"}},
           shownRows(differences), {{"applied", !wanted.isTrial}, {"summary", summary}, {"differences", differences}});
  tellSummary(out, summary, wanted.isTrial);
  return ExitCode::Found;
}

}  // namespace

void addExport(CommandTree& tree) {
  tree.add("export", "Print the whole stored policy as one JSON document", {"zaroctl export >policy.json"}, exportPolicy);
}

void addImport(CommandTree& tree) {
  const auto arguments = std::make_shared<ImportArguments>();
  CLI::App* command = tree.add("import", "Make the stored policy that of a document that export printed",
                               {"zaroctl import --dry-run policy.json", "zaroctl import --merge more.json"},
                               tellingNotThere([arguments](Output& out) { return importDocument(out, *arguments); }));
  command->add_option("FILE", arguments->file, "The document; - is standard input")->required()->type_name("");
  command->add_flag("--dry-run", arguments->import.isTrial, "Show what would change, and change nothing");
  command->add_flag("--merge", arguments->import.merges, "Remove nothing: what the document lacks stays as it is");
  command->add_option("--as", arguments->admin, "The administrator who acts, for the audit trail")->type_name("ADMIN");
}
