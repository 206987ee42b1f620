#include "store/AddressGroups.h"

#include <algorithm>
#include <climits>
#include <map>
#include <set>

#include "AddressGroup.h"
#include "ZaroErrC.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Administration.h"
#include "store/Database.h"
#include "store/GroupEdit.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

// The library's statements have this much room for the quotes of the name, which are doubled; see
// docs/statement-files.md.
constexpr std::ptrdiff_t kMostQuotes = 40;
constexpr unsigned int kNoId = UINT_MAX;
constexpr auto kType = ZaroNamedObj::GroupOfAddresses;

std::vector<StoredGroup> groupsWhere(const std::string& condition) {
  std::vector<StoredGroup> groups;
  for (const auto& row : StoreConnection().rows(
           "SELECT id AS \"ObjectID\", name AS \"Name\" FROM named_object WHERE type = 5 AND " + condition,
           {"ObjectID", "Name"})) {
    groups.push_back({idIn(row, 0), row[1].value_or("")});
  }
  return groups;
}

template <typename Condition>
std::vector<StoredGroup> visibleGroups(const Viewer& viewer, Condition isWanted) {
  std::vector<StoredGroup> groups;
  for (const SummaryNamedObject& object : visibleObjects(viewer, kType)) {
    if (isWanted(object)) {
      groups.push_back({object.id, object.name});
    }
  }
  return groups;
}

[[noreturn]] void throwNotThere(const Actor& actor, const std::string& which) {
  throw NotThere(actor ? quoted(actor->name) + " sees no address group " + which : "no address group " + which);
}

// The managing groups that will own a group.
std::vector<GroupEntity> ownersFor(StoreConnection& db, const Viewer& viewer, std::optional<unsigned int> entityId) {
  std::vector<GroupEntity> owners = viewer.entities;
  if (entityId) {
    owners.erase(
        std::remove_if(owners.begin(), owners.end(), [&](const GroupEntity& owner) { return owner.id != *entityId; }),
        owners.end());
  }
  if (owners.empty() && entityId && viewer.isRoot &&
      db.value("SELECT id AS \"EntityID\" FROM entity WHERE id = " + std::to_string(*entityId), "EntityID")) {
    owners.emplace_back();
    owners.back().id = *entityId;
  }
  return owners;
}

// Names of the owners of every group, by its identifier.
std::map<unsigned int, std::vector<std::string>> ownersOfGroups(StoreConnection& db) {
  std::map<unsigned int, std::vector<std::string>> owners;
  for (const auto& row : db.rows(
           "SELECT object_id AS \"ObjectID\", entity.name AS \"EntityName\" FROM named_object_owner JOIN entity ON entity.id = "
           "entity_id JOIN named_object ON named_object.id = object_id WHERE named_object.type = 5 ORDER BY entity.name",
           {"ObjectID", "EntityName"})) {
    owners[idIn(row, 0)].push_back(row[1].value_or(""));
  }
  return owners;
}

// The actor by the rights of the transaction, which last to its end.
Actor lockActor(StoreConnection& db, const Actor& actor) {
  return actor ? Actor(lockViewer(db, actor->name)) : std::nullopt;
}

}  // namespace

std::vector<GroupSummary> listGroups(const Actor& actor) {
  StoreConnection db;
  std::set<unsigned int> visible;
  if (actor) {
    for (const SummaryNamedObject& object : visibleObjects(db, *actor, kType)) {
      visible.insert(object.id);
    }
  }
  auto owners = actor ? std::map<unsigned int, std::vector<std::string>>() : ownersOfGroups(db);
  std::vector<GroupSummary> groups;
  for (const auto& row : db.rows(
           "SELECT id AS \"ObjectID\", name AS \"Name\", (SELECT count(*) FROM address_group_member WHERE group_id = id) AS "
           "\"Members\" FROM named_object WHERE type = 5 ORDER BY name, id",
           {"ObjectID", "Name", "Members"})) {
    const unsigned int id = idIn(row, 0);
    if (!actor || visible.count(id) != 0) {
      groups.push_back({id, row[1].value_or(""), static_cast<std::size_t>(std::stoull(row[2].value_or("0"))),
                        !actor || isModifiable(db, *actor, id), owners[id]});
    }
  }
  return groups;
}

