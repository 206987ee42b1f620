#include "store/Objects.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <iterator>
#include <map>
#include <utility>

#include "ZaroErrC.h"
#include "ZaroRuntime/Installation.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "installation/HarmlessStatement.h"
#include "installation/StatementCatalog.h"
#include "store/AddressGroups.h"
#include "store/Database.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

struct TypeRow {
  ZaroNamedObj::NaObjType type;
  const char* name;
};
constexpr TypeRow kTypes[] = {
    {ZaroNamedObj::QuarantineArea, "quarantine"},
    {ZaroNamedObj::GroupOfAddresses, "group"},
};

constexpr const char* kReservedPrefix = "OPP:";
// Every character counts, and case too, which LIKE of SQLite does not see.
constexpr const char* kIsReserved = "substr(name, 1, 4) = 'OPP:'";

ZaroNamedObj::NaObjType typeIn(const StoreConnection::Row& row, std::size_t column) {
  return static_cast<ZaroNamedObj::NaObjType>(std::stoi(row[column].value_or("0")));
}

std::vector<StoredObject> objectsWhere(StoreConnection& db, const std::string& condition) {
  std::vector<StoredObject> objects;
  for (const auto& row : db.rows("SELECT id, type, name FROM named_object WHERE " + condition, {"id", "type", "name"})) {
    objects.push_back({idIn(row, 0), typeIn(row, 1), row[2].value_or("")});
  }
  return objects;
}

std::string whereId(unsigned int id) {
  return "id = " + std::to_string(id);
}

std::string nameOf(const StoredObject& object) {
  return "object " + std::to_string(object.id) + " (" + quoted(object.name) + ")";
}

void refuseWrongContent(const std::string& content) {
  std::string text = content;
  text.erase(
      std::remove_if(text.begin(), text.end(), [](char byte) { return byte == '\n' || byte == '\r' || byte == '\t'; }),
      text.end());
  if (!isPlainText(text)) {
    throw UsageError("the content is not UTF-8, or holds control characters other than line ends and tabs");
  }
}

std::size_t sizeInLiteral(const std::string& text) {
  return text.size() + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\''));
}

// The library gives the statement a buffer of fixed size, and one made to measure only when its texts are a little
// longer than would fit: what lies between is too large for the one and too small for the other.
void refuseWhatDoesNotFit(const char* file, const std::string& name, const std::string& content,
                          const std::vector<std::string>& numbers) {
  constexpr std::size_t kTexts = 2;
  const CataloguedStatement& statement = *findStatement(file);

  const std::string path = zaroruntime::Installation::fromEnvironment().sqlDirectory() + "/" + file;
  std::string words = harmlessStatement(path);
  words.erase(words.find_last_not_of(" \t\r\n") + 1);
  const std::size_t data = sizeInLiteral(name) + sizeInLiteral(content);
  std::size_t size = words.size() - kTexts - numbers.size() + data + 1;  // a byte ends it
  for (const std::string& number : numbers) {
    size += number.size();
  }
  if (size > bufferSize(statement, data)) {
    throw RuntimeError("name and content cannot be stored: with quotes counted twice they have " +
                           std::to_string(data) + " bytes, and the statement takes up to " +
                           std::to_string(statement.buffer.fixed - (size - data)) + " or more than " +
                           std::to_string(statement.buffer.longestTexts),
                       FailureKind::Data);
  }
}

std::string contentOf(StoreConnection& db, const StoredObject& object) {
  std::string content;
  std::string name;
  if (!ZaroNamedObj::getBlob(db.library(), object.id, content, name)) {
    throw DatabaseError::because("cannot read " + nameOf(object));
  }
  return content;
}

void requireStored(StoreConnection& db, const StoredObject& object, const std::string& content) {
  const auto found = objectsWhere(db, whereId(object.id));
  if (found.size() != 1 || found.front().type != object.type || found.front().name != object.name ||
      contentOf(db, object) != content) {
    throw RuntimeError(nameOf(object) + " was written, but does not come back so; nothing is changed", FailureKind::Data);
  }
}

std::string numberOf(ZaroNamedObj::NaObjType type) {
  return std::to_string(static_cast<int>(type));
}

bool isReserved(const std::string& name) {
  return name.rfind(kReservedPrefix, 0) == 0;
}

// Whether this is the area that the library takes for the system's.
bool isSystemArea(StoreConnection& db, const StoredObject& object) {
  const auto first =
      db.value("SELECT min(id) AS first FROM named_object WHERE type = " + numberOf(ZaroNamedObj::QuarantineArea) +
                   " AND " + kIsReserved,
               "first");
  return first == std::to_string(object.id);
}

