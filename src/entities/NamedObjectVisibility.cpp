// Which named objects of a type an administrator sees, and which of them may be edited.
//
//   1. direct     owned by an entity of the administrator            editable if it has no other owner
//   2. children   owned by an entity contained in one of those       editable if it has no other owner
//   3. parents    owned by an entity that contains one of those      read-only, whatever an earlier step found
//   4. LDAP       as 2 and 3, for LDAP groups; LDAP groups have no relatives, so all are looked up
//
// Editable is what lists show. The rule that `remove` enforces, and programs before they call `modify`, is narrower:
// `ZaroNamedObj::isEditable`, in NamedObjectStore.cpp, counts the administrator's own entities alone, as step 1 does.
//
// Each step takes the owners that it accounts for from the candidates. What no step has accounted for in the end is why
// an object is read-only, or not seen.
#include <algorithm>
#include <cstddef>
#include <iterator>

#include "ZaroErrC.h"
#include "ZaroNamedObj.h"
#include "db/StoreStatement.h"
#include "entities/ReservedName.h"
#include "util/LetterCase.h"

using ZARO::compareIgnoringCase;
using ZARO::isReservedName;
using ZARO::RdbmsInterface;
using ZARO::readNumber;
using ZARO::shownText;

namespace {

using Candidates = ZaroNamedObj::_candidates;
using Entities = std::vector<GroupEntity>;
using EntitySet = std::set<GroupEntity, GroupEntityCmp>;
using Summaries = std::vector<SummaryNamedObject>;

int compareNames(const SummaryNamedObject& one, const SummaryNamedObject& other) {
  return compareIgnoringCase(one.name.c_str(), other.name.c_str());
}

bool ordersBefore(const SummaryNamedObject& one, const SummaryNamedObject& other) {
  return compareNames(one, other) < 0;
}

SummaryNamedObject summaryOf(const Candidates::value_type& candidate, bool editable) {
  SummaryNamedObject summary;
  summary.id = candidate.first;
  summary.editable = editable;
  summary.name = candidate.second.name;
  return summary;
}

// Puts each of `added`, in their order, before the first of `out` whose name is greater, or at the end.
void insertByName(Summaries& added, Summaries& out) {
  if (!std::is_sorted(out.begin(), out.end(), ordersBefore)) {
    for (const SummaryNamedObject& summary : added) {
      const auto greater = std::find_if(
          out.begin(), out.end(), [&](const SummaryNamedObject& listed) { return ordersBefore(summary, listed); });
      out.insert(greater, summary);
    }
    return;
  }
  // The same, at the cost of one sort.
  const auto listed = static_cast<std::ptrdiff_t>(out.size());
  out.insert(out.end(), added.begin(), added.end());
  std::stable_sort(out.begin() + listed, out.end(), ordersBefore);
  std::inplace_merge(out.begin(), out.begin() + listed, out.end(), ordersBefore);
}

// One row: an object and one of its owners.
struct OwnedObject {
  unsigned int entityId = 0;
  unsigned int id = 0;
  const char* name = nullptr;  // until the next row
};

// Reads the current row. False, and logged, when a column is NULL or not a number.
bool readOwnedObject(RdbmsInterface& db, const char* statement, OwnedObject& object) {
  const char* column = db.getColVal("EntityID");
  if (!readNumber(column, object.entityId)) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::_getNamedObjIds: could not retrieve EntityID from %s for statement %s",
                   shownText(column), statement);
    return false;
  }
  column = db.getColVal("NamedObjID");
  if (!readNumber(column, object.id)) {
    PolicyLog::log(LogLevel::Error,
                   "ZaroNamedObj::_getNamedObjIds: could not retrieve NamedObjID from %s for statement %s",
                   shownText(column), statement);
    return false;
  }
  object.name = db.getColVal("Name");
  if (object.name == nullptr) {
    PolicyLog::log(LogLevel::Error,
                   "ZaroNamedObj::_getNamedObjIds: could not retrieve tb_NamedObjID.Name for statement %s", statement);
    return false;
  }
  return true;
}

// How the entities of one kind are related.
struct Kinship {
  using Relatives = int (*)(const char* rootEntity, EntitySet& entities, EntitySet& found, bool removeFound);

  GroupEntity::EntityType type;
  Relatives children;
  Relatives parents;
};

constexpr Kinship kWildcardKinship = {GroupEntity::Wildcard, EntityUtils::getAllWildcardChildren,
                                      EntityUtils::getAllWildcardParents};
