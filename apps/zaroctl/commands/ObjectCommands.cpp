// object list, object show, object add, object modify, object remove
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Input.h"
#include "store/Objects.h"

namespace {

const SummaryNamedObject* findVisible(const std::vector<SummaryNamedObject>& objects, unsigned int id) {
  const auto found =
      std::find_if(objects.begin(), objects.end(), [&](const SummaryNamedObject& object) { return object.id == id; });
  return found != objects.end() ? &*found : nullptr;
}

ExitCode list(Output& out, const std::string& admin, const std::string& type) {
  const auto types = type.empty() ? std::vector<ZaroNamedObj::NaObjType>() : std::vector{objectType(type)};
  const Viewer viewer = findViewer(admin);
  const auto wantedTypes = type.empty() ? usedTypes() : types;
  StoreConnection db;
  Json rows = Json::array();
  for (const auto wanted : wantedTypes) {
    for (const SummaryNamedObject& object : visibleObjects(db, viewer, wanted)) {
      rows.push_back({{"id", object.id},
                      {"type", nameOfType(wanted)},
                      {"name", object.name},
                      {"editable", object.editable},
                      {"modifiable", object.editable && isModifiable(db, viewer, object.id)},
                      {"deletable", object.deletable}});
    }
  }
  out.rows({{"id", "ID"},
            {"type", "TYPE"},
            {"name", "NAME"},
            {"editable", "EDITABLE"},
            {"modifiable", "MODIFIABLE"},
            {"deletable", "DELETABLE"}},
           rows);
  return ExitCode::Found;
}

ExitCode show(Output& out, const std::string& admin, const std::string& idText) {
  const unsigned int id = idArgument("ID", idText);
  const Viewer viewer = findViewer(admin);
  const auto object = findStored(id);
  const auto visible = object ? visibleObjects(viewer, object->type) : std::vector<SummaryNamedObject>();
  const SummaryNamedObject* summary = findVisible(visible, id);
  if (summary == nullptr) {
    throwNotSeen(viewer, id);
  }
  const auto rules = rulesThatUse(id);
  StoreConnection db;
  out.record({{"id", id},
              {"type", nameOfType(object->type)},
              {"name", object->name},
              {"editable", summary->editable},
              {"modifiable", summary->editable && isModifiable(db, viewer, id)},
              {"deletable", summary->deletable},
              {"rules", viewer.isRoot ? Json(rules) : Json(rules.size())},
              {"content", contentOf(*object)}});
  return ExitCode::Found;
}

struct Content {
  std::optional<std::string> text;
  std::optional<std::string> file;

  std::optional<std::string> read() const { return file ? readInput(*file) : text; }
};

void addContentOptions(CLI::App& command, Content& content) {
  CLI::Option* text = command.add_option("--content", content.text, "Its content")->type_name("TEXT");
  command.add_option("--file", content.file, "Its content, out of a file; - is standard input")
      ->type_name("FILE")
      ->excludes(text);
}

struct NewObject {
  std::string admin;
  std::string type;
  std::string name;
  Content content;
};

ExitCode printObject(Output& out, const StoredObject& object) {
  out.record({{"id", object.id}, {"type", nameOfType(object.type)}, {"name", object.name}});
  return ExitCode::Found;
}

ExitCode add(Output& out, const NewObject& wanted) {
  const auto type = objectType(wanted.type);
  refuseWrongName("NAME", wanted.name);
  const std::string content = wanted.content.read().value_or("");
  return printObject(out, addObject(wanted.admin, type, wanted.name, content));
}

struct WantedChange {
  std::string admin;
  std::string id;
  std::optional<std::string> type;
  std::optional<std::string> name;
  Content content;
};

ExitCode modify(Output& out, const WantedChange& wanted) {
  const unsigned int id = idArgument("ID", wanted.id);
  if (wanted.name) {
    refuseWrongName("--name", *wanted.name);
  }
  ObjectChange change;
  change.name = wanted.name;
  if (wanted.type) {
    change.type = objectType(*wanted.type);
  }
  change.content = wanted.content.read();
  return printObject(out, changeObject(wanted.admin, id, change));
}

ExitCode remove(Output& out, const std::string& admin, const std::string& idText) {
  const unsigned int id = idArgument("ID", idText);
  return printObject(out, removeObject(admin, id));
}

void addAdminOption(CLI::App& command, std::string& admin) {
  command.add_option("--as", admin, "The administrator who asks")->required()->type_name("ADMIN");
}

constexpr const char* kTypeHelp = "quarantine, group or the number of a type";

}  // namespace

void addObjectList(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  const auto type = std::make_shared<std::string>();
  CLI::App* command =
      tree.add("object list", "List the objects that an administrator sees, and what may be done with them",
               {"zaroctl object list --as sales-admin", "zaroctl object list --as sales-admin --type group"},
               tellingNotThere([admin, type](Output& out) { return list(out, *admin, *type); }));
  addAdminOption(*command, *admin);
  command->add_option("--type", *type, std::string("Only these: ") + kTypeHelp)->type_name("TYPE");
}

void addObjectShow(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  const auto id = std::make_shared<std::string>();
  CLI::App* command =
      tree.add("object show", "Show an object that an administrator sees", {"zaroctl object show --as sales-admin 3"},
               tellingNotThere([admin, id](Output& out) { return show(out, *admin, *id); }));
  addAdminOption(*command, *admin);
  command->add_option("ID", *id, "The object's identifier")->required()->type_name("");
}

void addObjectAdd(CommandTree& tree) {
  const auto wanted = std::make_shared<NewObject>();
  CLI::App* command =
      tree.add("object add", "Add an object that all managing groups of an administrator own",
               {"zaroctl object add --as sales-admin --type quarantine --content 'days=3' 'Short quarantine'",
                "zaroctl object add --as sales-admin --type 2 --file disclaimer.txt Disclaimer"},
               tellingNotThere([wanted](Output& out) { return add(out, *wanted); }));
  addAdminOption(*command, wanted->admin);
  command->add_option("--type", wanted->type, kTypeHelp)->required()->type_name("TYPE");
  addContentOptions(*command, wanted->content);
  command->add_option("NAME", wanted->name, "Its name")->required()->type_name("");
}

void addObjectModify(CommandTree& tree) {
  const auto change = std::make_shared<WantedChange>();
  CLI::App* command = tree.add("object modify", "Change an object",
                               {"zaroctl object modify --as sales-admin 3 --name 'Sales area' --content 'days=9'"},
                               tellingNotThere([change](Output& out) { return modify(out, *change); }));
  addAdminOption(*command, change->admin);
  command->add_option("ID", change->id, "The object's identifier")->required()->type_name("");
  command->add_option("--name", change->name, "Another name")->type_name("NAME");
  command->add_option("--type", change->type, std::string("Another type: ") + kTypeHelp)->type_name("TYPE");
  addContentOptions(*command, change->content);
}

void addObjectRemove(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  const auto id = std::make_shared<std::string>();
  CLI::App* command =
      tree.add("object remove", "Remove an object that no rule uses", {"zaroctl object remove --as sales-admin 11"},
               tellingNotThere([admin, id](Output& out) { return remove(out, *admin, *id); }));
  addAdminOption(*command, *admin);
  command->add_option("ID", *id, "The object's identifier")->required()->type_name("");
}
