// Named objects in the database: adding, changing, removing, reading one.
#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "ZaroErrC.h"
#include "ZaroNamedObj.h"
#include "db/StoreStatement.h"

using ZARO::EscapedText;
using ZARO::RdbmsInterface;
using ZARO::readNumber;
using ZARO::shownText;
using ZARO::StatementText;
using ZARO::StoreStatement;

namespace {

constexpr unsigned int kNoObject = static_cast<unsigned int>(-1);
constexpr int kNoRow = 1;  // what a fetch answers behind the last row; -1 when it failed

// The statement that writes an object. Its buffer is as large as the data wants from a certain length on; a little
// below that, long data does not fit, and the loader says so.
class ObjectStatement {
 public:
  ObjectStatement(const char* name, const char* content)
      : m_name(name),
        m_content(content),
        m_size(_sizeFor(_length(m_name) + _length(m_content))),
        m_long(m_size > kFixedSize ? new char[m_size] : nullptr),
        m_text(m_long != nullptr ? m_long.get() : m_fixed, static_cast<int>(std::min<std::size_t>(m_size, INT_MAX))) {}

  StatementText& text() { return m_text; }
  const char* name() const { return m_name.get(); }
  const char* content() const { return m_content.get(); }

 private:
  static constexpr std::size_t kFixedSize = 8192;
  static constexpr std::size_t kLongestInFixed = 8291;
  static constexpr std::size_t kRoomForTheRest = 100;

  static std::size_t _length(const EscapedText& text) { return text.get() != nullptr ? std::strlen(text.get()) : 0; }
  static std::size_t _sizeFor(std::size_t length) {
    return length > kLongestInFixed ? length + kRoomForTheRest : kFixedSize;
  }

  EscapedText m_name;
  EscapedText m_content;
  std::size_t m_size;
  std::unique_ptr<char[]> m_long;
  char m_fixed[kFixedSize];
  StatementText m_text;
};

bool ownsAll(const std::vector<GroupEntity>& entities, const std::vector<unsigned int>& owners) {
  return std::all_of(owners.begin(), owners.end(), [&](unsigned int owner) {
    return std::any_of(entities.begin(), entities.end(), [&](const GroupEntity& entity) { return entity.id == owner; });
  });
}

// The code for what the removing statement answered.
int codeOf(int retId) {
  switch (retId) {
    case -1:
      return ZaroErrC::NoSuchObject;
    case -2:
      return ZaroErrC::ObjectCameIntoUse;
    default:
      return ZaroErrC::Success;
  }
}

}  // namespace

ZaroNamedObj::~ZaroNamedObj() = default;

bool ZaroNamedObj::add(RdbmsInterface& db, unsigned int adminId, const char* name, const char* content, NaObjType type,
                       unsigned int& newId) {
  std::vector<GroupEntity> entities;
  const int status = EntityUtils::getEntity(db, adminId, entities);
  if (status != ZaroErrC::Success) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::add: EntityUtils::getEntity failed (ZaroErrC:%d) for admin %d",
                   status, adminId);
    return false;
  }
  newId = addObj(db, name, content, type);
  return newId != kNoObject && addEntityNamedObjIds(db, newId, type, entities);
}

unsigned int ZaroNamedObj::addObj(RdbmsInterface& db, const char* name, const char* content, NaObjType type) {
  ObjectStatement statement(name, content);
  unsigned int id = kNoObject;
  return ZARO::catchThrownText(
      [&]() -> unsigned int {
        statement.text().load("ui_AddNamedObj.sql", static_cast<int>(type), statement.name(), statement.content());
        db.executeSQL(statement.text().get());
        if (db.fetchNextRow() != 0) {
          PolicyLog::log(LogLevel::Error, "ZaroNamedObj::addObj: could not retrieve objectId for name:%s; type:%d",
                         shownText(name), static_cast<int>(type));
          return id;
        }
        const char* column = db.getColVal("objectId");
        if (!readNumber(column, id)) {
          PolicyLog::log(LogLevel::Error,
                         "ZaroNamedObj::addObj: could not retrieve objectId from %s for name:%s; type:%d",
                         shownText(column), shownText(name), static_cast<int>(type));
        }
        return id;
      },
      [&](const char* thrown) -> unsigned int {
        PolicyLog::log(LogLevel::Error, "ZaroNamedObj::addObj: Exception \"%s\" thrown for name:%s; type:%d", thrown,
                       shownText(name), static_cast<int>(type));
        return id;
      });
}

bool ZaroNamedObj::addEntityNamedObjIds(RdbmsInterface& db, unsigned int namedObjId, NaObjType type,
                                        std::vector<GroupEntity>& entities) {
  StoreStatement<256> statement(db);
  const auto write = [&]() -> bool {
    for (const GroupEntity& entity : entities) {
      statement.run("ui_AddEntityNamedObj.sql", entity.id, namedObjId, static_cast<int>(type));
    }
    return true;
  };
  return statement.guard("ZaroNamedObj::addEntityNamedObjIds: Exception \"%s\" thrown for statement %s", false, write);
}

bool ZaroNamedObj::modify(RdbmsInterface& db, unsigned int namedObjId, unsigned int /*adminId*/, const char* name,
                          const char* content, NaObjType type) {
  return modifyObj(db, name, content, type, namedObjId) != -1;
}