[[noreturn]] void refuseEditing(const Viewer& viewer, const StoredObject& object) {
  throw RuntimeError(
      quoted(viewer.name) + " may not edit " + nameOf(object) +
          " (code 6024): not every owner is a managing group of the administrator's; see zaroctl object why",
      FailureKind::Refused);
}

// Locks an object for a change to its end. NotThere for what the viewer does not see.
StoredObject lockSeen(StoreConnection& db, const Viewer& viewer, unsigned int id) {
  const auto found = objectsWhere(db, whereId(id) + db.forUpdate());
  if (found.empty()) {
    throwNotSeen(viewer, id);
  }
  const StoredObject& object = found.front();
  if (isReserved(object.name) && viewer.isRoot) {
    return object;  // which is in no list, not even the root's
  }
  const auto visible = visibleObjects(db, viewer, object.type);
  if (std::none_of(visible.begin(), visible.end(), [&](const SummaryNamedObject& seen) { return seen.id == id; })) {
    throwNotSeen(viewer, id);
  }
  return object;
}

std::vector<ObjectText> textsWhere(const std::string& condition) {
  StoreConnection db;
  std::vector<ObjectText> texts;
  std::map<unsigned int, std::string*> groups;
  for (auto& row : db.rows("SELECT id, type, name, content FROM named_object WHERE " + condition + " ORDER BY id",
                           {"id", "type", "name", "content"})) {
    texts.push_back({{idIn(row, 0), typeIn(row, 1), std::move(row[2]).value_or("")}, std::move(row[3]).value_or("")});
  }
  for (ObjectText& text : texts) {
    if (text.object.type == ZaroNamedObj::GroupOfAddresses) {
      text.text.clear();
      groups[text.object.id] = &text.text;
    }
  }
  if (groups.empty()) {
    return texts;
  }
  for (const auto& row : db.rows("SELECT group_id, address FROM address_group_member WHERE group_id IN (SELECT id FROM "
                                 "named_object WHERE " +
                                     condition + ") ORDER BY group_id, position",
                                 {"group_id", "address"})) {
    const auto group = groups.find(idIn(row, 0));
    if (group != groups.end()) {
      group->second->append(group->second->empty() ? "" : "\n").append(row[1].value_or(""));
    }
  }
  return texts;
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text.append(text.empty() ? "" : ", ").append(quoted(name));
  }
  return text;
}

Viewer viewerIn(StoreConnection& db, const std::string& adminName, unsigned int id) {
  const bool isRoot = answerOf("cannot tell whether " + quoted(adminName) + " is the administration root",
                               [&] { return EntityUtils::isAdminRoot(db.library(), id); });
  Viewer viewer = {adminName, id, isRoot, entitiesOf(db, id)};
  if (!viewer.isRoot && viewer.entities.empty()) {
    throw NotThere(quoted(adminName) + " is assigned to no managing group, and sees no object");
  }
  return viewer;
}

void refuseOtherType(StoreConnection& db, const Viewer& viewer, const StoredObject& object, const StoredObject& changed) {
  if (changed.type == object.type) {
    return;
  }
  if (object.type == ZaroNamedObj::GroupOfAddresses &&
      db.value("SELECT count(*) AS members FROM address_group_member WHERE group_id = " + std::to_string(object.id),
               "members") != "0") {
    throw RuntimeError(nameOf(object) + " was not changed: an address group with members stays one",
                       FailureKind::Refused);
  }
  const auto rules = rulesThatUse(db, object.id);
  if (!rules.empty()) {
    throw RuntimeError(
        nameOf(object) + " was not changed: it keeps its type while in use by " + rulesText(viewer.isRoot, rules),
        FailureKind::Refused);
  }
  // As a quarantine area it would be taken for the system's.
  if (isReserved(changed.name)) {
    throw RuntimeError(nameOf(object) + " was not changed: rename it first, since only the system's quarantine area " +
                           "has a name that begins with " + quoted(kReservedPrefix),
                       FailureKind::Refused);
  }
}

[[noreturn]] void refuseInUse(const Viewer& viewer, const StoredObject& object, const std::vector<std::string>& rules) {
  throw RuntimeError(nameOf(object) + " was not removed: in use (code 6025) by " + rulesText(viewer.isRoot, rules),
                     FailureKind::Refused);
}

void refuseNameOfGroup(const StoredObject& object) {
  const std::string wrong = object.type == ZaroNamedObj::GroupOfAddresses ? wrongGroupName(object.name) : "";
  if (!wrong.empty()) {
    throw UsageError("the name " + quoted(object.name) + " of an address group " + wrong);
  }
}

}  // namespace

std::string nameOfType(ZaroNamedObj::NaObjType type) {
  const auto* const row =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const TypeRow& known) { return known.type == type; });
  return row != std::end(kTypes) ? row->name : numberOf(type);
}

