// admin list, admin show, admin add, admin remove, admin assign, admin unassign
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ZaroRuntime/SqlSession.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/EntityArgument.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Administration.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

bool isRoot(const StoreConnection::Row& row) {
  return row[2] == "1";
}

Json recordOf(const StoreConnection::Row& row) {
  return {{"id", idIn(row, 0)}, {"name", row[1].value_or("")}, {"root", isRoot(row)}, {"entities", idIn(row, 3)}};
}

std::vector<StoreConnection::Row> adminsWhere(StoreConnection& db, const std::string& condition) {
  return db.rows(
      "SELECT id, name, is_root, (SELECT count(*) FROM administrator_entity WHERE administrator_id = id) AS entities "
      "FROM administrator WHERE " +
          condition + " ORDER BY name",
      {"id", "name", "is_root", "entities"});
}

StoreConnection::Row findAdmin(StoreConnection& db, const std::string& name) {
  auto rows = adminsWhere(db, "name = " + sqlLiteral(name));
  if (rows.empty()) {
    throw NotThere("no administrator named " + quoted(name));
  }
  return rows.front();
}

// Locked to the end of the transaction; `suffix` is one of the connection's.
StoreConnection::Row lockAdmin(StoreConnection& db, const std::string& name, const char* suffix) {
  db.rows("SELECT id FROM administrator WHERE name = " + sqlLiteral(name) + suffix, {"id"});
  return findAdmin(db, name);
}

ExitCode listAll(Output& out) {
  Json rows = Json::array();
  StoreConnection db;
  for (const auto& row : adminsWhere(db, "1 = 1")) {
    rows.push_back(recordOf(row));
  }
  out.rows({{"id", "ID"}, {"name", "NAME"}, {"root", "ROOT"}, {"entities", "ENTITIES"}}, rows);
  return ExitCode::Found;
}

ExitCode show(Output& out, const std::string& name) {
  StoreConnection db;
  const StoreConnection::Row admin = findAdmin(db, name);
  Json record = recordOf(admin);
  Json names = Json::array();
  Json groups = Json::array();
  for (const GroupEntity& entity : entitiesOf(db, idIn(admin, 0))) {
    names.push_back(entity.name);
    groups.push_back(recordOf(entity));
  }
  record["entities"] = names;
  Json document = record;
  document["entities"] = groups;
  out.record(record, document);
  return ExitCode::Found;
}

ExitCode add(Output& out, const std::string& name, bool asRoot) {
  refuseWrongName("NAME", name);
  out.record(inTransaction([&](StoreConnection& db) {
    if (!adminsWhere(db, "name = " + sqlLiteral(name)).empty()) {
      throw RuntimeError("there is an administrator named " + quoted(name) + " already", FailureKind::Refused);
    }
    db.run("INSERT INTO administrator (name, is_root) VALUES (" + sqlLiteral(name) + ", " + (asRoot ? "1" : "0") + ")");
    return recordOf(findAdmin(db, name));
  }));
  return ExitCode::Found;
}

// The roots are locked before any administrator, so that of two who remove the last two one waits for the other.
ExitCode remove(Output& out, const std::string& name) {
  out.record(inTransaction([&](StoreConnection& db) {
    const auto roots =
        db.rows(std::string("SELECT id FROM administrator WHERE is_root = 1 ORDER BY id") + db.forUpdate(), {"id"});
    const StoreConnection::Row admin = lockAdmin(db, name, db.forUpdate());
    if (isRoot(admin) && roots.size() < 2) {
      throw RuntimeError(quoted(name) +
                             " is the last administration root, without whom no administrator sees all objects; it is not "
                             "removed (zaroctl admin add --root NAME adds another)",
                         FailureKind::Refused);
    }
    db.run("DELETE FROM administrator WHERE id = " + std::to_string(idIn(admin, 0)));
    return recordOf(admin);
  }));
  return ExitCode::Found;
}

struct Assignment {
  std::string admin;
  std::vector<std::string> entities;
  bool areIds = false;

  // Each once, by identifier; none of them goes before the end of the transaction.
  std::vector<GroupEntity> lock(StoreConnection& db) const {
    std::map<unsigned int, GroupEntity> found;
    for (const std::string& text : entities) {
      const GroupEntity entity = WantedEntity{text, areIds}.find(db);
      found.emplace(entity.id, entity);
    }
    std::vector<GroupEntity> locked;
    locked.reserve(found.size());
    for (const auto& [id, entity] : found) {
      locked.push_back(WantedEntity{std::to_string(id), true}.lock(db, db.forReference()));
    }
    return locked;
  }
};

