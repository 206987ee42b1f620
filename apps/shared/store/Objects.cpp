#include "store/Objects.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <iterator>

#include "ZaroErrC.h"
#include "ZaroRuntime/Installation.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "installation/StatementCatalog.h"
#include "store/Database.h"

using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

struct TypeRow {
  ZaroNamedObj::NaObjType type;
  const char* name;
};
constexpr TypeRow kTypes[] = {
    {ZaroNamedObj::QuarantineArea, "quarantine"},
    {ZaroNamedObj::GroupOfAddresses, "group"},
};

ZaroNamedObj::NaObjType typeIn(const SqlSession::Row& row, std::size_t column) {
  return static_cast<ZaroNamedObj::NaObjType>(std::stoi(row[column].value_or("0")));
}

std::vector<StoredObject> objectsWhere(const std::string& condition) {
  std::vector<StoredObject> objects;
  for (const auto& row :
       openSession()->rows("SELECT id, type, name FROM named_object WHERE " + condition + " ORDER BY id")) {
    objects.push_back({idIn(row, 0), typeIn(row, 1), row[2].value_or("")});
  }
  return objects;
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

// The store gives a statement 8192 bytes, and a buffer made to measure only when its data is longer than 8291: what
// lies between is too large for the one and too small for the other.
void refuseWhatDoesNotFit(const char* file, const std::string& name, const std::string& content,
                          const std::vector<std::string>& numbers) {
  constexpr std::size_t kFixedSize = 8192;
  constexpr std::size_t kLongestInFixed = 8291;
  constexpr std::size_t kRoomForTheRest = 100;
  constexpr std::size_t kTexts = 2;

  const std::string path = zaroruntime::Installation::fromEnvironment().sqlDirectory() + "/" + file;
  std::string words = harmlessStatement(path);
  words.erase(words.find_last_not_of(" \t\r\n") + 1);
  const std::size_t data = sizeInLiteral(name) + sizeInLiteral(content);
  std::size_t size = words.size() - kTexts - numbers.size() + data + 1;  // a byte ends it
  for (const std::string& number : numbers) {
    size += number.size();
  }
  if (size > (data > kLongestInFixed ? data + kRoomForTheRest : kFixedSize)) {
    throw RuntimeError("name and content cannot be stored: with quotes counted twice they have " +
                       std::to_string(data) + " bytes, and the statement takes up to " +
                       std::to_string(kFixedSize - (size - data)) + " or more than " + std::to_string(kLongestInFixed));
  }
}

void requireStored(const StoredObject& object, const std::string& content) {
  const auto found = objectsWhere("id = " + std::to_string(object.id));
  if (found.size() != 1 || found.front().type != object.type || found.front().name != object.name ||
      contentOf(object) != content) {
    throw RuntimeError(nameOf(object) + " was written, but does not come back so");
  }
}

std::string numberOf(ZaroNamedObj::NaObjType type) {
  return std::to_string(static_cast<int>(type));
}

[[noreturn]] void refuseEditing(const Viewer& viewer, const StoredObject& object) {
  throw RuntimeError(quoted(viewer.name) + " may not edit " + nameOf(object) +
                     " (code 6024): not every owner is a managing group of the administrator's; see zaroctl object why");
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text.append(text.empty() ? "" : ", ").append(quoted(name));
  }
  return text;
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
  for (const auto& row : openSession()->rows("SELECT DISTINCT type FROM named_object ORDER BY type")) {
    types.push_back(typeIn(row, 0));
  }
  return types;
}

StoredObject findObject(unsigned int id) {
  const auto objects = objectsWhere("id = " + std::to_string(id));
  if (objects.empty()) {
    throw NotThere("no object " + std::to_string(id));
  }
  return objects.front();
}

std::vector<StoredObject> objectsOfType(ZaroNamedObj::NaObjType type) {
  return objectsWhere("type = " + numberOf(type));
}

std::string contentOf(const StoredObject& object) {
  requireLibrary();
  ZARO::RdbmsInterface db;
  std::string content;
  std::string name;
  if (!ZaroNamedObj::getBlob(db, object.id, content, name)) {
    throw RuntimeError("cannot read " + nameOf(object) + ": " + databaseFailure());
  }
  return content;
}