ZaroNamedObj::NaObjType objectType(const std::string& text) {
  const auto* const row =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const TypeRow& known) { return text == known.name; });
  if (row != std::end(kTypes)) {
    return row->type;
  }
  const auto number = decimalNumber(text);
  if (!number || *number < INT_MIN || *number > INT_MAX) {
    throw UsageError("--type: " + quoted(text) + " is neither quarantine, nor group, nor a number");
  }
  return static_cast<ZaroNamedObj::NaObjType>(*number);
}

std::vector<ZaroNamedObj::NaObjType> usedTypes() {
  std::vector<ZaroNamedObj::NaObjType> types;
  for (const auto& row : StoreConnection().rows("SELECT DISTINCT type FROM named_object ORDER BY type", {"type"})) {
    types.push_back(typeIn(row, 0));
  }
  return types;
}

void refuseReservedName(const std::string& name) {
  if (isReserved(name)) {
    throw UsageError("the name " + quoted(name) + " begins with " + quoted(kReservedPrefix) +
                     ", as only the system's quarantine area does");
  }
}

std::optional<StoredObject> findStored(unsigned int id) {
  StoreConnection db;
  const auto objects = objectsWhere(db, whereId(id));
  return objects.empty() ? std::nullopt : std::make_optional(objects.front());
}

StoredObject findObject(unsigned int id) {
  const auto object = findStored(id);
  if (!object) {
    throw NotThere("no object " + std::to_string(id));
  }
  return *object;
}

std::string contentOf(const StoredObject& object) {
  StoreConnection db;
  return contentOf(db, object);
}

std::vector<std::string> rulesThatUse(unsigned int objectId) {
  StoreConnection db;
  return rulesThatUse(db, objectId);
}

std::vector<std::string> rulesThatUse(StoreConnection& db, unsigned int objectId) {
  const std::string id = std::to_string(objectId);
  std::vector<std::string> names;
  for (const auto& row : db.rows("SELECT name FROM policy_rule WHERE quarantine_id = " + id + " OR recipients_id = " + id +
                                     " OR EXISTS (SELECT 1 FROM policy_rule_object WHERE rule_id = "
                                     "policy_rule.id AND object_id = " +
                                     id + ") ORDER BY name",
                                 {"name"})) {
    names.push_back(row[0].value_or(""));
  }
  return names;
}

std::string rulesText(bool namesThem, const std::vector<std::string>& rules) {
  if (namesThem) {
    return listed(rules);
  }
  return rules.size() == 1 ? "a rule" : std::to_string(rules.size()) + " rules";
}

std::vector<ObjectText> textsOfType(ZaroNamedObj::NaObjType type) {
  return textsWhere("type = " + numberOf(type));
}

std::vector<ObjectText> textsOf(const std::vector<unsigned int>& ids) {
  std::string list;
  for (const unsigned int id : ids) {
    list.append(list.empty() ? "" : ", ").append(std::to_string(id));
  }
  const auto found = list.empty() ? std::vector<ObjectText>() : textsWhere("id IN (" + list + ")");
  std::vector<ObjectText> texts;
  for (const unsigned int id : ids) {
    const auto text =
        std::find_if(found.begin(), found.end(), [&](const ObjectText& one) { return one.object.id == id; });
    if (text == found.end()) {
      throw NotThere("no object " + std::to_string(id));
    }
    texts.push_back(*text);
  }
  return texts;
}

Viewer findViewer(const std::string& adminName) {
  const unsigned int id = adminIdOf(adminName);
  actAs(adminName);
  StoreConnection db;
  return viewerIn(db, adminName, id);
}

Viewer lockViewer(StoreConnection& db, const std::string& adminName) {
  // For update, since the lock of a reference does not keep `is_root`.
  const auto id = db.value("SELECT id FROM administrator WHERE name = " + sqlLiteral(adminName) + db.forUpdate(), "id");
  if (!id) {
    throw NotThere("no administrator named " + quoted(adminName));
  }
  db.rows("SELECT entity_id FROM administrator_entity WHERE administrator_id = " + *id + " ORDER BY entity_id" +
              db.forReference(),
          {"entity_id"});
  return viewerIn(db, adminName, static_cast<unsigned int>(std::stoul(*id)));
}

std::vector<SummaryNamedObject> visibleObjects(const Viewer& viewer, ZaroNamedObj::NaObjType type) {
  StoreConnection db;
  return visibleObjects(db, viewer, type);
}