std::string pairCondition(unsigned int adminId, const GroupEntity& entity) {
  return "administrator_id = " + std::to_string(adminId) + " AND entity_id = " + std::to_string(entity.id);
}

bool isAssigned(StoreConnection& db, unsigned int adminId, const GroupEntity& entity) {
  return db.value("SELECT count(*) AS pairs FROM administrator_entity WHERE " + pairCondition(adminId, entity),
                  "pairs") != "0";
}

ExitCode assign(Output& out, const Assignment& wanted) {
  out.record(inTransaction([&](StoreConnection& db) {
    const unsigned int adminId = idIn(lockAdmin(db, wanted.admin, db.forReference()), 0);
    for (const GroupEntity& entity : wanted.lock(db)) {
      if (!isAssigned(db, adminId, entity)) {
        db.run("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (" + std::to_string(adminId) +
               ", " + std::to_string(entity.id) + ")");
      }
    }
    return recordOf(findAdmin(db, wanted.admin));
  }));
  return ExitCode::Found;
}

ExitCode unassign(Output& out, const Assignment& wanted) {
  out.record(inTransaction([&](StoreConnection& db) {
    // Of two who take the same away one is told that it is gone.
    const unsigned int adminId = idIn(lockAdmin(db, wanted.admin, db.forUpdate()), 0);
    for (const GroupEntity& entity : wanted.lock(db)) {
      if (!isAssigned(db, adminId, entity)) {
        throw RuntimeError(quoted(wanted.admin) + " is not assigned to " + quoted(entity.name) + "; nothing is changed",
                           FailureKind::Refused);
      }
      db.run("DELETE FROM administrator_entity WHERE " + pairCondition(adminId, entity));
    }
    return recordOf(findAdmin(db, wanted.admin));
  }));
  return ExitCode::Found;
}

void addAssignmentArguments(CLI::App& command, Assignment& assignment) {
  command.add_option("NAME", assignment.admin, "The administrator's name")->required()->type_name("");
  command.add_option("ENTITY", assignment.entities, "Managing groups, exactly as stored")->required()->type_name("");
  command.add_flag("--id", assignment.areIds, "Each ENTITY is an identifier");
}

}  // namespace

void addAdminList(CommandTree& tree) {
  tree.add("admin list", "List the administrators", {"zaroctl admin list"}, listAll);
}

void addAdminShow(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = tree.add("admin show", "Show an administrator with the managing groups",
                               {"zaroctl admin show postmaster", "zaroctl admin show -q root postmaster"},
                               tellingNotThere([name](Output& out) { return show(out, *name); }));
  command->add_option("NAME", *name, "The administrator's name, exactly as stored")->required()->type_name("");
}

void addAdminAdd(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  const auto isRoot = std::make_shared<bool>(false);
  CLI::App* command =
      tree.add("admin add", "Add an administrator", {"zaroctl admin add helpdesk", "zaroctl admin add --root chief"},
               [name, isRoot](Output& out) { return add(out, *name, *isRoot); });
  command->add_option("NAME", *name, "The name")->required()->type_name("");
  command->add_flag("--root", *isRoot, "One who sees and edits every object");
}

void addAdminRemove(CommandTree& tree) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = tree.add("admin remove", "Remove an administrator", {"zaroctl admin remove helpdesk"},
                               tellingNotThere([name](Output& out) { return remove(out, *name); }));
  command->add_option("NAME", *name, "The administrator's name, exactly as stored")->required()->type_name("");
}

void addAdminAssign(CommandTree& tree) {
  const auto assignment = std::make_shared<Assignment>();
  CLI::App* command = tree.add("admin assign", "Assign an administrator to managing groups",
                               {"zaroctl admin assign helpdesk '*@example.test'"},
                               tellingNotThere([assignment](Output& out) { return assign(out, *assignment); }));
  addAssignmentArguments(*command, *assignment);
}

void addAdminUnassign(CommandTree& tree) {
  const auto assignment = std::make_shared<Assignment>();
  CLI::App* command = tree.add("admin unassign", "Take an administrator out of managing groups",
                               {"zaroctl admin unassign helpdesk '*@example.test'"},
                               tellingNotThere([assignment](Output& out) { return unassign(out, *assignment); }));
  addAssignmentArguments(*command, *assignment);
}
