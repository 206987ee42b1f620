#include "store/Administration.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "ZaroErrC.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "miscUtils.h"

using zaroruntime::RuntimeError;

namespace {

constexpr std::size_t kLongestName = 512;  // characters
constexpr int kEntityTypes = 8;

struct TypeRow {
  GroupEntity::EntityType type;
  const char* name;
};
constexpr TypeRow kTypes[] = {
    {GroupEntity::LdapGroup, "ldap"},
    {GroupEntity::Wildcard, "wildcard"},
};

}  // namespace

unsigned int idIn(const StoreConnection::Row& row, std::size_t column) {
  return static_cast<unsigned int>(std::stoul(row[column].value_or("0")));
}

unsigned int idArgument(const char* argument, const std::string& text) {
  constexpr long long kHighestId = 4294967294;
  const auto id = decimalNumber(text);
  if (!id || *id < 1 || *id > kHighestId) {
    throw UsageError(std::string(argument) + ": " + quoted(text) + " is not an identifier");
  }
  return static_cast<unsigned int>(*id);
}

std::string wrongName(const std::string& text) {
  if (text.empty()) {
    return "is empty";
  }
  if (!isPlainText(text)) {
    return "is not UTF-8, or holds control characters";
  }
  const auto isFirstByte = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
  if (static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte)) > kLongestName) {
    return "is longer than " + std::to_string(kLongestName) + " characters";
  }
  return "";
}

void refuseWrongName(const char* argument, const std::string& text) {
  const std::string wrong = wrongName(text);
  if (!wrong.empty()) {
    throw UsageError(std::string(argument) + ": " + quoted(text) + " " + wrong);
  }
}

unsigned int adminIdOf(const std::string& name) {
  StoreConnection db;
  unsigned int id = 0;
  const std::string failure = "cannot look up " + quoted(name);
  switch (answerOf(failure, [&] { return miscUtils::getAdminId(db.library(), name.c_str(), id); })) {
    case ZaroErrC::Success:
      return id;
    case ZaroErrC::MissingData:
      throw NotThere("no administrator named " + quoted(name));
    default:
      throw RuntimeError(failure + ": " + databaseFailure(), zaroruntime::lastFailureKind());
  }
}

std::vector<GroupEntity> entitiesOf(unsigned int adminId) {
  StoreConnection db;
  return entitiesOf(db, adminId);
}

std::vector<GroupEntity> entitiesOf(StoreConnection& db, unsigned int adminId) {
  std::vector<GroupEntity> entities;
  const std::string failure = "cannot read the managing groups of an administrator";
  const int code = answerOf(failure, [&] { return EntityUtils::getEntity(db.library(), adminId, entities); });
  if (code != ZaroErrC::Success && (code != ZaroErrC::MissingData || !entities.empty())) {
    throw RuntimeError(failure + ": " + databaseFailure(), zaroruntime::lastFailureKind());
  }
  return entities;
}

std::string nameOfType(GroupEntity::EntityType type) {
  const auto* const row =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const TypeRow& known) { return known.type == type; });
  return row != std::end(kTypes) ? row->name : std::to_string(static_cast<int>(type));
}

GroupEntity::EntityType entityType(const std::string& text) {
  const auto* const row =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const TypeRow& known) { return text == known.name; });
  if (row != std::end(kTypes)) {
    return row->type;
  }
  const auto number = decimalNumber(text);
  if (!number || *number < 0 || *number >= kEntityTypes) {
    throw UsageError("--type: " + quoted(text) + " is neither ldap, nor wildcard, nor a number from 0 to 7");
  }
  return static_cast<GroupEntity::EntityType>(*number);
}

EntitySet entitiesOfType(GroupEntity::EntityType type) {
  StoreConnection db;
  return entitiesOfType(db, type);
}

EntitySet entitiesOfType(StoreConnection& db, GroupEntity::EntityType type) {
  EntitySet entities;
  const std::string failure = "cannot read the managing groups";
  if (answerOf(failure, [&] { return EntityUtils::_getAllEntitiesOfSameType(db.library(), type, entities); }) !=
      ZaroErrC::Success) {
    throw DatabaseError::because(failure);
  }
  return entities;
}

std::vector<GroupEntity> allEntities() {
  StoreConnection db;
  return allEntities(db);
}

std::vector<GroupEntity> allEntities(StoreConnection& db) {
  // Type by type: in a set of all of them, groups of one name would be one.
  std::vector<GroupEntity> entities;
  for (int type = 0; type < kEntityTypes; ++type) {
    const EntitySet some = entitiesOfType(db, static_cast<GroupEntity::EntityType>(type));
    entities.insert(entities.end(), some.begin(), some.end());
  }
  return entities;
}

GroupEntity WantedEntity::find() const {
  StoreConnection db;
  return find(db);
}

GroupEntity WantedEntity::find(StoreConnection& db) const {
  return _findAmong(allEntities(db));
}

GroupEntity WantedEntity::lock(StoreConnection& db, const char* suffix) const {
  const GroupEntity found = find(db);
  db.rows("SELECT id FROM entity WHERE id = " + std::to_string(found.id) + suffix, {"id"});
  return find(db);  // the holder of the lock may have changed it
}

GroupEntity WantedEntity::_findAmong(const std::vector<GroupEntity>& entities) const {
  const unsigned int id = isId ? idArgument("ENTITY", text) : 0;
  std::vector<GroupEntity> found;
  for (const GroupEntity& entity : entities) {
    if (isId ? entity.id == id : entity.name == text) {
      found.push_back(entity);
    }
  }
  if (found.empty()) {
    throw NotThere(isId ? "no managing group " + std::to_string(id) : "no managing group named " + quoted(text));
  }
  if (found.size() > 1) {
    std::string ids;
    for (const GroupEntity& entity : found) {
      ids.append(ids.empty() ? "" : ", ").append(std::to_string(entity.id)).append(" (" + nameOfType(entity.type) + ")");
    }
    throw UsageError(std::to_string(found.size()) + " managing groups are named " + quoted(text) + ": " + ids +
                     "; use --id");
  }
  return found.front();
}

Json recordOf(const GroupEntity& entity) {
  return {{"id", entity.id}, {"type", nameOfType(entity.type)}, {"name", entity.name}};
}
