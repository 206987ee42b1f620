// Entities as the database has them.
#include "EntityUtils.h"
#include "ZaroErrC.h"
#include "db/StoreStatement.h"

using ZARO::RdbmsInterface;
using ZARO::readNumber;
using ZARO::shownText;

namespace {

using Statement = ZARO::StoreStatement<512>;

constexpr unsigned int kHighestType = 7;

// Logs what is wrong with the current row, and fails.
int missing(const char* format, const Statement& statement) {
  PolicyLog::log(LogLevel::Error, format, statement.text());
  return ZaroErrC::MissingData;
}
int notANumber(const char* format, const char* column, const Statement& statement) {
  PolicyLog::log(LogLevel::Error, format, shownText(column), statement.text());
  return ZaroErrC::MissingData;
}

// Reads the current row of all entities; 0, or the code of what is wrong with it.
int readEntity(RdbmsInterface& db, const Statement& statement, GroupEntity& entity) {
  const char* column = db.getColVal("EntityID");
  if (!readNumber(column, entity.id)) {
    return notANumber("EntityUtils::getAllEntities: could not retrieve EntityID from %s for statement %s", column,
                      statement);
  }
  column = db.getColVal("EntityType");
  int type = 0;
  if (!readNumber(column, type)) {
    return notANumber("EntityUtils::getAllEntities: could not retrieve EntityType from %s for statement %s", column,
                      statement);
  }
  if (static_cast<unsigned int>(type) > kHighestType) {
    PolicyLog::log(LogLevel::Error, "EntityUtils::getAllEntities: Invalid entityTypevalue: %d", type);
    return ZaroErrC::InvalidValue;
  }
  entity.type = static_cast<GroupEntity::EntityType>(type);
  column = db.getColVal("EntityName");
  if (column == nullptr) {
    return missing("EntityUtils::getAllEntities: could not retrieve EntityName for statement %s", statement);
  }
  entity.name = column;
  return ZaroErrC::Success;
}

// The same for entities of one type.
int readEntityOfType(RdbmsInterface& db, const Statement& statement, GroupEntity& entity) {
  if (!readNumber(db.getColVal("EntityID"), entity.id)) {
    return missing("EntityUtils::_getAllEntitiesOfSameType: retrieval of EntityID returned NULL for statement %s",
                   statement);
  }
  const char* name = db.getColVal("EntityName");
  if (name == nullptr) {
    return missing("EntityUtils::_getAllEntitiesOfSameType: retrieval of EntityName returned NULL for statement %s",
                   statement);
  }
  entity.name = name;
  return ZaroErrC::Success;
}

}  // namespace

int EntityUtils::getEntity(RdbmsInterface& db, unsigned int adminId, std::vector<GroupEntity>& out) {
  Statement statement(db);
  const auto read = [&]() -> int {
    statement.run("ui_GetAdminEntityById.sql", adminId);
    if (db.fetchNextRow() != 0) {
      // Every console log has this line, so it stays at the level where it is looked for.
      PolicyLog::log(LogLevel::Error, "[Verbose] administrator '%d' has no managing group assignments.", adminId);
      return ZaroErrC::MissingData;
    }
    do {
      GroupEntity entity;
      entity.id = static_cast<unsigned int>(db.getColValInt("EntityID"));
      entity.type = static_cast<GroupEntity::EntityType>(db.getColValInt("EntityType"));
      const char* name = db.getColVal("EntityName");
      if (name == nullptr) {
        PolicyLog::log(LogLevel::Error, "EntityUtils::getEntity: could not retrieve IdsColEntityName from NULL string");
        return ZaroErrC::MissingData;
      }
      entity.name = name;
      out.push_back(entity);
    } while (db.fetchNextRow() == 0);
    return ZaroErrC::Success;
  };
  return statement.guard("EntityUtils::getEntity: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), read);
}

int EntityUtils::getAllEntities(RdbmsInterface& db, std::set<GroupEntity, GroupEntityCmp>& out) {
  Statement statement(db);
  const auto read = [&]() -> int {
    statement.run("ui_GetAllEntities.sql");
    while (db.fetchNextRow() == 0) {
      GroupEntity entity;
      const int status = readEntity(db, statement, entity);
      if (status != ZaroErrC::Success) {
        return status;
      }
      out.insert(entity);
    }
    return ZaroErrC::Success;
  };
  return statement.guard("EntityUtils::getAllEntities: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), read);
}

int EntityUtils::_getAllEntitiesOfSameType(RdbmsInterface& db, GroupEntity::EntityType type,
                                           std::set<GroupEntity, GroupEntityCmp>& out) {
  PolicyLog::log(LogLevel::Trace, "Retrieving entities of type %d", static_cast<int>(type));
  Statement statement(db);
  const auto read = [&]() -> int {
    statement.run("ui_GetEntitiesByType.sql", static_cast<int>(type));
    while (db.fetchNextRow() == 0) {
      GroupEntity entity;
      entity.type = type;
      const int status = readEntityOfType(db, statement, entity);
      if (status != ZaroErrC::Success) {
        return status;
      }
      PolicyLog::log(LogLevel::Trace, "Entity %s (id:%d) retrieved", entity.name.c_str(), entity.id);
      out.insert(entity);
    }
    return ZaroErrC::Success;
  };
  return statement.guard("EntityUtils::_getAllEntitiesOfSameType: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), read);
}

bool EntityUtils::isAdminRoot(RdbmsInterface& db, unsigned int adminId) {
  Statement statement(db);
  const auto read = [&]() -> bool {
    statement.run("ui_IsAdminRoot_Id.sql", adminId);
    if (db.fetchNextRow() != 0) {
      PolicyLog::log(LogLevel::Error, "EntityUtils::isAdminRoot: No data returned for query %s", statement.text());
      return false;
    }
    const char* column = db.getColVal("IsAdminRoot");
    int isRoot = 0;
    if (!readNumber(column, isRoot)) {
      PolicyLog::log(LogLevel::Error, "EntityUtils::isAdminRoot: could not retrieve IsAdminRoot from %s for statement %s",
                     shownText(column), statement.text());
      return false;
    }
    return isRoot == 1;
  };
  return statement.guard("EntityUtils::isAdminRoot: Exception \"%s\" thrown for statement %s", false, read);
}
