// object policy-text, quarantine list
#include <algorithm>
#include <climits>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "NamedObjMgr.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/AddressGroups.h"
#include "store/Database.h"
#include "store/Objects.h"

using zaroruntime::RuntimeError;

namespace {

// An address group's content is its members, one a line.
std::string textOf(const StoredObject& object) {
  if (object.type != ZaroNamedObj::GroupOfAddresses) {
    return contentOf(object);
  }
  std::string text;
  for (const std::string& address : membersOf(findGroup(object.id))) {
    text.append(text.empty() ? "" : "\n").append(address);
  }
  return text;
}

struct PolicyTextOptions {
  std::string type;
  int lead = 0;
  std::vector<std::string> ids;

  std::vector<StoredObject> find() const {
    std::vector<unsigned int> numbers(ids.size());
    std::transform(ids.begin(), ids.end(), numbers.begin(), [](const std::string& id) { return idArgument("ID", id); });
    std::vector<StoredObject> objects;
    objects.reserve(numbers.size());
    for (const unsigned int id : numbers) {
      objects.push_back(findObject(id));
    }
    if (ids.empty()) {
      const auto types = type.empty() ? usedTypes() : std::vector{objectType(type)};
      for (const auto wanted : types) {
        const auto some = objectsOfType(wanted);
        objects.insert(objects.end(), some.begin(), some.end());
      }
    }
    return objects;
  }
};

ExitCode printPolicyText(Output& out, const PolicyTextOptions& options) {
  NamedObjMgrForPolicy manager;
  std::list<PolicyObjectRecord> records;
  manager.leadValue = options.lead;
  for (const StoredObject& object : options.find()) {
    if (object.id > static_cast<unsigned int>(INT_MAX)) {
      throw RuntimeError("object " + std::to_string(object.id) + " has no place in the text: its keys end at " +
                         std::to_string(INT_MAX));
    }
    const std::string text = textOf(object);
    records.push_back({object.type, text, object.name, static_cast<unsigned int>(text.size()),
                       static_cast<unsigned int>(object.name.size())});
    manager.records[static_cast<int>(object.id)] = &records.back();
  }
  std::string text;
  unsigned int sizeHint = 0;
  manager.serialize(text, sizeHint);
  if (out.isDocument()) {
    out.record({{"records", manager.records.size()}, {"lead", options.lead}, {"estimate", sizeHint}, {"text", text}});
  } else {
    out.raw(text);
  }
  return ExitCode::Found;
}

ExitCode listQuarantineAreas(Output& out, const std::string& admin) {
  const Viewer viewer = findViewer(admin);
  ZARO::RdbmsInterface db;
  std::vector<QuarantineData> areas;
  if (!ZaroNamedObj::getEditableQuanantineData(db, viewer.id, areas)) {
    throw RuntimeError("cannot list the quarantine areas of " + quoted(admin) + ": " + databaseFailure());
  }
  Json rows = Json::array();
  for (const QuarantineData& area : areas) {
    rows.push_back({{"id", area.id}, {"name", area.name}, {"editable", area.editable}, {"content", area.content}});
  }
  out.rows({{"id", "ID"}, {"name", "NAME"}, {"editable", "EDITABLE"}, {"content", "CONTENT"}}, rows);
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
