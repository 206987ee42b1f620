// What tests of entities and named objects share: a database handle, rows of entities, and texts of results.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "RdbmsInterface.h"
#include "scripted/Platform.h"

namespace zarotest {

using EntitySet = std::set<GroupEntity, GroupEntityCmp>;

inline GroupEntity entity(unsigned int id, int type, const std::string& name) {
  GroupEntity made;
  made.id = id;
  made.type = static_cast<GroupEntity::EntityType>(type);
  made.name = name;
  return made;
}

// "7 6 *@example.test": identifier, type, name.
inline std::string shown(const GroupEntity& entity) {
  return std::to_string(entity.id) + " " + std::to_string(entity.type) + " " + entity.name;
}

template <typename Entities>
std::vector<std::string> shownAll(const Entities& entities) {
  std::vector<std::string> texts;
  for (const GroupEntity& entity : entities) {
    texts.push_back(shown(entity));
  }
  return texts;
}

// Wildcard entities numbered from 1 in the order given.
inline EntitySet wildcards(const std::vector<std::string>& names) {
  EntitySet entities;
  unsigned int id = 0;
  for (const std::string& name : names) {
    entities.insert(entity(++id, GroupEntity::Wildcard, name));
  }
  return entities;
}

class EntityTest : public scripted::PlatformTest {
 protected:
  // The rows of an administrator's entities.
  static void assign(unsigned int adminId, const std::vector<GroupEntity>& entities) {
    std::vector<scripted::Row> rows;
    for (const GroupEntity& entity : entities) {
      rows.push_back({std::to_string(entity.id), std::to_string(entity.type), entity.name});
    }
    scripted::platform().database.reply("ui_GetAdminEntityById.sql [" + std::to_string(adminId) + "]",
                                        scripted::Reply({"EntityID", "EntityType", "EntityName"}, rows));
  }
  static void setRoot(unsigned int adminId, bool isRoot) {
    scripted::platform().database.reply("ui_IsAdminRoot_Id.sql [" + std::to_string(adminId) + "]",
                                        scripted::Reply({"IsAdminRoot"}, {{isRoot ? "1" : "0"}}));
  }

  ZARO::RdbmsInterface m_db;
};

}  // namespace zarotest