std::vector<std::string> rulesThatUse(unsigned int objectId) {
  const std::string id = std::to_string(objectId);
  std::vector<std::string> names;
  for (const auto& row : openSession()->rows("SELECT name FROM policy_rule WHERE quarantine_id = " + id +
                                             " OR EXISTS (SELECT 1 FROM policy_rule_object WHERE rule_id = "
                                             "policy_rule.id AND object_id = " +
                                             id + ") ORDER BY name")) {
    names.push_back(row[0].value_or(""));
  }
  return names;
}

Viewer findViewer(const std::string& adminName) {
  const unsigned int id = adminIdOf(adminName);
  ZARO::RdbmsInterface db;
  Viewer viewer = {adminName, id, EntityUtils::isAdminRoot(db, id), entitiesOf(id)};
  if (!viewer.isRoot && viewer.entities.empty()) {
    throw NotThere(quoted(adminName) + " is assigned to no managing group, and sees no object");
  }
  return viewer;
}

std::vector<SummaryNamedObject> visibleObjects(const Viewer& viewer, ZaroNamedObj::NaObjType type) {
  ZARO::RdbmsInterface db;
  std::vector<SummaryNamedObject> objects;
  if (!ZaroNamedObj::getIds(db, viewer.id, type, objects)) {
    throw RuntimeError("cannot list the objects of " + quoted(viewer.name) + ": " + databaseFailure());
  }
  return objects;
}

StoredObject addObject(const Viewer& viewer, ZaroNamedObj::NaObjType type, const std::string& name,
                       const std::string& content) {
  refuseWrongContent(content);
  if (viewer.entities.empty()) {
    throw RuntimeError(quoted(viewer.name) + " is assigned to no managing group that could own the object");
  }
  refuseWhatDoesNotFit("ui_AddNamedObj.sql", name, content, {numberOf(type)});
  ZARO::RdbmsInterface db;
  StoredObject object = {0, type, name};
  if (!ZaroNamedObj::add(db, viewer.id, name.c_str(), content.c_str(), type, object.id)) {
    throw RuntimeError("the object " + quoted(name) + " was not added, or has not got its owners: " + databaseFailure());
  }
  requireStored(object, content);
  return object;
}

void changeObject(const Viewer& viewer, const StoredObject& changed, const std::string& content) {
  refuseWrongContent(content);
  refuseWhatDoesNotFit("ui_ModifyNamedObj.sql", changed.name, content,
                       {numberOf(changed.type), std::to_string(changed.id)});
  ZARO::RdbmsInterface db;
  // The library changes whatever it is told to.
  if (!ZaroNamedObj::isEditable(db, viewer.id, changed.id)) {
    refuseEditing(viewer, changed);
  }
  if (!ZaroNamedObj::modify(db, changed.id, viewer.id, changed.name.c_str(), content.c_str(), changed.type)) {
    throw RuntimeError(nameOf(changed) + " was not changed: " + databaseFailure());
  }
  requireStored(changed, content);
}

void removeObject(const Viewer& viewer, const StoredObject& object) {
  ZARO::RdbmsInterface db;
  switch (ZaroNamedObj::remove(db, object.id, viewer.id)) {
    case ZaroErrC::Success:
      break;
    case ZaroErrC::NoSuchObject:
      throw NotThere(nameOf(object) + " is gone already (code 6022)");
    case ZaroErrC::ObjectCameIntoUse:
      throw RuntimeError(nameOf(object) + " was not removed: a rule came to use it meanwhile (code 6023)");
    case ZaroErrC::ObjectNotEditable:
      refuseEditing(viewer, object);
    case ZaroErrC::ObjectInUse:
      throw RuntimeError(nameOf(object) + " was not removed: in use (code 6025) by " + listed(rulesThatUse(object.id)));
    default:
      throw RuntimeError(nameOf(object) + " was not removed: " + databaseFailure());
  }
  if (!objectsWhere("id = " + std::to_string(object.id)).empty()) {
    throw RuntimeError(nameOf(object) + " was not removed, though the database said so");
  }
}
