// object policy-text, quarantine list
#include <algorithm>
#include <climits>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "NamedObjMgr.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Database.h"
#include "store/Objects.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

struct PolicyTextOptions {
  std::string type;
  int lead = 0;
  std::vector<std::string> ids;

  std::vector<ObjectText> find() const {
    if (!ids.empty()) {
      std::vector<unsigned int> numbers(ids.size());
      std::transform(ids.begin(), ids.end(), numbers.begin(), [](const std::string& id) { return idArgument("ID", id); });
      return textsOf(numbers);
    }
    std::vector<ObjectText> texts;
    for (const auto wanted : type.empty() ? usedTypes() : std::vector{objectType(type)}) {
      auto some = textsOfType(wanted);
      texts.insert(texts.end(), std::make_move_iterator(some.begin()), std::make_move_iterator(some.end()));
    }
    return texts;
  }
};

ExitCode printPolicyText(Output& out, const PolicyTextOptions& options) {
  NamedObjMgrForPolicy manager;
  std::list<PolicyObjectRecord> records;
  manager.leadValue = options.lead;
  for (const auto& [object, text] : options.find()) {
    if (object.id > static_cast<unsigned int>(INT_MAX)) {
      throw RuntimeError("object " + std::to_string(object.id) + " has no place in the text: its keys end at " +
                             std::to_string(INT_MAX),
                         FailureKind::Data);
    }
    records.push_back({object.type, text, object.name, static_cast<unsigned int>(text.size()),
                       static_cast<unsigned int>(object.name.size())});
    manager.records[static_cast<int>(object.id)] = &records.back();
  }
  std::string text;
  unsigned int sizeHint = 0;
  manager.serialize(text, sizeHint);
  if (out.isByKey()) {
    out.record({{"records", manager.records.size()}, {"lead", options.lead}, {"estimate", sizeHint}, {"text", text}});
  } else {
    out.raw(text);
  }
  return ExitCode::Found;
}

ExitCode listQuarantineAreas(Output& out, const std::string& admin) {
  const Viewer viewer = findViewer(admin);
  StoreConnection db;
  std::vector<QuarantineData> areas;
  const std::string failure = "cannot list the quarantine areas of " + quoted(admin);
  if (!answerOf(failure, [&] { return ZaroNamedObj::getEditableQuanantineData(db.library(), viewer.id, areas); })) {
    throw RuntimeError(failure + ": " + databaseFailure(), zaroruntime::lastFailureKind());
  }
  Json rows = Json::array();
  for (const QuarantineData& area : areas) {
    rows.push_back({{"id", area.id},
                    {"name", area.name},
                    {"editable", area.editable},
                    {"modifiable", (area.editable || viewer.isRoot) && isModifiable(db, viewer, area.id)},
                    {"content", area.content}});
  }
  out.rows(
      {{"id", "ID"}, {"name", "NAME"}, {"editable", "EDITABLE"}, {"modifiable", "MODIFIABLE"}, {"content", "CONTENT"}},
      rows);
  return ExitCode::Found;
}

}  // namespace

void addObjectPolicyText(CommandTree& tree) {
  const auto options = std::make_shared<PolicyTextOptions>();
  CLI::App* command = tree.add("object policy-text", "Print objects in the text form that policies read",
                               {"zaroctl object policy-text", "zaroctl object policy-text --type quarantine --lead 1",
                                "zaroctl object policy-text 2 3"},
                               tellingNotThere([options](Output& out) { return printPolicyText(out, *options); }));
  CLI::Option* type =
      command->add_option("--type", options->type, "Only these: quarantine, group or the number of a type")->type_name("TYPE");
  command->add_option("--lead", options->lead, "The number that stands in front; 0 unless given")->type_name("NUMBER");
  command->add_option("ID", options->ids, "Only these objects, by identifier")->type_name("")->excludes(type);
}

void addQuarantineList(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  CLI::App* command = tree.add("quarantine list", "List the quarantine areas that an administrator may use",
                               {"zaroctl quarantine list --as sales-admin"},
                               tellingNotThere([admin](Output& out) { return listQuarantineAreas(out, *admin); }));
  command->add_option("--as", *admin, "The administrator who asks")->required()->type_name("ADMIN");
}