StoredGroup findGroup(const std::string& name, const Actor& actor) {
  auto groups = actor ? visibleGroups(*actor, [&](const SummaryNamedObject& object) { return object.name == name; })
                      : groupsWhere("name = " + sqlLiteral(name));
  if (groups.empty()) {
    throwNotThere(actor, "named " + quoted(name));
  }
  if (groups.size() > 1) {
    std::string ids;
    for (const StoredGroup& group : groups) {
      ids.append(ids.empty() ? "" : ", ").append(std::to_string(group.id));
    }
    throw UsageError(std::to_string(groups.size()) + " address groups are named " + quoted(name) + ": " + ids +
                     "; name one by its identifier");
  }
  groups.front().isNamed = true;
  return groups.front();
}

StoredGroup findGroup(unsigned int id, const Actor& actor) {
  const auto groups = actor ? visibleGroups(*actor, [&](const SummaryNamedObject& object) { return object.id == id; })
                            : groupsWhere("id = " + std::to_string(id));
  if (groups.empty()) {
    throwNotThere(actor, std::to_string(id));
  }
  return groups.front();
}

std::vector<std::string> membersOf(const StoredGroup& group) {
  requireLibrary();
  zaroruntime::forgetFailures();
  std::vector<AddressGroup::AddressGroupMember> members;
  // The library answers success also when the database failed.
  const int code = AddressGroup::getAddressGroupMembersByID(group.id, members);
  if (code != ZaroErrC::Success || zaroruntime::lastFailureKind() != FailureKind::None) {
    throw DatabaseError::because("cannot read the address group " + quoted(group.name));
  }
  if (members.empty()) {
    findGroup(group.id);  // it may have gone meanwhile
  }
  std::vector<std::string> addresses;
  addresses.reserve(members.size());
  for (auto& member : members) {
    addresses.push_back(std::move(member.second));
  }
  return addresses;
}

std::string wrongGroupName(const std::string& name) {
  std::string fault = wrongName(name);
  if (!fault.empty()) {
    return fault;
  }
  return std::count(name.begin(), name.end(), '\'') > kMostQuotes
             ? "has more than " + std::to_string(kMostQuotes) + " quotes"
             : "";
}

StoredGroup addGroup(const std::string& admin, std::optional<unsigned int> entityId, const std::string& name,
                     const std::vector<std::string>& members) {
  refuseReservedName(name);
  return changeAs(admin, [&](StoreConnection& db, const Viewer& viewer) {
    auto owners = ownersFor(db, viewer, entityId);
    if (owners.empty()) {
      throw RuntimeError("the address group " + quoted(name) + " was not added: " + quoted(viewer.name) +
                             (entityId ? " has no managing group " + std::to_string(*entityId)
                                       : " is assigned to no managing group that could own it"),
                         FailureKind::Refused);
    }
    const unsigned int id = ZaroNamedObj::addObj(db.library(), name.c_str(), "", kType);
    if (id == kNoId || !ZaroNamedObj::addEntityNamedObjIds(db.library(), id, kType, owners)) {
      throw DatabaseError::because("the address group " + quoted(name) + " was not added");
    }
    GroupEdit edit(db, std::nullopt, {id, name});
    edit.append(members);
    return edit.group();
  });
}

ChangedGroup changeGroup(const Actor& actor, const StoredGroup& group, const GroupChange& change) {
  return inTransaction([&](StoreConnection& db) {
    const Actor locked = lockActor(db, actor);
    GroupEdit edit(db, locked, group);
    ChangedGroup changed = {group.id, "", 0, {}, 0};
    if (change.name) {
      edit.rename(*change.name);
    }
    if (change.replacesMembers) {
      edit.removeAllMembers();
    }
    for (const std::string& address : change.removed) {
      changed.removed += edit.removeMember(address);
    }
    changed.present = edit.append(change.added);
    changed.members = change.countsMembers ? edit.countMembers() : 0;
    changed.name = edit.group().name;
    return changed;
  });
}

GroupSummary removeGroup(const Actor& actor, const StoredGroup& group) {
  return inTransaction([&](StoreConnection& db) {
    const Actor locked = lockActor(db, actor);
    GroupEdit edit(db, locked, group);
    GroupSummary removed = {group.id, edit.group().name, edit.countMembers(), true, {}};
    edit.removeGroup();
    return removed;
  });
}