std::vector<SummaryNamedObject> visibleObjects(StoreConnection& db, const Viewer& viewer, ZaroNamedObj::NaObjType type) {
  std::vector<SummaryNamedObject> objects;
  const std::string failure = "cannot list the objects of " + quoted(viewer.name);
  if (!answerOf(failure, [&] { return ZaroNamedObj::getIds(db.library(), viewer.id, type, objects); })) {
    throw DatabaseError::because(failure);
  }
  return objects;
}

bool isModifiable(StoreConnection& db, const Viewer& viewer, unsigned int id) {
  return answerOf("cannot tell whether " + quoted(viewer.name) + " may edit object " + std::to_string(id),
                  [&] { return ZaroNamedObj::isEditable(db.library(), viewer.id, id); });
}

void throwNotSeen(const Viewer& viewer, unsigned int id) {
  throw NotThere(quoted(viewer.name) + " sees no object " + std::to_string(id) + "; see zaroctl object why");
}

StoredObject addObject(const std::string& admin, ZaroNamedObj::NaObjType type, const std::string& name,
                       const std::string& content) {
  refuseReservedName(name);
  refuseNameOfGroup({0, type, name});
  refuseWrongContent(content);
  refuseWhatDoesNotFit("ui_AddNamedObj.sql", name, content, {numberOf(type)});
  return changeAs(admin, [&](StoreConnection& db, const Viewer& viewer) {
    if (viewer.entities.empty()) {
      throw RuntimeError(quoted(viewer.name) + " is assigned to no managing group that could own the object",
                         FailureKind::Refused);
    }
    StoredObject object = {0, type, name};
    if (!ZaroNamedObj::add(db.library(), viewer.id, name.c_str(), content.c_str(), type, object.id)) {
      throw DatabaseError::because("the object " + quoted(name) + " was not added");
    }
    requireStored(db, object, content);
    return object;
  });
}

StoredObject changeObject(const std::string& admin, unsigned int id, const ObjectChange& change) {
  if (change.name) {
    refuseReservedName(*change.name);
  }
  if (change.content) {
    refuseWrongContent(*change.content);
  }
  return changeAs(admin, [&](StoreConnection& db, const Viewer& viewer) {
    const StoredObject stored = lockSeen(db, viewer, id);
    // The library changes whatever it is told to.
    if (!ZaroNamedObj::isEditable(db.library(), viewer.id, id)) {
      refuseEditing(viewer, stored);
    }
    if ((change.name || change.type) && isSystemArea(db, stored)) {
      throw RuntimeError(nameOf(stored) + " is the system's: it keeps its name and type", FailureKind::Refused);
    }
    StoredObject changed = {id, change.type.value_or(stored.type), change.name.value_or(stored.name)};
    refuseOtherType(db, viewer, stored, changed);
    if (change.name || change.type) {
      refuseNameOfGroup(changed);
    }
    const std::string content = change.content ? *change.content : contentOf(db, stored);
    refuseWhatDoesNotFit("ui_ModifyNamedObj.sql", changed.name, content, {numberOf(changed.type), std::to_string(id)});
    if (!ZaroNamedObj::modify(db.library(), id, viewer.id, changed.name.c_str(), content.c_str(), changed.type)) {
      throw DatabaseError::because(nameOf(stored) + " was not changed");
    }
    requireStored(db, changed, content);
    return changed;
  });
}

StoredObject removeObject(const std::string& admin, unsigned int id) {
  return changeAs(admin, [&](StoreConnection& db, const Viewer& viewer) {
    StoredObject object = lockSeen(db, viewer, id);
    if (isSystemArea(db, object)) {
      throw RuntimeError(nameOf(object) + " is the system's, and is not removed", FailureKind::Refused);
    }
    // The library asks for areas and conditions, not for recipients that no condition names. As there, that an object
    // is in use comes before that it may not be edited.
    const auto rules = rulesThatUse(db, id);
    if (!rules.empty()) {
      refuseInUse(viewer, object, rules);
    }
    switch (ZaroNamedObj::remove(db.library(), id, viewer.id)) {
      case ZaroErrC::Success:
        break;
      case ZaroErrC::NoSuchObject:
        throw NotThere(nameOf(object) + " is gone already (code 6022)");
      case ZaroErrC::ObjectCameIntoUse:
        throw RuntimeError(nameOf(object) + " was not removed: a rule came to use it meanwhile (code 6023)",
                           FailureKind::Refused);
      case ZaroErrC::ObjectNotEditable:
        refuseEditing(viewer, object);
      case ZaroErrC::ObjectInUse:
        refuseInUse(viewer, object, rulesThatUse(db, id));
      default:
        throw DatabaseError::because(nameOf(object) + " was not removed");
    }
    if (!objectsWhere(db, whereId(id)).empty()) {
      throw RuntimeError(nameOf(object) + " was not removed, though the database said so", FailureKind::Data);
    }
    return object;
  });
}
