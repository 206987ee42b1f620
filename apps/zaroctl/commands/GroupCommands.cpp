// group list, group show, group add, group modify, group remove
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/GroupArgument.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/AddressGroups.h"
#include "store/GroupMembers.h"

namespace {

using Addresses = std::vector<std::string>;

void refuseWrongGroupName(const char* argument, const std::string& name) {
  const std::string wrong = wrongGroupName(name);
  if (!wrong.empty()) {
    throw UsageError(std::string(argument) + ": " + quoted(name) + " " + wrong);
  }
}

void tellOfRepetition(const std::string& address) {
  diagnose(quoted(address) + " is given twice");
}

// Members out of the command line, each once.
Addresses newMembers(const Addresses& given) {
  DistinctMembers members;
  for (const std::string& address : given) {
    const std::string wrong = wrongMember(address);
    if (!wrong.empty()) {
      throw UsageError("ADDRESS: " + quoted(address) + " " + wrong);
    }
    const std::size_t before = members.addresses().size();
    if (members.add(address) != before) {
      tellOfRepetition(address);
    }
  }
  return members.take();
}

// A member to remove may be one that zaroctl would not add.
Addresses goneMembers(const Addresses& given) {
  DistinctMembers members;
  for (const std::string& address : given) {
    members.add(address);
  }
  return members.take();
}

ExitCode listAll(Output& out, const WantedActor& as) {
  const Actor actor = as.find();
  std::vector<Output::Column> columns = {{"id", "ID"}, {"name", "NAME"}, {"members", "MEMBERS"}};
  if (actor) {
    columns.push_back({"modifiable", "MODIFIABLE"});
  } else {
    columns.push_back({"owners", "OWNERS"});
  }
  Json rows = Json::array();
  for (const GroupSummary& group : listGroups(actor)) {
    Json row = {{"id", group.id}, {"name", group.name}, {"members", group.members}};
    if (actor) {
      row["modifiable"] = group.modifiable;
    } else {
      row["owners"] = group.owners;
    }
    rows.push_back(std::move(row));
  }
  out.rows(columns, rows);
  return ExitCode::Found;
}

ExitCode showMembers(Output& out, const WantedGroup& group) {
  Json rows = Json::array();
  for (const std::string& address : membersOf(group.find(group.as.find()))) {
    rows.push_back({{"address", address}});
  }
  out.rows({{"address", "ADDRESS"}}, rows);
  return ExitCode::Found;
}

struct NewGroup {
  std::string name;
  std::string admin;
  std::optional<std::string> entity;
  Addresses members;
};

ExitCode add(Output& out, const NewGroup& wanted) {
  refuseWrongGroupName("NAME", wanted.name);
  const Addresses members = newMembers(wanted.members);
  const auto entityId = wanted.entity ? std::make_optional(idArgument("--entity", *wanted.entity)) : std::nullopt;
  const StoredGroup added = addGroup(wanted.admin, entityId, wanted.name, members);
  out.record({{"id", added.id}, {"name", added.name}, {"members", members.size()}});
  return ExitCode::Found;
}

struct Modification {
  WantedGroup group;
  std::optional<std::string> name;
  Addresses added;
  Addresses removed;
};

GroupChange changeFor(const Modification& wanted) {
  GroupChange change;
  if (wanted.name) {
    refuseWrongGroupName("--name", *wanted.name);
    change.name = wanted.name;
  }
  change.removed = goneMembers(wanted.removed);
  change.added = newMembers(wanted.added);
  return change;
}

ExitCode modify(Output& out, const Modification& wanted) {
  const GroupChange change = changeFor(wanted);
  const Actor actor = wanted.group.as.find();
  const ChangedGroup changed = changeGroup(actor, wanted.group.find(actor), change);
  for (const std::size_t place : changed.present) {
    diagnose(quoted(change.added[place]) + " is a member already");
  }
  out.record({{"id", changed.id},
              {"name", changed.name},
              {"removed", changed.removed},
              {"added", change.added.size() - changed.present.size()}});
  return ExitCode::Found;
}

ExitCode remove(Output& out, const WantedGroup& wanted) {
  const Actor actor = wanted.as.find();
  const GroupSummary removed = removeGroup(actor, wanted.find(actor));
  out.record({{"id", removed.id}, {"name", removed.name}, {"members", removed.members}});
  return ExitCode::Found;
}

}  // namespace

void addGroupList(CommandTree& tree) {
  const auto as = std::make_shared<WantedActor>();
  CLI::App* command =
      tree.add("group list", "List the address groups", {"zaroctl group list", "zaroctl group list --as sales-admin"},
               tellingNotThere([as](Output& out) { return listAll(out, *as); }));
  addActorOption(*command, *as);
}

void addGroupShow(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group show", "List the members of an address group",
                               {"zaroctl group show Board", "zaroctl group show --id 12"},
                               tellingNotThere([group](Output& out) { return showMembers(out, *group); }));
  addGroupArgument(*command, *group);
}

void addGroupAdd(CommandTree& tree) {
  const auto group = std::make_shared<NewGroup>();
  CLI::App* command = tree.add("group add", "Add an address group",
                               {"zaroctl group add --as postmaster Friends user@example.test '*@*.example.org'"},
                               tellingNotThere([group](Output& out) { return add(out, *group); }));
  command->add_option("--as", group->admin, "The administrator who adds it")->required()->type_name("ADMIN");
  command
      ->add_option("--entity", group->entity,
                   "The managing group that owns it, by identifier; otherwise all of the administrator's")
      ->type_name("ID");
  command->add_option("NAME", group->name, "Its name")->required()->type_name("");
  command->add_option("ADDRESS", group->members, "Its members")->type_name("");
}

void addGroupModify(CommandTree& tree) {
  const auto change = std::make_shared<Modification>();
  CLI::App* command = tree.add("group modify", "Change an address group",
                               {"zaroctl group modify Board --add new@example.test --remove old@example.test",
                                "zaroctl group modify Board --name 'Board of directors'"},
                               tellingNotThere([change](Output& out) { return modify(out, *change); }));
  addGroupArgument(*command, change->group);
  command->add_option("--name", change->name, "Another name")->type_name("NAME");
  command->add_option("--add", change->added, "Another member, behind the others; once or more")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  command->add_option("--remove", change->removed, "A member to leave out; once or more")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
}

void addGroupRemove(CommandTree& tree) {
  const auto group = std::make_shared<WantedGroup>();
  CLI::App* command = tree.add("group remove", "Remove an address group", {"zaroctl group remove Friends"},
                               tellingNotThere([group](Output& out) { return remove(out, *group); }));
  addGroupArgument(*command, *group);
}