constexpr Kinship kLdapKinship = {GroupEntity::LdapGroup, EntityUtils::getAllLdapChildren,
                                  EntityUtils::getAllLdapParents};

using AddRelatives = void (*)(EntitySet& relatives, Candidates& candidates, Summaries& out);

// One pass: the relatives of each of the administrator's entities of the type, in their order.
bool addRelatives(const Entities& adminEntities, GroupEntity::EntityType type, EntitySet& all,
                  Kinship::Relatives relativesOf, AddRelatives add, Candidates& candidates, Summaries& out) {
  for (const GroupEntity& entity : adminEntities) {
    if (entity.type != type) {
      continue;
    }
    EntitySet found;
    if (relativesOf(entity.name.c_str(), all, found, false) != ZaroErrC::Success) {
      return false;
    }
    add(found, candidates, out);
  }
  return true;
}

bool addRelated(RdbmsInterface& db, const Kinship& kinship, const Entities& adminEntities, Candidates& candidates,
                Summaries& out) {
  EntitySet all;
  if (EntityUtils::_getAllEntitiesOfSameType(db, kinship.type, all) != ZaroErrC::Success) {
    return false;
  }
  // Parents after all children, for they have the last word.
  return addRelatives(adminEntities, kinship.type, all, kinship.children, ZaroNamedObj::_addChildrenNamedObjs,
                      candidates, out) &&
         addRelatives(adminEntities, kinship.type, all, kinship.parents, ZaroNamedObj::_addParentNamedObjs, candidates,
                      out);
}

void logMatch(const GroupEntity& relative) {
  PolicyLog::log(LogLevel::Trace, "Found match for %s (id:%d)", relative.name.c_str(), relative.id);
}

// Takes the children from a candidate's owners; whether there was one.
bool removeChildren(const EntitySet& children, const Candidates::value_type& candidate, std::set<unsigned int>& owners) {
  PolicyLog::log(LogLevel::Trace, "_addChildrenNamedObjs: Checking %s (id:%d): set size:%d",
                 candidate.second.name.c_str(), candidate.first, static_cast<int>(owners.size()));
  bool removed = false;
  for (const GroupEntity& child : children) {
    PolicyLog::log(LogLevel::Trace, "_addChildrenNamedObjs: Checking child %s (id:%d)", child.name.c_str(), child.id);
    if (owners.count(child.id) != 0) {
      logMatch(child);
      owners.erase(child.id);
      removed = true;
    }
  }
  return removed;
}

bool hasType(const Entities& entities, GroupEntity::EntityType type) {
  return std::any_of(entities.begin(), entities.end(), [&](const GroupEntity& entity) { return entity.type == type; });
}

}  // namespace

bool ZaroNamedObj::getIds(RdbmsInterface& db, unsigned int adminId, NaObjType type, Summaries& out) {
  const bool isRoot = EntityUtils::isAdminRoot(db, adminId);
  Candidates candidates;
  if (!_getNamedObjIds(db, candidates, type, isRoot ? &out : nullptr)) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::getIds: _getNamedObjIds failed for admin %d", adminId);
    return false;
  }
  if (isRoot) {
    return true;
  }
  Entities entities;
  const int status = EntityUtils::getEntity(db, adminId, entities);
  if (status != ZaroErrC::Success) {
    PolicyLog::log(LogLevel::Error, "ZaroNamedObj::getIds: EntityUtils::getEntity failed (ZaroErrC:%d) for admin %d",
                   status, adminId);
    return false;
  }
  _addDirRefNamedObjIds(entities, candidates, out);
  if (!_addIndirRefNamedObjIds(db, entities, candidates, out)) {
    return false;
  }
  for (SummaryNamedObject& summary : out) {
    summary.deletable = summary.editable && _isDeletability(db, summary.id);
  }
  return true;
}

bool ZaroNamedObj::_getNamedObjIds(RdbmsInterface& db, _candidates& candidates, NaObjType type, Summaries* rootOut) {
  ZARO::StoreStatement<512> statement(db);
  const auto read = [&]() -> bool {
    statement.run("ui_GetEntityNamedObj.sql", static_cast<int>(type), static_cast<int>(type));
    while (db.fetchNextRow() == 0) {
      OwnedObject object;
      if (!readOwnedObject(db, statement.text(), object)) {
        return false;
      }
      if (isReservedName(object.name)) {
        continue;
      }
      const auto [candidate, isNew] = candidates.try_emplace(object.id);
      candidate->second.entities.insert(object.entityId);
      if (!isNew) {
        continue;
      }
      candidate->second.name = object.name;
      if (rootOut != nullptr) {
        rootOut->push_back(summaryOf(*candidate, true));
      }
    }
    return true;
  };
  return statement.guard("ZaroNamedObj::_getNamedObjIds: Exception \"%s\" thrown for statement %s", false, read);
}