int ZaroNamedObj::modifyObj(RdbmsInterface& db, const char* name, const char* content, NaObjType type,
                            unsigned int namedObjId) {
  ObjectStatement statement(name, content);
  return ZARO::catchThrownText(
      [&]() -> int {
        statement.text().load("ui_ModifyNamedObj.sql", static_cast<int>(type), statement.name(), statement.content(),
                              namedObjId);
        db.executeSQL(statement.text().get());
        return 0;
      },
      [](const char* thrown) -> int {
        PolicyLog::log(LogLevel::Error, "ZaroNamedObj::modifyObj: Exception \"%s\" thrown", thrown);
        return -1;
      });
}

int ZaroNamedObj::remove(RdbmsInterface& db, unsigned int namedObjId, unsigned int adminId) {
  StoreStatement<512> statement(db);
  const auto removeUnused = [&]() -> int {
    statement.run("ui_GetNamedObjRule.sql", namedObjId, namedObjId);
    if (db.fetchNextRow() != kNoRow) {
      // Only a second fetch tells a rule from a failure, which fails again.
      return db.fetchNextRow() == -1 ? ZaroErrC::DatabaseFailure : ZaroErrC::ObjectInUse;
    }
    if (!isEditable(db, adminId, namedObjId)) {
      return ZaroErrC::ObjectNotEditable;
    }
    statement.run("ui_RemoveNamedObj.sql", namedObjId, adminId);
    if (db.fetchNextRow() != 0) {
      PolicyLog::log(LogLevel::Error, "uinamedObjectI::remove: No data returned for query %s", statement.text());
      return ZaroErrC::DatabaseFailure;
    }
    return codeOf(db.getColValInt("retId"));
  };
  return statement.guard("uiNamedObjectI::remove: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), removeUnused);
}

bool ZaroNamedObj::isEditable(RdbmsInterface& db, unsigned int adminId, unsigned int namedObjId) {
  if (EntityUtils::isAdminRoot(db, adminId)) {
    return true;
  }
  std::vector<GroupEntity> entities;
  const int status = EntityUtils::getEntity(db, adminId, entities);
  if (status != ZaroErrC::Success) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::isEditable: EntityUtils::getEntity failed (ZaroErrC:%d) for admin %d",
                   status, adminId);
    return false;
  }
  std::vector<unsigned int> owners;
  if (!getEntityIds(db, owners, namedObjId)) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::isEditable: getEntityIds failed");
    return false;
  }
  return ownsAll(entities, owners);
}

bool ZaroNamedObj::_isDeletability(RdbmsInterface& db, unsigned int namedObjId) {
  StoreStatement<256> statement(db);
  const auto read = [&]() -> bool {
    statement.run("ui_GetNamedObjRule.sql", namedObjId, namedObjId);
    return db.fetchNextRow() == kNoRow;
  };
  return statement.guard("ZaroNamedObj::_isDeletability: Exception \"%s\" thrown for statement %s", false, read);
}

bool ZaroNamedObj::getEntityIds(RdbmsInterface& db, std::vector<unsigned int>& entityIds, unsigned int namedObjId) {
  constexpr std::size_t kUsualOwners = 10;
  entityIds.reserve(kUsualOwners);
  StoreStatement<256> statement(db);
  const auto read = [&]() -> bool {
    statement.run("ui_GetEntityId4NamedObj.sql", namedObjId);
    while (db.fetchNextRow() == 0) {
      const char* column = db.getColVal("EntityID");
      unsigned int id = 0;
      if (!readNumber(column, id)) {
        PolicyLog::log(LogLevel::Error,
                       "ZaroNamedObj::getEntityIds: could not retrieve EntityID from %s for statement %s",
                       shownText(column), statement.text());
        return false;
      }
      entityIds.push_back(id);
    }
    return true;
  };
  // Log watchers know this failure by the name of `getBlob`.
  return statement.guard("ZaroNamedObj::getBlob: Exception \"%s\" thrown for statement %s", false, read);
}

bool ZaroNamedObj::getBlob(RdbmsInterface& db, unsigned int namedObjId, std::string& content, std::string& name) {
  StoreStatement<256> statement(db);
  const auto read = [&]() -> bool {
    statement.run("ui_GetNamedObjBlob.sql", namedObjId);
    if (db.fetchNextRow() != 0) {
      PolicyLog::log(LogLevel::Error, "ZaroNamedObj::getBlob: could not retrieve blob for statement %s",
                     statement.text());
      return false;
    }
    const char* column = db.getColVal("Content");
    if (column == nullptr) {
      PolicyLog::log(LogLevel::Error,
                     "ZaroNamedObj::getBlob: could not retrieve Content from NULL string for statement %s",
                     statement.text());
      return false;
    }
    content = column;
    column = db.getColVal("Name");
    if (column != nullptr) {
      name = column;
    }
    return true;
  };
  return statement.guard("ZaroNamedObj::getBlob: Exception \"%s\" thrown for statement %s", false, read);
}

bool ZaroNamedObj::getContentBlob(RdbmsInterface& db, unsigned int namedObjId, std::string& content, std::string& name) {
  return getBlob(db, namedObjId, content, name);
}

bool ZaroNamedObj::test(unsigned int /*id*/, std::string& /*content*/, std::string& /*name*/) {
  return true;
}
