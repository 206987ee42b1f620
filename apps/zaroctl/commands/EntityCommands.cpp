// entity list, entity show, entity add, entity remove, entity relatives, entity contains, entity tree
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ZaroErrC.h"
#include "ZaroRuntime/SqlSession.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/EntityArgument.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "mail/LetterCase.h"
#include "patterns/PatternMistakes.h"
#include "store/Administration.h"
#include "store/EntityTree.h"
#include "store/Objects.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

const std::vector<Output::Column> kColumns = {{"id", "ID"}, {"type", "TYPE"}, {"name", "NAME"}};

ExitCode listAll(Output& out) {
  Json rows = Json::array();
  for (const GroupEntity& entity : allEntities()) {
    rows.push_back(recordOf(entity));
  }
  out.rows(kColumns, rows);
  return ExitCode::Found;
}

using Names = std::vector<std::string>;

Names namesOf(StoreConnection& db, const std::string& query) {
  Names names;
  for (const auto& row : db.rows(query, {"name"})) {
    names.push_back(row[0].value_or(""));
  }
  return names;
}

Names administratorsOf(StoreConnection& db, const GroupEntity& entity) {
  return namesOf(
      db, "SELECT name FROM administrator JOIN administrator_entity ON administrator_id = id WHERE entity_id = " +
              std::to_string(entity.id) + " ORDER BY name");
}

Names objectsOf(StoreConnection& db, const GroupEntity& entity) {
  return namesOf(db, "SELECT name FROM named_object JOIN named_object_owner ON object_id = id WHERE entity_id = " +
                         std::to_string(entity.id) + " ORDER BY name, id");
}

Names rulesFor(StoreConnection& db, const GroupEntity& entity) {
  return namesOf(db, "SELECT name FROM policy_rule WHERE scope_id = " + std::to_string(entity.id) + " ORDER BY position");
}

ExitCode show(Output& out, const WantedEntity& wanted) {
  StoreConnection db;
  const GroupEntity entity = wanted.find(db);
  Json record = recordOf(entity);
  record["administrators"] = administratorsOf(db, entity);
  record["objects"] = objectsOf(db, entity);
  record["rules"] = rulesFor(db, entity);
  out.record(record);
  return ExitCode::Found;
}

// The name under which a wildcard group is found again: addresses are compared in lower case.
std::string patternName(const std::string& name) {
  std::string lower = inLowerCase(name);
  if (lower != name) {
    diagnose(quoted(name) + " is stored in lower case, as " + ::quoted(lower));
  }
  // Every text is a pattern, but hardly what was meant.
  for (const PatternMistake& mistake : mistakesIn(lower)) {
    diagnose(::quoted(lower) + ": " + mistake.reason);
  }
  return lower;
}

ExitCode add(Output& out, const std::string& typeText, const std::string& given) {
  const GroupEntity::EntityType type = entityType(typeText);
  refuseWrongName("NAME", given);
  const std::string name = type == GroupEntity::Wildcard ? patternName(given) : given;
  const std::string number = std::to_string(static_cast<int>(type));
  const std::string same = "SELECT id FROM entity WHERE type = " + number + " AND name = " + sqlLiteral(name);
  out.record(inTransaction([&](StoreConnection& db) {
    if (db.value(same, "id")) {
      throw RuntimeError("there is a managing group of this type named " + quoted(name) + " already",
                         FailureKind::Refused);
    }
    db.run("INSERT INTO entity (type, name) VALUES (" + number + ", " + sqlLiteral(name) + ")");
    const auto rows = db.rows(same, {"id"});
    if (rows.size() != 1) {
      throw RuntimeError(quoted(name) + " was written, but does not come back so; nothing is changed", FailureKind::Data);
    }
    return recordOf(GroupEntity{name, type, idIn(rows.front(), 0)});
  }));
  return ExitCode::Found;
}

ExitCode remove(Output& out, const WantedEntity& wanted) {
  out.record(inTransaction([&](StoreConnection& db) {
    const GroupEntity entity = wanted.lock(db, db.forUpdate());
    const std::size_t objects = objectsOf(db, entity).size();
    if (objects != 0) {
      throw RuntimeError(quoted(entity.name) + " owns " + std::to_string(objects) +
                             " objects, which would be left without an owner; it is not removed",
                         FailureKind::Refused);
    }
    const Names rules = rulesFor(db, entity);
    if (!rules.empty()) {
      constexpr bool kNamesThem = true;
      throw RuntimeError(quoted(entity.name) + " is not removed: it is the scope of " + rulesText(kNamesThem, rules),
                         FailureKind::Refused);
    }
    db.run("DELETE FROM entity WHERE id = " + std::to_string(entity.id));
    return recordOf(entity);
  }));
  return ExitCode::Found;
}

// --- Hierarchy ---

using Relation = int (*)(const char*, EntitySet&, EntitySet&, bool);

struct RelationRow {
  GroupEntity::EntityType type;
  const char* name;
  Relation relation;
};
constexpr RelationRow kRelations[] = {
    {GroupEntity::Wildcard, "parent", EntityUtils::getAllWildcardParents},
    {GroupEntity::Wildcard, "child", EntityUtils::getAllWildcardChildren},
    {GroupEntity::LdapGroup, "parent", EntityUtils::getAllLdapParents},
    {GroupEntity::LdapGroup, "child", EntityUtils::getAllLdapChildren},
};

