// admin list, admin add, admin remove, admin assign, admin unassign
#include <memory>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "commands/EntityArgument.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Administration.h"
#include "store/Database.h"

using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;
using zaroruntime::SqlSession;

namespace {

Json recordOf(const SqlSession::Row& row) {
  return {{"id", idIn(row, 0)}, {"name", row[1].value_or("")}, {"root", row[2] == "1"}, {"entities", idIn(row, 3)}};
}

std::vector<SqlSession::Row> adminsWhere(SqlSession& session, const std::string& condition) {
  return session.rows(
      "SELECT id, name, is_root, (SELECT count(*) FROM administrator_entity WHERE administrator_id = id) "
      "FROM administrator WHERE " +
      condition + " ORDER BY name");
}

SqlSession::Row findAdmin(SqlSession& session, const std::string& name) {
  auto rows = adminsWhere(session, "name = " + sqlLiteral(name));
  if (rows.empty()) {
    throw NotThere("no administrator named " + quoted(name));
  }
  return rows.front();
}

ExitCode listAll(Output& out) {
  Json rows = Json::array();
  const auto session = openSession();
  for (const auto& row : adminsWhere(*session, "1 = 1")) {
    rows.push_back(recordOf(row));
  }
  out.rows({{"id", "ID"}, {"name", "NAME"}, {"root", "ROOT"}, {"entities", "ENTITIES"}}, rows);
  return ExitCode::Found;
}

ExitCode add(Output& out, const std::string& name, bool isRoot) {
  refuseWrongName("NAME", name);
  const auto session = openSession();
  if (!adminsWhere(*session, "name = " + sqlLiteral(name)).empty()) {
    throw RuntimeError("there is an administrator named " + quoted(name) + " already");
  }
  session->run("INSERT INTO administrator (name, is_root) VALUES (" + sqlLiteral(name) + ", " + (isRoot ? "1" : "0") +
               ")");
  out.record(recordOf(findAdmin(*session, name)));
  return ExitCode::Found;
}

ExitCode remove(Output& out, const std::string& name) {
  const auto session = openSession();
  const SqlSession::Row admin = findAdmin(*session, name);
  session->run("DELETE FROM administrator WHERE id = " + std::to_string(idIn(admin, 0)));
  out.record(recordOf(admin));
  return ExitCode::Found;
}

struct Assignment {
  std::string admin;
  std::vector<std::string> entities;
  bool areIds = false;

  std::vector<GroupEntity> find() const {
    std::vector<GroupEntity> found;
    for (const std::string& text : entities) {
      found.push_back(WantedEntity{text, areIds}.find());
    }
    return found;
  }
};

bool isAssigned(SqlSession& session, const std::string& condition) {
  return session.value("SELECT count(*) FROM administrator_entity WHERE " + condition) != "0";
}

std::string pairCondition(unsigned int adminId, const GroupEntity& entity) {
  return "administrator_id = " + std::to_string(adminId) + " AND entity_id = " + std::to_string(entity.id);
}

ExitCode assign(Output& out, const Assignment& wanted) {
  const auto session = openSession();
  const unsigned int adminId = idIn(findAdmin(*session, wanted.admin), 0);
  std::vector<std::string> statements;
  for (const GroupEntity& entity : wanted.find()) {
    if (!isAssigned(*session, pairCondition(adminId, entity))) {
      statements.push_back("INSERT INTO administrator_entity (administrator_id, entity_id) SELECT " +
                           std::to_string(adminId) + ", " + std::to_string(entity.id) + " WHERE NOT EXISTS " +
                           "(SELECT 1 FROM administrator_entity WHERE " + pairCondition(adminId, entity) + ")");
    }
  }
  session->runTogether(statements);
  out.record(recordOf(findAdmin(*session, wanted.admin)));
  return ExitCode::Found;
}

ExitCode unassign(Output& out, const Assignment& wanted) {
  const auto session = openSession();
  const unsigned int adminId = idIn(findAdmin(*session, wanted.admin), 0);
  std::vector<std::string> statements;
  for (const GroupEntity& entity : wanted.find()) {
    if (!isAssigned(*session, pairCondition(adminId, entity))) {
      throw RuntimeError(quoted(wanted.admin) + " is not assigned to " + quoted(entity.name) + "; nothing is changed");
    }
    statements.push_back("DELETE FROM administrator_entity WHERE " + pairCondition(adminId, entity));
  }
  session->runTogether(statements);
  out.record(recordOf(findAdmin(*session, wanted.admin)));
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
