// Administrators and managing groups of the installation, as commands need them.
//
// Everything here throws RuntimeError when the database fails, and NotThere for what is not there.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/Output.h"
#include "store/Database.h"

// Whom or what a command names is not there.
class NotThere : public zaroruntime::RuntimeError {
 public:
  explicit NotThere(const std::string& text) : RuntimeError(text, zaroruntime::FailureKind::Data) {}
};

// An identifier in a row, and one on the command line; UsageError, naming `argument`, for a text that is none.
unsigned int idIn(const StoreConnection::Row& row, std::size_t column);
unsigned int idArgument(const char* argument, const std::string& text);

// Why a text cannot be a name; empty when it can.
std::string wrongName(const std::string& text);
// UsageError, naming `argument`, for such a text.
void refuseWrongName(const char* argument, const std::string& text);

// --- Administrators ---

unsigned int adminIdOf(const std::string& name);
// The managing groups of an administrator; without any, empty.
std::vector<GroupEntity> entitiesOf(unsigned int adminId);
std::vector<GroupEntity> entitiesOf(StoreConnection& db, unsigned int adminId);

// --- Managing groups ---

using EntitySet = std::set<GroupEntity, GroupEntityCmp>;

// The name of a type that has one, otherwise its number; and the type that such a text means, or UsageError.
std::string nameOfType(GroupEntity::EntityType type);
GroupEntity::EntityType entityType(const std::string& text);

EntitySet entitiesOfType(GroupEntity::EntityType type);
EntitySet entitiesOfType(StoreConnection& db, GroupEntity::EntityType type);
// Every managing group, by type and name.
std::vector<GroupEntity> allEntities();
std::vector<GroupEntity> allEntities(StoreConnection& db);

// A managing group as the command line names it.
struct WantedEntity {
  std::string text;
  bool isId = false;

  // It must be the only one of its name: groups of different types may have the same.
  GroupEntity find() const;
  GroupEntity find(StoreConnection& db) const;
  // The same in a transaction, locked to its end; `suffix` is one of the connection's.
  GroupEntity lock(StoreConnection& db, const char* suffix) const;

 private:
  GroupEntity _findAmong(const std::vector<GroupEntity>& entities) const;
};

Json recordOf(const GroupEntity& entity);