ExitCode listRelatives(Output& out, const WantedEntity& wanted) {
  const GroupEntity entity = wanted.find();
  EntitySet all = entitiesOfType(entity.type);
  Json rows = Json::array();
  for (const RelationRow& row : kRelations) {
    if (row.type != entity.type) {
      continue;
    }
    EntitySet found;
    const int code = row.relation(entity.name.c_str(), all, found, false);
    if (code != ZaroErrC::Success) {
      throw RuntimeError("the library finds no " + std::string(row.name) + " of " + quoted(entity.name) + " (code " +
                             std::to_string(code) + "); see zaroctl check",
                         zaroruntime::lastFailureKind());
    }
    for (const GroupEntity& relative : found) {
      rows.push_back({{"relation", row.name}, {"id", relative.id}, {"name", relative.name}});
    }
  }
  out.rows({{"relation", "RELATION"}, {"id", "ID"}, {"name", "NAME"}}, rows);
  return ExitCode::Found;
}

ExitCode tellMembership(Output& out, const std::string& group, const std::string& address) {
  const bool contains = EntityUtils::MemberOfWildCardGroup(group.c_str(), address.c_str());
  out.value("contains", {{"group", group}, {"address", address}, {"contains", contains}});
  return contains ? ExitCode::Found : ExitCode::NotFound;
}

// Adds a group and all below it, to the lines for people and to the document. A group in two others stands below both.
void addBranch(const EntityTree& tree, std::size_t at, const std::string& indent, Json& lines, Json& document) {
  const GroupEntity& entity = tree.entity(at);
  lines.push_back({{"shown", indent + entity.name}, {"name", entity.name}, {"id", entity.id}});
  Json below = Json::array();
  for (const std::size_t lower : tree.below(at)) {
    addBranch(tree, lower, indent + "  ", lines, below);
  }
  document.push_back({{"id", entity.id}, {"name", entity.name}, {"contains", below}});
}

ExitCode printTree(Output& out, bool isDot) {
  const EntityTree tree(entitiesOfType(GroupEntity::Wildcard));
  if (isDot) {
    out.raw(tree.dotText());
    return ExitCode::Found;
  }
  Json lines = Json::array();
  Json document = Json::array();
  for (const std::size_t top : tree.tops()) {
    addBranch(tree, top, "", lines, document);
  }
  out.rows({{"shown", "NAME"}, {"id", "ID"}}, lines, document);
  return ExitCode::Found;
}

}  // namespace

void addEntityList(CommandTree& tree) {
  tree.add("entity list", "List the managing groups", {"zaroctl entity list"}, listAll);
}

void addEntityShow(CommandTree& tree) {
  const auto entity = std::make_shared<WantedEntity>();
  CLI::App* command =
      tree.add("entity show", "Show a managing group, its administrators, its objects and the rules for it",
               {"zaroctl entity show '*@example.test'", "zaroctl entity show --id 3"},
               tellingNotThere([entity](Output& out) { return show(out, *entity); }));
  addEntityArgument(*command, *entity);
}

void addEntityAdd(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  const auto type = std::make_shared<std::string>("wildcard");
  CLI::App* command =
      tree.add("entity add", "Add a managing group",
               {"zaroctl entity add '*@*.example.test'", "zaroctl entity add --type ldap cn=sales,dc=example,dc=test"},
               [name, type](Output& out) { return add(out, *type, *name); });
  command->add_option("--type", *type, "ldap, wildcard (the default) or a number from 0 to 7")->type_name("TYPE");
  command->add_option("NAME", *name, "Its name; of a wildcard group, its address pattern")->required()->type_name("");
}

void addEntityRemove(CommandTree& tree) {
  const auto entity = std::make_shared<WantedEntity>();
  CLI::App* command = tree.add("entity remove", "Remove a managing group that owns nothing and has no rules",
                               {"zaroctl entity remove '*@*.example.test'"},
                               tellingNotThere([entity](Output& out) { return remove(out, *entity); }));
  addEntityArgument(*command, *entity);
}

void addEntityRelatives(CommandTree& tree) {
  const auto entity = std::make_shared<WantedEntity>();
  CLI::App* command = tree.add("entity relatives", "List the groups that contain a managing group or are contained in it",
                               {"zaroctl entity relatives '*@sales.example.test'"},
                               tellingNotThere([entity](Output& out) { return listRelatives(out, *entity); }));
  addEntityArgument(*command, *entity);
}

void addEntityContains(CommandTree& tree) {
  const auto group = std::make_shared<std::string>();
  const auto address = std::make_shared<std::string>();
  CLI::App* command = tree.add("entity contains", "Say whether an address falls under a wildcard group",
                               {"zaroctl entity contains '*@*.example.test' user@mail.example.test"},
                               [group, address](Output& out) { return tellMembership(out, *group, *address); });
  command->add_option("GROUP", *group, "The group's pattern")->required()->type_name("");
  command->add_option("ADDRESS", *address, "An address, or a narrower pattern")->required()->type_name("");
}

void addEntityTree(CommandTree& tree) {
  const auto isDot = std::make_shared<bool>(false);
  CLI::App* command = tree.add("entity tree", "Print which wildcard groups contain which",
                               {"zaroctl entity tree", "zaroctl entity tree --dot | dot -Tsvg >tree.svg"},
                               [isDot](Output& out) { return printTree(out, *isDot); });
  command->add_flag("--dot", *isDot, "As a picture for Graphviz");
}