void ZaroNamedObj::_addDirRefNamedObjIds(Entities& adminEntities, _candidates& candidates, Summaries& out) {
  std::set<unsigned int> adminIds;
  for (const GroupEntity& entity : adminEntities) {
    adminIds.insert(entity.id);
  }
  Summaries added;
  for (auto candidate = candidates.begin(); candidate != candidates.end();) {
    std::set<unsigned int>& owners = candidate->second.entities;
    const std::size_t before = owners.size();
    for (auto owner = owners.begin(); owner != owners.end();) {
      owner = adminIds.count(*owner) != 0 ? owners.erase(owner) : std::next(owner);
    }
    if (owners.size() != before) {
      added.push_back(summaryOf(*candidate, owners.empty()));
    }
    candidate = owners.size() != before && owners.empty() ? candidates.erase(candidate) : std::next(candidate);
  }
  insertByName(added, out);
}

bool ZaroNamedObj::_addIndirRefNamedObjIds(RdbmsInterface& db, Entities& adminEntities, _candidates& candidates,
                                           Summaries& out) {
  if (hasType(adminEntities, GroupEntity::Wildcard) && !_addRelatedWildcardIds(db, adminEntities, candidates, out)) {
    return false;
  }
  return !hasType(adminEntities, GroupEntity::LdapGroup) || _addRelatedLdapIds(db, adminEntities, candidates, out);
}

bool ZaroNamedObj::_addRelatedWildcardIds(RdbmsInterface& db, Entities& adminEntities, _candidates& candidates,
                                          Summaries& out) {
  return addRelated(db, kWildcardKinship, adminEntities, candidates, out);
}

bool ZaroNamedObj::_addRelatedLdapIds(RdbmsInterface& db, Entities& adminEntities, _candidates& candidates,
                                      Summaries& out) {
  return addRelated(db, kLdapKinship, adminEntities, candidates, out);
}

void ZaroNamedObj::_addChildrenNamedObjs(EntitySet& children, _candidates& candidates, Summaries& out) {
  if (children.empty()) {
    return;
  }
  for (auto candidate = candidates.begin(); candidate != candidates.end();) {
    std::set<unsigned int>& owners = candidate->second.entities;
    if (!removeChildren(children, *candidate, owners)) {
      ++candidate;
      continue;
    }
    _updateEditableIds(summaryOf(*candidate, owners.empty()), out);
    if (owners.empty()) {
      candidates.erase(candidate);
      candidate = candidates.begin();  // the trace shows the walk begin again
    } else {
      ++candidate;
    }
  }
}

void ZaroNamedObj::_addParentNamedObjs(EntitySet& parents, _candidates& candidates, Summaries& out) {
  if (parents.empty()) {
    return;
  }
  for (const auto& candidate : candidates) {
    const std::set<unsigned int>& owners = candidate.second.entities;
    PolicyLog::log(LogLevel::Trace, "_addParentNamedObjs: Checking %s (id:%d): set size:%d",
                   candidate.second.name.c_str(), candidate.first, static_cast<int>(owners.size()));
    if (owners.empty()) {
      continue;
    }
    for (const GroupEntity& parent : parents) {
      PolicyLog::log(LogLevel::Trace, "_addParentNamedObjs: Checking parent %s (id:%d)", parent.name.c_str(), parent.id);
      if (owners.count(parent.id) != 0) {
        logMatch(parent);
        _updateEditableIds(summaryOf(candidate, false), out);
      }
    }
  }
}

void ZaroNamedObj::_updateEditableIds(const SummaryNamedObject& summary, Summaries& out) {
  for (auto listed = out.begin(); listed != out.end(); ++listed) {
    const int order = compareNames(summary, *listed);
    if (order < 0) {
      out.insert(listed, summary);
      return;
    }
    if (order == 0 && listed->id == summary.id) {
      listed->editable = summary.editable;
      return;
    }
  }
  out.push_back(summary);
}
